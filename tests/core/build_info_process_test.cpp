// Each case runs in a process of its own: the first read below must find the table untouched.
#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <string>

#include "core/build_info.h"
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
    const bool digit = std::isdigit(static_cast<unsigned char>(text[i])) != 0;
    const bool hex = digit || (text[i] >= 'a' && text[i] <= 'f');
    if (!(pattern[i] == 'd' ? digit : pattern[i] == 'x' ? hex : text[i] == pattern[i])) return false;
  }
  return true;
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
  EXPECT_TRUE(HasShape(Get("BUILD_HOST"), std::string(12, 'x'))) << Get("BUILD_HOST");
  const std::string date = Get("BUILD_DATE");
  ASSERT_TRUE(HasShape(date, "dddd-dd-ddTdd:dd")) << date;
  const auto field = [&](std::size_t at) { return std::stoi(date.substr(at, 2)); };
  EXPECT_TRUE(field(5) >= 1 && field(5) <= 12 && field(8) >= 1 && field(8) <= 31) << date;
  EXPECT_TRUE(field(11) <= 23 && field(14) <= 59) << date;
  EXPECT_TRUE(HasShape(Get("GIT_HASH"), std::string(40, 'x'))) << Get("GIT_HASH");
  EXPECT_TRUE(Get("GIT_MODIFIED") == "False" || Get("GIT_MODIFIED") == "True") << Get("GIT_MODIFIED");
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
