// Runs in a process of its own: the table must not have been touched before the first read below.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "core/build_info.h"

namespace quorl {
namespace {

TEST(BuildInfoFirstUse, FirstReadFindsTheTenFirstStageKeysAndNothingElse) {
  const std::string info = BuildInfo::get("BUILD_INFO", "<missing>");
  EXPECT_EQ(info, BuildInfo::get("BUILD_HOST", "") + " " + BuildInfo::get("BUILD_DATE", ""));
  EXPECT_EQ(BuildInfo::get("PRODUCT", "<missing>"), "<missing>");
  EXPECT_EQ(BuildInfo::get("VERSION", "<missing>"), "<missing>");

  std::set<std::string> names;
  for (const auto& item : BuildInfo::instance()) {
    names.insert(item.second.name);
    EXPECT_FALSE(item.second.value.empty()) << item.second.name;
  }
  const std::set<std::string> expected = {"BUILD_PLATFORM", "BUILD_CONFIG", "BUILD_NUMBER", "BUILD_HOST",
                                          "BUILD_DATE",     "BUILD_INFO",   "GIT_BRANCH",   "GIT_HASH",
                                          "GIT_MODIFIED",   "GIT_INFO"};
  EXPECT_EQ(names, expected);
}

}  // namespace
}  // namespace quorl
