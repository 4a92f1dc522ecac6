#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "core/logger.h"
#include "core/strings.h"

namespace quorl {
namespace {

// Four threads log while a fifth keeps storing the threshold and copying the callback, which the design
// reads without the logger mutex. The callback is unguarded on purpose: delivery holds the logger mutex,
// so the callback never runs twice at once, and every line arrives once.
TEST(LoggerConcurrency, CallbackRunsSeriallyAndReceivesEveryLineOnce) {
  std::multiset<std::string> received, expected;
  Logger::SetCallback([&](Logger::LOG_TYPE, const char* text) { received.insert(text); });
  Logger::LogRaw(Logger::LOG_VERBOSE, "");  // switches standard output here, so the threads only deliver
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i)
        Logger::Log(static_cast<Logger::LOG_TYPE>(i % 5), FormatString("thread %d message %d", t, i));
    });
    for (int i = 0; i < 200; ++i)
      expected.insert(FormatString("Qz LOG:\tthread %d message %d\n", t, i));
  }
  threads.emplace_back([] {
    for (int i = 0; i < 200; ++i) {
      Logger::SetLevel(0);
      (void)Logger::GetCallback();
    }
  });
  for (std::thread& thread : threads)
    thread.join();
  Logger::SetCallback(nullptr);
  EXPECT_EQ(received, expected);
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

}  // namespace
}  // namespace quorl
