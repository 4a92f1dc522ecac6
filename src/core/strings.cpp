#include "core/strings.h"

#include <cstdarg>
#include <cstdio>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "core/text.h"

namespace quorl {

void ThrowNullText() {
  throw std::logic_error(kNullTextMessage);
}

std::string FormatString(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list second;
  va_copy(second, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string result;
  try {
    // A negative length becomes a huge size here and throws std::length_error; that is intended.
    result.assign(static_cast<std::size_t>(static_cast<long>(length)), '\0');
  } catch (...) {
    va_end(second);
    throw;
  }
  const int written = std::vsnprintf(result.data(), static_cast<std::size_t>(length) + 1, format, second);
  va_end(second);
  if (written != length) result.clear();
  return result;
}

std::string PadNumber(int32_t value, int32_t width, char fill) {
  std::ostringstream stream;
  stream.width(width);
  stream.fill(fill);
  stream.setf(std::ios::right, std::ios::adjustfield);
  stream << value;
  return stream.str();
}

namespace {

// The zero-terminated view of a text: ends at the first NUL, whatever the stored length.
std::string_view Terminated(const char* text) {
  return std::string_view(RequireText(text));
}

std::string SliceAfter(std::string_view text, std::string_view separator, std::size_t found) {
  if (found == std::string_view::npos) return {};
  const std::size_t start = found + separator.size();
  if (start >= text.size()) return {};
  return std::string(text.substr(start));
}

std::string SliceBefore(std::string_view text, std::size_t found) {
  if (found == std::string_view::npos) return {};
  return std::string(text.substr(0, found));
}

}  // namespace

std::string AfterFirst(const char* text, const char* separator) {
  const std::string_view t = Terminated(text);
  const std::string_view s = Terminated(separator);
  return SliceAfter(t, s, t.find(s));
}
std::string AfterFirst(const std::string& text, const char* separator) {
  return AfterFirst(text.c_str(), separator);
}

std::string BeforeFirst(const char* text, const char* separator) {
  const std::string_view t = Terminated(text);
  const std::string_view s = Terminated(separator);
  return SliceBefore(t, t.find(s));
}
std::string BeforeFirst(const std::string& text, const char* separator) {
  return BeforeFirst(text.c_str(), separator);
}

std::string AfterLast(const char* text, const char* separator) {
  const std::string_view t = Terminated(text);
  const std::string_view s = Terminated(separator);
  return SliceAfter(t, s, t.rfind(s));
}
std::string AfterLast(const std::string& text, const char* separator) {
  return AfterLast(text.c_str(), separator);
}

std::string BeforeLast(const char* text, const char* separator) {
  const std::string_view t = Terminated(text);
  const std::string_view s = Terminated(separator);
  return SliceBefore(t, t.rfind(s));
}
std::string BeforeLast(const std::string& text, const char* separator) {
  return BeforeLast(text.c_str(), separator);
}

bool StartsWith(const char* text, const char* prefix) {
  const std::string_view p = Terminated(prefix);
  const std::string_view t = Terminated(text);
  return p.size() <= t.size() && t.compare(0, p.size(), p) == 0;
}

bool EndsWith(const char* text, const char* suffix) {
  const std::string_view s = Terminated(suffix);
  const std::string_view t = Terminated(text);
  return s.size() <= t.size() && t.compare(t.size() - s.size(), s.size(), s) == 0;
}

bool Contains(const char* text, const char* needle) {
  return Terminated(text).find(std::string_view(needle)) != std::string_view::npos;
}
bool Contains(const std::string& text, const char* needle) {
  return Contains(text.c_str(), needle);
}

namespace {

template <typename Convert>
std::string ConvertBytes(const char* text, Convert convert) {
  std::string result(Terminated(text));
  const std::locale locale;
  const auto& facet = std::use_facet<std::ctype<char>>(locale);
  for (char& c : result)
    c = convert(facet, c);
  return result;
}

}  // namespace

std::string ToLower(const char* text) {
  return ConvertBytes(text, [](const std::ctype<char>& facet, char c) { return facet.tolower(c); });
}

std::string ToUpper(const char* text) {
  return ConvertBytes(text, [](const std::ctype<char>& facet, char c) { return facet.toupper(c); });
}

namespace {

std::string ReplaceFromStart(std::string result, std::string_view from, std::string_view to) {
  // Every search starts over at position 0 and sees what was already replaced; that is intended.
  for (std::size_t found = result.find(from); found != std::string::npos; found = result.find(from)) {
    result.replace(found, from.size(), to);
  }
  return result;
}

}  // namespace

std::string ReplaceAll(const char* text, const char* from, const char* to) {
  const std::string_view t = Terminated(text);
  const std::string_view f = Terminated(from);
  const std::string_view r = Terminated(to);
  return ReplaceFromStart(std::string(t), f, r);
}

std::string ReplaceAll(const std::string& text, const std::string& from, const std::string& to) {
  return ReplaceAll(text.c_str(), from.c_str(), to.c_str());
}

std::size_t EraseAll(std::string& text, const std::string& needle) {
  for (std::size_t found = text.find(needle); found != std::string::npos; found = text.find(needle)) {
    text.erase(found, needle.size());
  }
  return text.size();
}

std::string Join(const std::vector<std::string>& parts, const char* separator) {
  std::string result;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    result += parts[i];
    if (i + 1 < parts.size()) result += separator;
  }
  return result;
}

void Split(const char* text, std::vector<std::string>& out, const char* delimiters, bool invert) {
  std::string_view rest = Terminated(text);
  const std::string_view set = Terminated(delimiters);
  while (!rest.empty()) {
    const std::size_t p = invert ? rest.find_first_not_of(set) : rest.find_first_of(set);
    std::string_view token;
    if (p != std::string_view::npos) {
      token = rest.substr(0, p);
      rest.remove_prefix(p + 1);
    } else {
      token = rest;
      rest = {};
    }
    if (!token.empty()) out.emplace_back(token);
  }
}

void Split(const std::string& text, std::vector<std::string>& out, const std::string& delimiters,
           bool invert) {
  Split(text.c_str(), out, delimiters.c_str(), invert);
}

}  // namespace quorl
