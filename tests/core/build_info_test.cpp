#include "core/build_info.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "core/build_info_values.h"

namespace quorl {
namespace {

std::string Get(const char* key) {
  return BuildInfo::get(key, "<missing>");
}

// Whether `text` has the shape `pattern`: 'd' is a decimal digit, 'x' a lowercase hex digit, any other
// character stands for itself.
bool HasShape(const std::string& text, const std::string& pattern) {
  if (text.size() != pattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool digit = std::isdigit(static_cast<unsigned char>(c)) != 0;
    const bool ok = pattern[i] == 'd'   ? digit
                    : pattern[i] == 'x' ? digit || (c >= 'a' && c <= 'f')
                                        : c == pattern[i];
    if (!ok) return false;
  }
  return true;
}

TEST(BuildInfo, FirstStageValuesHaveTheirShapes) {
  EXPECT_EQ(Get("BUILD_PLATFORM"), "Linux64");
  EXPECT_EQ(Get("BUILD_CONFIG"), "Master");
  EXPECT_TRUE(HasShape(Get("BUILD_HOST"), std::string(12, 'x'))) << Get("BUILD_HOST");
  const std::string buildDate = Get("BUILD_DATE");
  ASSERT_TRUE(HasShape(buildDate, "dddd-dd-ddTdd:dd")) << buildDate;
  const auto field = [&](std::size_t at, std::size_t n) { return std::stoi(buildDate.substr(at, n)); };
  EXPECT_TRUE(field(5, 2) >= 1 && field(5, 2) <= 12) << buildDate;
  EXPECT_TRUE(field(8, 2) >= 1 && field(8, 2) <= 31) << buildDate;
  EXPECT_LE(field(11, 2), 23);
  EXPECT_LE(field(14, 2), 59);
  EXPECT_EQ(Get("BUILD_INFO"), Get("BUILD_HOST") + " " + buildDate);
  EXPECT_TRUE(HasShape(Get("GIT_HASH"), std::string(40, 'x'))) << Get("GIT_HASH");
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
}

TEST(BuildInfo, EntriesKeepTheirNameAndItsHash) {
  for (const auto& item : BuildInfo::instance()) {
    EXPECT_EQ(item.first, NameHash(item.second.name.c_str())) << item.second.name;
    EXPECT_EQ(item.second.hash, item.first) << item.second.name;
  }
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
