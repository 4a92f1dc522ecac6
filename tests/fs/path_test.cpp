#include "fs/path.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "fs/temp_directory.h"

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

TEST(PathStrings, AbsolutePathsAndSchemesAreOnlyNormalised) {
  EXPECT_EQ(MakeAbsolutePath("C:\\x"), "C:/x/");
  EXPECT_EQ(MakeAbsolutePath("/abs/f.txt"), "/abs/f.txt");
}

// Restores the working directory when the test ends, also on failure.
struct WorkingDirectoryGuard {
  char saved[4096];
  WorkingDirectoryGuard() { EXPECT_NE(getcwd(saved, sizeof saved), nullptr); }
  ~WorkingDirectoryGuard() { EXPECT_EQ(chdir(saved), 0); }
};

TEST(PathStrings, RelativePathsGoBehindTheWorkingDirectoryEvenWithoutSeparator) {
  const TempDirectory temp;
  const WorkingDirectoryGuard guard;
  ASSERT_EQ(chdir(temp.path().c_str()), 0);
  EXPECT_EQ(GetWorkingDirectory(), temp.path() + "/");
  EXPECT_EQ(MakeAbsolutePath("sub\\f.txt"), temp.path() + "/sub/f.txt");
  EXPECT_EQ(MakeAbsolutePath("\\x"), temp.path() + "//x/");  // a leading backslash isn't absolute
  ASSERT_EQ(mkdir((temp / "v.1").c_str(), 0700), 0);
  ASSERT_EQ(chdir("v.1"), 0);
  EXPECT_EQ(GetWorkingDirectory(), temp.path() + "/v.1");
  EXPECT_EQ(MakeAbsolutePath("x"), temp.path() + "/v.1x/");
}

TEST(PathStrings, ExecutableDirectoryHoldsTheRunningProgram) {
  const std::string directory = GetExecutableDirectory();
  ASSERT_FALSE(directory.empty());
  EXPECT_EQ(directory.back(), '/');
  struct stat info;
  EXPECT_EQ(stat((directory + program_invocation_short_name).c_str(), &info), 0);
}

TEST(PathStrings, EnvironmentUnsetAndEmptyLookAlike) {
  ASSERT_EQ(setenv("QUORL_PATH_TEST_VALUE", "v=1", 1), 0);
  EXPECT_EQ(GetEnvironmentValue("QUORL_PATH_TEST_VALUE"), "v=1");
  ASSERT_EQ(setenv("QUORL_PATH_TEST_VALUE", "", 1), 0);
  EXPECT_EQ(GetEnvironmentValue("QUORL_PATH_TEST_VALUE"), "");
  ASSERT_EQ(unsetenv("QUORL_PATH_TEST_VALUE"), 0);
  EXPECT_EQ(GetEnvironmentValue("QUORL_PATH_TEST_VALUE"), "");
}

TEST(PathStrings, HashedPathSplitsAtTheFirstSeparator) {
  const HashedPath split("a/b/c");
  EXPECT_EQ(split.head.name, "a");
  EXPECT_EQ(split.head.hash, NameHash("a"));
  EXPECT_EQ(split.tail.name, "b/c");
  EXPECT_EQ(split.tail.hash, NameHash("b/c"));
  EXPECT_EQ(split.full, "a/b/c");
  const HashedPath leading(std::string("/abc"));
  EXPECT_EQ(leading.head.name, "");
  EXPECT_EQ(leading.head.hash, 0u);
  EXPECT_EQ(leading.tail.name, "abc");
  for (const char* unsplit : {"", "abc", "abc/"}) {
    const HashedPath path(unsplit);
    EXPECT_EQ(path.full, unsplit);
    EXPECT_TRUE(path.head.name.empty() && path.tail.name.empty() && path.head.hash == 0 &&
                path.tail.hash == 0);
  }
}

TEST(PathStrings, NullTextsRaiseTheNullTextError) {
  for (auto call :
       {+[] { NormalizePath(nullptr); }, +[] { MakeAbsolutePath(nullptr); }, +[] { CopyPathText(nullptr); },
        +[] { HashedPath path(static_cast<const char*>(nullptr)); }}) {
    try {
      call();
      ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& error) {
      EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
    }
  }
}

}  // namespace
}  // namespace quorl
