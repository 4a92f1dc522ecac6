#include "fs/path.h"

#include <libgen.h>
#include <unistd.h>

#include <cstdlib>

#include "core/strings.h"
#include "core/text.h"

namespace quorl {

namespace {

// NormalizePath's steps on a text already known to be non-null.
std::string Normalize(const char* path) {
  std::string s = ReplaceAll(path, "\\", "/");
  // Only the text decides: a dot in the last element makes it a file, and a path with no "/" has an
  // empty last element, so even "b.c" is taken for a directory. Intended.
  if (Contains(AfterLast(s, "/"), ".")) return s;
  if (!EndsWith(s.c_str(), "/")) s += '/';
  return s;
}

}  // namespace

std::string NormalizePath(const char* path) {
  return Normalize(RequireText(path));
}

std::string GetWorkingDirectory() {
  // Cleared so that a failed getcwd yields "/" rather than whatever the stack held.
  char buffer[4096] = {};
  if (getcwd(buffer, sizeof buffer) == nullptr) buffer[0] = '\0';
  return Normalize(buffer);
}

std::string GetExecutableDirectory() {
  // readlink may fill all 4097 bytes without a terminator; the spare byte keeps dirname within bounds.
  char buffer[4098] = {};
  if (readlink("/proc/self/exe", buffer, 4097) <= 0) return {};
  return Normalize(dirname(buffer));
}

std::string GetDirectoryOf(const char* path) {
  return BeforeLast(NormalizePath(path), "/") + "/";
}

std::string GetFileStem(const char* path) {
  const std::string last = AfterLast(NormalizePath(path), "/");
  return Contains(last, ".") ? BeforeFirst(last, ".") : last;
}

std::string GetFileExtension(const char* path) {
  // Searches the whole path, not the last element; intended.
  return AfterLast(NormalizePath(path), ".");
}

std::string MakeAbsolutePath(const char* path) {
  std::string s = NormalizePath(path);
  // The input decides, not s: a leading backslash is not taken as absolute.
  if (StartsWith(path, "/") || Contains(path, ":")) return s;
  // A working directory without a trailing "/" runs into the first element; intended.
  return NormalizePath((GetWorkingDirectory() + s).c_str());
}

std::string CopyPathText(const char* text) {
  return TextOf(text);
}

std::string GetEnvironmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

HashedPath::HashedPath(const char* text) : full(TextOf(text)) {
  Split();
}

HashedPath::HashedPath(const std::string& text) : full(text) {
  Split();
}

void HashedPath::Split() {
  const std::size_t separator = full.find('/');
  if (full.empty() || separator == std::string::npos || separator + 1 == full.size()) return;
  head = HashedName(full.substr(0, separator));
  tail = HashedName(full.substr(separator + 1));
}

}  // namespace quorl
