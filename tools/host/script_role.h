// ScriptRole: one game-script thread. It queues render work, keeps scene objects of its own (so its
// model of them is exact), keys of its own in the named-integer map, and log entries it numbers, and it
// changes the keys and objects that all scripts share under Lock.
//
// In a session it plays one frame at a time: it reads the frame the engine published, queues its render
// work and hands the ids over for the frame, spawns and despawns objects, reads one back through a small
// buffer first and a larger one while the text was cut, and now and then walks the whole registry. Once
// the shutdown is requested it tears its objects down. In a soak it calls the exported surface in a
// random mix instead (see script_soak_steps.cpp): transactions under Lock and Unlock, nested, over the
// shared keys and objects, the relay's callbacks, the error texts, the null-text failures. Script 0 also
// owns the shutdown gate in a soak: it alone sets the callback and requests, always under Lock, and makes
// the occasional RegisterUnityPlugin call.
//
// Threads: Frame and Step on the script's own thread; CheckEnd and RemoveAll on the main thread after
// every other thread stopped.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bridge_model.h"
#include "log_ledger.h"
#include "render_traffic.h"

namespace quorl::host {

// What the script threads of a run share.
struct ScriptWorld {
  ScriptWorld(int scriptThreads, bool session)
      : scripts(scriptThreads), traffic(scriptThreads + 1, session), registry(scriptThreads) {}
  const int scripts;
  RenderTraffic traffic;  // producers: one per script thread, then the render thread's follow-ups
  LogLedger log;
  RegistryLedger registry;  // one share per script thread
};

// The keys that the scripts of a soak change under Lock; names that differ only in case differ.
inline constexpr const char* kSharedKeys[] = {
    "shared/0", "shared/1", "shared/2",
    "Shared/2", "",         "shared/a key longer than any small-text buffer of a string class"};

// Scene objects that the scripts of a soak share take handles from here on.
inline constexpr int32_t kSharedHandleBase = 900000;
inline constexpr int32_t kSharedHandles = 8;

// A session's shape, for the frames of a script.
struct SessionPlan {
  int frames = 0;
  int shutdownFrame = 0;
  int eventsPerFrame = 0;
};

class ScriptRole {
 public:
  ScriptRole(ScriptWorld& world, ThreadContext& context);

  void Frame(int frame, const SessionPlan& plan);  // session
  void Step();                                     // soak

  // Main thread: the registry and the map still hold exactly what this thread's model says.
  void CheckEnd(ThreadContext& main);
  // Removes every object of this thread: on its own thread at the end of a session; on the main thread
  // after CheckEnd in a soak, so that the shutdown gate can be tested.
  void RemoveAll(ThreadContext& context);

  ThreadContext& context() const { return context_; }
  int64_t queued() const { return queued_; }
  int64_t spawned() const { return spawned_; }
  int64_t removed() const { return removed_; }
  int64_t lookups() const { return lookups_; }
  int64_t retries() const { return retries_; }

 private:
  struct Object {
    int32_t handle;
    std::string name;
    std::string type;
    int despawnFrame;  // session only
  };

  void AddObject(int despawnFrame);
  void RemoveObject(ThreadContext& context, int32_t handle);
  // Reads the name or type of `handle` into a `size`-byte buffer with guards around it, checks every
  // byte against the model, and returns what the library answered.
  bool CheckBuffer(int32_t handle, bool type, size_t size);
  // The same for the name or the type, into a buffer of a size around the text's length.
  void CheckAnyBuffer(int32_t handle);
  void Inspect(const Object& object);
  void WalkRegistry(ThreadContext& context);
  void CheckMapKey(ThreadContext& context, const std::string& key);
  void SetOwnKey(const std::string& key, int32_t value);
  const Object* FirstWithHandle(int32_t handle) const;

  // The soak's mix, in script_soak_steps.cpp.
  void SceneStep();
  void MapStep();
  void Transaction();
  void SharedMapStep();
  void SharedObjectStep();
  void NullTexts();
  void ConstantsStep();
  void ShutdownStep();
  void Register();

  static constexpr int32_t kHandles = 12;
  static constexpr size_t kMaxObjects = 10;

  ScriptWorld& world_;
  ThreadContext& context_;
  const int index_;
  const int32_t handleBase_;
  LogProducer& log_;
  std::vector<Object> objects_;  // own records, in order of insertion
  int64_t names_ = 0;
  bool emptyPhase_ = false;
  int phaseLeft_ = 0;
  std::vector<std::string> keys_;
  std::map<std::string, int32_t> map_;
  int64_t steps_ = 0;
  int64_t queued_ = 0;
  int64_t spawned_ = 0;
  int64_t removed_ = 0;
  int64_t lookups_ = 0;
  int64_t retries_ = 0;
};

}  // namespace quorl::host
