#include "core/logger.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>

#include "core/strings.h"

namespace quorl {

namespace {

// Constant-initialised, so logging works from any static constructor.
std::atomic<int32_t> threshold{0};
// Not a synchronisation point: two first messages may both switch the stream, which is harmless.
std::atomic<bool> outputConfigured{false};
std::mutex loggerMutex;

Logger::LogCallback& StoredCallback() {
  // Built on first use, destroyed by the exit handler that its construction registers.
  static Logger::LogCallback callback;
  return callback;
}

// Builds the callback during static initialisation at the latest, so that its exit handler is
// registered then and the callback outlives every static object constructed afterwards, including
// those whose destructors log.
const bool callbackConstructed = (StoredCallback(), true);

bool Dropped(Logger::LOG_TYPE type) {
  return type < threshold.load(std::memory_order_relaxed);
}

// Delivery shared by Log and LogRaw, from the switch of the output mode on.
void Deliver(Logger::LOG_TYPE type, const std::string& text) {
  if (!outputConfigured.load(std::memory_order_relaxed)) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    outputConfigured.store(true, std::memory_order_relaxed);
  }
  if (text.empty()) return;
  std::lock_guard<std::mutex> lock(loggerMutex);
  const Logger::LogCallback& callback = StoredCallback();
  if (callback) {
    callback(type, text.c_str());
  } else {
    std::printf("%s", text.c_str());
  }
}

}  // namespace

void Logger::SetLevel(int32_t level) {
  threshold.store(level, std::memory_order_seq_cst);
#if !defined(__SANITIZE_THREAD__)
  // ThreadSanitizer does not model stand-alone fences (GCC rejects them there); the seq_cst store above
  // is a locked exchange on x86-64 and orders as much on its own.
  std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
}

int32_t Logger::GetLevel() {
  return threshold.load(std::memory_order_relaxed);
}

void Logger::Print(const std::string& text) {
  std::printf("%s", text.c_str());
}

void Logger::Log(LOG_TYPE type, const std::string& message) {
  if (Dropped(type)) return;
  const std::string line = FormatString("Qz LOG:\t%s\n", message.c_str());
  // Checked again: the threshold may have risen while the line was formatted.
  if (Dropped(type)) return;
  Deliver(type, line);
}

void Logger::Log(LOG_TYPE type, int /*ignored*/, const std::string& message) {
  Log(type, message);
}

void Logger::LogRaw(LOG_TYPE type, const std::string& text) {
  if (Dropped(type)) return;
  Deliver(type, text);
}

void Logger::LogRaw(LOG_TYPE type, int /*ignored*/, const std::string& text) {
  LogRaw(type, text);
}

void Logger::SetCallback(const LogCallback& callback) {
  LogCallback previous(callback);
  std::swap(previous, StoredCallback());
}

Logger::LogCallback Logger::GetCallback() {
  std::lock_guard<std::mutex> lock(loggerMutex);
  return StoredCallback();
}

void Logger::Statistic(const std::string& key, const std::string& value) {
  const std::string line =
      FormatString("##teamcity[buildStatisticValue key='%s' value='%s']\n", key.c_str(), value.c_str());
  std::printf("%s", line.c_str());
}

}  // namespace quorl
