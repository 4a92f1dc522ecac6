#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
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

// Holds one delivery inside the callback while a second thread logs: the second must wait for the logger
// mutex. If it did not, it would enter the callback at once, which the first delivery waits long enough
// to see every time.
TEST(LoggerConcurrency, ASecondLineWaitsWhileTheCallbackRuns) {
  std::mutex state;
  std::condition_variable changed;
  int inside = 0;
  bool overlapped = false;
  bool secondStarted = false;
  Logger::SetCallback([&](Logger::LOG_TYPE, const char* text) {
    std::unique_lock<std::mutex> lock(state);
    overlapped = overlapped || inside > 0;
    ++inside;
    changed.notify_all();
    if (std::string(text) == "Qz LOG:\tfirst\n") {
      changed.wait(lock, [&] { return secondStarted; });
      // Long enough for an unguarded second delivery to arrive; a guarded one never does.
      changed.wait_for(lock, std::chrono::milliseconds(300), [&] { return inside > 1; });
    }
    --inside;
  });
  std::thread first([] { Logger::Log(static_cast<Logger::LOG_TYPE>(1), "first"); });
  {
    std::unique_lock<std::mutex> lock(state);
    changed.wait(lock, [&] { return inside == 1; });
  }
  std::thread second([&] {
    {
      std::lock_guard<std::mutex> lock(state);
      secondStarted = true;
      changed.notify_all();
    }
    Logger::Log(static_cast<Logger::LOG_TYPE>(1), "second");
  });
  first.join();
  second.join();
  Logger::SetCallback(nullptr);
  EXPECT_FALSE(overlapped) << "the callback ran for the second line while it ran for the first";
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
