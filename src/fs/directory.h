// Directory operations: what a path names, removal, creation of a directory chain, and listings of a
// directory as names, full paths or path records.
//
// Each call has its own directory stream and buffers and keeps no state, so any thread may call them;
// a listing is not atomic against other processes (an entry that vanishes before it is examined is
// passed over). Listings append to the caller's list without clearing it, return its new size, never
// descend into sub-directories and keep the file system's order. Failure is never reported by a reason:
// an unreadable directory leaves the list as it was.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fs/path_record.h"

namespace quorl {

// Follow symbolic links.
bool IsDirectory(const char* path);
bool IsRegularFile(const char* path);

// Removes a file or an empty directory; true on success.
bool RemoveFile(const char* path);

// Creates every missing directory of the chain with mode 0775. Mind both quirks, which are intended:
// - every element is put behind "/", so a relative "x/y" creates "/x" and "/x/y";
// - a dot anywhere in the path drops its last element, taken for a file name;
// - the result is true when no mkdir succeeded (nothing was missing, or every attempt failed) and false
//   when at least one directory was created. A failed element doesn't stop the later ones.
// A path that leaves no element ("" or "/") creates nothing and returns true.
bool CreateDirectories(const char* path);

// Names (or "path//name" with fullPath) of the sub-directories of `path`, hidden ones excluded.
int32_t ListDirectories(std::string path, std::vector<std::string>& out, bool fullPath);

// Names (or "path/name" with fullPath) of the entries of `path` that are not directories (pipes,
// sockets and devices count as files), hidden ones excluded; with a suffix, only names ending in it
// (compared byte for byte).
int32_t ListFiles(std::string path, std::vector<std::string>& out, std::string suffix, bool fullPath);
int32_t ListFiles(const std::string& path, std::vector<std::string>& out, bool fullPath);
// A suffix without fullPath would silently turn into fullPath; refuse it at compile time.
int32_t ListFiles(const std::string& path, std::vector<std::string>& out, const char* suffix) = delete;

// ListFiles with full paths, each parsed into a record with `pattern`; names that don't match the pattern
// are kept with index -1. Returns the size of `out`.
int32_t ListPathRecords(const std::string& path, std::vector<PathRecord>& out, const std::string& suffix,
                        const char* pattern);
int32_t ListPathRecords(const std::string& path, std::vector<PathRecord>& out, const char* pattern);

// Six counters of file activity. No counting source exists on this platform: Read zeroes them.
struct CounterSnapshot {
  uint64_t c0 = 0, c1 = 0, c2 = 0, c3 = 0, c4 = 0, c5 = 0;

  // Zeroes all six and returns 0.
  uint64_t Read();
  // c0 and c3 as in `later` (levels), c2 and c5 as later less earlier (totals), c1 and c4 zero.
  static CounterSnapshot Difference(const CounterSnapshot& earlier, const CounterSnapshot& later);
};

// Hooks of a directory watcher, which this platform doesn't provide: they do nothing and report nothing.
int32_t BeginDirectoryWatch();
int32_t PollDirectoryWatch();
int32_t CountDirectoryWatches();
void EndDirectoryWatch();

}  // namespace quorl
