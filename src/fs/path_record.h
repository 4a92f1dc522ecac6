// Path record: one member of a numbered file sequence such as "frame_####.png", where a run of "#"
// stands for the frame number.
//
// The compose constructor builds a member's path from a directory, a pattern and a number; the parse
// constructor reads the parts of a path and, given a pattern, the number back. The format has fixed
// quirks that callers rely on: the first literal piece of the pattern always precedes the number, pieces
// from the third on are dropped, the digit count is a minimum, and a number is read whenever the right
// count of characters remains (digits or not). A record owns its strings; it has no locks and any thread
// may build one.
#pragma once

#include <cstdint>
#include <string>

namespace quorl {

struct PathRecord {
  std::string path;
  int32_t index = -1;     // -1 when no number is known
  std::string directory;  // as given (compose) or up to and including the last "/" (parse)
  std::string name;       // file name without directory and extension; never set by compose
  std::string extension;  // with its leading "."

  // Composes directory + first piece + the index padded with "0" to the count of "#" + second piece +
  // extension. A pattern with no literal piece leaves `path` empty. `directory` must not be null; a null
  // `pattern` raises the null-text logic error.
  PathRecord(const char* directory, const char* pattern, int32_t index);

  // Splits the normalised `path` and, when `pattern` is not null, reads the number back. `ignored` is
  // not read. A null `path` raises the null-text logic error.
  PathRecord(const char* path, const char* pattern, bool ignored);
};

}  // namespace quorl
