#include "core/build_info.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "core/build_info_values.h"

namespace quorl {
namespace {

std::string Get(const char* key) {
  return BuildInfo::get(key, "<missing>");
}

TEST(BuildInfo, FirstStageValuesHaveTheirShapes) {
  EXPECT_EQ(Get("BUILD_PLATFORM"), "Linux64");
  EXPECT_EQ(Get("BUILD_CONFIG"), "Master");
  EXPECT_TRUE(std::regex_match(Get("BUILD_NUMBER"), std::regex(R"(\d+\.\d+\.\d+)"))) << Get("BUILD_NUMBER");
  EXPECT_TRUE(std::regex_match(Get("BUILD_HOST"), std::regex("[0-9a-f]{12}"))) << Get("BUILD_HOST");
  std::smatch date;
  const std::string buildDate = Get("BUILD_DATE");
  ASSERT_TRUE(std::regex_match(buildDate, date, std::regex(R"((\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d))")))
      << buildDate;
  EXPECT_GE(std::stoi(date[1]), 2000);
  EXPECT_TRUE(std::stoi(date[2]) >= 1 && std::stoi(date[2]) <= 12) << buildDate;
  EXPECT_TRUE(std::stoi(date[3]) >= 1 && std::stoi(date[3]) <= 31) << buildDate;
  EXPECT_LE(std::stoi(date[4]), 23);
  EXPECT_LE(std::stoi(date[5]), 59);
  EXPECT_EQ(Get("BUILD_INFO"), Get("BUILD_HOST") + " " + buildDate);
  EXPECT_TRUE(std::regex_match(Get("GIT_HASH"), std::regex("[0-9a-f]{40}"))) << Get("GIT_HASH");
  EXPECT_FALSE(BuildInfo::get("GIT_BRANCH", "").empty());
  EXPECT_TRUE(Get("GIT_MODIFIED") == "False" || Get("GIT_MODIFIED") == "True") << Get("GIT_MODIFIED");
  EXPECT_EQ(Get("GIT_INFO"), Get("GIT_HASH") + " " + Get("GIT_BRANCH"));
}

TEST(BuildInfo, SecondStageLiteralsAreComposedAtBuildTime) {
  const std::string version =
      std::string(QUORL_VERSION_MAJOR) + "." + QUORL_VERSION_MINOR + "." + QUORL_VERSION_PATCH;
  EXPECT_EQ(QUORL_VERSION, version);
  EXPECT_EQ(Get("BUILD_NUMBER"), version);
  EXPECT_EQ(QUORL_FULL_VERSION, "VERSION: '" + version + " " + Get("GIT_HASH") + "'");
  EXPECT_STREQ(QUORL_PRODUCT, "QuorlBridge");
  EXPECT_STREQ(QUORL_VERSION_CHANGES, "0");
  EXPECT_STREQ(QUORL_VERSION_EDIT, "False");
}

TEST(BuildInfo, EntriesAreOrderedByUnsignedHash) {
  const BuildInfo::Map& map = BuildInfo::instance();
  const BuildInfoEntry* previous = nullptr;
  for (const auto& item : map) {
    EXPECT_EQ(item.second.hash, NameHash(item.second.name.c_str())) << item.second.name;
    if (previous != nullptr) {
      EXPECT_LT(previous->hash, item.second.hash);
    }
    previous = &item.second;
  }
  EXPECT_GE(NameHash("BUILD_INFO"), 0x80000000u);  // so the walk above crosses the sign bit
}

TEST(BuildInfo, SetReplacesValueAndKeepsTheFirstName) {
  const std::size_t before = BuildInfo::instance().size();
  EXPECT_TRUE(BuildInfo::set("TEST_REPLACED", "one"));
  EXPECT_TRUE(BuildInfo::set("TEST_REPLACED", "two"));
  EXPECT_EQ(BuildInfo::instance().size(), before + 1);
  EXPECT_EQ(Get("TEST_REPLACED"), "two");
  // Another name with the same hash is the same entry.
  EXPECT_TRUE(BuildInfo::set(HashedName("SOMETHING_ELSE", NameHash("TEST_REPLACED")), "three"));
  EXPECT_EQ(BuildInfo::instance().size(), before + 1);
  EXPECT_EQ(BuildInfo::instance().at(NameHash("TEST_REPLACED")).name, "TEST_REPLACED");
  EXPECT_EQ(Get("TEST_REPLACED"), "three");
  BuildInfo::remove("TEST_REPLACED");
  EXPECT_EQ(BuildInfo::instance().size(), before);
}

TEST(BuildInfo, MissingEmptyAndRemovedKeysReadAsTheDefault) {
  const std::size_t before = BuildInfo::instance().size();
  EXPECT_EQ(Get("TEST_NEVER_SET"), "<missing>");
  EXPECT_EQ(BuildInfo::instance().size(), before);
  BuildInfo::set("TEST_EMPTIED", "value");
  BuildInfo::set("TEST_EMPTIED", "");
  EXPECT_EQ(Get("TEST_EMPTIED"), "<missing>");
  EXPECT_EQ(BuildInfo::instance().size(), before + 1);
  BuildInfo::set("TEST_EMPTIED", "back");
  BuildInfo::remove("TEST_EMPTIED");
  EXPECT_EQ(Get("TEST_EMPTIED"), "<missing>");
  BuildInfo::remove("TEST_EMPTIED");
  EXPECT_EQ(BuildInfo::instance().size(), before);
}

}  // namespace
}  // namespace quorl
