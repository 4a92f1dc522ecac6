// Each case runs in a process of its own: the first read below must find the table untouched.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "core/build_info.h"
#include "core/build_info_values.h"

namespace quorl {
namespace {

using testing::MatchesRegex;

std::string Get(const char* key) {
  return BuildInfo::get(key, "<missing>");
}

TEST(BuildInfo, FirstReadFindsTheTenFirstStageKeysWithTheirShapes) {
  EXPECT_EQ(Get("BUILD_INFO"), Get("BUILD_HOST") + " " + Get("BUILD_DATE"));
  EXPECT_EQ(Get("PRODUCT"), "<missing>");
  EXPECT_EQ(Get("VERSION"), "<missing>");
  std::set<std::string> names;
  for (const auto& item : BuildInfo::instance()) {
    names.insert(item.second.name);
    EXPECT_FALSE(item.second.value.empty()) << item.second.name;
  }
  EXPECT_EQ(names, (std::set<std::string>{"BUILD_PLATFORM", "BUILD_CONFIG", "BUILD_NUMBER", "BUILD_HOST",
                                          "BUILD_DATE", "BUILD_INFO", "GIT_BRANCH", "GIT_HASH",
                                          "GIT_MODIFIED", "GIT_INFO"}));
  EXPECT_EQ(Get("BUILD_PLATFORM"), "Linux64");
  EXPECT_EQ(Get("BUILD_CONFIG"), "Master");
  EXPECT_EQ(Get("BUILD_NUMBER"), QUORL_VERSION);
  EXPECT_THAT(Get("BUILD_HOST"), MatchesRegex("[0-9a-f]{12}"));
  EXPECT_THAT(
      Get("BUILD_DATE"),
      MatchesRegex("[0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])T([01][0-9]|2[0-3]):[0-5][0-9]"));
  EXPECT_THAT(Get("GIT_HASH"), MatchesRegex("[0-9a-f]{40}"));
  EXPECT_THAT(Get("GIT_MODIFIED"), MatchesRegex("False|True"));
  EXPECT_EQ(Get("GIT_INFO"), Get("GIT_HASH") + " " + Get("GIT_BRANCH"));
}

TEST(BuildInfo, SetReplacesTheValueWhileEmptyMissingAndRemovedKeysReadAsTheDefault) {
  const std::size_t before = BuildInfo::instance().size();
  EXPECT_TRUE(BuildInfo::set("TEST_KEY", "one"));
  EXPECT_TRUE(BuildInfo::set("TEST_KEY", "two"));
  EXPECT_EQ(Get("TEST_KEY"), "two");
  // Another name with the same hash is the same entry, which keeps its first name.
  EXPECT_TRUE(BuildInfo::set(HashedName("SOMETHING_ELSE", NameHash("TEST_KEY")), "three"));
  EXPECT_EQ(BuildInfo::instance().at(NameHash("TEST_KEY")).name, "TEST_KEY");
  EXPECT_EQ(Get("TEST_KEY"), "three");
  BuildInfo::set("TEST_KEY", "");
  EXPECT_EQ(Get("TEST_KEY"), "<missing>");
  EXPECT_EQ(BuildInfo::instance().size(), before + 1);
  BuildInfo::remove("TEST_KEY");
  BuildInfo::remove("TEST_KEY");
  EXPECT_EQ(Get("TEST_KEY"), "<missing>");
  EXPECT_EQ(Get("TEST_NEVER_SET"), "<missing>");
  EXPECT_EQ(BuildInfo::instance().size(), before);
}

}  // namespace
}  // namespace quorl
