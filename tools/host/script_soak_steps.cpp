// The soak's mix of a script thread: every step is one random call or transaction, checked against the
// thread's own model, or against the shared model while Lock is held.
#include <algorithm>
#include <functional>
#include <stdexcept>
#include <tuple>

#include "roles.h"

namespace quorl::host {

namespace {

void ExpectNullTextError(ThreadContext& context, const char* what, const std::function<void()>& call) {
  std::string seen = "no exception";
  try {
    call();
  } catch (const std::logic_error& error) {
    seen = error.what();
  } catch (...) {
    seen = "another exception";
  }
  EXPECT(context, kNullText, seen == "basic_string::_M_construct null not valid", "%s with a null text: %s",
         what, seen.c_str());
}

// A change of `key` (an Add that never overwrites, a SetValue that never creates, a Remove, or a test and
// an update as one step), mirrored in `model` and then compared with it.
void KeyStep(ThreadContext& context, KeyModel& model, const std::string& key, Check check) {
  const int32_t value = context.random.AnyInt();
  switch (context.random.Below(4)) {
    case 0:
      CALL(context, Map_Add)(key.c_str(), value);
      model.emplace(key, value);
      break;
    case 1:
      SetKey(context, model, key, value);
      break;
    case 2:
      CALL(context, Map_Remove)(key.c_str());
      model.erase(key);
      break;
    default:
      AddToKey(context, model, key, 1);
      break;
  }
  CheckKey(context, check, model, key);
}

}  // namespace

void ScriptRole::Step() {
  Random& random = context_.random;
  const bool owner = index_ == 0;
  if (owner && (++steps_ & ((int64_t{1} << 21) - 1)) == 0) {
    // Only this thread registers after the main thread's first call, as the library requires; rarely, as
    // each call writes the banner. With a null text the banner is out and the numbers kept first.
    const int32_t first = random.AnyInt();
    ExpectNullTextError(context_, "RegisterUnityPlugin", [&] {
      CALL(context_, RegisterUnityPlugin)(first, 2, 3, nullptr);
    });
    CALL(context_, RegisterUnityPlugin)(first, 2, 3, "quorl-host");
  }
  const uint32_t choice = random.Below(100);
  if (choice < 25) {
    EventProducer& producer = world_.traffic.producer(index_);
    queued += world_.traffic.Queue(context_, producer) != 0 ? 1 : 0;
    world_.traffic.HandOver(producer, &random);
  } else if (choice < 45 || choice >= 92 || (choice >= 89 && !owner)) {
    SceneStep();
  } else if (choice < 60) {
    KeyStep(context_, keyModel_, keys_[random.Below(keys_.size())], Check::kMapModel);
  } else if (choice < 68) {
    // A tail of varying length, often past any small-text limit.
    world_.log.Add(context_, log_, random.Below(7) - 2,
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
  Random& random = context_.random;
  const bool type = random.OneIn(2);
  const Object* object = FirstWithHandle(handle);
  const size_t length = object != nullptr ? (type ? object->type : object->name).size() : random.Below(20);
  const size_t sizes[] = {0,          length,
                          length + 1, length > 0 ? length - 1 : 1,
                          128,        static_cast<size_t>(1 + random.Below(length + 4))};
  CheckBuffer(handle, type, random.Pick(sizes));
}

void ScriptRole::SceneStep() {
  Random& random = context_.random;
  if (--phaseLeft_ <= 0) {
    // Threads take turns at holding nothing, so the whole registry empties now and then.
    emptyPhase_ = !emptyPhase_;
    phaseLeft_ = 50 + random.Below(300);
  }
  const Object* some = objects_.empty() ? nullptr : &objects_[random.Below(objects_.size())];
  const int32_t someHandle =
      some != nullptr && !random.OneIn(4) ? some->handle : handleBase_ + 1 + random.Below(kHandles);
  const uint32_t choice = random.Below(10);
  if (choice < 3) {
    if (emptyPhase_ && !objects_.empty()) RemoveObject(context_, objects_.front().handle);
    if (!emptyPhase_ && objects_.size() < 10) AddObject(-1);
  } else if (choice < 5) {
    if (!emptyPhase_ || !objects_.empty()) RemoveObject(context_, someHandle);
  } else if (choice < 7) {
    CheckAnyBuffer(someHandle);
  } else if (choice == 7) {
    if (random.OneIn(2)) some = nullptr;
    const std::string name = some != nullptr ? some->name : context_.label() + "/none";
    const int32_t seen = CALL(context_, Scene_Objects_GetHandleFromName)(name.c_str());
    EXPECT(context_, kRegistryModel, seen == (some != nullptr ? some->handle : 0),
           "Scene_Objects_GetHandleFromName(\"%s\") gave %d", name.c_str(), seen);
  } else if (choice == 8) {
    // Nobody else removes this thread's objects, so the count never falls below them.
    const int32_t count = CALL(context_, Scene_Objects_GetCount)();
    EXPECT(context_, kRegistryCount, count >= static_cast<int32_t>(objects_.size()),
           "Scene_Objects_GetCount gave %d while this thread alone holds %zu", count, objects_.size());
  } else if (!objects_.empty()) {  // with no records the index is not checked, by design
    const bool negative = random.OneIn(3);
    const int32_t index = negative ? -1 - random.Below(3) : random.Below(64);
    const int32_t handle = CALL(context_, Scene_Objects_GetHandleAtIndex)(index);
    const bool plausible =
        handle == 0 || (handle > kSharedHandleBase && handle <= kSharedHandleBase + kSharedHandles) ||
        (handle > 1000 && handle <= static_cast<int32_t>(world_.scripts.size() + 1) * 1000 &&
         handle % 1000 <= kHandles);
    EXPECT(context_, kRegistryModel, plausible && (!negative || handle == 0),
           "Scene_Objects_GetHandleAtIndex(%d) gave %d, which no thread added", index, handle);
  }
}

// Under Lock: the addition or removal of a shared object.
void ScriptRole::SharedObjectStep() {
  Random& random = context_.random;
  std::vector<SharedObject>& objects = Model().sharedObjects;
  if (objects.size() < 3 && random.OneIn(2)) {
    const int32_t handle = kSharedHandleBase + 1 + random.Below(kSharedHandles);
    const std::string name = "shared/t" + std::to_string(index_) + "/" + std::to_string(++names_);
    CALL(context_, Scene_Objects_Add)(handle, name.c_str(), "shared");
    objects.push_back(SharedObject{handle, name});
    const int32_t seen = CALL(context_, Scene_Objects_GetHandleFromName)(name.c_str());
    EXPECT(context_, kSharedModel, seen == handle, "shared object \"%s\" added with handle %d, found %d",
           name.c_str(), handle, seen);
  } else if (!objects.empty()) {
    const int32_t handle = objects[random.Below(objects.size())].handle;
    RemoveSceneObject(context_, handle);
    objects.erase(std::remove_if(objects.begin(), objects.end(),
                                 [&](const SharedObject& o) { return o.handle == handle; }),
                  objects.end());
  }
}

void ScriptRole::Transaction() {
  Random& random = context_.random;
  const uint32_t choice = random.Below(10);
  UnderLock(context_, choice != 8 && random.OneIn(2), [&] {
    if (choice < 3) {
      WalkRegistry(context_);
    } else if (choice == 3) {
      KeyStep(context_, Model().sharedKeys, random.Pick(kSharedKeys), Check::kSharedModel);
    } else if (choice == 4) {
      SharedObjectStep();
      if (random.OneIn(2)) WalkRegistry(context_);
    } else if (choice < 7) {
      world_.log.Poll(context_, 1 + random.Below(16), &log_);
    } else if (choice == 7) {
      KeyStep(context_, keyModel_, keys_[random.Below(keys_.size())], Check::kMapModel);
    } else if (choice == 8) {
      SetRelayCallback(context_, static_cast<RelayKind>(random.Below(3)), static_cast<Slot>(random.Below(3)));
    } else if (!objects_.empty()) {
      // A look-up and a read of what it found, as one step.
      const Object& object = objects_[random.Below(objects_.size())];
      const int32_t handle = CALL(context_, Scene_Objects_GetHandleFromName)(object.name.c_str());
      EXPECT(context_, kRegistryModel, handle == object.handle,
             "\"%s\" under Lock: expected handle %d, found %d", object.name.c_str(), object.handle, handle);
      CheckAnyBuffer(handle);
    }
  });
}

void ScriptRole::NullTexts() {
  ThreadContext& c = context_;
  const BridgeApi& api = c.api;
  const int32_t handle = handleBase_ + 1;
  // Scene_Objects_Add must append nothing, or the walks would see a handle the model does not have.
  const std::tuple<const char*, ExportId, std::function<void()>> calls[] = {
      {"Map_Add", kExport_Map_Add, [&] { api.Map_Add(nullptr, 1); }},
      {"Map_Remove", kExport_Map_Remove, [&] { api.Map_Remove(nullptr); }},
      {"Map_Contains", kExport_Map_Contains, [&] { api.Map_Contains(nullptr); }},
      {"Map_GetValue", kExport_Map_GetValue, [&] { api.Map_GetValue(nullptr); }},
      {"Map_SetValue", kExport_Map_SetValue, [&] { api.Map_SetValue(nullptr, 2); }},
      {"Scene_Objects_Add", kExport_Scene_Objects_Add,
       [&] { api.Scene_Objects_Add(handle, nullptr, "type"); }},
      {"Scene_Objects_Add", kExport_Scene_Objects_Add,
       [&] { api.Scene_Objects_Add(handle, "name", nullptr); }},
      {"LogBuffer_Add", kExport_LogBuffer_Add, [&] { api.LogBuffer_Add(0, nullptr); }},
      {"Scene_Objects_GetHandleFromName", kExport_Scene_Objects_GetHandleFromName,
       [&] { api.Scene_Objects_GetHandleFromName(nullptr); }}};
  UnderLock(c, c.random.OneIn(2), [&] {
    const auto& [what, id, call] = c.random.Pick(calls);
    // A null name to look up is only noticed when there is a record to compare it with.
    if (id == kExport_Scene_Objects_GetHandleFromName && CALL(c, Scene_Objects_GetCount)() == 0) return;
    c.Count(id);
    ExpectNullTextError(c, what, call);
  });
}

}  // namespace quorl::host
