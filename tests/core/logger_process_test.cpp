// Each case runs in a process of its own, so none needs to undo what it set: the switch of standard output
// to unbuffered in particular happens once per process, at the first message that passes the threshold.
#include <gtest/gtest.h>
#include <printf.h>
#include <stdio_ext.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "core/logger.h"

namespace quorl {
namespace {

Logger::LOG_TYPE Severity(int value) {
  return static_cast<Logger::LOG_TYPE>(value);
}

std::string StdoutOf(const std::function<void()>& body) {
  testing::internal::CaptureStdout();
  body();
  return testing::internal::GetCapturedStdout();
}

// Whether a character printed to standard output leaves at once instead of waiting in a buffer (the probe
// prints one blank into the test's output).
bool WritesThroughAtOnce() {
  std::fflush(stdout);
  std::printf(" ");
  return __fpending(stdout) == 0;
}

TEST(Logger, FirstPassingMessageSwitchesStandardOutputToUnbuffered) {
  ASSERT_FALSE(WritesThroughAtOnce()) << "standard output must start buffered for this test";
  Logger::SetLevel(2);
  Logger::Log(Logger::LOG_INFO, "dropped");
  Logger::LogRaw(Logger::LOG_INFO, "dropped");
  EXPECT_FALSE(WritesThroughAtOnce()) << "a dropped message switched the output mode";
  Logger::SetLevel(0);
  Logger::LogRaw(Logger::LOG_VERBOSE, "");  // delivers nothing, yet switches
  EXPECT_TRUE(WritesThroughAtOnce());
}

// A %s conversion that raises the threshold to 5 while Log formats its line.
int PrintStringAndRaise(FILE* stream, const printf_info*, const void* const* args) {
  const char* text = *static_cast<const char* const*>(args[0]);
  Logger::SetLevel(5);
  std::fputs(text, stream);
  return static_cast<int>(std::strlen(text));
}
int StringArgument(const printf_info*, size_t n, int* types, int*) {
  if (n > 0) types[0] = PA_STRING;
  return 1;
}

// The threshold is read again after formatting: the first line passes the first test only.
TEST(Logger, ThresholdRaisedWhileTheLineIsFormattedDropsTheLine) {
  std::vector<std::string> delivered;
  Logger::SetCallback([&](Logger::LOG_TYPE, const char* text) { delivered.emplace_back(text); });
  ASSERT_EQ(register_printf_specifier('s', PrintStringAndRaise, StringArgument), 0);
  Logger::Log(Logger::LOG_INFO, "dropped");
  Logger::Log(Severity(5), "kept");
  register_printf_specifier('s', nullptr, nullptr);
  Logger::SetCallback(nullptr);
  Logger::SetLevel(0);
  EXPECT_EQ(delivered, std::vector<std::string>{"Qz LOG:\tkept\n"});
}

TEST(Logger, PassesSeverityAtOrAboveTheThreshold) {
  EXPECT_EQ(Logger::GetLevel(), 0);
  const int cases[][3] = {{3, 2, 0}, {3, 3, 1}, {3, 4, 1}, {-5, -6, 0}, {-5, -5, 1}, {0, -1, 0}, {0, 0, 1}};
  for (const auto& c : cases) {  // {threshold, severity, passes}
    Logger::SetLevel(c[0]);
    EXPECT_EQ(Logger::GetLevel(), c[0]);
    const std::string out = StdoutOf([&] {
      Logger::Log(Severity(c[1]), "line");
      Logger::LogRaw(Severity(c[1]), "raw");
    });
    EXPECT_EQ(out, c[2] ? "Qz LOG:\tline\nraw" : "") << c[0] << " " << c[1];
  }
}

TEST(Logger, LogPrefixesTheMessageAndKeepsPercentSignsLiteral) {
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), "%s %d 100%"); }), "Qz LOG:\t%s %d 100%\n");
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), ""); }), "Qz LOG:\t\n");
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), std::string("cut\0off", 7)); }), "Qz LOG:\tcut\n");
  EXPECT_EQ(StdoutOf([] { Logger::LogRaw(Severity(1), 99, "%s as is"); }), "%s as is");
}

// Print and Statistic ignore the threshold and the callback, and write their texts as they stand.
TEST(Logger, CallbackTakesFilteredMessagesWhilePrintAndStatisticWriteStandardOutput) {
  std::vector<std::pair<int, std::string>> received;
  Logger::SetCallback([&](Logger::LOG_TYPE type, const char* text) { received.emplace_back(type, text); });
  const std::string out = StdoutOf([] {
    Logger::Log(Severity(3), "option");
    Logger::LogRaw(Severity(4), "raw %s");
    Logger::LogRaw(Severity(1), std::string("\0tail", 5));
    Logger::LogRaw(Severity(1), "");
    Logger::Log(Severity(-1), "dropped");
    Logger::SetLevel(1000);
    Logger::Print(std::string("no newline\0hidden", 17));
    Logger::Print("%d");
    Logger::Statistic("it's", "a'b%s");
    Logger::SetLevel(0);
  });
  EXPECT_EQ(out, "no newline%d##teamcity[buildStatisticValue key='it's' value='a'b%s']\n");
  EXPECT_EQ(received, (decltype(received){{3, "Qz LOG:\toption\n"}, {4, "raw %s"}, {1, ""}}));
  Logger::GetCallback()(Severity(7), "through the copy");
  EXPECT_EQ(received.back(), std::make_pair(7, std::string("through the copy")));
  Logger::SetCallback(nullptr);
  EXPECT_FALSE(Logger::GetCallback());
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), "back"); }), "Qz LOG:\tback\n");
  EXPECT_EQ(received.size(), 4u);
}

TEST(Logger, ThrowingCallbackReachesTheCallerAndReleasesTheMutex) {
  Logger::SetCallback([](Logger::LOG_TYPE, const char*) { throw std::runtime_error("callback failed"); });
  EXPECT_THROW(Logger::Log(Severity(1), "x"), std::runtime_error);
  EXPECT_THROW(Logger::LogRaw(Severity(1), "x"), std::runtime_error);
  // Both of these lock the logger mutex: a mutex left locked above would hang here.
  EXPECT_TRUE(Logger::GetCallback());
  Logger::SetCallback(nullptr);
  EXPECT_EQ(StdoutOf([] { Logger::Log(Severity(1), "after"); }), "Qz LOG:\tafter\n");
}

}  // namespace
}  // namespace quorl
