// String utilities: formatting, slicing by a separator, predicates, case, replacing, joining, splitting.
//
// Free functions over byte strings, without state; any thread may call them at once (ToLower and
// ToUpper read the global locale). Where an operation takes a `const std::string&`, it works on the
// string's zero-terminated text (it ends at the first NUL), except EraseAll and Join, which respect the
// stored length. A null `const char*` that must become a text raises std::logic_error (core/text.h).
// Meant for configuration and paths, not for hot loops.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorl {

// printf-style formatting into a string of any length, built in place in two passes. A failed second
// pass yields the empty string; a negative length from the first pass throws std::length_error.
std::string FormatString(const char* format, ...) __attribute__((format(printf, 1, 2)));

// `value` in decimal, right-adjusted in a field of `width` filled with `fill`; the fill goes in front of
// the sign (-5, 4, '0' gives "00-5"). A wider number is not cut.
std::string PadNumber(int32_t value, int32_t width, char fill);

// Slicing by the first or last occurrence of `separator` (matched whole). Not found gives the empty
// string, never the text.
std::string AfterFirst(const char* text, const char* separator);
std::string AfterFirst(const std::string& text, const char* separator);
std::string BeforeFirst(const char* text, const char* separator);
std::string BeforeFirst(const std::string& text, const char* separator);
std::string AfterLast(const char* text, const char* separator);
std::string AfterLast(const std::string& text, const char* separator);
std::string BeforeLast(const char* text, const char* separator);
std::string BeforeLast(const std::string& text, const char* separator);

// Predicates. StartsWith and EndsWith check their second argument for null first.
bool StartsWith(const char* text, const char* prefix);
bool EndsWith(const char* text, const char* suffix);
// `needle` must not be null; it is not checked.
bool Contains(const char* text, const char* needle);
bool Contains(const std::string& text, const char* needle);

// A copy with each byte passed through the ctype facet of the global locale at the time of the call.
std::string ToLower(const char* text);
std::string ToUpper(const char* text);

// Replaces `from` by `to`, searching again from position 0 after every replacement, so replaced text is
// searched too ("aabb", "ab", "" gives ""). Never ends when `from` is empty or `to` contains `from`.
std::string ReplaceAll(const char* text, const char* from, const char* to);
std::string ReplaceAll(const std::string& text, const std::string& from, const std::string& to);

// Removes `needle` (by its stored length) with the same rescan from position 0; returns the new length.
std::size_t EraseAll(std::string& text, const std::string& needle);

// The parts in order with `separator` between them; `separator` is read only when it is needed.
std::string Join(const std::vector<std::string>& parts, const char* separator);

// Appends to `out` the non-empty tokens of `text` between characters of the set `delimiters`; with
// `invert` the tokens are the runs of characters of the set. `out` is not cleared.
void Split(const char* text, std::vector<std::string>& out, const char* delimiters, bool invert);
void Split(const std::string& text, std::vector<std::string>& out, const std::string& delimiters,
           bool invert);

}  // namespace quorl
