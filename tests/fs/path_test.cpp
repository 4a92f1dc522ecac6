// Path strings, and the path records of numbered file sequences built on them.
#include "fs/path.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <tuple>

#include "fs/path_record.h"

namespace quorl {
namespace {

TEST(PathStrings, TheLastElementsDotDecidesFileOrDirectoryAndThePartsFollow) {
  const char* const normalised[][2] = {{"", "/"},           {"a\\b", "a/b/"},    {"a/b/", "a/b/"},
                                       {"a/b.c", "a/b.c"},  {"b.c", "b.c/"},     {"a/b.c/", "a/b.c/"},
                                       {"a/..", "a/.."},    {"a/./b", "a/./b/"}, {"a//b", "a//b/"},
                                       {"\\\\x.y", "//x.y"}};
  for (const auto& c : normalised)
    EXPECT_EQ(NormalizePath(c[0]), c[1]) << c[0];
  const char* const parts[][4] = {
      // path, directory, stem, extension
      {"a/b.c", "a/", "b", "c"},       {"a/b", "a/b/", "", ""}, {"b.c", "b.c/", "", "c/"},
      {"a/n.tar.gz", "a/", "n", "gz"}, {"a/b.", "a/", "b", ""}, {"d.old/f", "d.old/f/", "", "old/f/"},
  };
  for (const auto& c : parts) {
    EXPECT_EQ(GetDirectoryOf(c[0]), c[1]) << c[0];
    EXPECT_EQ(GetFileStem(c[0]), c[2]) << c[0];
    EXPECT_EQ(GetFileExtension(c[0]), c[3]) << c[0];
  }
}

// A fresh directory (named without a dot), removed when the test ends, and the working directory restored.
struct TemporaryWorkingDirectory {
  char saved[4096] = "", temp[32] = "/tmp/quorl_path_XXXXXX";
  const bool made = getcwd(saved, sizeof saved) != nullptr && mkdtemp(temp) != nullptr;
  ~TemporaryWorkingDirectory() {
    EXPECT_EQ(chdir(saved), 0);
    std::error_code ignored;
    std::filesystem::remove_all(temp, ignored);
  }
};

TEST(PathStrings, MakeAbsolutePutsRelativePathsBehindTheWorkingDirectoryEvenWithoutSeparator) {
  EXPECT_EQ(MakeAbsolutePath("C:\\x"), "C:/x/");  // absolute paths and schemes are only normalised
  EXPECT_EQ(MakeAbsolutePath("/abs/f.txt"), "/abs/f.txt");
  TemporaryWorkingDirectory directory;
  ASSERT_TRUE(directory.made);
  const std::string temp = directory.temp;
  ASSERT_EQ(chdir(temp.c_str()), 0);
  EXPECT_EQ(GetWorkingDirectory(), temp + "/");
  EXPECT_EQ(MakeAbsolutePath("sub\\f.txt"), temp + "/sub/f.txt");
  EXPECT_EQ(MakeAbsolutePath("\\x"), temp + "//x/");  // a leading backslash isn't absolute
  ASSERT_EQ(mkdir("v.1", 0700), 0);
  ASSERT_EQ(chdir("v.1"), 0);
  EXPECT_EQ(GetWorkingDirectory(), temp + "/v.1");
  EXPECT_EQ(MakeAbsolutePath("x"), temp + "/v.1x/");
}

TEST(PathStrings, ExecutableDirectoryHoldsTheRunningProgramAndAnUnsetVariableIsEmpty) {
  const std::string directory = GetExecutableDirectory();
  ASSERT_FALSE(directory.empty());
  EXPECT_EQ(directory.back(), '/');
  struct stat info;
  EXPECT_EQ(stat((directory + program_invocation_short_name).c_str(), &info), 0);
  ASSERT_EQ(setenv("QUORL_PATH_TEST_VALUE", "v=1", 1), 0);
  EXPECT_EQ(GetEnvironmentValue("QUORL_PATH_TEST_VALUE"), "v=1");
  ASSERT_EQ(unsetenv("QUORL_PATH_TEST_VALUE"), 0);
  EXPECT_EQ(GetEnvironmentValue("QUORL_PATH_TEST_VALUE"), "");
}

TEST(PathStrings, HashedPathSplitsAtTheFirstSeparator) {
  const char* const cases[][3] = {
      {"a/b/c", "a", "b/c"}, {"/abc", "", "abc"}, {"", "", ""}, {"abc", "", ""}, {"abc/", "", ""},
  };
  for (const auto& c : cases) {
    const HashedPath path(std::string{c[0]});
    EXPECT_EQ(path.full, c[0]);
    EXPECT_EQ(path.head.name, c[1]) << c[0];
    EXPECT_EQ(path.head.hash, NameHash(c[1])) << c[0];  // 0 for the empty name
    EXPECT_EQ(path.tail.name, c[2]) << c[0];
    EXPECT_EQ(path.tail.hash, NameHash(c[2])) << c[0];
  }
  EXPECT_EQ(HashedPath("a/b").tail.name, "b");
}

TEST(PathStrings, NullTextsOfPathsAndRecordsRaiseTheNullTextError) {
  const auto nullTextError =
      testing::ThrowsMessage<std::logic_error>(testing::StrEq("basic_string::_M_construct null not valid"));
  EXPECT_THAT([] { NormalizePath(nullptr); }, nullTextError);
  EXPECT_THAT([] { MakeAbsolutePath(nullptr); }, nullTextError);
  EXPECT_THAT([] { CopyPathText(nullptr); }, nullTextError);
  EXPECT_THAT([] { HashedPath path(static_cast<const char*>(nullptr)); }, nullTextError);
  EXPECT_THAT([] { PathRecord("d/", nullptr, 1); }, nullTextError);
  EXPECT_THAT([] { PathRecord(nullptr, "f#.png", true); }, nullTextError);
}

TEST(PathRecord, ComposePutsTheFirstPieceBeforeThePaddedNumber) {
  const std::tuple<const char*, int32_t, const char*> cases[] = {
      {"frame_####.png", 7, "d/frame_0007.png"},
      {"a_###_b.png", 7, "d/a_007_b.png"},
      {"a#b#c.png", 7, "d/a07b.png"},  // the third piece is dropped
      {"###_b.png", 7, "d/_b007.png"},
      {"####.png", 7, ""},  // no literal piece: no path
      {"frame_###", 7, "d/frame_007."},
      {"frame.png", 7, "d/frame7.png"},
      {"f_##.png", 123, "d/f_123.png"},
      {"f_###.png", -5, "d/f_0-5.png"},
      {"x.png_#.png", 3, "d/x_3.png"},  // every copy of the extension leaves the body
  };
  for (const auto& [pattern, index, path] : cases) {
    const PathRecord record("d/", pattern, index);
    EXPECT_EQ(record.path, path) << pattern;
    EXPECT_EQ(record.directory, "d/");
    EXPECT_EQ(record.index, index);
    EXPECT_EQ(record.name, "");
  }
  EXPECT_EQ(PathRecord("", "frame_###", 1).extension, ".");
  EXPECT_EQ(PathRecord("", "a.tar.gz#", 1).extension, ".gz#");
}

TEST(PathRecord, ParseReadsTheNumberWhenTheRestHasTheRunsLength) {
  const std::tuple<const char*, const char*, const char*, const char*, const char*, int32_t> cases[] = {
      {"d/frame_0007.png", "frame_####.png", "d/", "frame_0007", ".png", 7},
      {"d\\frame_0007.png", nullptr, "d/", "frame_0007", ".png", -1},
      {"d/frame_007.png", "frame_####.png", "d/", "frame_007", ".png", -1},
      {"d/frame_abcd.png", "frame_####.png", "d/", "frame_abcd", ".png", 0},
      {"d/take_0012.png", "frame_####.png", "d/", "take_0012", ".png", -1},
      {"d/a_07_b.png", "a_##_b.png", "d/", "a_07_b", ".png", 7},
      {"d/111.png", "1##.png", "d/", "111", ".png", -1},  // the piece also eats the digits
      {"d/0042.png", "####.png", "d/", "0042", ".png", -1},
      {"a/b", "b#", "a/b/", "", ".", -1},
      {"b.png", "b#.png", "b.png/", "", ".png/", -1},
      {"x.d/f.tar.gz", nullptr, "x.d/", "f.tar", ".gz", -1},
      {"a/x.d/f", nullptr, "a/x.d/f/", "x", ".d/f/", -1},  // the dot leaks
  };
  for (const auto& [path, pattern, directory, name, extension, index] : cases) {
    const PathRecord record(path, pattern, true);
    EXPECT_EQ(record.directory, directory) << path;
    EXPECT_EQ(record.name, name) << path;
    EXPECT_EQ(record.extension, extension) << path;
    EXPECT_EQ(record.index, index) << path;
  }
}

}  // namespace
}  // namespace quorl
