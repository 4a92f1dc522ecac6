#include "bridge_model.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/error_texts.h"

namespace quorl::host {

namespace {

// Which call the shutdown notice may come from; set around those calls on the calling thread.
thread_local bool inTrigger = false;
thread_local bool inRemove = false;

const char* SlotName(Slot slot) {
  return slot == kNone ? "none" : slot == kFirst ? "the first callback" : "the second callback";
}

template <Slot kSlot>
void OnShutdown() {
  ThreadContext& context = CurrentContext();
  BridgeModel& model = Model();  // the library holds the bridge mutex while it calls us
  ++model.shutdownCalls;
  // Asking the registry again from inside works because the bridge mutex is recursive.
  const int32_t count = CALL(context, Scene_Objects_GetCount)();
  EXPECT(context, kShutdown, count == 0, "the shutdown notice came with %d scene objects registered", count);
  EXPECT(context, kShutdown, kSlot == model.shutdownCallback, "%s was called, but %s was set last",
         SlotName(kSlot), SlotName(model.shutdownCallback));
  if (inTrigger) {
    ++model.callsInTrigger;
  } else if (inRemove) {
    EXPECT(context, kShutdown, model.pending != PendingShutdown::kNo,
           "a removal gave a notice, but none was pending");
    model.pending = PendingShutdown::kNo;
    ++model.callsInRemove;
    model.removalNoticeNs = NowNs();
    model.removalNoticeFrame = context.frame;
    model.removalNoticeOn = context.label();
  } else {
    FAIL(context, kShutdown,
         "the shutdown notice came outside Trigger_InterfaceShutdown and Scene_Objects_Remove");
  }
}
const QuorlShutdownCallback kShutdownCallbacks[3] = {nullptr, &OnShutdown<kFirst>, &OnShutdown<kSecond>};

// Enough to keep the pollers busy without letting an unpolled buffer eat the machine.
constexpr int64_t kMaxUndelivered = 200000;

// FNV-1a over the level and the entry's text.
uint32_t Hash(int32_t level, const std::string& text) {
  uint32_t hash = 2166136261u ^ static_cast<uint32_t>(level);
  for (const char c : text)
    hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  return hash;
}

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
  const int64_t before = model.callsInTrigger;
  inTrigger = true;
  CALL(context, Trigger_InterfaceShutdown)();
  inTrigger = false;
  const int64_t calls = model.callsInTrigger - before;
  if (count == 0) {
    EXPECT(context, kShutdown, calls == (model.shutdownCallback != kNone ? 1 : 0),
           "a request with no scene objects and %s set called it %lld times",
           SlotName(model.shutdownCallback), static_cast<long long>(calls));
    SawEmptyRegistry(context);
  } else {
    EXPECT(context, kShutdown, calls == 0,
           "a request with %d scene objects registered gave the notice at once", count);
    model.pending = model.shutdownCallback != kNone ? PendingShutdown::kYes : PendingShutdown::kUnknown;
  }
}

void RemoveSceneObject(ThreadContext& context, int32_t handle) {
  inRemove = true;
  CALL(context, Scene_Objects_Remove)(handle);
  inRemove = false;
}

void SawEmptyRegistry(ThreadContext& context) {
  EXPECT(context, kShutdown, Model().pending != PendingShutdown::kYes,
         "the registry emptied with a shutdown pending and a callback set, but no notice came");
  Model().pending = PendingShutdown::kNo;
}

void CheckShutdownGate(ThreadContext& main) {
  UnderLock(main, false, [&] {
    BridgeModel& model = Model();
    for (const SharedObject& object : std::vector<SharedObject>(model.sharedObjects))
      RemoveSceneObject(main, object.handle);
    model.sharedObjects.clear();
    const int32_t count = CALL(main, Scene_Objects_GetCount)();
    EXPECT(main, kRegistryCount, count == 0, "every object was removed, but the count is %d", count);
    SawEmptyRegistry(main);

    // Two records, a request, two removals: one notice, during the second removal.
    SetShutdownCallback(main, kFirst);
    CALL(main, Scene_Objects_Add)(990001, "end/1", "end");
    CALL(main, Scene_Objects_Add)(990002, "end/2", "end");
    const int64_t start = model.shutdownCalls;
    auto expectNotices = [&](int64_t expected, const char* when) {
      EXPECT(main, kShutdown, model.shutdownCalls - start == expected,
             "%s gave %lld notices in all, not %lld", when,
             static_cast<long long>(model.shutdownCalls - start), static_cast<long long>(expected));
    };
    TriggerShutdown(main);
    RemoveSceneObject(main, 990001);
    expectNotices(0, "removing one of two objects with a shutdown pending");
    RemoveSceneObject(main, 990002);
    expectNotices(1, "removing the last object with a shutdown pending");
    RemoveSceneObject(main, 990002);  // the flag was cleared: nothing more
    expectNotices(1, "a removal after the notice");
    // With nothing registered, each request notifies at once; with no callback, nothing happens.
    TriggerShutdown(main);
    TriggerShutdown(main);
    SetShutdownCallback(main, kNone);
    TriggerShutdown(main);
    expectNotices(3, "two requests on an empty registry and one without a callback");
  });
}

void SetKey(ThreadContext& context, KeyModel& model, const std::string& key, int32_t value) {
  CALL(context, Map_SetValue)(key.c_str(), value);
  const auto found = model.find(key);
  if (found != model.end()) found->second = value;
}

void AddToKey(ThreadContext& context, KeyModel& model, const std::string& key, int32_t amount) {
  if (CALL(context, Map_Contains)(key.c_str())) {
    const auto value = static_cast<uint32_t>(CALL(context, Map_GetValue)(key.c_str()));
    SetKey(context, model, key, static_cast<int32_t>(value + static_cast<uint32_t>(amount)));
  } else {
    CALL(context, Map_Add)(key.c_str(), amount);
    model[key] = amount;
  }
}

void CheckKey(ThreadContext& context, Check check, const KeyModel& model, const std::string& key) {
  const auto found = model.find(key);
  const bool present = found != model.end();
  const int32_t expected = present ? found->second : 0;
  const bool contains = CALL(context, Map_Contains)(key.c_str());
  const int32_t value = CALL(context, Map_GetValue)(key.c_str());
  if (contains == present && value == expected) return static_cast<void>(context.Held(check));
  context.Failed(check,
                 Printf("key \"%s\": expected %s %d, saw %s %d", key.c_str(), present ? "present" : "absent",
                        expected, contains ? "present" : "absent", value));
}

void CheckConstants(ThreadContext& context, bool all) {
  const intptr_t device = CALL(context, GetUnityRenderDevice)();
  EXPECT(context, kRenderDevice, device == 0, "saw %lld", static_cast<long long>(device));
  const intptr_t address = CALL(context, UnityRenderEventFunc)();
  const auto expected = reinterpret_cast<intptr_t>(context.api.UnityRenderEvent);
  EXPECT(context, kRenderFuncAddress, address == expected, "expected %p, saw %p",
         reinterpret_cast<void*>(expected), reinterpret_cast<void*>(address));
  auto expectText = [&](int32_t code, const char* expected) {
    const char* text = CALL(context, QuorlError_ToString)(code);
    EXPECT(context, kErrorText, text != nullptr && std::strcmp(text, expected) == 0,
           "QuorlError_ToString(%d): expected \"%s\", saw \"%s\"", code, expected, text ? text : "(null)");
  };
  for (const expected::ErrorText& entry : expected::kErrorTexts) {
    if (all || context.random.OneIn(6)) expectText(entry.code, entry.text);
  }
  expectText(207 + context.random.Below(100000), "");
}

RegistryLedger::RegistryLedger(int threads)
    : words_(new std::atomic<uint64_t>[threads]()), threads_(threads) {}

void RegistryLedger::Begin(int thread, int32_t count, int32_t change) {
  words_[thread].store((static_cast<uint64_t>(static_cast<uint32_t>(count)) << 32) |
                       static_cast<uint32_t>(change));
}

void RegistryLedger::Bounds(int* low, int* high) const {
  *low = 0;
  *high = 0;
  for (int thread = 0; thread < threads_; ++thread) {
    const uint64_t value = words_[thread].load();
    const auto count = static_cast<int32_t>(static_cast<uint32_t>(value >> 32));
    const auto change = static_cast<int32_t>(static_cast<uint32_t>(value));
    *low += count + (change < 0 ? change : 0);
    *high += count + (change > 0 ? change : 0);
  }
}

LogProducer& LogLedger::AddProducer(const std::string& name) {
  return producers_.emplace_back(name);
}

bool LogLedger::Add(ThreadContext& context, LogProducer& producer, int32_t level, const std::string& text) {
  if (totalAdded_.load(std::memory_order_relaxed) - delivered() > kMaxUndelivered) return false;
  const int64_t sequence = producer.added.load(std::memory_order_relaxed) + 1;
  const std::string body = "[" + producer.name + " #" + std::to_string(sequence) + "] " + text;
  const std::string entry = body + Printf(" |%08x", Hash(level, body));
  CALL(context, LogBuffer_Add)(level, entry.c_str());
  // Counted after the add, so whoever sees the count finds the entry in the buffer.
  producer.added.store(sequence, std::memory_order_release);
  totalAdded_.fetch_add(1, std::memory_order_relaxed);
  return true;
}

int LogLedger::Poll(ThreadContext& context, int limit, LogProducer* own) {
  int taken = 0;
  while (taken < limit) {
    LogBufferView* view = CALL(context, LogBuffer_Get)();
    if (view == nullptr) break;
    if (view_ == nullptr) view_ = view;
    EXPECT(context, kLogView, view == view_, "LogBuffer_Get gave the view at %p, earlier at %p",
           static_cast<void*>(view), static_cast<const void*>(view_));
    const int32_t level = view->level;
    const char* message = view->message;
    // The text belongs to the entry and dangles after the pop: copy it first.
    const std::string copy = message != nullptr ? message : "<null>";
    if (own != nullptr && context.random.OneIn(4)) {
      Add(context, *own, 1, "added while another entry was in view");
      EXPECT(context, kLogView, message != nullptr && std::strcmp(message, copy.c_str()) == 0,
             "the entry in view changed from \"%s\" when another entry was added", copy.c_str());
    }
    CALL(context, LogBuffer_Pop)();
    Received(context, level, copy);
    ++taken;
  }
  totalDelivered_.fetch_add(taken, std::memory_order_relaxed);
  return taken;
}

void LogLedger::Received(ThreadContext& context, int32_t level, const std::string& message) {
  // "[<producer> #<n>] <text> |<hash>", the hash over the level and all before " |".
  const size_t bar = message.rfind(" |");
  const std::string body = message.substr(0, bar);
  char name[64] = {};
  long long sequence = 0;
  LogProducer* producer = nullptr;
  if (bar != std::string::npos && std::strtoul(message.c_str() + bar + 2, nullptr, 16) == Hash(level, body) &&
      std::sscanf(body.c_str(), "[%63[^ ] #%lld] ", name, &sequence) == 2) {
    for (LogProducer& candidate : producers_)
      producer = candidate.name == name ? &candidate : producer;
  }
  if (producer == nullptr) {
    FAIL(context, kLogFifo, "level %d entry \"%.200s\" is damaged or came from nobody", level,
         message.c_str());
    return;
  }
  warnings_ += level == 2 || level == 3 ? 1 : 0;
  lastMessage_ = body;
  EXPECT(context, kLogFifo, sequence == producer->delivered + 1, "%s: expected entry #%lld next, saw #%lld",
         name, static_cast<long long>(producer->delivered + 1), sequence);
  producer->delivered = std::max<int64_t>(producer->delivered, sequence);
}

void LogLedger::CheckComplete(ThreadContext& context) {
  for (const LogProducer& producer : producers_) {
    EXPECT(context, kLogFifo, producer.delivered == producer.added.load(),
           "%s added %lld entries, the last delivered was #%lld", producer.name.c_str(),
           static_cast<long long>(producer.added.load()), static_cast<long long>(producer.delivered));
  }
  EXPECT(context, kLogFifo, CALL(context, LogBuffer_Get)() == nullptr,
         "entries are left after every producer's last one arrived");
}

}  // namespace quorl::host
