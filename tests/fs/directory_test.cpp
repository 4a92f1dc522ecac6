#include "fs/directory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "fs/temp_directory.h"

namespace quorl {
namespace {

using Names = std::vector<std::string>;

Names Sorted(Names names) {
  std::sort(names.begin(), names.end());
  return names;
}

// Every test works inside its own fresh directory, removed when the test ends.
class DirectoryOperations : public ::testing::Test {
 protected:
  void MakeDirectory(const std::string& relative) { ASSERT_EQ(mkdir((temp / relative).c_str(), 0700), 0); }
  bool IsDirectoryAt(const std::string& relative) { return IsDirectory((temp / relative).c_str()); }

  const TempDirectory temp;
};

TEST_F(DirectoryOperations, TypeTestsFollowSymbolicLinks) {
  MakeDirectory("d");
  temp.Touch("f");
  ASSERT_EQ(symlink((temp / "d").c_str(), (temp / "to_d").c_str()), 0);
  ASSERT_EQ(symlink((temp / "f").c_str(), (temp / "to_f").c_str()), 0);
  ASSERT_EQ(symlink((temp / "none").c_str(), (temp / "dangling").c_str()), 0);
  EXPECT_TRUE(IsDirectoryAt("d") && IsDirectoryAt("to_d"));
  EXPECT_FALSE(IsDirectoryAt("f") || IsDirectoryAt("none") || IsDirectoryAt("dangling"));
  EXPECT_TRUE(IsRegularFile((temp / "f").c_str()) && IsRegularFile((temp / "to_f").c_str()));
  EXPECT_FALSE(IsRegularFile((temp / "d").c_str()) || IsRegularFile((temp / "dangling").c_str()));
}

TEST_F(DirectoryOperations, RemoveTakesFilesAndEmptyDirectoriesOnly) {
  MakeDirectory("full");
  temp.Touch("full/f");
  EXPECT_FALSE(RemoveFile((temp / "full").c_str()));
  EXPECT_TRUE(RemoveFile((temp / "full/f").c_str()));
  EXPECT_FALSE(RemoveFile((temp / "full/f").c_str()));
  EXPECT_TRUE(RemoveFile((temp / "full").c_str()));
}

TEST_F(DirectoryOperations, CreateReturnsFalseExactlyWhenSomethingWasCreated) {
  EXPECT_FALSE(CreateDirectories((temp / "a/b").c_str()));
  EXPECT_TRUE(IsDirectoryAt("a/b"));
  EXPECT_TRUE(CreateDirectories((temp / "a/b").c_str()));
  // A regular file in the way makes every attempt fail, which also reads as true.
  temp.Touch("file");
  EXPECT_TRUE(CreateDirectories((temp / "file/sub/deeper").c_str()));
  EXPECT_FALSE(IsDirectoryAt("file/sub"));
}

TEST_F(DirectoryOperations, CreateDropsTheLastElementWhenAnyElementHoldsADot) {
  EXPECT_FALSE(CreateDirectories((temp / "a.b/c").c_str()));
  EXPECT_TRUE(IsDirectoryAt("a.b"));
  EXPECT_FALSE(IsDirectoryAt("a.b/c"));
  EXPECT_FALSE(CreateDirectories((temp / "a/b.c/d/e").c_str()));
  EXPECT_TRUE(IsDirectoryAt("a/b.c/d"));
  EXPECT_FALSE(IsDirectoryAt("a/b.c/d/e"));
}

TEST_F(DirectoryOperations, CreatePutsRelativePathsBelowTheRootAndAcceptsBackslashes) {
  // The temporary directory's own path without its leading "/": created below the root, it lands inside.
  const std::string relative = temp.path().substr(1) + "/rel/x";
  EXPECT_FALSE(CreateDirectories(relative.c_str()));
  EXPECT_TRUE(IsDirectoryAt("rel/x"));
  EXPECT_FALSE(CreateDirectories((temp.path() + "\\w\\v").c_str()));
  EXPECT_TRUE(IsDirectoryAt("w/v"));
}

TEST_F(DirectoryOperations, ListDirectoriesSkipsHiddenAndFilesAndDoublesTheSeparator) {
  MakeDirectory("sub");
  MakeDirectory("x.png");
  MakeDirectory(".hidden");
  temp.Touch("file");
  ASSERT_EQ(symlink((temp / "sub").c_str(), (temp / "link").c_str()), 0);
  Names out{"kept"};
  EXPECT_EQ(ListDirectories(temp.path(), out, false), 4);
  EXPECT_EQ(Sorted(out), (Names{"kept", "link", "sub", "x.png"}));
  Names full;
  EXPECT_EQ(ListDirectories(temp.path(), full, true), 3);
  EXPECT_EQ(Sorted(full)[1], temp.path() + "//sub");
}

TEST_F(DirectoryOperations, ListFilesMatchesTheSuffixOnTheNameAndCountsPipesAsFiles) {
  MakeDirectory("x.png");
  for (const char* name : {"a.png", "b.PNG", ".a.png", "c.txt"})
    temp.Touch(name);
  ASSERT_EQ(mkfifo((temp / "pipe").c_str(), 0600), 0);
  Names png;
  EXPECT_EQ(ListFiles(temp.path(), png, ".png", true), 1);
  EXPECT_EQ(png, Names{temp.path() + "/a.png"});
  Names all;
  EXPECT_EQ(ListFiles(temp.path() + "/", all, false), 4);
  EXPECT_EQ(Sorted(all), (Names{"a.png", "b.PNG", "c.txt", "pipe"}));
}

TEST_F(DirectoryOperations, MissingDirectoryLeavesTheListAsItWas) {
  Names out{"1", "2", "3"};
  std::vector<PathRecord> records(3, PathRecord("", "f#.png", 1));
  EXPECT_EQ(ListDirectories(temp / "missing", out, true), 3);
  EXPECT_EQ(ListFiles(temp / "missing", out, true), 3);
  EXPECT_EQ(ListPathRecords(temp / "missing", records, "f#.png"), 3);
  EXPECT_EQ(out.size(), 3u);
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
  EXPECT_EQ(found[0], std::make_pair(temp / "frame_0001.png", 1));
  EXPECT_EQ(found[1], std::make_pair(temp / "frame_0012.png", 12));
  EXPECT_EQ(found[2], std::make_pair(temp / "other.png", -1));
  EXPECT_EQ(ListPathRecords(temp.path(), records, "frame_####.png"), 7);
}

TEST(CounterSnapshot, DifferenceKeepsLevelsAndSubtractsTotals) {
  CounterSnapshot earlier, later;
  earlier.c2 = 5;
  later = {10, 11, 12, 13, 14, 15};
  const CounterSnapshot d = CounterSnapshot::Difference(earlier, later);
  EXPECT_EQ((std::vector<uint64_t>{d.c0, d.c1, d.c2, d.c3, d.c4, d.c5}),
            (std::vector<uint64_t>{10, 0, 7, 13, 0, 15}));
  EXPECT_EQ(later.Read(), 0u);
  EXPECT_EQ(later.c0 + later.c3 + later.c5, 0u);
}

}  // namespace
}  // namespace quorl
