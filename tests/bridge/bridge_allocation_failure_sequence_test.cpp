// Every allocation of the bridge's growing operations, made to fail in turn: the failure must reach the
// caller as std::bad_alloc, leave the container as it was and release every lock.
//
// One process, cases in the order written: the bridge's containers and the registration latch live as
// long as the process, and several cases rely on meeting them in a known shape (an array exactly at its
// capacity, a plug-in not yet registered).
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <thread>
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

std::string NameOf(int32_t handle) {
  char buffer[128];
  return Scene_Objects_GetNameFromHandle(handle, buffer, sizeof buffer) ? buffer : "<none>";
}

std::string TypeOf(int32_t handle) {
  char buffer[128];
  return Scene_Objects_GetTypeFromHandle(handle, buffer, sizeof buffer) ? buffer : "<none>";
}

TEST(BridgeAllocationFailure, SceneObjectAddLeavesTheRegistryAsItWas) {
  ResetSceneObjectsAndShutdown();
  std::vector<std::string> names, types;
  auto expectRecords = [&] {
    ASSERT_EQ(Scene_Objects_GetCount(), static_cast<int32_t>(names.size()));
    for (std::size_t i = 0; i < names.size(); ++i) {
      const auto handle = static_cast<int32_t>(i + 1);
      EXPECT_EQ(Scene_Objects_GetHandleAtIndex(static_cast<int32_t>(i)), handle);
      EXPECT_EQ(NameOf(handle), names[i]);
      EXPECT_EQ(TypeOf(handle), types[i]);
    }
  };
  // The registry is first used here, so four records fill its array exactly and the fifth must grow it.
  for (int handle = 1; handle <= 4; ++handle) {
    names.push_back(LongText("object", handle));
    types.push_back(LongText("type", handle));
    Scene_Objects_Add(handle, names.back().c_str(), types.back().c_str());
  }
  const std::string name = LongText("object", 5), type = LongText("type", 5);
  const std::size_t failures =
      SweepFailingAllocations([&] { Scene_Objects_Add(5, name.c_str(), type.c_str()); },
                              [&](std::size_t) {
                                expectRecords();
                                EXPECT_EQ(Scene_Objects_GetHandleFromName(name.c_str()), 0);
                                EXPECT_TRUE(BridgeMutexFreeForOthers());
                              });
  // The record, its two texts and the grown array.
  EXPECT_GE(failures, 4u);
  names.push_back(name);
  types.push_back(type);
  expectRecords();
  ResetSceneObjectsAndShutdown();
}

TEST(BridgeAllocationFailure, MapAddLeavesTheMapAsItWas) {
  std::vector<std::string> keys;
  for (int i = 0; i < 6; ++i) {
    keys.push_back(LongText("key", i));
    Map_Add(keys.back().c_str(), 10 * i);
  }
  const std::string fresh = LongText("key", 99);
  auto expectOldEntries = [&] {
    for (std::size_t i = 0; i < keys.size(); ++i)
      EXPECT_EQ(Map_GetValue(keys[i].c_str()), static_cast<int32_t>(10 * i)) << keys[i];
  };
  const std::size_t failures = SweepFailingAllocations([&] { Map_Add(fresh.c_str(), 7); },
                                                       [&](std::size_t) {
                                                         expectOldEntries();
                                                         EXPECT_FALSE(Map_Contains(fresh.c_str()));
                                                         EXPECT_TRUE(BridgeMutexFreeForOthers());
                                                       });
  EXPECT_GE(failures, 2u);  // the copied name and the map's entry
  EXPECT_EQ(Map_GetValue(fresh.c_str()), 7);

  // A present name is never overwritten, also not by an add that fails half-way.
  SweepFailingAllocations([&] { Map_Add(keys[2].c_str(), 99); },
                          [&](std::size_t) {
                            expectOldEntries();
                            EXPECT_TRUE(BridgeMutexFreeForOthers());
                          });
  expectOldEntries();
  EXPECT_EQ(Map_GetValue(fresh.c_str()), 7);

  for (const std::string& key : keys)
    Map_Remove(key.c_str());
  Map_Remove(fresh.c_str());
}

TEST(BridgeAllocationFailure, LogBufferAddLeavesTheQueueAsItWas) {
  while (LogBuffer_Get() != nullptr)
    LogBuffer_Pop();
  // Enough entries for the queue to take new blocks, and a larger index of them, at some of the adds.
  constexpr int kEntries = 200;
  std::vector<std::string> texts;
  const char* frontMessage = nullptr;
  std::size_t failures = 0;
  for (int i = 0; i < kEntries; ++i) {
    texts.push_back(LongText("entry", i));
    failures += SweepFailingAllocations([&] { LogBuffer_Add(i, texts[i].c_str()); },
                                        [&](std::size_t) {
                                          const LogBufferView* view = LogBuffer_Get();
                                          if (i == 0) {
                                            EXPECT_EQ(view, nullptr);
                                          } else {
                                            ASSERT_NE(view, nullptr);
                                            EXPECT_EQ(view->level, 0);
                                            EXPECT_EQ(view->message, frontMessage);
                                            EXPECT_EQ(std::string(view->message), texts[0]);
                                          }
                                          EXPECT_TRUE(BridgeMutexFreeForOthers());
                                        });
    ASSERT_FALSE(HasFailure()) << "entry " << i;
    if (i == 0) frontMessage = LogBuffer_Get()->message;
  }
  // Each add copies its text; some also took a block of the queue.
  EXPECT_GT(failures, static_cast<std::size_t>(kEntries));
  // Exactly the entries added, once each and in order; the front's text never moved.
  EXPECT_EQ(LogBuffer_Get()->message, frontMessage);
  for (int i = 0; i < kEntries; ++i) {
    const LogBufferView* view = LogBuffer_Get();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->level, i);
    EXPECT_EQ(std::string(view->message), texts[i]);
    LogBuffer_Pop();
  }
  EXPECT_EQ(LogBuffer_Get(), nullptr);
}

// Render functions count their runs by marker, the first integer they get; checks run at the end.
constexpr int kMarkers = 20000;
std::vector<int> runs(kMarkers);
int plainRuns = 0;
bool wrongArguments = false;
int32_t innerEventId = 0;

void RunPlain() {
  ++plainRuns;
}
void RunI(int32_t marker) {
  ++runs[marker];
}
void RunIII(int32_t marker, int32_t b, int32_t c) {
  ++runs[marker];
  wrongArguments |= b != marker + 1 || c != marker + 2;
}
bool ContextWrong(const FrameContext* context) {
  return context->structSize != 24 || context->reserved0 != 0 || context->reserved1 != 0 ||
         context->reserved2 != 0;
}
void RunContextI(int32_t marker, const FrameContext* context) {
  ++runs[marker];
  wrongArguments |= ContextWrong(context);
}
void RunContextIII(int32_t marker, int32_t b, int32_t c, const FrameContext* context) {
  ++runs[marker];
  wrongArguments |= b != marker + 1 || c != marker + 2 || ContextWrong(context);
}
// Fires another frame-context event from inside one, so that two scopes are alive at once.
void RunContextFiringInner(int32_t marker, const FrameContext* context) {
  ++runs[marker];
  wrongArguments |= ContextWrong(context);
  UnityRenderEvent(innerEventId);
}

// What the table should hold: every successfully queued event runs exactly once by the end.
struct RenderModel {
  std::vector<int> expectedRuns = std::vector<int>(kMarkers);
  int expectedPlainRuns = 0;
  int32_t nextMarker = 1;

  int32_t NewMarker() { return nextMarker++; }
  int32_t QueueFiller() {
    const int32_t marker = NewMarker();
    expectedRuns[marker] = 1;
    return QueueGLEventI(&RunI, marker);
  }
};

// One way of queueing an event, bound to the marker that its successful call will carry. A failed call
// carries the same marker, so a failed call that left its closure behind shows as a second run.
struct Queuer {
  const char* name;
  int32_t (*queue)(int32_t marker, RenderEventClosure& prepared);
  bool plain;
};

int32_t QueueByInternalCall(int32_t, RenderEventClosure& prepared) {
  return QueueRenderEvent(prepared);
}

const Queuer kQueuers[] = {
    {"QueueGLEvent", [](int32_t, RenderEventClosure&) { return QueueGLEvent(&RunPlain); }, true},
    {"QueueGLEventI", [](int32_t m, RenderEventClosure&) { return QueueGLEventI(&RunI, m); }, false},
    {"QueueGLEventIII",
     [](int32_t m, RenderEventClosure&) { return QueueGLEventIII(&RunIII, m, m + 1, m + 2); }, false},
    {"QueueGLEventPrepFrameContextI",
     [](int32_t m, RenderEventClosure&) {
       return QueueGLEventPrepFrameContextI(&RunContextI, m, &runs, nullptr);
     },
     false},
    {"QueueGLEventPrepFrameContextIII",
     [](int32_t m, RenderEventClosure&) {
       return QueueGLEventPrepFrameContextIII(&RunContextIII, m, m + 1, m + 2, nullptr, &runs);
     },
     false},
    // A closure that owns heap data: its copy into a slot allocates.
    {"QueueRenderEvent", &QueueByInternalCall, false},
};

RenderEventClosure HeapClosure(int32_t marker) {
  return RenderEventClosure([text = LongText("owned", marker), marker] {
    if (!text.empty()) ++runs[marker];
  });
}

// Queues `queuer` with each allocation failing in turn while every slot is pending, so that the call
// must grow the table. After each failure another thread fires the last slot and the slot is queued
// again, which shows that the slot mutex is free and that the failed call took no slot.
void SweepQueueIntoFullTable(const Queuer& queuer, RenderModel& model) {
  SCOPED_TRACE(queuer.name);
  const int32_t count = RenderEventSlotCount();
  const int32_t lastId = kRenderEventIdBase + count - 1;
  const int32_t marker = model.NewMarker();
  RenderEventClosure prepared = HeapClosure(marker);
  int32_t id = -1;
  const std::size_t failures =
      SweepFailingAllocations([&] { id = queuer.queue(marker, prepared); },
                              [&](std::size_t) {
                                EXPECT_EQ(RenderEventSlotCount(), count);
                                std::thread render([lastId] { UnityRenderEvent(lastId); });
                                render.join();
                                EXPECT_EQ(model.QueueFiller(), lastId);
                                EXPECT_EQ(RenderEventSlotCount(), count);
                              });
  EXPECT_GE(failures, 1u) << "the table did not grow";
  EXPECT_EQ(id, kRenderEventIdBase + count);
  EXPECT_EQ(RenderEventSlotCount(), count + 1);
  if (queuer.plain) {
    ++model.expectedPlainRuns;
  } else {
    model.expectedRuns[marker] = 1;
  }
}

// Queues `queuer` with each allocation failing in turn while slot `freeId` is the lowest free one.
// After each failure another thread queues into that slot and fires it again.
void SweepQueueIntoFreeSlot(const Queuer& queuer, int32_t freeId, RenderModel& model) {
  SCOPED_TRACE(queuer.name);
  const int32_t count = RenderEventSlotCount();
  const int32_t marker = model.NewMarker();
  RenderEventClosure prepared = HeapClosure(marker);
  int32_t id = -1;
  SweepFailingAllocations([&] { id = queuer.queue(marker, prepared); },
                          [&](std::size_t) {
                            EXPECT_EQ(RenderEventSlotCount(), count);
                            int32_t probe = -1;
                            std::thread other([&] {
                              probe = model.QueueFiller();
                              UnityRenderEvent(probe);
                            });
                            other.join();
                            EXPECT_EQ(probe, freeId);
                          });
  EXPECT_EQ(id, freeId);
  EXPECT_EQ(RenderEventSlotCount(), count);
  if (queuer.plain) {
    ++model.expectedPlainRuns;
  } else {
    model.expectedRuns[marker] = 1;
  }
}

TEST(BridgeAllocationFailure, RenderEventQueueLeavesTheSlotsAsTheyWere) {
  FreeAllRenderEventSlots();
  std::fill(runs.begin(), runs.end(), 0);
  RenderModel model;

  // Every slot pending from here on: the free ones are filled first.
  for (int32_t i = RenderEventSlotCount(); i > 0; --i)
    model.QueueFiller();
  // The table's capacity: the smallest of 64, 128, 256, ... that holds what it has.
  int32_t capacity = 64;
  while (capacity < RenderEventSlotCount())
    capacity *= 2;
  // Each way of queueing meets a full table, at a larger capacity each time; the last, at 4096 slots,
  // also makes the index of free slots one level taller.
  for (std::size_t k = 0; capacity <= 4096; ++k, capacity *= 2) {
    while (RenderEventSlotCount() < capacity)
      model.QueueFiller();
    SweepQueueIntoFullTable(kQueuers[k % std::size(kQueuers)], model);
  }
  ASSERT_FALSE(HasFailure());

  // Free a slot in the middle: each way of queueing must take it, and a failed call must leave it free.
  for (const Queuer& queuer : kQueuers) {
    const int32_t freeId = kRenderEventIdBase + 4000 + static_cast<int32_t>(&queuer - kQueuers);
    UnityRenderEvent(freeId);
    SweepQueueIntoFreeSlot(queuer, freeId, model);
  }
  ASSERT_FALSE(HasFailure());

  // Fire everything: each event that was queued runs once, and no failed call left a closure behind.
  FreeAllRenderEventSlots();
  for (int32_t marker = 0; marker < model.nextMarker; ++marker)
    ASSERT_EQ(runs[marker], model.expectedRuns[marker]) << "marker " << marker;
  EXPECT_EQ(plainRuns, model.expectedPlainRuns);
  EXPECT_FALSE(wrongArguments);
}

// Firing a frame-context event makes a scope for the length of the call. When that allocation fails,
// the function does not run, the slot is free afterwards and the event is not retried.
TEST(BridgeAllocationFailure, FrameContextFireThatFailsFreesTheSlot) {
  FreeAllRenderEventSlots();
  RenderModel model;
  model.nextMarker = 10000;  // apart from the markers of the case before
  const int32_t base = kRenderEventIdBase;

  // Top level: one event at a time, in slot 0.
  for (const bool three : {false, true}) {
    int32_t marker = model.NewMarker();
    auto queue = [&] {
      return three ? QueueGLEventPrepFrameContextIII(&RunContextIII, marker, marker + 1, marker + 2, nullptr,
                                                     nullptr)
                   : QueueGLEventPrepFrameContextI(&RunContextI, marker, nullptr, nullptr);
    };
    ASSERT_EQ(queue(), base);
    SweepFailingAllocations([&] { UnityRenderEvent(base); },
                            [&](std::size_t) {
                              EXPECT_EQ(runs[marker], 0);
                              marker = model.NewMarker();
                              int32_t again = -1;
                              std::thread other([&] { again = queue(); });
                              other.join();
                              EXPECT_EQ(again, base);
                            });
    EXPECT_EQ(runs[marker], 1);
    UnityRenderEvent(base);  // already fired: nothing
    EXPECT_EQ(runs[marker], 1);
  }

  // Nested: the outer event, in slot 0, fires the inner one, in slot 1, while its own scope lives.
  int32_t outer = model.NewMarker(), inner = model.NewMarker();
  auto queueBoth = [&] {
    EXPECT_EQ(QueueGLEventPrepFrameContextI(&RunContextFiringInner, outer, nullptr, nullptr), base);
    innerEventId =
        QueueGLEventPrepFrameContextIII(&RunContextIII, inner, inner + 1, inner + 2, nullptr, nullptr);
    EXPECT_EQ(innerEventId, base + 1);
  };
  queueBoth();
  const std::size_t failures = SweepFailingAllocations([&] { UnityRenderEvent(base); },
                                                       [&](std::size_t) {
                                                         EXPECT_LE(runs[outer], 1);
                                                         EXPECT_EQ(runs[inner], 0);
                                                         if (runs[outer] == 1) {
                                                           // The inner event was reached and its slot freed
                                                           // as it fired: no retry.
                                                           UnityRenderEvent(base + 1);
                                                           EXPECT_EQ(runs[inner], 0);
                                                         } else {
                                                           // The outer one failed before its function ran:
                                                           // the inner one never fired.
                                                           UnityRenderEvent(base + 1);
                                                           EXPECT_EQ(runs[inner], 1);
                                                         }
                                                         outer = model.NewMarker();
                                                         inner = model.NewMarker();
                                                         queueBoth();
                                                       });
  // Each thread keeps one block for a scope, so the inner scope allocates: the sweep must reach it.
  EXPECT_GE(failures, 1u);
  EXPECT_EQ(runs[outer], 1);
  EXPECT_EQ(runs[inner], 1);
  EXPECT_FALSE(wrongArguments);
}

const char* const kStageTwoKeys[] = {"PRODUCT",         "VERSION_MAJOR", "VERSION_MINOR", "VERSION_PATCH",
                                     "VERSION_CHANGES", "VERSION_EDIT",  "VERSION",       "FULL_VERSION"};
const char* const kStageTwoValues[] = {QUORL_PRODUCT,       QUORL_VERSION_MAJOR,   QUORL_VERSION_MINOR,
                                       QUORL_VERSION_PATCH, QUORL_VERSION_CHANGES, QUORL_VERSION_EDIT,
                                       QUORL_VERSION,       QUORL_FULL_VERSION};

// How many of the eight keys read as set, after checking that they are a leading run of the list, each
// with its value, and the rest read as missing.
int KeysInPlace() {
  int present = 0;
  for (int i = 0; i < 8; ++i) {
    const std::string value = BuildInfo::get(kStageTwoKeys[i], "<missing>");
    if (value == "<missing>") continue;
    EXPECT_EQ(present, i) << kStageTwoKeys[i] << " went in before an earlier key";
    EXPECT_EQ(value, kStageTwoValues[i]) << kStageTwoKeys[i];
    ++present;
  }
  return present;
}

void ExpectRecord(int32_t first, int32_t second, int32_t third, const std::string& text) {
  const HostRegistrationRecord& record = HostRegistration();
  EXPECT_EQ(record.first, first);
  EXPECT_EQ(record.second, second);
  EXPECT_EQ(record.third, third);
  EXPECT_EQ(record.text, text);
}

// Sweeps one registration. After a failure the eight keys are a leading run of their list; the record
// is untouched, or, only at the very last allocation (the text's copy, which comes after the numbers),
// holds the new numbers with the old text. Before the first registration each run starts without the
// eight keys, so that run n fails at allocation n of their insertion, wherever the previous run stopped.
void SweepRegistration(int32_t first, const std::string& text, bool registered) {
  const HostRegistrationRecord before = HostRegistration();
  std::size_t lastFailure = 0;
  bool numbersStoredWithOldText = false;
  const std::size_t failures = SweepFailingAllocations(
      [&] { RegisterUnityPlugin(first, first + 1, first + 2, text.c_str()); },
      [&](std::size_t n) {
        EXPECT_FALSE(numbersStoredWithOldText) << "a step after the numbers' store allocated before the text";
        const int present = KeysInPlace();
        if (registered) {
          EXPECT_EQ(present, 8) << "a registered plug-in lost keys";
        }
        if (HostRegistration().first == first) {
          EXPECT_EQ(present, 8) << "the numbers were stored before all eight keys";
          ExpectRecord(first, first + 1, first + 2, before.text);
          numbersStoredWithOldText = true;
        } else {
          ExpectRecord(before.first, before.second, before.third, before.text);
        }
        if (!registered && present < 8) {
          for (const char* key : kStageTwoKeys)
            BuildInfo::remove(key);
        }
        lastFailure = n;
      });
  EXPECT_EQ(lastFailure, failures);
  // Each of the eight entries, and the longer values, allocate.
  if (registered) {
    EXPECT_TRUE(numbersStoredWithOldText) << "the text was not copied last";
  } else {
    EXPECT_GE(failures, 8u);
  }
  EXPECT_EQ(KeysInPlace(), 8);
  ExpectRecord(first, first + 1, first + 2, text);
}

TEST(BridgeAllocationFailure, RegistrationStoresWhatItReachedAndLatchesOnlyAfterAllKeys) {
  // The first ten keys exist before the first registration, which is what hosts see; making them is
  // not part of what is swept here.
  ASSERT_NE(BuildInfo::get("BUILD_INFO", ""), "");
  ASSERT_EQ(KeysInPlace(), 0) << "this process registered before";
  ExpectRecord(0, 0, 0, "");

  // Not registered yet: failures inside the eight keys leave the latch open, so each later call adds
  // the keys again from the first; at the end all eight are in, with their values.
  const std::string firstText = LongText("host", 1);
  SweepRegistration(1, firstText, false);
  // Registered: the keys stay as they are, only the banner and the record are redone.
  const std::string secondText = LongText("host", 2);
  SweepRegistration(11, secondText, true);
}

}  // namespace
}  // namespace quorl::testing
