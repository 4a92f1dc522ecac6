// Path strings: normalising a path written with either separator, taking it apart, finding the working
// and executable directories, and reading the environment.
//
// Paths are plain byte strings with "/" as the one separator. Whether a path names a directory or a file
// is decided by its text alone: a dot in the last element makes it a file, otherwise it is a directory
// and ends in "/" once normalised. "." and ".." are not resolved and doubled separators stay. Every
// operation is a stateless free function; any thread may call them, though the working directory and the
// environment are process-wide and may change between two calls. A null `const char*` path raises the
// null-text logic error (core/text.h).
#pragma once

#include <string>

#include "core/name_hash.h"

namespace quorl {

// Backslashes become "/"; a path whose last element holds no dot gets a trailing "/". A path without any
// "/" is always taken for a directory, so "file.txt" becomes "file.txt/".
std::string NormalizePath(const char* path);

// The current directory, normalised (no trailing "/" when its last element holds a dot).
std::string GetWorkingDirectory();

// The directory of the running executable, normalised; empty when it can't be read.
std::string GetExecutableDirectory();

// The normalised path up to and including its last "/". A path taken for a directory comes back as itself.
std::string GetDirectoryOf(const char* path);

// The last element up to its first dot ("name.tar.gz" gives "name"); empty for a directory.
std::string GetFileStem(const char* path);

// The text behind the last dot of the whole normalised path, without the dot; a dot in a directory
// element leaks into it ("dir.old/file" gives "old/file/").
std::string GetFileExtension(const char* path);

// The normalised path, put behind the working directory unless the path starts with "/" or holds a ":".
std::string MakeAbsolutePath(const char* path);

// A plain copy of `text`.
std::string CopyPathText(const char* text);

// The variable's value; unset and empty are not told apart. `name` goes to getenv unchecked.
std::string GetEnvironmentValue(const char* name);

// A slash-separated name split at its first "/": `head` before it, `tail` (further separators kept)
// behind it. When there is no "/", or it is the last character, both stay empty with hash 0.
struct HashedPath {
  HashedName head;
  HashedName tail;
  std::string full;

  explicit HashedPath(const char* text);
  explicit HashedPath(const std::string& text);

 private:
  void Split();
};

}  // namespace quorl
