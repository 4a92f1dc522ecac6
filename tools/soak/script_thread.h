// ScriptThread: one game-script thread of a soak. It calls the exported surface in a random mix, seeded
// per thread: render events, its own scene objects and map keys (so its model of them is exact), log
// entries it numbers, transactions under Lock and Unlock (nested, several calls as one step) over the
// shared keys and objects, the relay's callbacks, the error texts, the null-text failures. Script thread 0
// also owns the shutdown gate: it alone sets the shutdown callback and triggers, always under Lock, and
// makes the occasional RegisterUnityPlugin call.
//
// Threads: Run on the thread's own thread; CheckEnd on the main thread after every thread stopped.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "soak_world.h"

namespace quorl::soak {

class ScriptThread {
 public:
  ScriptThread(SoakWorld& world, ThreadContext& context);

  void Run();
  // Main thread: the registry and the map still hold exactly what this thread's model says.
  void CheckEnd(ThreadContext& main);
  // Main thread, after CheckEnd: removes this thread's objects, so the shutdown gate can be tested.
  void RemoveAll(ThreadContext& main);

  int64_t steps() const { return steps_; }

 private:
  struct Object {
    int32_t handle;
    std::string name;
    std::string type;
  };

  void Step();
  void SceneStep();
  void AddObject();
  void RemoveObject(int32_t handle);
  void CheckBuffer(int32_t handle, bool type);
  void MapStep();
  void Transaction();
  void WalkRegistry(ThreadContext& context);
  void SharedMapStep();
  void SharedObjectStep();
  void NullTexts();
  void ConstantsStep();
  void ShutdownStep();
  void Register();
  void CheckMapKey(ThreadContext& context, const std::string& key);

  const Object* FirstWithHandle(int32_t handle) const;
  bool OwnHandle(int32_t handle) const { return handle > handleBase_ && handle <= handleBase_ + kHandles; }

  static constexpr int32_t kHandles = 12;
  static constexpr size_t kMaxObjects = 10;

  SoakWorld& world_;
  ThreadContext& context_;
  const int index_;
  const bool owner_;
  const int32_t handleBase_;
  std::vector<Object> objects_;  // own records, in order of insertion
  int64_t names_ = 0;
  bool emptyPhase_ = false;
  int phaseLeft_ = 0;
  std::vector<std::string> keys_;
  std::map<std::string, int32_t> map_;
  int64_t steps_ = 0;
};

}  // namespace quorl::soak
