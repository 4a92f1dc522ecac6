// Registration completes process-wide build information once, so these tests run in a process of
// their own, in the order written.
#include "bridge/registration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bridge_test_support.h"
#include "core/build_info.h"
#include "core/build_info_values.h"
#include "core/logger.h"

namespace quorl {
namespace {

struct CapturedLog {
  std::vector<std::pair<int32_t, std::string>> lines;
  CapturedLog() {
    Logger::SetCallback([this](Logger::LOG_TYPE type, const char* text) { lines.emplace_back(type, text); });
  }
  ~CapturedLog() { Logger::SetCallback(nullptr); }
};

TEST(Registration, AboveTheBannerThresholdNothingIsLoggedButEverythingIsStored) {
  CapturedLog log;
  Logger::SetLevel(2);
  RegisterUnityPlugin(1, 2, 3, "first host");
  Logger::SetLevel(0);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(BuildInfo::get("PRODUCT", ""), "QuorlBridge");
  EXPECT_EQ(BuildInfo::get("FULL_VERSION", ""), QUORL_FULL_VERSION);
  EXPECT_EQ(BuildInfo::instance().size(), 18u);  // the ten first keys and the eight of the registration
  const HostRegistrationRecord& record = HostRegistration();
  EXPECT_EQ(record.first, 1);
  EXPECT_EQ(record.second, 2);
  EXPECT_EQ(record.third, 3);
  EXPECT_EQ(record.text, "first host");
}

TEST(Registration, EveryCallLogsTheBannerAndOverwritesTheRecordButTheKeysOnlyOnce) {
  BuildInfo::set("PRODUCT", "changed since");
  CapturedLog log;
  RegisterUnityPlugin(4, 5, 6, "");
  RegisterUnityPlugin(7, 8, 9, "second host");
  const std::string banner = std::string("Qz LOG:\tQuorlBridge ") + QUORL_VERSION + " (" +
                             BuildInfo::get("BUILD_INFO", "") + ")\n\n";
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0], std::make_pair(int32_t{1}, banner));
  EXPECT_EQ(log.lines[1], log.lines[0]);
  EXPECT_EQ(BuildInfo::get("PRODUCT", ""), "changed since");  // step one is not repeated
  EXPECT_EQ(HostRegistration().first, 7);
  EXPECT_EQ(HostRegistration().text, "second host");
}

TEST(Registration, ANullTextRaisesAfterTheBannerAndTheNumbers) {
  CapturedLog log;
  testing::ExpectNullTextError([] { RegisterUnityPlugin(10, 11, 12, nullptr); });
  EXPECT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(HostRegistration().first, 10);
  EXPECT_EQ(HostRegistration().third, 12);
  EXPECT_EQ(HostRegistration().text, "second host");
}

TEST(Registration, TheBannerGoesToStandardOutputWithoutACallback) {
  ::testing::internal::CaptureStdout();
  RegisterUnityPlugin(0, 0, 0, "console");
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, std::string("Qz LOG:\tQuorlBridge ") + QUORL_VERSION + " (" + QUORL_BUILD_INFO + ")\n\n");
}

}  // namespace
}  // namespace quorl
