#include "script_thread.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <stdexcept>

namespace quorl::soak {

namespace {

constexpr const char* kNullTextError = "basic_string::_M_construct null not valid";
constexpr int32_t kSharedHandleBase = 900000;
constexpr int32_t kSharedHandles = 8;
constexpr int32_t kEndHandleBase = 990000;

// Which call the shutdown notice may come from; set around those calls on the calling thread.
thread_local bool inTrigger = false;
thread_local bool inRemove = false;

const char* const kSharedKeys[] = {
    "shared/0", "shared/1", "shared/2",
    "Shared/2", "",         "shared/a key longer than any small-text buffer of a string class"};

struct ErrorText {
  int32_t code;
  const char* text;
};
const ErrorText kErrorTexts[] = {
    {0, "Success"},
    {1, "Unknown Error"},
    {200, "Failed to download manifest from remote server or find cached copy"},
    {201, "Failed to parse manifest"},
    {202, "Failed to download representation from remote server or find cached copy"},
    {203, "Failed to load representation for playback"},
    {204, "Failed to find a valid decoder for the loaded representation"},
    {205, "Cached copy not valid for offline playback"},
};

const char* SlotName(Slot slot) {
  return slot == kNone ? "none" : slot == kFirst ? "the first callback" : "the second callback";
}

void OnShutdown(Slot which) {
  ThreadContext& context = CurrentContext();
  BridgeModel& model = Model();  // the library holds the bridge mutex while it calls us
  ++model.shutdownCalls;
  const int32_t count = SOAK_CALL(context, Scene_Objects_GetCount)();
  context.Expect(Check::kShutdown, count == 0,
                 [&] { return Printf("the shutdown notice came with %d scene objects registered", count); });
  context.Expect(Check::kShutdown, which == model.shutdownCallback, [&] {
    return Printf("%s was called, but %s was set last", SlotName(which), SlotName(model.shutdownCallback));
  });
  if (inTrigger) {
    ++model.shutdownCallsInTrigger;
  } else if (inRemove) {
    context.Expect(Check::kShutdown, model.pending != PendingShutdown::kNo, [] {
      return std::string("a removal delivered a shutdown notice, but no shutdown was pending");
    });
    model.pending = PendingShutdown::kNo;
    ++model.shutdownCallsInRemove;
  } else {
    context.Fail(Check::kShutdown,
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

void RemoveCall(ThreadContext& context, int32_t handle) {
  inRemove = true;
  SOAK_CALL(context, Scene_Objects_Remove)(handle);
  inRemove = false;
}

// Under Lock: triggers and checks the call against the gate's rules.
void TriggerChecked(ThreadContext& context) {
  BridgeModel& model = Model();
  const int32_t count = SOAK_CALL(context, Scene_Objects_GetCount)();
  const int64_t before = model.shutdownCallsInTrigger;
  inTrigger = true;
  SOAK_CALL(context, Trigger_InterfaceShutdown)();
  inTrigger = false;
  const int64_t calls = model.shutdownCallsInTrigger - before;
  if (count == 0) {
    const int64_t expected = model.shutdownCallback != kNone ? 1 : 0;
    context.Expect(Check::kShutdown, calls == expected, [&] {
      return Printf("a trigger with no scene objects and %s set called it %lld times, expected %lld",
                    SlotName(model.shutdownCallback), static_cast<long long>(calls),
                    static_cast<long long>(expected));
    });
    context.Expect(Check::kShutdown, model.pending != PendingShutdown::kYes, [] {
      return std::string(
          "the registry emptied with a shutdown pending and a callback set, but no notice came");
    });
    model.pending = PendingShutdown::kNo;
    ++model.triggersEmpty;
  } else {
    context.Expect(Check::kShutdown, calls == 0, [&] {
      return Printf("a trigger with %d scene objects registered called the callback at once", count);
    });
    model.pending = model.shutdownCallback != kNone ? PendingShutdown::kYes : PendingShutdown::kUnknown;
    ++model.triggersWithObjects;
  }
}

void SetShutdownCallback(ThreadContext& context, Slot slot) {
  BridgeModel& model = Model();
  SOAK_CALL(context, SetFunc_InterfaceShutdown)(kShutdownCallbacks[slot]);
  // A removal that empties the registry now clears the flag without a word.
  if (slot == kNone && model.pending == PendingShutdown::kYes) model.pending = PendingShutdown::kUnknown;
  model.shutdownCallback = slot;
}

template <typename Call>
void ExpectNullTextError(ThreadContext& context, const char* what, Call&& call) {
  std::string seen = "no exception";
  try {
    call();
  } catch (const std::logic_error& error) {
    seen = std::string("logic_error \"") + error.what() + "\"";
    if (std::strcmp(error.what(), kNullTextError) == 0) {
      context.Expect(Check::kNullText, true, [] { return std::string(); });
      return;
    }
  } catch (const std::exception& error) {
    seen = std::string("another exception \"") + error.what() + "\"";
  }
  context.Fail(Check::kNullText, Printf("%s with a null text: expected logic_error \"%s\", saw %s", what,
                                        kNullTextError, seen.c_str()));
}

bool IsSharedHandle(int32_t handle) {
  return handle > kSharedHandleBase && handle <= kSharedHandleBase + kSharedHandles;
}

std::string JoinHandles(const std::vector<int32_t>& handles) {
  std::string text;
  for (size_t i = 0; i < handles.size() && i < 16; ++i)
    text += (i == 0 ? "" : " ") + std::to_string(handles[i]);
  if (handles.size() > 16) text += " ...";
  return "[" + text + "]";
}

}  // namespace

ScriptThread::ScriptThread(SoakWorld& world, ThreadContext& context)
    : world_(world),
      context_(context),
      index_(context.index()),
      owner_(context.index() == 0),
      handleBase_((context.index() + 1) * 1000) {
  const std::string prefix = "m" + std::to_string(index_) + "/";
  for (int i = 0; i < 5; ++i) {
    // Names that differ only in case are different keys.
    keys_.push_back(prefix + "Key" + std::to_string(i));
    keys_.push_back(prefix + "key" + std::to_string(i));
  }
  keys_.push_back(prefix + "a name long enough to live outside any small-text buffer");
}

void ScriptThread::Run() {
  SetCurrentContext(&context_);
  while (!world_.stopScripts.load(std::memory_order_relaxed)) {
    for (int i = 0; i < 32; ++i)
      Step();
  }
  // What was queued but not yet handed to the render thread stays pending: the end checks find those
  // ids taken and the slots around them free.
}

void ScriptThread::Step() {
  ++steps_;
  if (owner_ && (steps_ & ((int64_t{1} << 21) - 1)) == 0) Register();
  const uint32_t choice = context_.random().Below(100);
  if (choice < 25) {
    world_.traffic.QueueOne(context_, world_.traffic.producer(index_));
  } else if (choice < 45) {
    SceneStep();
  } else if (choice < 60) {
    MapStep();
  } else if (choice < 68) {
    world_.log.Add(context_, index_);
  } else if (choice < 80) {
    Transaction();
  } else if (choice < 88) {
    ConstantsStep();
  } else if (choice < 89) {
    if (context_.random().OneIn(8)) NullTexts();
  } else if (choice < 92 && owner_) {
    ShutdownStep();
  } else {
    SceneStep();
  }
}

const ScriptThread::Object* ScriptThread::FirstWithHandle(int32_t handle) const {
  for (const Object& object : objects_) {
    if (object.handle == handle) return &object;
  }
  return nullptr;
}

void ScriptThread::AddObject() {
  Random& random = context_.random();
  Object object;
  object.handle = handleBase_ + 1 + static_cast<int32_t>(random.Below(kHandles));  // duplicates happen
  object.name = "s" + std::to_string(index_) + "/" + std::to_string(++names_);
  object.type = "type-" + std::string(random.Below(90), static_cast<char>('A' + names_ % 26));
  world_.registry.Begin(index_, static_cast<int32_t>(objects_.size()), 1);
  SOAK_CALL(context_, Scene_Objects_Add)(object.handle, object.name.c_str(), object.type.c_str());
  objects_.push_back(std::move(object));
  world_.registry.End(index_, static_cast<int32_t>(objects_.size()));
}

void ScriptThread::RemoveObject(int32_t handle) {
  const auto removed = static_cast<int32_t>(std::count_if(
      objects_.begin(), objects_.end(), [handle](const Object& o) { return o.handle == handle; }));
  world_.registry.Begin(index_, static_cast<int32_t>(objects_.size()), -removed);
  RemoveCall(context_, handle);
  // Every record with the handle goes; the survivors keep their order.
  objects_.erase(std::remove_if(objects_.begin(), objects_.end(),
                                [handle](const Object& o) { return o.handle == handle; }),
                 objects_.end());
  world_.registry.End(index_, static_cast<int32_t>(objects_.size()));
}

void ScriptThread::SceneStep() {
  Random& random = context_.random();
  if (--phaseLeft_ <= 0) {
    // Threads take turns at holding nothing, so the whole registry empties now and then.
    emptyPhase_ = !emptyPhase_;
    phaseLeft_ = 50 + static_cast<int>(random.Below(300));
  }
  const int32_t anyOwnHandle = handleBase_ + 1 + static_cast<int32_t>(random.Below(kHandles));
  const int32_t someHandle = !objects_.empty() && !random.OneIn(4)
                                 ? objects_[random.Below(static_cast<uint32_t>(objects_.size()))].handle
                                 : anyOwnHandle;
  switch (random.Below(10)) {
    case 0:
    case 1:
    case 2:
      if (emptyPhase_) {
        if (!objects_.empty()) RemoveObject(objects_.front().handle);
      } else if (objects_.size() < kMaxObjects) {
        AddObject();
      }
      break;
    case 3:
    case 4:
      if (!emptyPhase_ || !objects_.empty()) RemoveObject(someHandle);
      break;
    case 5: {
      const bool present = !objects_.empty() && random.OneIn(2);
      const Object* object =
          present ? &objects_[random.Below(static_cast<uint32_t>(objects_.size()))] : nullptr;
      const std::string name = object != nullptr ? object->name : "s" + std::to_string(index_) + "/none";
      const int32_t expected = object != nullptr ? object->handle : 0;
      const int32_t seen = SOAK_CALL(context_, Scene_Objects_GetHandleFromName)(name.c_str());
      context_.Expect(Check::kRegistryModel, seen == expected, [&] {
        return Printf("Scene_Objects_GetHandleFromName(\"%s\"): expected %d, saw %d", name.c_str(), expected,
                      seen);
      });
      break;
    }
    case 6:
    case 7:
      CheckBuffer(someHandle, random.OneIn(2));
      break;
    case 8: {
      // Nobody else removes this thread's objects, so the count never falls below them.
      const int32_t count = SOAK_CALL(context_, Scene_Objects_GetCount)();
      context_.Expect(Check::kRegistryCount, count >= static_cast<int32_t>(objects_.size()), [&] {
        return Printf("Scene_Objects_GetCount gave %d while this thread alone holds %zu", count,
                      objects_.size());
      });
      break;
    }
    case 9: {
      if (objects_.empty()) break;  // with no records the index is not checked, by design
      const bool negative = random.OneIn(3);
      const int32_t index =
          negative ? -1 - static_cast<int32_t>(random.Below(3)) : static_cast<int32_t>(random.Below(64));
      const int32_t handle = SOAK_CALL(context_, Scene_Objects_GetHandleAtIndex)(index);
      const bool plausible =
          handle == 0 || IsSharedHandle(handle) ||
          (handle > 1000 && handle <= (world_.scripts + 1) * 1000 && handle % 1000 <= kHandles);
      context_.Expect(Check::kRegistryModel, plausible && (!negative || handle == 0), [&] {
        return Printf("Scene_Objects_GetHandleAtIndex(%d) gave %d, which no thread added", index, handle);
      });
      break;
    }
  }
}

void ScriptThread::CheckBuffer(int32_t handle, bool type) {
  Random& random = context_.random();
  const Object* object = FirstWithHandle(handle);
  const std::string* field = object == nullptr ? nullptr : type ? &object->type : &object->name;
  const size_t length = field != nullptr ? field->size() : random.Below(20);
  size_t size = 0;
  switch (random.Below(6)) {
    case 0:
      size = 0;
      break;
    case 1:
      size = length;
      break;
    case 2:
      size = length + 1;
      break;
    case 3:
      size = length > 0 ? length - 1 : 1;
      break;
    case 4:
      size = 1 + random.Below(static_cast<uint32_t>(length) + 4);
      break;
    default:
      size = 128;
      break;
  }
  constexpr char kFill = 0x5A;
  constexpr size_t kGuard = 8;
  std::vector<char> storage(size + 2 * kGuard, kFill);
  char* buffer = storage.data() + kGuard;
  const auto bufferSize = static_cast<int32_t>(size);
  const bool result = type ? SOAK_CALL(context_, Scene_Objects_GetTypeFromHandle)(handle, buffer, bufferSize)
                           : SOAK_CALL(context_, Scene_Objects_GetNameFromHandle)(handle, buffer, bufferSize);

  std::vector<char> expected(storage.size(), kFill);
  bool expectedResult = false;
  if (field != nullptr) {
    if (size == 0) {
      expected[kGuard - 1] = 0;  // a zero size writes the terminator just before the buffer; intended
    } else {
      for (size_t i = 0; i < size; ++i)
        expected[kGuard + i] = i < field->size() && i + 1 < size ? (*field)[i] : 0;
    }
    expectedResult = field->size() < size;
  }
  context_.Expect(Check::kNameBuffers, result == expectedResult && storage == expected, [&] {
    const std::string seen(buffer, strnlen(buffer, size));
    return Printf("%s of handle %d into %zu bytes: expected %s \"%.*s\", saw %s \"%s\"%s",
                  type ? "Scene_Objects_GetTypeFromHandle" : "Scene_Objects_GetNameFromHandle", handle, size,
                  expectedResult ? "true" : "false",
                  static_cast<int>(field != nullptr && size > 0 ? std::min(field->size(), size - 1) : 0),
                  field != nullptr ? field->c_str() : "", result ? "true" : "false", seen.c_str(),
                  storage == expected ? "" : " (bytes outside the text differ)");
  });
}

void ScriptThread::CheckMapKey(ThreadContext& context, const std::string& key) {
  const auto found = map_.find(key);
  const bool contains = SOAK_CALL(context, Map_Contains)(key.c_str());
  const int32_t value = SOAK_CALL(context, Map_GetValue)(key.c_str());
  const bool expectedContains = found != map_.end();
  const int32_t expectedValue = expectedContains ? found->second : 0;
  context.Expect(Check::kMapModel, contains == expectedContains && value == expectedValue, [&] {
    return Printf("key \"%s\": expected %s %d, saw %s %d", key.c_str(),
                  expectedContains ? "present" : "absent", expectedValue, contains ? "present" : "absent",
                  value);
  });
}

void ScriptThread::MapStep() {
  Random& random = context_.random();
  const std::string& key = keys_[random.Below(static_cast<uint32_t>(keys_.size()))];
  const int32_t value = random.AnyInt();
  switch (random.Below(5)) {
    case 0:
      SOAK_CALL(context_, Map_Add)(key.c_str(), value);
      map_.emplace(key, value);  // never overwrites
      break;
    case 1: {
      SOAK_CALL(context_, Map_SetValue)(key.c_str(), value);
      const auto found = map_.find(key);
      if (found != map_.end()) found->second = value;  // never creates
      break;
    }
    case 2:
      SOAK_CALL(context_, Map_Remove)(key.c_str());
      map_.erase(key);
      break;
    default:
      CheckMapKey(context_, key);
      break;
  }
}

void ScriptThread::WalkRegistry(ThreadContext& context) {
  BridgeModel& model = Model();
  const int32_t count = SOAK_CALL(context, Scene_Objects_GetCount)();
  int64_t low = 0;
  int64_t high = 0;
  world_.registry.Bounds(&low, &high);
  low += static_cast<int64_t>(model.sharedObjects.size());
  high += static_cast<int64_t>(model.sharedObjects.size());
  context.Expect(Check::kRegistryCount, low <= count && count <= high, [&] {
    return Printf("Scene_Objects_GetCount under Lock gave %d, the models add up to %lld..%lld", count,
                  static_cast<long long>(low), static_cast<long long>(high));
  });
  if (count == 0) {
    context.Expect(Check::kShutdown, model.pending != PendingShutdown::kYes, [] {
      return std::string(
          "the registry emptied with a shutdown pending and a callback set, but no notice came");
    });
    model.pending = PendingShutdown::kNo;
  }

  // Each thread knows the order of its own records and of the shared ones, not how they interleave.
  std::vector<int32_t> own;
  std::vector<int32_t> shared;
  for (int32_t i = 0; i < count; ++i) {
    const int32_t handle = SOAK_CALL(context, Scene_Objects_GetHandleAtIndex)(i);
    if (OwnHandle(handle)) own.push_back(handle);
    if (IsSharedHandle(handle)) shared.push_back(handle);
  }
  std::vector<int32_t> expectedOwn;
  for (const Object& object : objects_)
    expectedOwn.push_back(object.handle);
  context.Expect(Check::kRegistryModel, own == expectedOwn, [&] {
    return Printf("script %d's objects by index: expected %s, saw %s", index_,
                  JoinHandles(expectedOwn).c_str(), JoinHandles(own).c_str());
  });
  std::vector<int32_t> expectedShared;
  for (const SharedObject& object : model.sharedObjects)
    expectedShared.push_back(object.handle);
  context.Expect(Check::kSharedModel, shared == expectedShared, [&] {
    return Printf("shared objects by index: expected %s, saw %s", JoinHandles(expectedShared).c_str(),
                  JoinHandles(shared).c_str());
  });
  if (count > 0) {
    const int32_t past = SOAK_CALL(context, Scene_Objects_GetHandleAtIndex)(count);
    const int32_t before = SOAK_CALL(context, Scene_Objects_GetHandleAtIndex)(-1);
    context.Expect(Check::kRegistryModel, past == 0 && before == 0, [&] {
      return Printf("with %d records, index %d gave %d and index -1 gave %d (expected 0 and 0)", count, count,
                    past, before);
    });
  }
}

void ScriptThread::SharedMapStep() {
  Random& random = context_.random();
  BridgeModel& model = Model();
  const std::string key = kSharedKeys[random.Below(sizeof(kSharedKeys) / sizeof(kSharedKeys[0]))];
  const int32_t value = random.AnyInt();
  switch (random.Below(4)) {
    case 0:
      SOAK_CALL(context_, Map_Add)(key.c_str(), value);
      model.sharedMap.emplace(key, value);
      break;
    case 1: {
      SOAK_CALL(context_, Map_SetValue)(key.c_str(), value);
      const auto found = model.sharedMap.find(key);
      if (found != model.sharedMap.end()) found->second = value;
      break;
    }
    case 2:
      SOAK_CALL(context_, Map_Remove)(key.c_str());
      model.sharedMap.erase(key);
      break;
    default:
      // A test followed by an update, one step for everyone else because Lock is held.
      if (SOAK_CALL(context_, Map_Contains)(key.c_str())) {
        const int32_t next =
            static_cast<int32_t>(static_cast<uint32_t>(SOAK_CALL(context_, Map_GetValue)(key.c_str())) + 1);
        SOAK_CALL(context_, Map_SetValue)(key.c_str(), next);
        model.sharedMap[key] = next;
      } else {
        SOAK_CALL(context_, Map_Add)(key.c_str(), 1);
        model.sharedMap[key] = 1;
      }
      break;
  }
  const auto found = model.sharedMap.find(key);
  const bool contains = SOAK_CALL(context_, Map_Contains)(key.c_str());
  const int32_t seen = SOAK_CALL(context_, Map_GetValue)(key.c_str());
  const int32_t expected = found != model.sharedMap.end() ? found->second : 0;
  context_.Expect(Check::kSharedModel, contains == (found != model.sharedMap.end()) && seen == expected, [&] {
    return Printf("shared key \"%s\": expected %s %d, saw %s %d", key.c_str(),
                  found != model.sharedMap.end() ? "present" : "absent", expected,
                  contains ? "present" : "absent", seen);
  });
}

void ScriptThread::SharedObjectStep() {
  Random& random = context_.random();
  BridgeModel& model = Model();
  if (model.sharedObjects.size() < 3 && random.OneIn(2)) {
    const int32_t handle = kSharedHandleBase + 1 + static_cast<int32_t>(random.Below(kSharedHandles));
    const std::string name = "shared/t" + std::to_string(index_) + "/" + std::to_string(++names_);
    SOAK_CALL(context_, Scene_Objects_Add)(handle, name.c_str(), "shared");
    model.sharedObjects.push_back(SharedObject{handle, name});
    const int32_t seen = SOAK_CALL(context_, Scene_Objects_GetHandleFromName)(name.c_str());
    context_.Expect(Check::kSharedModel, seen == handle, [&] {
      return Printf("shared object \"%s\" was just added with handle %d, the look-up by name gave %d",
                    name.c_str(), handle, seen);
    });
  } else if (!model.sharedObjects.empty()) {
    const int32_t handle =
        model.sharedObjects[random.Below(static_cast<uint32_t>(model.sharedObjects.size()))].handle;
    RemoveCall(context_, handle);
    auto& objects = model.sharedObjects;
    objects.erase(std::remove_if(objects.begin(), objects.end(),
                                 [handle](const SharedObject& o) { return o.handle == handle; }),
                  objects.end());
  }
}

void ScriptThread::Transaction() {
  Random& random = context_.random();
  const bool nested = random.OneIn(2);
  switch (random.Below(10)) {
    case 0:
    case 1:
    case 2:
      UnderLock(context_, nested, [&] { WalkRegistry(context_); });
      break;
    case 3:
      UnderLock(context_, nested, [&] { SharedMapStep(); });
      break;
    case 4:
      UnderLock(context_, nested, [&] {
        SharedObjectStep();
        if (random.OneIn(2)) WalkRegistry(context_);
      });
      break;
    case 5:
    case 6:
      UnderLock(context_, nested,
                [&] { world_.log.Poll(context_, 1 + static_cast<int>(random.Below(16)), index_); });
      break;
    case 7:
      UnderLock(context_, nested, [&] {
        const std::string& key = keys_[random.Below(static_cast<uint32_t>(keys_.size()))];
        if (SOAK_CALL(context_, Map_Contains)(key.c_str())) {
          const int32_t next =
              static_cast<int32_t>(static_cast<uint32_t>(SOAK_CALL(context_, Map_GetValue)(key.c_str())) + 1);
          SOAK_CALL(context_, Map_SetValue)(key.c_str(), next);
          map_[key] = next;
        } else {
          SOAK_CALL(context_, Map_Add)(key.c_str(), 1);
          map_[key] = 1;
        }
        CheckMapKey(context_, key);
      });
      break;
    case 8:
      UnderLock(context_, false, [&] {
        const auto slot = static_cast<Slot>(random.Below(3));
        switch (random.Below(3)) {
          case 0:
            SOAK_CALL(context_, Callback_Set_OnAssetInitialised)
            (slot == kNone ? nullptr : kInitialisedCallbacks[slot - 1]);
            Model().relay[0] = slot;
            break;
          case 1:
            SOAK_CALL(context_, Callback_Set_OnAssetSelectRepresentation)
            (slot == kNone ? nullptr : kSelectCallbacks[slot - 1]);
            Model().relay[1] = slot;
            break;
          default:
            SOAK_CALL(context_, Callback_Set_OnAssetRepresentationDataReceived)
            (slot == kNone ? nullptr : kDataCallbacks[slot - 1]);
            Model().relay[2] = slot;
            break;
        }
      });
      break;
    default:
      // A look-up and a read of what it found, as one step.
      UnderLock(context_, nested, [&] {
        if (objects_.empty()) return;
        const Object& object = objects_[random.Below(static_cast<uint32_t>(objects_.size()))];
        const int32_t handle = SOAK_CALL(context_, Scene_Objects_GetHandleFromName)(object.name.c_str());
        context_.Expect(Check::kRegistryModel, handle == object.handle, [&] {
          return Printf("Scene_Objects_GetHandleFromName(\"%s\") under Lock: expected %d, saw %d",
                        object.name.c_str(), object.handle, handle);
        });
        CheckBuffer(handle, random.OneIn(2));
      });
      break;
  }
}

void ScriptThread::NullTexts() {
  UnderLock(context_, context_.random().OneIn(2), [&] {
    ThreadContext& c = context_;
    switch (c.random().Below(9)) {
      case 0:
        ExpectNullTextError(c, "Map_Add", [&] { SOAK_CALL(c, Map_Add)(nullptr, 1); });
        break;
      case 1:
        ExpectNullTextError(c, "Map_Remove", [&] { SOAK_CALL(c, Map_Remove)(nullptr); });
        break;
      case 2:
        ExpectNullTextError(c, "Map_Contains", [&] { SOAK_CALL(c, Map_Contains)(nullptr); });
        break;
      case 3:
        ExpectNullTextError(c, "Map_GetValue", [&] { SOAK_CALL(c, Map_GetValue)(nullptr); });
        break;
      case 4:
        ExpectNullTextError(c, "Map_SetValue", [&] { SOAK_CALL(c, Map_SetValue)(nullptr, 2); });
        break;
      case 5:
        // Nothing may be appended: the walks would see a handle the model does not have.
        ExpectNullTextError(c, "Scene_Objects_Add (name)", [&] {
          SOAK_CALL(c, Scene_Objects_Add)(handleBase_ + 1, nullptr, "type");
        });
        break;
      case 6:
        ExpectNullTextError(c, "Scene_Objects_Add (type)", [&] {
          SOAK_CALL(c, Scene_Objects_Add)(handleBase_ + 1, "name", nullptr);
        });
        break;
      case 7:
        ExpectNullTextError(c, "LogBuffer_Add", [&] { SOAK_CALL(c, LogBuffer_Add)(0, nullptr); });
        break;
      default:
        // The null name is only noticed when there is a record to compare it with.
        if (SOAK_CALL(c, Scene_Objects_GetCount)() > 0) {
          ExpectNullTextError(c, "Scene_Objects_GetHandleFromName", [&] {
            SOAK_CALL(c, Scene_Objects_GetHandleFromName)(nullptr);
          });
        }
        break;
    }
  });
}

void ScriptThread::ConstantsStep() {
  Random& random = context_.random();
  switch (random.Below(3)) {
    case 0: {
      static const int32_t kOtherCodes[] = {-1, 2, 199, 206, INT_MIN, INT_MAX, 16000};
      const bool known = random.OneIn(2);
      const ErrorText& entry = kErrorTexts[random.Below(sizeof(kErrorTexts) / sizeof(kErrorTexts[0]))];
      const int32_t code = known ? entry.code
                           : random.OneIn(2)
                               ? kOtherCodes[random.Below(sizeof(kOtherCodes) / sizeof(kOtherCodes[0]))]
                               : 206 + static_cast<int32_t>(random.Below(100000));
      const char* expected = known ? entry.text : "";
      const char* seen = SOAK_CALL(context_, QuorlError_ToString)(code);
      context_.Expect(Check::kErrorText, seen != nullptr && std::strcmp(seen, expected) == 0, [&] {
        return Printf("QuorlError_ToString(%d): expected \"%s\", saw %s%s%s", code, expected,
                      seen ? "\"" : "", seen ? seen : "null", seen ? "\"" : "");
      });
      break;
    }
    case 1: {
      const intptr_t device = SOAK_CALL(context_, GetUnityRenderDevice)();
      context_.Expect(Check::kRenderDevice, device == 0,
                      [&] { return Printf("expected 0, saw %lld", static_cast<long long>(device)); });
      break;
    }
    default: {
      const intptr_t address = SOAK_CALL(context_, UnityRenderEventFunc)();
      context_.Expect(Check::kRenderFuncAddress,
                      address == reinterpret_cast<intptr_t>(context_.api().UnityRenderEvent), [&] {
                        return Printf("expected %p, saw %p",
                                      reinterpret_cast<void*>(context_.api().UnityRenderEvent),
                                      reinterpret_cast<void*>(address));
                      });
      break;
    }
  }
}

void ScriptThread::ShutdownStep() {
  Random& random = context_.random();
  if (random.Below(7) < 2) {
    UnderLock(context_, false, [&] { SetShutdownCallback(context_, static_cast<Slot>(random.Below(3))); });
  } else {
    UnderLock(context_, random.OneIn(2), [&] { TriggerChecked(context_); });
  }
}

void ScriptThread::Register() {
  // Only this thread registers after the main thread's first call, as the library requires. Rarely: each
  // call writes the banner.
  Random& random = context_.random();
  const int32_t first = random.AnyInt();
  if (random.OneIn(4)) {
    // The banner is out and the numbers are kept before the text is found null.
    ExpectNullTextError(context_, "RegisterUnityPlugin", [&] {
      SOAK_CALL(context_, RegisterUnityPlugin)(first, 2, 3, nullptr);
    });
  } else {
    SOAK_CALL(context_, RegisterUnityPlugin)(first, 2, 3, "quorl-soak");
  }
}

void ScriptThread::CheckEnd(ThreadContext& main) {
  UnderLock(main, false, [&] {
    WalkRegistry(main);
    for (const std::string& key : keys_)
      CheckMapKey(main, key);
    if (owner_) {
      BridgeModel& model = Model();
      for (const char* key : kSharedKeys) {
        const auto found = model.sharedMap.find(key);
        const bool contains = SOAK_CALL(main, Map_Contains)(key);
        const int32_t value = SOAK_CALL(main, Map_GetValue)(key);
        const int32_t expected = found != model.sharedMap.end() ? found->second : 0;
        main.Expect(Check::kSharedModel, contains == (found != model.sharedMap.end()) && value == expected,
                    [&] {
                      return Printf("shared key \"%s\" at the end: expected %d, saw %s %d", key, expected,
                                    contains ? "present" : "absent", value);
                    });
      }
    }
  });
}

void ScriptThread::RemoveAll(ThreadContext& main) {
  while (!objects_.empty()) {
    const int32_t handle = objects_.front().handle;
    const auto removed = static_cast<int32_t>(std::count_if(
        objects_.begin(), objects_.end(), [handle](const Object& o) { return o.handle == handle; }));
    world_.registry.Begin(index_, static_cast<int32_t>(objects_.size()), -removed);
    RemoveCall(main, handle);
    objects_.erase(std::remove_if(objects_.begin(), objects_.end(),
                                  [handle](const Object& o) { return o.handle == handle; }),
                   objects_.end());
    world_.registry.End(index_, static_cast<int32_t>(objects_.size()));
  }
}

void CheckShutdownEnd(SoakWorld& world, ThreadContext& context) {
  (void)world;
  UnderLock(context, false, [&] {
    BridgeModel& model = Model();
    for (const SharedObject& object : std::vector<SharedObject>(model.sharedObjects))
      RemoveCall(context, object.handle);
    model.sharedObjects.clear();
    const int32_t count = SOAK_CALL(context, Scene_Objects_GetCount)();
    context.Expect(Check::kRegistryCount, count == 0,
                   [&] { return Printf("every object was removed, but the count is %d", count); });
    context.Expect(Check::kShutdown, model.pending != PendingShutdown::kYes, [] {
      return std::string(
          "the registry emptied with a shutdown pending and a callback set, but no notice came");
    });
    model.pending = PendingShutdown::kNo;

    // Two records, a trigger, two removals: one notice, during the second removal.
    SetShutdownCallback(context, kFirst);
    SOAK_CALL(context, Scene_Objects_Add)(kEndHandleBase + 1, "end/1", "end");
    SOAK_CALL(context, Scene_Objects_Add)(kEndHandleBase + 2, "end/2", "end");
    const int64_t start = model.shutdownCalls;
    TriggerChecked(context);
    RemoveCall(context, kEndHandleBase + 1);
    context.Expect(Check::kShutdown, model.shutdownCalls == start, [&] {
      return Printf("removing one of two objects with a shutdown pending gave %lld notices, expected 0",
                    static_cast<long long>(model.shutdownCalls - start));
    });
    RemoveCall(context, kEndHandleBase + 2);
    context.Expect(Check::kShutdown, model.shutdownCalls == start + 1, [&] {
      return Printf("removing the last object with a shutdown pending gave %lld notices, expected 1",
                    static_cast<long long>(model.shutdownCalls - start));
    });
    RemoveCall(context, kEndHandleBase + 2);  // the flag was cleared: nothing more
    context.Expect(Check::kShutdown, model.shutdownCalls == start + 1, [&] {
      return Printf("a removal after the notice gave another one (%lld in all)",
                    static_cast<long long>(model.shutdownCalls - start));
    });
    // With nothing registered, each trigger notifies at once; with no callback, nothing happens.
    TriggerChecked(context);
    TriggerChecked(context);
    SetShutdownCallback(context, kNone);
    TriggerChecked(context);
    context.Expect(Check::kShutdown, model.shutdownCalls == start + 3, [&] {
      return Printf(
          "two triggers on an empty registry and one without a callback gave %lld notices, expected 2",
          static_cast<long long>(model.shutdownCalls - start - 1));
    });
  });
}

}  // namespace quorl::soak
