// Every allocation of the bridge's growing operations, made to fail in turn: the failure must reach the
// caller as std::bad_alloc, leave the container as it was and release every lock.
//
// One process, cases in the order written: the bridge's containers and the registration latch live as
// long as the process, and several cases rely on meeting them in a known shape (an array exactly at its
// capacity, a plug-in not yet registered).
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "bridge/bridge_test_support.h"
#include "bridge/registration.h"
#include "core/build_info.h"
#include "core/build_info_values.h"
#include "support/failing_allocator.h"

namespace quorl::testing {
namespace {

// Longer than any small-string buffer, so that every copy allocates.
std::string LongText(const char* stem, int number) {
  return std::string(stem) + std::to_string(number) + std::string(40, '.');
}

// What the tables hold, as far as a caller can see without changing them: every scene record, the
// values of `keys`, and the front log entry with the address of its text.
std::string Snapshot(const std::vector<std::string>& keys) {
  std::string text = "objects:";
  for (int32_t i = 0; i < Scene_Objects_GetCount(); ++i) {
    const int32_t handle = Scene_Objects_GetHandleAtIndex(i);
    char name[128] = "<none>";
    char type[128] = "<none>";
    Scene_Objects_GetNameFromHandle(handle, name, sizeof name);
    Scene_Objects_GetTypeFromHandle(handle, type, sizeof type);
    text += " " + std::to_string(handle) + "=" + name + "/" + type;
  }
  text += "\nmap:";
  for (const std::string& key : keys)
    if (Map_Contains(key.c_str())) text += " " + key + "=" + std::to_string(Map_GetValue(key.c_str()));
  if (const LogBufferView* front = LogBuffer_Get()) {
    text += "\nlog: " + std::to_string(front->level) + " " + front->message + " at " +
            std::to_string(reinterpret_cast<uintptr_t>(front->message));
  }
  return text;
}

// Sweeps `call` with each allocation failing in turn: after each failure the tables are as they were,
// and another thread can take the bridge mutex. Gives the number of failures.
std::size_t SweepTableCall(const std::function<void()>& call, const std::vector<std::string>& keys) {
  const std::string before = Snapshot(keys);
  return SweepFailingAllocations(call, [&](std::size_t) {
    EXPECT_EQ(Snapshot(keys), before);
    EXPECT_TRUE(BridgeMutexFreeForOthers());
  });
}

TEST(BridgeAllocationFailure, SceneObjectAndMapAddsLeaveTheTablesAsTheyWere) {
  ResetSceneObjectsAndShutdown();
  // The registry is first used here, so four records fill its array exactly and the fifth must grow it.
  for (int32_t handle = 1; handle <= 4; ++handle)
    Scene_Objects_Add(handle, LongText("object", handle).c_str(), LongText("type", handle).c_str());
  std::vector<std::string> keys;
  for (int i = 0; i < 6; ++i) {
    keys.push_back(LongText("key", i));
    Map_Add(keys.back().c_str(), 10 * i);
  }
  const std::string name = LongText("object", 5), type = LongText("type", 5), fresh = LongText("key", 99);
  keys.push_back(fresh);
  const struct {
    const char* what;
    std::function<void()> call;
    std::size_t allocations;
  } adds[] = {
      // The record, its two texts and the grown array.
      {"Scene_Objects_Add", [&] { Scene_Objects_Add(5, name.c_str(), type.c_str()); }, 4},
      // The copied name and the map's entry.
      {"Map_Add of a new name", [&] { Map_Add(fresh.c_str(), 7); }, 2},
      // A present name is never overwritten, also not by an add that fails half-way.
      {"Map_Add of a present name", [&] { Map_Add(keys[2].c_str(), 99); }, 1},
  };
  for (const auto& add : adds)
    EXPECT_GE(SweepTableCall(add.call, keys), add.allocations) << add.what;
  EXPECT_EQ(Scene_Objects_GetCount(), 5);
  EXPECT_EQ(Scene_Objects_GetHandleFromName(name.c_str()), 5);
  EXPECT_EQ(Map_GetValue(fresh.c_str()), 7);
  EXPECT_EQ(Map_GetValue(keys[2].c_str()), 20);
  ResetSceneObjectsAndShutdown();
  for (const std::string& key : keys)
    Map_Remove(key.c_str());
}

TEST(BridgeAllocationFailure, LogBufferAddLeavesTheQueueAsItWas) {
  while (LogBuffer_Get() != nullptr)
    LogBuffer_Pop();
  // Enough entries for the queue to take new blocks, and a larger index of them, at some of the adds.
  std::vector<std::string> texts;
  std::size_t failures = 0;
  const void* front = nullptr;  // where the first entry's text is
  for (int i = 0; i < 200; ++i) {
    texts.push_back(LongText("entry", i));
    failures += SweepTableCall([&] { LogBuffer_Add(i, texts[i].c_str()); }, {});
    ASSERT_FALSE(HasFailure()) << "entry " << i;
    if (i == 0) front = LogBuffer_Get()->message;
  }
  EXPECT_GT(failures, texts.size());  // each add copies its text; some also took a block of the queue
  EXPECT_EQ(LogBuffer_Get()->message, front) << "the front text moved while others were added";
  // Exactly the entries added, once each and in order.
  for (int i = 0; i < 200; ++i) {
    const LogBufferView* view = LogBuffer_Get();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->level, i);
    EXPECT_EQ(view->message, texts[i]);
    LogBuffer_Pop();
  }
  EXPECT_EQ(LogBuffer_Get(), nullptr);
}

// Render functions count their runs by marker, the first integer they get; checks run at the end.
std::vector<int> runs(20000);
bool wrongArguments = false;
int32_t innerEventId = 0;

void RunIII(int32_t marker, int32_t b, int32_t c) {
  ++runs[marker];
  wrongArguments |= b != marker + 1 || c != marker + 2;
}
void RunContextIII(int32_t marker, int32_t b, int32_t c, const FrameContext* context) {
  RunIII(marker, b, c);
  wrongArguments |= context->structSize != 24 || context->reserved0 != 0 || context->reserved1 != 0 ||
                    context->reserved2 != 0;
}
// Fires another frame-context event from inside one, so that two scopes are alive at once.
void RunContextFiringInner(int32_t marker, const FrameContext* context) {
  RunContextIII(marker, marker + 1, marker + 2, context);
  UnityRenderEvent(innerEventId);
}

// Every marker handed out to a filler or to a queue call that is swept must have run once by the end.
int32_t nextMarker = 1;
int32_t QueueFiller() {
  const int32_t marker = nextMarker++;
  return QueueGLEventIII(&RunIII, marker, marker + 1, marker + 2);
}

// Queues a new marker's event with each allocation failing in turn: through an export, whose closure is
// copied as bytes (all exports bind such closures), or with `heap` as a closure that owns heap data, whose
// copy allocates. The call must get `expectedId`. After each failure another thread fires slot `probeId`
// and queues into it again (and frees it again when it is the free slot that the call is after), which
// shows that the slot mutex is free and that the failed call took no slot. A failed call that left its
// closure behind shows as a second run of the marker. Gives the number of failures.
std::size_t SweepQueue(bool heap, int32_t probeId, int32_t expectedId) {
  const int32_t count = RenderEventSlotCount();
  const int32_t marker = nextMarker++;
  const RenderEventClosure owning([text = LongText("owned", marker), marker] {
    if (!text.empty()) ++runs[marker];
  });
  int32_t id = -1;
  const std::size_t failures = SweepFailingAllocations(
      [&] {
        id = heap ? QueueRenderEvent(owning) : QueueGLEventIII(&RunIII, marker, marker + 1, marker + 2);
      },
      [&](std::size_t) {
        EXPECT_EQ(RenderEventSlotCount(), count);
        int32_t requeued = -1;
        std::thread other([&] {
          UnityRenderEvent(probeId);
          requeued = QueueFiller();
          if (probeId == expectedId) UnityRenderEvent(probeId);
        });
        other.join();
        EXPECT_EQ(requeued, probeId);
      });
  EXPECT_EQ(id, expectedId) << (heap ? "heap closure" : "export");
  EXPECT_EQ(RenderEventSlotCount(), std::max(count, expectedId - kRenderEventIdBase + 1));
  return failures;
}

TEST(BridgeAllocationFailure, RenderEventQueueLeavesTheSlotsAsTheyWere) {
  FreeAllRenderEventSlots();
  const int32_t base = kRenderEventIdBase;
  ASSERT_EQ(RenderEventSlotCount(), 0) << "the table is first used here, so its capacity is 64";
  int32_t capacity = 64;
  // Both ways of queueing meet a full table, in turn, at a larger capacity each time; the last, at 4096
  // slots, also makes the index of free slots one level taller.
  for (bool heap = false; capacity <= 4096; heap = !heap, capacity *= 2) {
    while (RenderEventSlotCount() < capacity)
      QueueFiller();
    EXPECT_GE(SweepQueue(heap, base + capacity - 1, base + capacity), 1u) << "the table did not grow";
  }
  // A slot in the middle is free: each way of queueing must take it, and a failed call leave it free.
  UnityRenderEvent(base + 4000);
  SweepQueue(false, base + 4000, base + 4000);
  UnityRenderEvent(base + 4001);
  EXPECT_GE(SweepQueue(true, base + 4001, base + 4001), 1u) << "the copy did not allocate";
  ASSERT_FALSE(HasFailure());

  // Fire everything: each event that was queued runs once, and no failed call left a closure behind.
  FreeAllRenderEventSlots();
  for (int32_t marker = 1; marker < nextMarker; ++marker)
    ASSERT_EQ(runs[marker], 1) << "marker " << marker;
  EXPECT_FALSE(wrongArguments);
}

// Firing a frame-context event makes a scope for the length of the call in the wrapper's own frame, so no
// fire allocates, and none can fail for memory: not even one fired from inside another's function while
// that one's scope lives.
TEST(BridgeAllocationFailure, FrameContextFiresAllocateNothingEvenNested) {
  FreeAllRenderEventSlots();
  const int32_t base = kRenderEventIdBase;
  // The outer event, in slot 0, fires the inner one, in slot 1, while its own scope lives.
  const int32_t outer = nextMarker++;
  const int32_t inner = nextMarker++;
  EXPECT_EQ(QueueGLEventPrepFrameContextI(&RunContextFiringInner, outer, nullptr, nullptr), base);
  innerEventId =
      QueueGLEventPrepFrameContextIII(&RunContextIII, inner, inner + 1, inner + 2, nullptr, nullptr);
  ASSERT_EQ(innerEventId, base + 1);
  const std::size_t failures =
      SweepFailingAllocations([&] { UnityRenderEvent(base); },
                              [](std::size_t) { ADD_FAILURE() << "a frame-context fire allocated"; });
  EXPECT_EQ(failures, 0u);
  EXPECT_EQ(runs[outer], 1);
  EXPECT_EQ(runs[inner], 1);
  EXPECT_FALSE(wrongArguments);
}

// The eight keys that the first registration adds, in order, and their values.
const char* const kKeys[] = {"PRODUCT",         "VERSION_MAJOR", "VERSION_MINOR", "VERSION_PATCH",
                             "VERSION_CHANGES", "VERSION_EDIT",  "VERSION",       "FULL_VERSION"};
const char* const kValues[] = {QUORL_PRODUCT,       QUORL_VERSION_MAJOR,   QUORL_VERSION_MINOR,
                               QUORL_VERSION_PATCH, QUORL_VERSION_CHANGES, QUORL_VERSION_EDIT,
                               QUORL_VERSION,       QUORL_FULL_VERSION};

// How many of the eight keys read as set, after checking that they are a leading run of the list, each
// with its value, and the rest read as missing.
int KeysInPlace() {
  int present = 0;
  for (int i = 0; i < 8; ++i) {
    const std::string value = BuildInfo::get(kKeys[i], "<missing>");
    if (value == "<missing>") continue;
    EXPECT_EQ(present, i) << kKeys[i] << " went in before an earlier key";
    EXPECT_EQ(value, kValues[i]) << kKeys[i];
    ++present;
  }
  return present;
}

using Record = std::tuple<int32_t, int32_t, int32_t, std::string>;
Record StoredRecord() {
  const HostRegistrationRecord& record = HostRegistration();
  return {record.first, record.second, record.third, record.text};
}

// Sweeps one registration. After a failure the eight keys are a leading run of their list; the record
// is untouched, or, only at the very last allocation (the text's copy, which comes after the numbers),
// holds the new numbers with the old text. Before the first registration each run starts without the
// eight keys, so that run n fails at allocation n of their insertion, wherever the previous run stopped.
void SweepRegistration(int32_t first, const std::string& text, bool registered) {
  const Record before = StoredRecord();
  const Record numbersOnly{first, first + 1, first + 2, std::get<3>(before)};
  std::size_t lastFailure = 0;
  bool numbersStoredWithOldText = false;
  const std::size_t failures = SweepFailingAllocations(
      [&] { RegisterUnityPlugin(first, first + 1, first + 2, text.c_str()); },
      [&](std::size_t n) {
        EXPECT_FALSE(numbersStoredWithOldText) << "a step after the numbers' store allocated before the text";
        const int present = KeysInPlace();
        EXPECT_TRUE(present == 8 || !registered) << "a registered plug-in lost keys";
        if (StoredRecord() == numbersOnly) {
          EXPECT_EQ(present, 8) << "the numbers were stored before all eight keys";
          numbersStoredWithOldText = true;
        } else {
          EXPECT_EQ(StoredRecord(), before);
        }
        if (!registered && present < 8) {
          for (const char* key : kKeys)
            BuildInfo::remove(key);
        }
        lastFailure = n;
      });
  EXPECT_EQ(lastFailure, failures);
  if (registered) {
    EXPECT_TRUE(numbersStoredWithOldText) << "the text was not copied last";
  } else {
    EXPECT_GE(failures, 8u);  // each of the eight entries, and the longer values, allocate
  }
  EXPECT_EQ(KeysInPlace(), 8);
  EXPECT_EQ(StoredRecord(), Record(first, first + 1, first + 2, text));
}

TEST(BridgeAllocationFailure, RegistrationStoresWhatItReachedAndLatchesOnlyAfterAllKeys) {
  // The first ten keys exist before the first registration, which is what hosts see; making them is
  // not part of what is swept here.
  ASSERT_NE(BuildInfo::get("BUILD_INFO", ""), "");
  ASSERT_EQ(KeysInPlace(), 0) << "this process registered before";
  EXPECT_EQ(StoredRecord(), Record(0, 0, 0, ""));
  // Not registered yet: failures inside the eight keys leave the latch open, so each later call adds
  // the keys again from the first; at the end all eight are in, with their values.
  SweepRegistration(1, LongText("host", 1), false);
  // Registered: the keys stay as they are, only the banner and the record are redone.
  SweepRegistration(11, LongText("host", 2), true);
}

}  // namespace
}  // namespace quorl::testing
