#include "core/logger.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace quorl {
namespace {

using Received = std::vector<std::pair<int, std::string>>;

Logger::LOG_TYPE Severity(int value) {
  return static_cast<Logger::LOG_TYPE>(value);
}

std::string StdoutOf(const std::function<void()>& body) {
  testing::internal::CaptureStdout();
  body();
  return testing::internal::GetCapturedStdout();
}

class LoggerTest : public testing::Test {
 protected:
  void TearDown() override {
    Logger::SetLevel(0);
    Logger::SetCallback(nullptr);
  }
};

TEST_F(LoggerTest, PassesSeverityAtOrAboveTheThreshold) {
  EXPECT_EQ(Logger::GetLevel(), 0);
  EXPECT_EQ(StdoutOf([] {
              Logger::Log(Severity(0), "zero");
              Logger::Log(Severity(-1), "negative");
              Logger::LogRaw(Severity(-1), "raw negative");
            }),
            "Qz LOG:\tzero\n");
  Logger::SetLevel(3);
  EXPECT_EQ(Logger::GetLevel(), 3);
  EXPECT_EQ(StdoutOf([] {
              Logger::Log(Severity(2), "two");
              Logger::LogRaw(Severity(2), "raw two");
              Logger::Log(Severity(3), "three");
              Logger::LogRaw(Severity(4), "raw four");
            }),
            "Qz LOG:\tthree\nraw four");
  Logger::SetLevel(-5);
  EXPECT_EQ(StdoutOf([] {
              Logger::Log(Severity(-6), "below");
              Logger::Log(Severity(-5), "equal");
            }),
            "Qz LOG:\tequal\n");
}

TEST_F(LoggerTest, LogPrefixesTheMessageAndKeepsPercentSignsLiteral) {
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), "%s %d 100%"); }), "Qz LOG:\t%s %d 100%\n");
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), ""); }), "Qz LOG:\t\n");
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), std::string("cut\0off", 7)); }), "Qz LOG:\tcut\n");
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), 99, "middle"); }), "Qz LOG:\tmiddle\n");
  EXPECT_EQ(StdoutOf([] { Logger::LogRaw(Severity(1), "%s as is"); }), "%s as is");
  EXPECT_EQ(StdoutOf([] { Logger::LogRaw(Severity(1), 99, "middle"); }), "middle");
  EXPECT_EQ(StdoutOf([] { Logger::LogRaw(Severity(1), ""); }), "");
}

TEST_F(LoggerTest, CallbackReplacesStandardOutputForFilteredMessagesOnly) {
  Received received;
  Logger::SetCallback([&](Logger::LOG_TYPE type, const char* text) { received.emplace_back(type, text); });
  const std::string out = StdoutOf([] {
    Logger::Log(Severity(3), "option");
    Logger::LogRaw(Severity(4), "raw %s");
    Logger::LogRaw(Severity(1), std::string("\0tail", 5));
    Logger::LogRaw(Severity(1), "");
    Logger::Log(Severity(-1), "dropped");
    Logger::Print("printed");
    Logger::Statistic("k", "v");
  });
  EXPECT_EQ(out, "printed##teamcity[buildStatisticValue key='k' value='v']\n");
  EXPECT_EQ(received, (Received{{3, "Qz LOG:\toption\n"}, {4, "raw %s"}, {1, ""}}));

  const Logger::LogCallback copy = Logger::GetCallback();
  ASSERT_TRUE(copy);
  copy(Severity(7), "through the copy");
  EXPECT_EQ(received.back(), std::make_pair(7, std::string("through the copy")));

  Logger::SetCallback(nullptr);
  EXPECT_FALSE(Logger::GetCallback());
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), "back"); }), "Qz LOG:\tback\n");
  EXPECT_EQ(received.size(), 4u);
}

TEST_F(LoggerTest, ThrowingCallbackReachesTheCallerAndReleasesTheMutex) {
  Logger::SetCallback([](Logger::LOG_TYPE, const char*) { throw std::runtime_error("callback failed"); });
  EXPECT_THROW(Logger::Log(Severity(1), "x"), std::runtime_error);
  EXPECT_THROW(Logger::LogRaw(Severity(1), "x"), std::runtime_error);
  // Both of these lock the logger mutex: a mutex left locked above would hang here.
  EXPECT_TRUE(Logger::GetCallback());
  Logger::SetCallback(nullptr);
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), "after"); }), "Qz LOG:\tafter\n");
}

TEST_F(LoggerTest, StatisticAndPrintIgnoreTheThresholdAndWriteTextsAsTheyStand) {
  Logger::SetLevel(1000);
  EXPECT_EQ(StdoutOf([] {
              Logger::Statistic("it's", "a'b%s");
              Logger::Print(std::string("no newline\0hidden", 17));
              Logger::Print("%d");
            }),
            "##teamcity[buildStatisticValue key='it's' value='a'b%s']\nno newline%d");
}

}  // namespace
}  // namespace quorl
