// The soak's mix of a script thread: every step is one random call or transaction, checked against the
// thread's own model, or against the shared model while Lock is held.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "roles.h"

namespace quorl::host {

namespace {

template <typename Call>
void ExpectNullTextError(ThreadContext& context, const char* what, Call&& call) {
  std::string seen = "no exception";
  try {
    call();
  } catch (const std::logic_error& error) {
    seen = std::string("logic_error \"") + error.what() + "\"";
  } catch (const std::exception& error) {
    seen = std::string("another exception \"") + error.what() + "\"";
  }
  EXPECT(context, kNullText, seen == "logic_error \"basic_string::_M_construct null not valid\"",
         "%s with a null text: saw %s", what, seen.c_str());
}

}  // namespace

void ScriptRole::Step() {
  Random& random = context_.random();
  const bool owner = index_ == 0;
  if (owner && (++steps_ & ((int64_t{1} << 21) - 1)) == 0) {
    // Only this thread registers after the main thread's first call, as the library requires; rarely, as
    // each call writes the banner. With a null text the banner is out and the numbers kept first.
    const int32_t first = random.AnyInt();
    if (random.OneIn(4)) {
      ExpectNullTextError(context_, "RegisterUnityPlugin", [&] {
        CALL(context_, RegisterUnityPlugin)(first, 2, 3, nullptr);
      });
    } else {
      CALL(context_, RegisterUnityPlugin)(first, 2, 3, "quorl-host");
    }
  }
  const uint32_t choice = random.Below(100);
  if (choice < 25) {
    EventProducer& producer = world_.traffic.producer(index_);
    queued += world_.traffic.Queue(context_, producer) != 0 ? 1 : 0;
    world_.traffic.HandOver(producer, &random);
  } else if (choice < 45 || choice >= 92 || (choice >= 89 && !owner)) {
    SceneStep();
  } else if (choice < 60) {
    MapStep();
  } else if (choice < 68) {
    // A tail of varying length, often past any small-text limit.
    world_.log.Add(context_, log_, static_cast<int32_t>(random.Below(7)) - 2,
                   std::string(random.Below(61), static_cast<char>('a' + random.Below(26))));
  } else if (choice < 80) {
    Transaction();
  } else if (choice < 88) {
    CheckConstants(context_, false);
  } else if (choice < 89) {
    if (random.OneIn(8)) NullTexts();
  } else if (random.Below(7) < 2) {
    UnderLock(context_, false, [&] { SetShutdownCallback(context_, static_cast<Slot>(random.Below(3))); });
  } else {
    UnderLock(context_, random.OneIn(2), [&] { TriggerShutdown(context_); });
  }
}

void ScriptRole::CheckAnyBuffer(int32_t handle) {
  Random& random = context_.random();
  const bool type = random.OneIn(2);
  const Object* object = FirstWithHandle(handle);
  const size_t length = object != nullptr ? (type ? object->type : object->name).size() : random.Below(20);
  const size_t sizes[] = {0,
                          length,
                          length + 1,
                          length > 0 ? length - 1 : 1,
                          1 + random.Below(static_cast<uint32_t>(length) + 4),
                          128};
  CheckBuffer(handle, type, random.Pick(sizes));
}

void ScriptRole::SceneStep() {
  Random& random = context_.random();
  if (--phaseLeft_ <= 0) {
    // Threads take turns at holding nothing, so the whole registry empties now and then.
    emptyPhase_ = !emptyPhase_;
    phaseLeft_ = 50 + static_cast<int>(random.Below(300));
  }
  const Object* some =
      objects_.empty() ? nullptr : &objects_[random.Below(static_cast<uint32_t>(objects_.size()))];
  const int32_t someHandle = some != nullptr && !random.OneIn(4)
                                 ? some->handle
                                 : handleBase_ + 1 + static_cast<int32_t>(random.Below(kHandles));
  switch (random.Below(10)) {
    case 0:
    case 1:
    case 2:
      if (emptyPhase_ && !objects_.empty()) RemoveObject(context_, objects_.front().handle);
      if (!emptyPhase_ && objects_.size() < 10) AddObject(-1);
      break;
    case 3:
    case 4:
      if (!emptyPhase_ || !objects_.empty()) RemoveObject(context_, someHandle);
      break;
    case 5: {
      if (random.OneIn(2)) some = nullptr;
      const std::string name = some != nullptr ? some->name : context_.label() + "/none";
      const int32_t seen = CALL(context_, Scene_Objects_GetHandleFromName)(name.c_str());
      EXPECT(context_, kRegistryModel, seen == (some != nullptr ? some->handle : 0),
             "Scene_Objects_GetHandleFromName(\"%s\") gave %d", name.c_str(), seen);
      break;
    }
    case 6:
    case 7:
      CheckAnyBuffer(someHandle);
      break;
    case 8: {
      // Nobody else removes this thread's objects, so the count never falls below them.
      const int32_t count = CALL(context_, Scene_Objects_GetCount)();
      EXPECT(context_, kRegistryCount, count >= static_cast<int32_t>(objects_.size()),
             "Scene_Objects_GetCount gave %d while this thread alone holds %zu", count, objects_.size());
      break;
    }
    default: {
      if (objects_.empty()) break;  // with no records the index is not checked, by design
      const bool negative = random.OneIn(3);
      const int32_t index =
          negative ? -1 - static_cast<int32_t>(random.Below(3)) : static_cast<int32_t>(random.Below(64));
      const int32_t handle = CALL(context_, Scene_Objects_GetHandleAtIndex)(index);
      const bool plausible =
          handle == 0 || (handle > kSharedHandleBase && handle <= kSharedHandleBase + kSharedHandles) ||
          (handle > 1000 && handle <= static_cast<int32_t>(world_.scripts.size() + 1) * 1000 &&
           handle % 1000 <= kHandles);
      EXPECT(context_, kRegistryModel, plausible && (!negative || handle == 0),
             "Scene_Objects_GetHandleAtIndex(%d) gave %d, which no thread added", index, handle);
      break;
    }
  }
}

void ScriptRole::MapStep() {
  Random& random = context_.random();
  const std::string& key = keys_[random.Below(static_cast<uint32_t>(keys_.size()))];
  const int32_t value = random.AnyInt();
  switch (random.Below(5)) {
    case 0:
      CALL(context_, Map_Add)(key.c_str(), value);
      keyModel_.emplace(key, value);  // never overwrites
      break;
    case 1:
      SetKey(context_, keyModel_, key, value);  // never creates
      break;
    case 2:
      CALL(context_, Map_Remove)(key.c_str());
      keyModel_.erase(key);
      break;
    default:
      CheckKey(context_, Check::kMapModel, keyModel_, key);
      break;
  }
}

// Under Lock: a change of a shared key, or the addition or removal of a shared object.
void ScriptRole::SharedStep(bool object) {
  Random& random = context_.random();
  KeyModel& keys = Model().sharedKeys;
  std::vector<SharedObject>& objects = Model().sharedObjects;
  if (!object) {
    const std::string key = random.Pick(kSharedKeys);
    const int32_t value = random.AnyInt();
    switch (random.Below(4)) {
      case 0:
        CALL(context_, Map_Add)(key.c_str(), value);
        keys.emplace(key, value);
        break;
      case 1:
        SetKey(context_, keys, key, value);
        break;
      case 2:
        CALL(context_, Map_Remove)(key.c_str());
        keys.erase(key);
        break;
      default:
        AddToKey(context_, keys, key, 1);  // a test followed by an update, one step because Lock is held
        break;
    }
    CheckKey(context_, Check::kSharedModel, keys, key);
  } else if (objects.size() < 3 && random.OneIn(2)) {
    const int32_t handle = kSharedHandleBase + 1 + static_cast<int32_t>(random.Below(kSharedHandles));
    const std::string name = "shared/t" + std::to_string(index_) + "/" + std::to_string(++names_);
    CALL(context_, Scene_Objects_Add)(handle, name.c_str(), "shared");
    objects.push_back(SharedObject{handle, name});
    const int32_t seen = CALL(context_, Scene_Objects_GetHandleFromName)(name.c_str());
    EXPECT(context_, kSharedModel, seen == handle,
           "shared object \"%s\" was just added with handle %d, found %d", name.c_str(), handle, seen);
  } else if (!objects.empty()) {
    const int32_t handle = objects[random.Below(static_cast<uint32_t>(objects.size()))].handle;
    RemoveSceneObject(context_, handle);
    objects.erase(std::remove_if(objects.begin(), objects.end(),
                                 [handle](const SharedObject& o) { return o.handle == handle; }),
                  objects.end());
  }
}

void ScriptRole::Transaction() {
  Random& random = context_.random();
  const bool nested = random.OneIn(2);
  switch (random.Below(10)) {
    case 0:
    case 1:
    case 2:
      return UnderLock(context_, nested, [&] { WalkRegistry(context_); });
    case 3:
      return UnderLock(context_, nested, [&] { SharedStep(false); });
    case 4:
      return UnderLock(context_, nested, [&] {
        SharedStep(true);
        if (random.OneIn(2)) WalkRegistry(context_);
      });
    case 5:
    case 6:
      return UnderLock(context_, nested,
                       [&] { world_.log.Poll(context_, 1 + static_cast<int>(random.Below(16)), &log_); });
    case 7:
      return UnderLock(context_, nested, [&] {
        const std::string& key = keys_[random.Below(static_cast<uint32_t>(keys_.size()))];
        AddToKey(context_, keyModel_, key, 1);
        CheckKey(context_, Check::kMapModel, keyModel_, key);
      });
    case 8:
      return UnderLock(context_, false, [&] {
        SetRelayCallback(context_, static_cast<RelayKind>(random.Below(3)),
                         static_cast<Slot>(random.Below(3)));
      });
    default:
      // A look-up and a read of what it found, as one step.
      return UnderLock(context_, nested, [&] {
        if (objects_.empty()) return;
        const Object& object = objects_[random.Below(static_cast<uint32_t>(objects_.size()))];
        const int32_t handle = CALL(context_, Scene_Objects_GetHandleFromName)(object.name.c_str());
        EXPECT(context_, kRegistryModel, handle == object.handle,
               "\"%s\" under Lock: expected handle %d, found %d", object.name.c_str(), object.handle, handle);
        CheckAnyBuffer(handle);
      });
  }
}

void ScriptRole::NullTexts() {
  UnderLock(context_, context_.random().OneIn(2), [&] {
    ThreadContext& c = context_;
    switch (c.random().Below(9)) {
      case 0:
        return ExpectNullTextError(c, "Map_Add", [&] { CALL(c, Map_Add)(nullptr, 1); });
      case 1:
        return ExpectNullTextError(c, "Map_Remove", [&] { CALL(c, Map_Remove)(nullptr); });
      case 2:
        return ExpectNullTextError(c, "Map_Contains", [&] { CALL(c, Map_Contains)(nullptr); });
      case 3:
        return ExpectNullTextError(c, "Map_GetValue", [&] { CALL(c, Map_GetValue)(nullptr); });
      case 4:
        return ExpectNullTextError(c, "Map_SetValue", [&] { CALL(c, Map_SetValue)(nullptr, 2); });
      case 5:
        // Nothing may be appended: the walks would see a handle the model does not have.
        return ExpectNullTextError(c, "Scene_Objects_Add (name)", [&] {
          CALL(c, Scene_Objects_Add)(handleBase_ + 1, nullptr, "type");
        });
      case 6:
        return ExpectNullTextError(c, "Scene_Objects_Add (type)", [&] {
          CALL(c, Scene_Objects_Add)(handleBase_ + 1, "name", nullptr);
        });
      case 7:
        return ExpectNullTextError(c, "LogBuffer_Add", [&] { CALL(c, LogBuffer_Add)(0, nullptr); });
      default:
        // The null name is only noticed when there is a record to compare it with.
        if (CALL(c, Scene_Objects_GetCount)() == 0) return;
        return ExpectNullTextError(c, "Scene_Objects_GetHandleFromName", [&] {
          CALL(c, Scene_Objects_GetHandleFromName)(nullptr);
        });
    }
  });
}

}  // namespace quorl::host
