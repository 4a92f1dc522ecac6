#include "fs/directory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

namespace quorl {
namespace {

using Names = std::vector<std::string>;

Names Sorted(Names names) {
  std::sort(names.begin(), names.end());
  return names;
}

// Every test works inside its own fresh directory from mkdtemp, removed with everything in it when the
// test ends, also on failure. Its name holds no dot, which the path rules would read as a file's.
class DirectoryOperations : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/quorl_fs_XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    temp = name;
  }
  void TearDown() override { std::filesystem::remove_all(temp, ignored); }

  std::string Path(const std::string& relative) const { return temp + "/" + relative; }
  void Touch(const std::string& relative) const { std::ofstream(Path(relative)).put('x'); }
  void MakeDirectory(const char* relative) { ASSERT_EQ(mkdir(Path(relative).c_str(), 0700), 0); }
  void Link(const char* target, const char* name) {
    ASSERT_EQ(symlink(Path(target).c_str(), Path(name).c_str()), 0);
  }
  // One of the operations that take a path, on a path inside the temporary directory.
  bool At(bool (*operation)(const char*), const std::string& relative) {
    return operation(Path(relative).c_str());
  }

  std::string temp;
  std::error_code ignored;
};

TEST_F(DirectoryOperations, TypeTestsFollowLinksAndRemoveTakesOnlyEmptyDirectories) {
  MakeDirectory("d");
  Touch("d/f");
  Link("d", "to_d");
  Link("d/f", "to_f");
  Link("none", "dangling");
  for (const char* directory : {"d", "to_d"})
    EXPECT_TRUE(At(IsDirectory, directory) && !At(IsRegularFile, directory)) << directory;
  for (const char* file : {"d/f", "to_f"})
    EXPECT_TRUE(At(IsRegularFile, file) && !At(IsDirectory, file)) << file;
  EXPECT_FALSE(At(IsDirectory, "dangling") || At(IsRegularFile, "dangling"));
  EXPECT_FALSE(At(RemoveFile, "d"));
  EXPECT_TRUE(At(RemoveFile, "d/f"));
  EXPECT_TRUE(At(RemoveFile, "d"));
}

// True exactly when no mkdir succeeded; a dot anywhere drops the last element; every element goes behind
// "/", so the temporary directory's path without its leading "/" lands inside it; backslashes separate.
TEST_F(DirectoryOperations, CreateReturnsFalseExactlyWhenSomethingWasCreated) {
  EXPECT_FALSE(At(CreateDirectories, "a/b"));
  EXPECT_TRUE(At(IsDirectory, "a/b"));
  EXPECT_TRUE(At(CreateDirectories, "a/b"));
  Touch("file");  // in the way: every attempt fails, which also reads as true
  EXPECT_TRUE(At(CreateDirectories, "file/sub/deeper"));
  EXPECT_FALSE(At(CreateDirectories, "a.b/c"));
  EXPECT_TRUE(At(IsDirectory, "a.b") && !At(IsDirectory, "a.b/c"));
  EXPECT_FALSE(At(CreateDirectories, "a/b.c/d/e"));
  EXPECT_TRUE(At(IsDirectory, "a/b.c/d") && !At(IsDirectory, "a/b.c/d/e"));
  EXPECT_FALSE(CreateDirectories((temp.substr(1) + "/rel/x").c_str()));
  EXPECT_TRUE(At(IsDirectory, "rel/x"));
  EXPECT_FALSE(CreateDirectories((temp + "\\w\\v").c_str()));
  EXPECT_TRUE(At(IsDirectory, "w/v"));
}

// A first element holding a drive colon is kept as it stands and never made, so the rest lands below it,
// relative to the working directory. A leading "//" keeps "//" and the first element, and a path with
// both skips its second.
TEST_F(DirectoryOperations, ADriveElementOrALeadingDoubleSlashStartsThePath) {
  EXPECT_FALSE(CreateDirectories(("/" + temp + "/n/m").c_str()));
  EXPECT_TRUE(At(IsDirectory, "n/m"));
  char saved[4096];
  ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
  ASSERT_EQ(mkdir(Path("d:").c_str(), 0775), 0);
  ASSERT_EQ(chdir(temp.c_str()), 0);
  const bool missingDrive = CreateDirectories("x:/y");
  const bool drive = CreateDirectories("d:/e/f");
  const bool both = CreateDirectories("//g:/skipped/h");  // "//g:" then "/h": below the root
  ASSERT_EQ(chdir(saved), 0);
  EXPECT_TRUE(missingDrive);
  EXPECT_FALSE(At(IsDirectory, "x:"));
  EXPECT_FALSE(drive);
  EXPECT_TRUE(At(IsDirectory, "d:/e/f"));
  EXPECT_TRUE(both);  // "//g:" does not exist, so no mkdir succeeded
  EXPECT_FALSE(At(IsDirectory, "g:") || At(IsDirectory, "skipped"));
}

TEST_F(DirectoryOperations, ListingsSkipHiddenEntriesAndSeparateDirectoriesFromFiles) {
  MakeDirectory("sub");
  MakeDirectory("x.png");
  MakeDirectory(".hidden");
  Link("sub", "link");
  for (const char* name : {"a.png", "b.PNG", ".a.png", "c.txt", "a.png.txt"})
    Touch(name);
  ASSERT_EQ(mkfifo((Path("pipe")).c_str(), 0600), 0);
  Names directories{"kept"};
  EXPECT_EQ(ListDirectories(temp, directories, false), 4);
  EXPECT_EQ(Sorted(directories), (Names{"kept", "link", "sub", "x.png"}));
  Names full;
  EXPECT_EQ(ListDirectories(temp, full, true), 3);
  EXPECT_EQ(Sorted(full)[1], temp + "//sub");  // two separators, as intended
  Names png;
  EXPECT_EQ(ListFiles(temp, png, ".png", true), 1);
  EXPECT_EQ(png, Names{Path("a.png")});
  Names files;
  EXPECT_EQ(ListFiles(temp + "/", files, false), 5);
  EXPECT_EQ(Sorted(files), (Names{"a.png", "a.png.txt", "b.PNG", "c.txt", "pipe"}));
}

TEST_F(DirectoryOperations, PathRecordsKeepNamesThatMissThePatternAndMissingDirectoriesAddNothing) {
  for (const char* name : {"frame_0001.png", "frame_0012.png", "other.png", "frame_0003.jpg"})
    Touch(name);
  std::vector<PathRecord> records;
  EXPECT_EQ(ListPathRecords(temp, records, ".png", "frame_####.png"), 3);
  std::vector<std::pair<std::string, int32_t>> found;
  for (const PathRecord& r : records)
    found.emplace_back(r.path, r.index);
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, (std::vector<std::pair<std::string, int32_t>>{
                       {Path("frame_0001.png"), 1}, {Path("frame_0012.png"), 12}, {Path("other.png"), -1}}));
  EXPECT_EQ(ListPathRecords(temp, records, "frame_####.png"), 7);
  Names names{"1", "2", "3"};
  EXPECT_EQ(ListDirectories(Path("missing"), names, true), 3);
  EXPECT_EQ(ListFiles(Path("missing"), names, true), 3);
  EXPECT_EQ(ListPathRecords(Path("missing"), records, "f#.png"), 7);
}

TEST(CounterSnapshot, DifferenceKeepsLevelsAndSubtractsTotalsAndReadZeroes) {
  CounterSnapshot later{10, 11, 12, 13, 14, 15};
  const CounterSnapshot d = CounterSnapshot::Difference({1, 1, 5, 1, 1, 6}, later);
  using Six = std::array<uint64_t, 6>;
  EXPECT_EQ((Six{d.c0, d.c1, d.c2, d.c3, d.c4, d.c5}), (Six{10, 0, 7, 13, 0, 9}));
  EXPECT_EQ(later.Read(), 0u);
  EXPECT_EQ(later.c0 + later.c1 + later.c2 + later.c3 + later.c4 + later.c5, 0u);
}

}  // namespace
}  // namespace quorl
