#include "bridge/log_buffer.h"

#include <deque>
#include <string>

#include "bridge/state.h"
#include "core/text.h"

namespace quorl {

namespace {

struct LogBufferEntry {
  int32_t level;
  std::string message;
};

// Used only under the bridge mutex. A deque keeps entries in place while its ends change.
std::deque<LogBufferEntry>& LogBufferQueue() {
  static std::deque<LogBufferEntry> queue;
  return queue;
}

LogBufferView logBufferView{0, nullptr};

}  // namespace

void AddLogBufferEntry(int32_t level, const char* text) {
  BridgeLock lock;
  LogBufferQueue().push_back(LogBufferEntry{level, TextOf(text)});
}

LogBufferView* GetLogBufferFront() {
  BridgeLock lock;
  const std::deque<LogBufferEntry>& queue = LogBufferQueue();
  if (queue.empty()) return nullptr;
  logBufferView.level = queue.front().level;
  logBufferView.message = queue.front().message.c_str();
  return &logBufferView;
}

void PopLogBufferFront() {
  BridgeLock lock;
  std::deque<LogBufferEntry>& queue = LogBufferQueue();
  if (!queue.empty()) queue.pop_front();
}

}  // namespace quorl
