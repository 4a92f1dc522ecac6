// Fuzzes the path strings and the path record with properties that follow from how a path is
// normalised: the result is a fixed point, a path taken for a directory ends in "/", the parts put
// together give the path back, and a record composed from a well-formed pattern parses to its number.
//
// The input holds up to three fields separated by NUL bytes: a path (also used as the directory of the
// composed record), a pattern, and up to four bytes of a frame number. Without a second field the
// pattern is null, which the parse constructor accepts. All texts are zero-terminated, as the operations
// take them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/name_hash.h"
#include "core/strings.h"
#include "fs/path.h"
#include "fs/path_record.h"

namespace {

using quorl::NormalizePath;

[[noreturn]] void Fail(const char* what, const std::string& path) {
  std::fprintf(stderr, "path_fuzz: %s (path \"%s\")\n", what, path.c_str());
  std::abort();
}

bool EndsWithText(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool StartsWithText(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

std::string LastElement(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(slash + 1);
}

void CheckNormalize(const std::string& path) {
  const std::string s = NormalizePath(path.c_str());
  // Backslashes become "/" one for one, and at most one "/" is appended.
  if (s.size() != path.size() && s.size() != path.size() + 1) Fail("normalised length", path);
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (s[i] != (path[i] == '\\' ? '/' : path[i])) Fail("normalised byte", path);
  }
  if (s.size() == path.size() + 1 && s.back() != '/') Fail("appended something other than \"/\"", path);
  if (s.find('/') == std::string::npos) Fail("normalised path without a separator", path);
  // A directory always ends in "/": a path that doesn't is a file, with a dot in its last element.
  if (s.back() != '/' && LastElement(s).find('.') == std::string::npos) Fail("directory without \"/\"", path);
  if (NormalizePath(s.c_str()) != s) Fail("normalising is not a fixed point", path);

  const std::string directory = quorl::GetDirectoryOf(path.c_str());
  if (directory.empty() || directory.back() != '/') Fail("directory of a path does not end in \"/\"", path);
  if (!StartsWithText(s, directory)) Fail("directory is not a prefix of the path", path);
  if (s.back() == '/' && directory != s) Fail("a directory is not its own directory", path);
  if (NormalizePath(directory.c_str()) != directory) Fail("directory is not normalised", path);
  if (quorl::GetDirectoryOf(directory.c_str()) != directory) Fail("directory of a directory moved", path);

  // The path is its directory followed by its last element, and the stem begins that element up to
  // the element's first dot.
  const std::string last = s.substr(directory.size());
  if (last.find('/') != std::string::npos) Fail("last element holds a separator", path);
  const std::string stem = quorl::GetFileStem(path.c_str());
  if (last.empty()) {
    if (!stem.empty()) Fail("a directory has a stem", path);
  } else if (last.compare(0, stem.size(), stem) != 0 || stem.size() >= last.size() ||
             last[stem.size()] != '.' || stem.find('.') != std::string::npos) {
    Fail("stem is not the last element up to its first dot", path);
  }

  // The extension is whatever follows the last dot of the whole path.
  const std::string extension = quorl::GetFileExtension(path.c_str());
  if (extension.find('.') != std::string::npos) Fail("extension holds a dot", path);
  if (s.find('.') == std::string::npos) {
    if (!extension.empty()) Fail("extension without a dot", path);
  } else if (!EndsWithText(s, "." + extension)) {
    Fail("extension is not the text behind the last dot", path);
  }

  const std::string absolute = quorl::MakeAbsolutePath(path.c_str());
  if (StartsWithText(path, "/") || path.find(':') != std::string::npos) {
    if (absolute != s) Fail("an absolute path was changed", path);
  } else if (!StartsWithText(absolute, quorl::GetWorkingDirectory())) {
    Fail("a relative path was not put behind the working directory", path);
  }
  if (NormalizePath(absolute.c_str()) != absolute) Fail("absolute path is not normalised", path);

  if (quorl::CopyPathText(path.c_str()) != path) Fail("copy differs", path);
}

void CheckHashedPath(const std::string& text) {
  const quorl::HashedPath split(text.c_str());
  const quorl::HashedPath fromString(text);
  if (split.full != text || fromString.full != text) Fail("hashed path does not keep the whole text", text);
  if (split.head.name != fromString.head.name || split.tail.name != fromString.tail.name ||
      split.head.hash != fromString.head.hash || split.tail.hash != fromString.tail.hash) {
    Fail("the two constructors split differently", text);
  }
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos || slash + 1 == text.size()) {
    if (!split.head.name.empty() || !split.tail.name.empty() || split.head.hash != 0 || split.tail.hash != 0)
      Fail("an unsplit path has a head or a tail", text);
    return;
  }
  if (split.head.name + "/" + split.tail.name != text) Fail("head, \"/\" and tail are not the text", text);
  if (split.head.name.find('/') != std::string::npos) Fail("head holds a separator", text);
  if (split.head.hash != quorl::NameHash(split.head.name.c_str()) ||
      split.tail.hash != quorl::NameHash(split.tail.name.c_str())) {
    Fail("head or tail hash is not the name hash of its text", text);
  }
}

void CheckParse(const std::string& path, const char* pattern) {
  const quorl::PathRecord record(path.c_str(), pattern, true);
  const std::string s = NormalizePath(path.c_str());
  if (record.path != s) Fail("parsed path is not the normalised path", path);
  if (record.directory != quorl::GetDirectoryOf(path.c_str())) Fail("parsed directory", path);
  if (record.extension != "." + quorl::GetFileExtension(path.c_str())) Fail("parsed extension", path);
  if (record.name.find('/') != std::string::npos) Fail("parsed name holds a separator", path);
  if (pattern == nullptr && record.index != -1) Fail("a number without a pattern", path);
  if (pattern != nullptr && std::strchr(pattern, '#') == nullptr && record.index > 0) {
    // Without "#" no character may remain for a number, and an empty rest reads as 0 at most.
    Fail("a number from a pattern without \"#\"", path);
  }
}

bool HasAnyOf(const std::string& text, const char* set) {
  return text.find_first_of(set) != std::string::npos;
}

// Composes a record and, where the pattern is one whose number can be read back, parses it again.
void CheckCompose(const std::string& directory, const std::string& pattern, int32_t index) {
  const quorl::PathRecord composed(directory.c_str(), pattern.c_str(), index);
  const std::string extension = "." + quorl::AfterLast(pattern.c_str(), ".");
  if (composed.directory != directory || composed.index != index || !composed.name.empty() ||
      composed.extension != extension) {
    Fail("composed fields", pattern);
  }
  std::string body = pattern;
  if (body.find(extension) != std::string::npos) body = quorl::ReplaceAll(body, extension, std::string());
  std::vector<std::string> tokens;
  quorl::Split(body, tokens, std::string("#"), false);
  if (tokens.empty()) {
    if (!composed.path.empty()) Fail("a pattern without literal pieces composed a path", pattern);
    return;
  }
  if (!StartsWithText(composed.path, directory + tokens[0]) || !EndsWithText(composed.path, extension))
    Fail("composed path is not directory, first piece, ..., extension", pattern);
  const std::size_t digits = static_cast<std::size_t>(std::count(body.begin(), body.end(), '#'));

  // Read back exactly when: the directory ends in "/" and the rest of the path adds no separator; one
  // or two pieces (a third is dropped when composing); pieces free of digits and "-", so that neither
  // eats the number; the first piece not inside the second (it would be removed from there too); and a
  // number that fits the count of "#" without a sign, since the fill goes in front of a "-".
  const std::string number = std::to_string(index);
  if (directory.empty() || directory.back() != '/' || HasAnyOf(directory, "\\") || HasAnyOf(pattern, "\\") ||
      HasAnyOf(extension, "/") || tokens.size() > 2 || index < 0 || number.size() > digits) {
    return;
  }
  for (const std::string& token : tokens) {
    if (HasAnyOf(token, "0123456789-/")) return;
  }
  if (tokens.size() == 2 && tokens[1].find(tokens[0]) != std::string::npos) return;

  const quorl::PathRecord parsed(composed.path.c_str(), pattern.c_str(), true);
  if (parsed.path != composed.path || parsed.directory != directory || parsed.extension != extension)
    Fail("a composed path does not parse into its parts", pattern);
  if (parsed.index != index) Fail("a composed number does not read back", pattern);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  // ReplaceAll rescans from the start after each replacement: keep the quadratic cost small.
  if (size > 1024) return 0;
  const char* text = reinterpret_cast<const char*>(data);
  const char* end = text + size;
  const std::string path(text, strnlen(text, size));
  const char* cursor = text + path.size();
  std::string pattern;
  bool havePattern = false;
  int32_t index = 0;
  if (cursor < end) {
    ++cursor;
    pattern.assign(cursor, strnlen(cursor, static_cast<std::size_t>(end - cursor)));
    havePattern = true;
    cursor += pattern.size();
    if (cursor < end) {
      ++cursor;
      uint32_t bits = 0;
      std::memcpy(&bits, cursor, std::min<std::size_t>(4, static_cast<std::size_t>(end - cursor)));
      index = static_cast<int32_t>(bits);
    }
  }

  CheckNormalize(path);
  CheckHashedPath(path);
  CheckParse(path, havePattern ? pattern.c_str() : nullptr);
  if (havePattern) CheckCompose(path, pattern, index);
  return 0;
}
