// Races on the exported surface: render events queued from several threads while a render thread
// fires them, and the shared tables hammered while one thread holds Lock across runs of calls.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bridge/exports.h"

namespace {

constexpr int kQueueThreads = 4;
constexpr int kEventsPerThread = 50000;

std::unique_ptr<std::atomic<uint8_t>[]> runs;

void RunEvent(int32_t a, int32_t b, int32_t c) {
  runs[static_cast<std::size_t>(a) * kEventsPerThread + static_cast<std::size_t>(b)].fetch_add(1);
  (void)c;
}

void RunEventWithContext(int32_t a, int32_t b, int32_t c, const FrameContext* context) {
  if (context->structSize == 24) RunEvent(a, b, c);
}

// The hand-over from script threads to the render thread, as an engine would carry the ids.
class IdChannel {
 public:
  void Push(int32_t id) {
    std::lock_guard<std::mutex> lock(mutex_);
    ids_.push_back(id);
    ready_.notify_one();
  }
  void Close() {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    ready_.notify_one();
  }
  // False once closed and drained.
  bool Pop(std::deque<int32_t>& out) {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [this] { return closed_ || !ids_.empty(); });
    if (ids_.empty()) return false;
    out.swap(ids_);
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<int32_t> ids_;
  bool closed_ = false;
};

TEST(BridgeConcurrency, EveryRenderEventQueuedFromManyThreadsRunsExactlyOnce) {
  runs.reset(new std::atomic<uint8_t>[kQueueThreads * kEventsPerThread]());
  IdChannel channel;

  std::thread render([&] {
    auto fire = reinterpret_cast<void (*)(int32_t)>(UnityRenderEventFunc());
    std::deque<int32_t> batch;
    int round = 0;
    while (channel.Pop(batch)) {
      for (int32_t id : batch) {
        fire(id);
        // Firing again must do nothing unless the slot was queued anew meanwhile, which the counts show.
        if ((++round & 63) == 0) fire(id);
      }
      batch.clear();
    }
  });

  std::vector<std::thread> scripts;
  for (int t = 0; t < kQueueThreads; ++t) {
    scripts.emplace_back([t, &channel] {
      for (int i = 0; i < kEventsPerThread; ++i) {
        const int32_t id =
            (i % 2 == 0) ? QueueGLEventIII(&RunEvent, t, i, 0)
                         : QueueGLEventPrepFrameContextIII(&RunEventWithContext, t, i, 0, nullptr, nullptr);
        channel.Push(id);
      }
    });
  }
  for (auto& script : scripts)
    script.join();
  channel.Close();
  render.join();

  int missing = 0;
  int repeated = 0;
  for (int i = 0; i < kQueueThreads * kEventsPerThread; ++i) {
    if (runs[i].load() == 0) ++missing;
    if (runs[i].load() > 1) ++repeated;
  }
  EXPECT_EQ(missing, 0);
  EXPECT_EQ(repeated, 0);
}

TEST(BridgeConcurrency, LockMakesRunsOfCallsAtomicWhileOthersHammerTheTables) {
  constexpr int kWriters = 3;
  constexpr long kEntriesToPoll = 6000;
  std::atomic<bool> stop{false};
  std::vector<std::thread> writers;
  for (int w = 0; w < kWriters; ++w) {
    writers.emplace_back([w, &stop] {
      const std::string producer = "producer" + std::to_string(w);
      const int32_t handle = 100 + w;
      for (int i = 0; !stop.load(); ++i) {
        Scene_Objects_Add(handle, producer.c_str(), "hammer");
        Map_Add("shared", i);
        Map_SetValue("shared", -i);
        LogBuffer_Add(w, (producer + ":" + std::to_string(i)).c_str());
        Scene_Objects_Remove(handle);
        if (i % 3 == 0) Map_Remove("shared");
      }
    });
  }

  std::map<int32_t, long> lastSeen;  // per producer, the last sequence number polled
  int violations = 0;
  long polled = 0;
  while (polled < kEntriesToPoll || lastSeen.size() < static_cast<std::size_t>(kWriters)) {
    Lock();
    // Count, then read by index: stable while held.
    const int32_t count = Scene_Objects_GetCount();
    for (int32_t i = 0; i < count; ++i) {
      const int32_t handle = Scene_Objects_GetHandleAtIndex(i);
      char name[32];
      if (handle < 100 || !Scene_Objects_GetNameFromHandle(handle, name, sizeof name)) ++violations;
    }
    if (Scene_Objects_GetCount() != count) ++violations;
    // Test, then read twice: the same answer while held.
    if (Map_Contains("shared")) {
      const int32_t value = Map_GetValue("shared");
      if (Map_GetValue("shared") != value || !Map_Contains("shared")) ++violations;
    }
    // Get, copy, pop: entries of each producer come out in the order they went in.
    for (int k = 0; k < 4; ++k) {
      LogBufferView* view = LogBuffer_Get();
      if (view == nullptr) break;
      const std::string message = view->message;
      const long sequence = std::stol(message.substr(message.find(':') + 1));
      auto found = lastSeen.find(view->level);
      if (found != lastSeen.end() && sequence <= found->second) ++violations;
      lastSeen[view->level] = sequence;
      LogBuffer_Pop();
      ++polled;
    }
    Unlock();
  }
  stop.store(true);
  for (auto& writer : writers)
    writer.join();
  EXPECT_EQ(violations, 0);

  // Drain: what is left continues every producer's order.
  for (LogBufferView* view = LogBuffer_Get(); view != nullptr; view = LogBuffer_Get()) {
    const std::string message = view->message;
    const long sequence = std::stol(message.substr(message.find(':') + 1));
    auto found = lastSeen.find(view->level);
    EXPECT_TRUE(found == lastSeen.end() || sequence > found->second);
    lastSeen[view->level] = sequence;
    LogBuffer_Pop();
  }
  EXPECT_EQ(Scene_Objects_GetCount(), 0);
  EXPECT_EQ(lastSeen.size(), static_cast<std::size_t>(kWriters));
}

}  // namespace
