#include "bridge_model.h"

namespace quorl::host {

namespace {

constexpr int32_t kGateHandleBase = 990000;

// Which call the shutdown notice may come from; set around those calls on the calling thread.
thread_local bool inTrigger = false;
thread_local bool inRemove = false;

const char* SlotName(Slot slot) {
  return slot == kNone ? "none" : slot == kFirst ? "the first callback" : "the second callback";
}

void OnShutdown(Slot which) {
  ThreadContext& context = CurrentContext();
  BridgeModel& model = Model();  // the library holds the bridge mutex while it calls us
  ++model.shutdownCalls;
  // Asking the registry again from inside works because the bridge mutex is recursive.
  const int32_t count = CALL(context, Scene_Objects_GetCount)();
  EXPECT(context, kShutdown, count == 0, "the shutdown notice came with %d scene objects registered", count);
  EXPECT(context, kShutdown, which == model.shutdownCallback, "%s was called, but %s was set last",
         SlotName(which), SlotName(model.shutdownCallback));
  if (inTrigger) {
    ++model.shutdownCallsInTrigger;
  } else if (inRemove) {
    EXPECT(context, kShutdown, model.pending != PendingShutdown::kNo,
           "a removal delivered a shutdown notice, but no shutdown was pending");
    model.pending = PendingShutdown::kNo;
    ++model.shutdownCallsInRemove;
    model.removalNoticeNs = NowNs();
    model.removalNoticeFrame = context.frame;
    model.removalNoticeOn = context.label();
  } else {
    FAIL(context, kShutdown,
         "the shutdown notice came outside Trigger_InterfaceShutdown and Scene_Objects_Remove");
  }
}
void OnShutdownFirst() {
  OnShutdown(kFirst);
}
void OnShutdownSecond() {
  OnShutdown(kSecond);
}
const QuorlShutdownCallback kShutdownCallbacks[3] = {nullptr, &OnShutdownFirst, &OnShutdownSecond};

}  // namespace

BridgeModel& Model() {
  static BridgeModel* const model = new BridgeModel();
  return *model;
}

void SetShutdownCallback(ThreadContext& context, Slot slot) {
  BridgeModel& model = Model();
  CALL(context, SetFunc_InterfaceShutdown)(kShutdownCallbacks[slot]);
  // A removal that empties the registry now clears the flag without a word.
  if (slot == kNone && model.pending == PendingShutdown::kYes) model.pending = PendingShutdown::kUnknown;
  model.shutdownCallback = slot;
}

void TriggerShutdown(ThreadContext& context) {
  BridgeModel& model = Model();
  const int32_t count = CALL(context, Scene_Objects_GetCount)();
  const int64_t before = model.shutdownCallsInTrigger;
  inTrigger = true;
  CALL(context, Trigger_InterfaceShutdown)();
  inTrigger = false;
  const int64_t calls = model.shutdownCallsInTrigger - before;
  if (count == 0) {
    const int64_t expected = model.shutdownCallback != kNone ? 1 : 0;
    EXPECT(context, kShutdown, calls == expected,
           "a request with no scene objects and %s set called it %lld times",
           SlotName(model.shutdownCallback), static_cast<long long>(calls));
    SawEmptyRegistry(context);
    ++model.triggersEmpty;
  } else {
    EXPECT(context, kShutdown, calls == 0,
           "a request with %d scene objects registered called the callback at once", count);
    model.pending = model.shutdownCallback != kNone ? PendingShutdown::kYes : PendingShutdown::kUnknown;
    ++model.triggersWithObjects;
  }
}

void RemoveSceneObject(ThreadContext& context, int32_t handle) {
  inRemove = true;
  CALL(context, Scene_Objects_Remove)(handle);
  inRemove = false;
}

void SawEmptyRegistry(ThreadContext& context) {
  BridgeModel& model = Model();
  EXPECT(context, kShutdown, model.pending != PendingShutdown::kYes,
         "the registry emptied with a shutdown pending and a callback set, but no notice came");
  model.pending = PendingShutdown::kNo;
}

void CheckShutdownGate(ThreadContext& context) {
  UnderLock(context, false, [&] {
    BridgeModel& model = Model();
    for (const SharedObject& object : std::vector<SharedObject>(model.sharedObjects))
      RemoveSceneObject(context, object.handle);
    model.sharedObjects.clear();
    const int32_t count = CALL(context, Scene_Objects_GetCount)();
    EXPECT(context, kRegistryCount, count == 0, "every object was removed, but the count is %d", count);
    SawEmptyRegistry(context);

    // Two records, a request, two removals: one notice, during the second removal.
    SetShutdownCallback(context, kFirst);
    CALL(context, Scene_Objects_Add)(kGateHandleBase + 1, "end/1", "end");
    CALL(context, Scene_Objects_Add)(kGateHandleBase + 2, "end/2", "end");
    const int64_t start = model.shutdownCalls;
    auto expectNotices = [&](int64_t expected, const char* when) {
      EXPECT(context, kShutdown, model.shutdownCalls - start == expected,
             "%s gave %lld notices in all, not %lld", when,
             static_cast<long long>(model.shutdownCalls - start), static_cast<long long>(expected));
    };
    TriggerShutdown(context);
    RemoveSceneObject(context, kGateHandleBase + 1);
    expectNotices(0, "removing one of two objects with a shutdown pending");
    RemoveSceneObject(context, kGateHandleBase + 2);
    expectNotices(1, "removing the last object with a shutdown pending");
    RemoveSceneObject(context, kGateHandleBase + 2);  // the flag was cleared: nothing more
    expectNotices(1, "a removal after the notice");
    // With nothing registered, each request notifies at once; with no callback, nothing happens.
    TriggerShutdown(context);
    TriggerShutdown(context);
    SetShutdownCallback(context, kNone);
    TriggerShutdown(context);
    expectNotices(3, "two requests on an empty registry and one without a callback");
  });
}

void AddToShared(ThreadContext& context, const std::string& key, int32_t amount) {
  int32_t next = amount;
  if (CALL(context, Map_Contains)(key.c_str())) {
    next = static_cast<int32_t>(static_cast<uint32_t>(CALL(context, Map_GetValue)(key.c_str())) +
                                static_cast<uint32_t>(amount));
    CALL(context, Map_SetValue)(key.c_str(), next);
  } else {
    CALL(context, Map_Add)(key.c_str(), next);
  }
  Model().sharedMap[key] = next;
}

void SetShared(ThreadContext& context, const std::string& key, int32_t value) {
  CALL(context, Map_SetValue)(key.c_str(), value);
  const auto found = Model().sharedMap.find(key);
  if (found != Model().sharedMap.end()) found->second = value;  // never creates
}

void CheckSharedKey(ThreadContext& context, const std::string& key) {
  const auto& map = Model().sharedMap;
  const auto found = map.find(key);
  const bool present = found != map.end();
  const int32_t expected = present ? found->second : 0;
  const bool contains = CALL(context, Map_Contains)(key.c_str());
  const int32_t value = CALL(context, Map_GetValue)(key.c_str());
  EXPECT(context, kSharedModel, contains == present && value == expected,
         "shared key \"%s\": expected %s %d, saw %s %d", key.c_str(), present ? "present" : "absent",
         expected, contains ? "present" : "absent", value);
}

RegistryLedger::RegistryLedger(int threads) {
  for (int i = 0; i < threads; ++i)
    words_.push_back(std::make_unique<std::atomic<uint64_t>>(0));
}

void RegistryLedger::Begin(int thread, int32_t count, int32_t change) {
  words_[static_cast<size_t>(thread)]->store((static_cast<uint64_t>(static_cast<uint32_t>(count)) << 32) |
                                             static_cast<uint32_t>(change));
}

void RegistryLedger::End(int thread, int32_t count) {
  words_[static_cast<size_t>(thread)]->store(static_cast<uint64_t>(static_cast<uint32_t>(count)) << 32);
}

void RegistryLedger::Bounds(int64_t* low, int64_t* high) const {
  *low = 0;
  *high = 0;
  for (const auto& word : words_) {
    const uint64_t value = word->load();
    const auto count = static_cast<int32_t>(static_cast<uint32_t>(value >> 32));
    const auto change = static_cast<int32_t>(static_cast<uint32_t>(value));
    *low += count + (change < 0 ? change : 0);
    *high += count + (change > 0 ? change : 0);
  }
}

}  // namespace quorl::host
