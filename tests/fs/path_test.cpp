#include "fs/path.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace quorl {
namespace {

TEST(PathStrings, TheLastElementsDotDecidesFileOrDirectory) {
  const char* const cases[][2] = {
      {"", "/"},         {"a\\b", "a/b/"},     {"a/b/", "a/b/"}, {"a/b.c", "a/b.c"},
      {"b.c", "b.c/"},   {"a/b.c/", "a/b.c/"}, {"a/..", "a/.."}, {"a/./b", "a/./b/"},
      {"a//b", "a//b/"}, {"\\\\x.y", "//x.y"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(NormalizePath(c[0]), c[1]) << c[0];
}

TEST(PathStrings, PartsFollowTheNormalisedText) {
  const char* const cases[][4] = {
      // path, directory, stem, extension
      {"a/b.c", "a/", "b", "c"},       {"a/b", "a/b/", "", ""}, {"b.c", "b.c/", "", "c/"},
      {"a/n.tar.gz", "a/", "n", "gz"}, {"a/b.", "a/", "b", ""}, {"d.old/f", "d.old/f/", "", "old/f/"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GetDirectoryOf(c[0]), c[1]) << c[0];
    EXPECT_EQ(GetFileStem(c[0]), c[2]) << c[0];
    EXPECT_EQ(GetFileExtension(c[0]), c[3]) << c[0];
  }
}

// A fresh directory (its name without a dot) that is removed, and the working directory restored, when the
// test ends, also on failure.
struct TemporaryWorkingDirectory {
  char saved[4096];
  char temp[32] = "/tmp/quorl_path_XXXXXX";
  TemporaryWorkingDirectory() {
    EXPECT_NE(getcwd(saved, sizeof saved), nullptr);
    EXPECT_NE(mkdtemp(temp), nullptr);
  }
  ~TemporaryWorkingDirectory() {
    EXPECT_EQ(chdir(saved), 0);
    std::error_code ignored;
    std::filesystem::remove_all(temp, ignored);
  }
};

TEST(PathStrings, MakeAbsolutePutsRelativePathsBehindTheWorkingDirectoryEvenWithoutSeparator) {
  EXPECT_EQ(MakeAbsolutePath("C:\\x"), "C:/x/");  // absolute paths and schemes are only normalised
  EXPECT_EQ(MakeAbsolutePath("/abs/f.txt"), "/abs/f.txt");
  const TemporaryWorkingDirectory directory;
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

TEST(PathStrings, ExecutableDirectoryHoldsTheRunningProgram) {
  const std::string directory = GetExecutableDirectory();
  ASSERT_FALSE(directory.empty());
  EXPECT_EQ(directory.back(), '/');
  struct stat info;
  EXPECT_EQ(stat((directory + program_invocation_short_name).c_str(), &info), 0);
}

TEST(PathStrings, EnvironmentValueOfAnUnsetNameIsEmpty) {
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

TEST(PathStrings, NullTextsRaiseTheNullTextError) {
  const auto nullTextError =
      testing::ThrowsMessage<std::logic_error>(testing::StrEq("basic_string::_M_construct null not valid"));
  EXPECT_THAT([] { NormalizePath(nullptr); }, nullTextError);
  EXPECT_THAT([] { MakeAbsolutePath(nullptr); }, nullTextError);
  EXPECT_THAT([] { CopyPathText(nullptr); }, nullTextError);
  EXPECT_THAT([] { HashedPath path(static_cast<const char*>(nullptr)); }, nullTextError);
}

}  // namespace
}  // namespace quorl
