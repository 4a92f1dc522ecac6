#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/logger.h"
#include "core/strings.h"

namespace quorl {
namespace {

constexpr int kThreads = 4;
constexpr int kMessages = 200;

std::string Message(int thread, int index) {
  return FormatString("thread %d message %d", thread, index);
}

// Logs from several threads while another one keeps storing the threshold and copying the callback.
void LogFromManyThreads(bool raw) {
  // The first passing message switches standard output once; do it here so the threads only deliver.
  Logger::LogRaw(static_cast<Logger::LOG_TYPE>(0), "");
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, raw] {
      for (int i = 0; i < kMessages; ++i) {
        const auto type = static_cast<Logger::LOG_TYPE>(i % 5);
        if (raw) {
          Logger::LogRaw(type, Message(t, i) + "\n");
        } else {
          Logger::Log(type, Message(t, i));
        }
      }
    });
  }
  threads.emplace_back([] {
    for (int i = 0; i < kMessages; ++i) {
      Logger::SetLevel(0);
      (void)Logger::GetCallback();
    }
  });
  for (std::thread& thread : threads)
    thread.join();
}

std::vector<std::string> Expected(const char* prefix) {
  std::vector<std::string> lines;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kMessages; ++i)
      lines.push_back(prefix + Message(t, i) + "\n");
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST(LoggerConcurrency, CallbackRunsSeriallyAndReceivesEveryLineOnce) {
  // Unguarded on purpose: delivery holds the logger mutex, so the callback never runs twice at once.
  std::vector<std::string> received;
  Logger::SetCallback([&](Logger::LOG_TYPE, const char* text) { received.emplace_back(text); });
  LogFromManyThreads(false);
  Logger::SetCallback(nullptr);
  std::sort(received.begin(), received.end());
  EXPECT_EQ(received, Expected("Qz LOG:\t"));
}

TEST(LoggerConcurrency, ConsoleLinesNeverInterleave) {
  testing::internal::CaptureStdout();
  LogFromManyThreads(true);
  std::istringstream out(testing::internal::GetCapturedStdout());
  std::vector<std::string> lines;
  for (std::string line; std::getline(out, line);)
    lines.push_back(line + "\n");
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(lines, Expected(""));
}

}  // namespace
}  // namespace quorl
