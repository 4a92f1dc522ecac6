// Runs in a process of its own: the switch of standard output to unbuffered happens once per process,
// at the first message that passes the threshold, and nothing may have logged before.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <printf.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "core/logger.h"

namespace quorl {
namespace {

Logger::LOG_TYPE Severity(int value) {
  return static_cast<Logger::LOG_TYPE>(value);
}

// Whether a printf to standard output reaches file descriptor 1 at once, without a flush.
bool WritesThroughAtOnce() {
  std::fflush(stdout);
  int fds[2];
  if (pipe(fds) != 0) return false;
  fcntl(fds[0], F_SETFL, O_NONBLOCK);
  const int saved = dup(1);
  dup2(fds[1], 1);
  std::printf("probe");
  char buffer[16];
  const ssize_t n = read(fds[0], buffer, sizeof buffer);
  std::fflush(stdout);
  dup2(saved, 1);
  close(saved);
  close(fds[0]);
  close(fds[1]);
  return n == 5;
}

TEST(LoggerOutputMode, FirstPassingMessageSwitchesStandardOutputToUnbuffered) {
  ASSERT_FALSE(WritesThroughAtOnce()) << "standard output must start buffered for this test";
  Logger::SetLevel(2);
  Logger::Log(Severity(1), "dropped");
  Logger::LogRaw(Severity(1), "dropped");
  EXPECT_FALSE(WritesThroughAtOnce()) << "a dropped message switched the output mode";
  Logger::SetLevel(0);
  Logger::LogRaw(Severity(0), "");  // delivers nothing, yet switches
  EXPECT_TRUE(WritesThroughAtOnce());
  Logger::Log(Severity(0), "still unbuffered");
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
  Logger::Log(Severity(1), kRaiser);
  const int raisedLevel = Logger::GetLevel();
  Logger::SetLevel(0);
  Logger::Log(Severity(1), "formatted by the override too");
  register_printf_specifier('s', nullptr, nullptr);
  Logger::SetCallback(nullptr);
  EXPECT_EQ(raisedLevel, 5);
  EXPECT_EQ(delivered, 1);
}

}  // namespace
}  // namespace quorl
