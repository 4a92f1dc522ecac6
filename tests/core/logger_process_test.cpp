// Runs in a process of its own: the switch of standard output to unbuffered happens once per process,
// at the first message that passes the threshold, and nothing may have logged before.
#include <gtest/gtest.h>
#include <printf.h>
#include <stdio_ext.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "core/logger.h"

namespace quorl {
namespace {

// Whether a character printed to standard output leaves at once instead of waiting in a buffer (the probe
// prints one blank into the test's output).
bool WritesThroughAtOnce() {
  std::fflush(stdout);
  std::printf(" ");
  const bool through = __fpending(stdout) == 0;
  std::fflush(stdout);
  return through;
}

TEST(LoggerOutputMode, FirstPassingMessageSwitchesStandardOutputToUnbuffered) {
  ASSERT_FALSE(WritesThroughAtOnce()) << "standard output must start buffered for this test";
  Logger::SetLevel(2);
  Logger::Log(Logger::LOG_INFO, "dropped");
  Logger::LogRaw(Logger::LOG_INFO, "dropped");
  EXPECT_FALSE(WritesThroughAtOnce()) << "a dropped message switched the output mode";
  Logger::SetLevel(0);
  Logger::LogRaw(Logger::LOG_VERBOSE, "");  // delivers nothing, yet switches
  EXPECT_TRUE(WritesThroughAtOnce());
}

// A %s conversion that raises the threshold while Log formats its line, to reach the second test.
const char kRaiser[] = "raise the threshold";
int PrintString(FILE* stream, const printf_info*, const void* const* args) {
  const char* text = *static_cast<const char* const*>(args[0]);
  if (std::strcmp(text, kRaiser) == 0) Logger::SetLevel(5);
  std::fputs(text, stream);
  return static_cast<int>(std::strlen(text));
}
int StringArgument(const printf_info*, size_t n, int* types, int*) {
  if (n > 0) types[0] = PA_STRING;
  return 1;
}

TEST(LoggerThreshold, RaisedWhileTheLineIsFormattedDropsTheLine) {
  int delivered = 0;
  Logger::SetCallback([&](Logger::LOG_TYPE, const char*) { ++delivered; });
  ASSERT_EQ(register_printf_specifier('s', PrintString, StringArgument), 0);
  Logger::Log(Logger::LOG_INFO, kRaiser);
  const int raisedLevel = Logger::GetLevel();
  Logger::SetLevel(0);
  Logger::Log(Logger::LOG_INFO, "formatted by the override too");
  register_printf_specifier('s', nullptr, nullptr);
  Logger::SetCallback(nullptr);
  EXPECT_EQ(raisedLevel, 5);
  EXPECT_EQ(delivered, 1);
}

}  // namespace
}  // namespace quorl
