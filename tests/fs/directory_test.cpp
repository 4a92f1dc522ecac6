#include "fs/directory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "fs/temp_directory.h"

namespace quorl {
namespace {

using Names = std::vector<std::string>;

Names Sorted(Names names) {
  std::sort(names.begin(), names.end());
  return names;
}

// Every test works inside its own fresh directory, removed when the test ends, also on failure.
class DirectoryOperations : public ::testing::Test {
 protected:
  void MakeDirectory(const char* relative) { ASSERT_EQ(mkdir((temp / relative).c_str(), 0700), 0); }
  void Link(const char* target, const char* name) {
    ASSERT_EQ(symlink((temp / target).c_str(), (temp / name).c_str()), 0);
  }
  bool IsDirectoryAt(const char* relative) { return IsDirectory((temp / relative).c_str()); }

  const TempDirectory temp;
};

TEST_F(DirectoryOperations, TypeTestsFollowLinksAndRemoveTakesOnlyEmptyDirectories) {
  MakeDirectory("d");
  temp.Touch("d/f");
  Link("d", "to_d");
  Link("d/f", "to_f");
  Link("none", "dangling");
  EXPECT_TRUE(IsDirectoryAt("d") && IsDirectoryAt("to_d"));
  EXPECT_FALSE(IsDirectoryAt("d/f") || IsDirectoryAt("dangling"));
  EXPECT_TRUE(IsRegularFile((temp / "to_f").c_str()));
  EXPECT_FALSE(IsRegularFile((temp / "d").c_str()) || IsRegularFile((temp / "dangling").c_str()));
  EXPECT_FALSE(RemoveFile((temp / "d").c_str()));
  EXPECT_TRUE(RemoveFile((temp / "d/f").c_str()));
  EXPECT_TRUE(RemoveFile((temp / "d").c_str()));
}

TEST_F(DirectoryOperations, CreateReturnsFalseExactlyWhenSomethingWasCreated) {
  EXPECT_FALSE(CreateDirectories((temp / "a/b").c_str()));
  EXPECT_TRUE(IsDirectoryAt("a/b"));
  EXPECT_TRUE(CreateDirectories((temp / "a/b").c_str()));
  temp.Touch("file");  // in the way: every attempt fails, which also reads as true
  EXPECT_TRUE(CreateDirectories((temp / "file/sub/deeper").c_str()));
}

TEST_F(DirectoryOperations, CreateDropsTheLastElementWhenAnyElementHoldsADot) {
  EXPECT_FALSE(CreateDirectories((temp / "a.b/c").c_str()));
  EXPECT_TRUE(IsDirectoryAt("a.b") && !IsDirectoryAt("a.b/c"));
  EXPECT_FALSE(CreateDirectories((temp / "a/b.c/d/e").c_str()));
  EXPECT_TRUE(IsDirectoryAt("a/b.c/d") && !IsDirectoryAt("a/b.c/d/e"));
}

TEST_F(DirectoryOperations, CreatePutsRelativePathsBelowTheRootAndAcceptsBackslashes) {
  // The temporary directory's path without its leading "/": created below the root, it lands inside.
  EXPECT_FALSE(CreateDirectories((temp.path().substr(1) + "/rel/x").c_str()));
  EXPECT_TRUE(IsDirectoryAt("rel/x"));
  EXPECT_FALSE(CreateDirectories((temp.path() + "\\w\\v").c_str()));
  EXPECT_TRUE(IsDirectoryAt("w/v"));
}

TEST_F(DirectoryOperations, ListingsSkipHiddenEntriesAndSeparateDirectoriesFromFiles) {
  MakeDirectory("sub");
  MakeDirectory("x.png");
  MakeDirectory(".hidden");
  Link("sub", "link");
  for (const char* name : {"a.png", "b.PNG", ".a.png", "c.txt"})
    temp.Touch(name);
  ASSERT_EQ(mkfifo((temp / "pipe").c_str(), 0600), 0);
  Names directories{"kept"};
  EXPECT_EQ(ListDirectories(temp.path(), directories, false), 4);
  EXPECT_EQ(Sorted(directories), (Names{"kept", "link", "sub", "x.png"}));
  Names full;
  EXPECT_EQ(ListDirectories(temp.path(), full, true), 3);
  EXPECT_EQ(Sorted(full)[1], temp.path() + "//sub");  // two separators, as intended
  Names png;
  EXPECT_EQ(ListFiles(temp.path(), png, ".png", true), 1);
  EXPECT_EQ(png, Names{temp / "a.png"});
  Names files;
  EXPECT_EQ(ListFiles(temp.path() + "/", files, false), 4);
  EXPECT_EQ(Sorted(files), (Names{"a.png", "b.PNG", "c.txt", "pipe"}));
}

TEST_F(DirectoryOperations, MissingDirectoryLeavesTheListAsItWas) {
  Names out{"1", "2", "3"};
  std::vector<PathRecord> records(3, PathRecord("", "f#.png", 1));
  EXPECT_EQ(ListDirectories(temp / "missing", out, true), 3);
  EXPECT_EQ(ListFiles(temp / "missing", out, true), 3);
  EXPECT_EQ(ListPathRecords(temp / "missing", records, "f#.png"), 3);
}

TEST_F(DirectoryOperations, ListPathRecordsKeepsNamesThatMissThePattern) {
  for (const char* name : {"frame_0001.png", "frame_0012.png", "other.png", "frame_0003.jpg"})
    temp.Touch(name);
  std::vector<PathRecord> records;
  EXPECT_EQ(ListPathRecords(temp.path(), records, ".png", "frame_####.png"), 3);
  std::vector<std::pair<std::string, int32_t>> found;
  for (const PathRecord& r : records)
    found.emplace_back(r.path, r.index);
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found,
            (std::vector<std::pair<std::string, int32_t>>{
                {temp / "frame_0001.png", 1}, {temp / "frame_0012.png", 12}, {temp / "other.png", -1}}));
  EXPECT_EQ(ListPathRecords(temp.path(), records, "frame_####.png"), 7);
}

TEST(CounterSnapshot, DifferenceKeepsLevelsAndSubtractsTotals) {
  CounterSnapshot earlier{1, 1, 5, 1, 1, 6}, later{10, 11, 12, 13, 14, 15};
  const CounterSnapshot d = CounterSnapshot::Difference(earlier, later);
  using Six = std::array<uint64_t, 6>;
  EXPECT_EQ((Six{d.c0, d.c1, d.c2, d.c3, d.c4, d.c5}), (Six{10, 0, 7, 13, 0, 9}));
  EXPECT_EQ(later.Read(), 0u);
  EXPECT_EQ(later.c0 + later.c1 + later.c2 + later.c3 + later.c4 + later.c5, 0u);
}

}  // namespace
}  // namespace quorl
