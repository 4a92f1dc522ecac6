#include "roles.h"

#include <algorithm>
#include <cstring>

namespace quorl::host {

namespace {

const char* const kObjectKinds[] = {"MeshRenderer",   "QuorlVolumetricPlayer",
                                    "AudioSource",    "Light",
                                    "ParticleSystem", "a type name longer than any small-text buffer"};

std::string JoinHandles(const std::vector<int32_t>& handles) {
  std::string text;
  for (size_t i = 0; i < handles.size() && i < 16; ++i)
    text += (i == 0 ? "" : " ") + std::to_string(handles[i]);
  return "[" + text + (handles.size() > 16 ? " ...]" : "]");
}

}  // namespace

ScriptRole::ScriptRole(World& world, ThreadContext& context)
    : world_(world),
      context_(context),
      index_(context.index),
      handleBase_((context.index + 1) * 1000),
      log_(world.log.AddProducer(context.label())) {
  const std::string prefix = "m" + std::to_string(index_) + "/";
  for (int i = 0; i < 5; ++i) {
    // Names that differ only in case are different keys.
    keys_.push_back(prefix + "Key" + std::to_string(i));
    keys_.push_back(prefix + "key" + std::to_string(i));
  }
  keys_.push_back(prefix + "a name long enough to live outside any small-text buffer");
  CALL(context_, Map_Add)(keys_.back().c_str(), 0);
  keyModel_.emplace(keys_.back(), 0);
}

void ScriptRole::Frame(int frame, const SessionPlan& plan) {
  SetCurrentContext(&context_);
  context_.frame = frame;
  Random& random = context_.random;
  const int32_t published = CALL(context_, Map_GetValue)("engine.frame");
  EXPECT(context_, kSharedModel, published == frame, "read frame %d from engine.frame in frame %d", published,
         frame);

  EventProducer& producer = world_.traffic.producer(index_);
  int32_t count = 0;
  for (int i = plan.eventsPerFrame / 2 + random.Below(plan.eventsPerFrame + 1); i > 0; --i)
    count += world_.traffic.Queue(context_, producer) != 0 ? 1 : 0;
  world_.traffic.HandOver(producer);
  queued += count;
  // A read followed by a write is only one step for the other threads under Lock and Unlock.
  UnderLock(context_, false,
            [&] { AddToKey(context_, Model().sharedKeys, "render.queuedByScripts", count); });
  SetKey(context_, keyModel_, keys_.back(), static_cast<int32_t>(queued));

  if (frame < plan.shutdownFrame) {
    for (size_t i = objects_.size(); i-- > 0;) {
      if (i < objects_.size() && objects_[i].despawnFrame <= frame)
        RemoveObject(context_, objects_[i].handle);
    }
    // At least two objects each, so the registry is never empty while no shutdown is under way.
    while (objects_.size() < 2 || (objects_.size() < 8 && random.OneIn(3)))
      AddObject(frame + 5 + random.Below(36));
  } else if (frame == plan.frames - 1) {
    RemoveAll(context_);
  } else if (!objects_.empty()) {
    RemoveObject(context_, objects_.front().handle);
  }
  if (!objects_.empty()) Inspect(objects_[random.Below(objects_.size())]);
  if ((frame + index_ * 7) % 25 == 0) UnderLock(context_, false, [&] { WalkRegistry(context_); });
}

const ScriptRole::Object* ScriptRole::FirstWithHandle(int32_t handle) const {
  for (const Object& object : objects_) {
    if (object.handle == handle) return &object;
  }
  return nullptr;
}

void ScriptRole::AddObject(int despawnFrame) {
  Random& random = context_.random;
  const std::string kind = random.Pick(kObjectKinds);
  Object object{handleBase_ + 1 + random.Below(kHandles),  // duplicates happen
                context_.label() + "/" + kind.substr(0, 16) + std::to_string(++names_), kind, despawnFrame};
  world_.registry.Begin(index_, static_cast<int32_t>(objects_.size()), 1);
  CALL(context_, Scene_Objects_Add)(object.handle, object.name.c_str(), object.type.c_str());
  objects_.push_back(std::move(object));
  world_.registry.End(index_, static_cast<int32_t>(objects_.size()));
  ++spawned;
  if (despawnFrame < 0) return;  // a soak's
  UnderLock(context_, false, [&] { AddToKey(context_, Model().sharedKeys, "scene.spawned", 1); });
  if (names_ % 4 == 0) world_.log.Add(context_, log_, 0, "spawned " + objects_.back().name);
}

void ScriptRole::RemoveObject(ThreadContext& context, int32_t handle) {
  auto matches = [handle](const Object& o) { return o.handle == handle; };
  const auto removed = static_cast<int32_t>(std::count_if(objects_.begin(), objects_.end(), matches));
  world_.registry.Begin(index_, static_cast<int32_t>(objects_.size()), -removed);
  RemoveSceneObject(context, handle);
  // Every record with the handle goes; the survivors keep their order.
  objects_.erase(std::remove_if(objects_.begin(), objects_.end(), matches), objects_.end());
  world_.registry.End(index_, static_cast<int32_t>(objects_.size()));
  this->removed += removed;
}

void ScriptRole::RemoveAll(ThreadContext& context) {
  while (!objects_.empty())
    RemoveObject(context, objects_.front().handle);
}

bool ScriptRole::CheckBuffer(int32_t handle, bool type, size_t size) {
  const Object* object = FirstWithHandle(handle);
  const std::string* field = object == nullptr ? nullptr : type ? &object->type : &object->name;
  constexpr char kFill = 0x5A;
  constexpr size_t kGuard = 8;
  std::vector<char> storage(size + 2 * kGuard, kFill);
  char* buffer = storage.data() + kGuard;
  const auto bufferSize = static_cast<int32_t>(size);
  const bool result = type ? CALL(context_, Scene_Objects_GetTypeFromHandle)(handle, buffer, bufferSize)
                           : CALL(context_, Scene_Objects_GetNameFromHandle)(handle, buffer, bufferSize);
  std::vector<char> expected(storage.size(), kFill);
  const bool expectedResult = field != nullptr && field->size() < size;
  if (field != nullptr && size == 0) {
    expected[kGuard - 1] = 0;  // a zero size writes the terminator just before the buffer; intended
  } else if (field != nullptr) {
    for (size_t i = 0; i < size; ++i)
      expected[kGuard + i] = i < field->size() && i + 1 < size ? (*field)[i] : 0;
  }
  EXPECT(context_, kNameBuffers, result == expectedResult && storage == expected,
         "the %s of handle %d (\"%s\") into %zu bytes gave %d \"%.*s\"%s", type ? "type" : "name", handle,
         field != nullptr ? field->c_str() : "", size, result, static_cast<int>(strnlen(buffer, size)),
         buffer, storage == expected ? "" : ", and the bytes around differ");
  return result;
}

// Reads the name and type the way a careful host does: a small buffer first, and a larger one while the
// answer says the text was cut; then finds the object by its name.
void ScriptRole::Inspect(const Object& object) {
  ++lookups;
  for (const bool type : {false, true}) {
    for (size_t size = 8; !CheckBuffer(object.handle, type, size) && size < 4096; size *= 2)
      ++retries;
  }
  const int32_t found = CALL(context_, Scene_Objects_GetHandleFromName)(object.name.c_str());
  EXPECT(context_, kRegistryModel, found == object.handle, "\"%s\" of handle %d was found as %d",
         object.name.c_str(), object.handle, found);
}

// Under Lock: the count is only current, and the walk one step for the other threads, while it is held.
void ScriptRole::WalkRegistry(ThreadContext& context) {
  BridgeModel& model = Model();
  const int32_t count = CALL(context, Scene_Objects_GetCount)();
  int low = 0, high = 0;
  world_.registry.Bounds(&low, &high);
  const int shared = static_cast<int>(model.sharedObjects.size());
  EXPECT(context, kRegistryCount, low + shared <= count && count <= high + shared,
         "Scene_Objects_GetCount gave %d, the models %d..%d", count, low + shared, high + shared);
  if (count == 0) SawEmptyRegistry(context);

  // Each thread knows the order of its own records and of the shared ones, not how they interleave.
  std::vector<int32_t> seen[2];
  std::vector<int32_t> expected[2];
  for (int32_t i = 0; i < count; ++i) {
    const int32_t handle = CALL(context, Scene_Objects_GetHandleAtIndex)(i);
    if (handle > handleBase_ && handle <= handleBase_ + kHandles) seen[0].push_back(handle);
    if (handle > kSharedHandleBase && handle <= kSharedHandleBase + kSharedHandles) seen[1].push_back(handle);
  }
  for (const Object& object : objects_)
    expected[0].push_back(object.handle);
  for (const SharedObject& object : model.sharedObjects)
    expected[1].push_back(object.handle);
  EXPECT(context, kRegistryModel, seen[0] == expected[0], "script-%d's objects by index: expected %s, saw %s",
         index_, JoinHandles(expected[0]).c_str(), JoinHandles(seen[0]).c_str());
  EXPECT(context, kSharedModel, seen[1] == expected[1], "shared objects by index: expected %s, saw %s",
         JoinHandles(expected[1]).c_str(), JoinHandles(seen[1]).c_str());
  if (count == 0) return;
  const int32_t past = CALL(context, Scene_Objects_GetHandleAtIndex)(count);
  const int32_t before = CALL(context, Scene_Objects_GetHandleAtIndex)(-1);
  EXPECT(context, kRegistryModel, past == 0 && before == 0,
         "with %d records, index %d gave %d and index -1 gave %d", count, count, past, before);
}

void ScriptRole::CheckEnd(ThreadContext& main) {
  UnderLock(main, false, [&] {
    WalkRegistry(main);
    for (const std::string& key : keys_)
      CheckKey(main, Check::kMapModel, keyModel_, key);
    if (index_ > 0) return;
    for (const char* key : kSharedKeys)
      CheckKey(main, Check::kSharedModel, Model().sharedKeys, key);
  });
}

}  // namespace quorl::host
