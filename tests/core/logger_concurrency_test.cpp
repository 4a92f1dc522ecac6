#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "core/logger.h"

namespace quorl {
namespace {

// The threshold is read without the logger mutex by design: one thread keeps storing it and copying the
// callback while another logs, for ThreadSanitizer to watch.
TEST(LoggerConcurrency, LinesArriveWhileTheThresholdIsStoredAndTheCallbackCopied) {
  int received = 0;
  Logger::SetCallback([&](Logger::LOG_TYPE, const char*) { ++received; });
  std::thread setter([] {
    for (int i = 0; i < 1000; ++i) {
      Logger::SetLevel(0);
      (void)Logger::GetCallback();
    }
  });
  for (int i = 0; i < 1000; ++i)
    Logger::Log(Logger::LOG_INFO, "line");
  setter.join();
  Logger::SetCallback(nullptr);
  EXPECT_EQ(received, 1000);
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
