// The roles of quorl-host's threads and the World they share; each role plays a session a frame at a time
// (Frame) or a soak a random step at a time (Step).
//
// ScriptRole: a game script. It queues render work, keeps its own scene objects and keys (so its model is
// exact) and log entries, and changes shared keys and objects under Lock. Each frame of a session it reads
// the published frame, hands over its render work, spawns and despawns objects, reads one back through a
// small buffer first and a larger one while the text was cut, and now and then walks the registry; after
// the shutdown request it tears down. A soak mixes transactions under nested Lock, the relay's callbacks,
// constants and null texts; script 0 owns the shutdown gate and RegisterUnityPlugin.
//
// PlaybackRole: the playback library. It streams assets through the StaticHandler_* exports: initialised,
// representations offered, data in chunks. A session has three phases: the built-in policy decides, then
// the host's callbacks, then the policy with the key as it stood. In a soak others change the callbacks
// meanwhile, calls go under Lock or not, and the float arguments vary bit by bit.
//
// RunSession and RunSoak are the two modes. In a session the main thread plays the engine's main loop: it
// registers the plug-in, runs each frame with the script, playback and render threads, polls the log
// buffer, sets and clears the host's callbacks, requests the shutdown part-way, paces the frames and prints
// a summary. A soak calls every export from all roles at once, the log poller a thread of its own, and
// reports operations per second. Each joins its threads and returns true when every check held.
//
// Threads: each role on its own thread; CheckEnd, RemoveAll, Finish and the summaries on the main thread
// once every other has stopped, where the World is built too.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "bridge_model.h"
#include "render_traffic.h"

namespace quorl::host {

// The keys and scene objects that the scripts of a soak share; names that differ only in case differ.
inline constexpr const char* kSharedKeys[] = {
    "shared/0", "shared/1", "shared/2",
    "Shared/2", "",         "shared/a key longer than any small-text buffer of a string class"};
inline constexpr int32_t kSharedHandleBase = 900000;
inline constexpr int32_t kSharedHandles = 8;

// A session's shape; the host's callbacks are set over frames [hostCallbacksFrom, hostCallbacksUntil).
struct SessionPlan {
  int frames, eventsPerFrame, shutdownFrame, hostCallbacksFrom, hostCallbacksUntil;
};
struct World;

class ScriptRole {
 public:
  ScriptRole(World& world, ThreadContext& context);
  void Frame(int frame, const SessionPlan& plan);
  void Step();
  // Main thread: the registry and the map still hold exactly what this thread's model says.
  void CheckEnd(ThreadContext& main);
  void RemoveAll(ThreadContext& context);

  ThreadContext& context() const { return context_; }
  int64_t queued = 0, spawned = 0, removed = 0, lookups = 0, retries = 0;

 private:
  struct Object {
    int32_t handle;
    std::string name, type;
    int despawnFrame;  // -1 in a soak
  };
  void AddObject(int despawnFrame);
  void RemoveObject(ThreadContext& context, int32_t handle);
  const Object* FirstWithHandle(int32_t handle) const;
  // Reads the name or type of `handle` into a `size`-byte buffer with guards around it, checks every byte
  // against the model, and returns what the library answered.
  bool CheckBuffer(int32_t handle, bool type, size_t size);
  void CheckAnyBuffer(int32_t handle);  // into a buffer of a size around the text's length
  void Inspect(const Object& object);
  void WalkRegistry(ThreadContext& context);  // under Lock
  void SceneStep();
  void SharedObjectStep();
  void Transaction();
  void NullTexts();

  World& world_;
  ThreadContext& context_;
  const int index_;
  const int32_t handleBase_;  // own handles are handleBase_ + 1 ... + kHandles
  LogProducer& log_;
  std::vector<Object> objects_;  // own records, in order of insertion
  int64_t names_ = 0, steps_ = 0;
  bool emptyPhase_ = false;
  int phaseLeft_ = 0;
  std::vector<std::string> keys_;
  KeyModel keyModel_;
  static constexpr int32_t kHandles = 12;
};

class PlaybackRole {
 public:
  PlaybackRole(ThreadContext& context, LogLedger& log, const SessionPlan* session);  // null: a soak
  void Frame(int frame);
  void Step();
  void Drain();  // after the last frame or step: lets the assets still streaming finish
  void Finish(ThreadContext& main);
  void PrintSummary() const;

 private:
  struct Offer {
    std::string mediaType, selectionKey;
    RepresentationDescriptor descriptor{};
  };
  struct Asset {
    int index = 0;
    std::string label;
    std::vector<Offer> offers;  // filled before any descriptor points into it
    int chosen = -1;            // the first accepted offer
    int chunk = 0;
    unsigned char data[64] = {};
  };
  struct PhaseReport {
    int assets = 0, offers = 0, accepted = 0, refused = 0;
    int outcomes[5] = {};  // by PolicyOutcome, for the offers the built-in policy decided
    std::string keyFixed, keyAtEnd;
  };
  void StartAsset(int phase);
  void DeliverChunks();
  bool Relay(RelayEvent& event);
  void NullKey(Offer& offer, const Asset& asset);

  ThreadContext& context_;
  LogLedger& ledger_;
  LogProducer& log_;
  LogProducer& hostLog_;
  const SessionPlan* session_;
  std::string policyKey_;        // what the built-in policy is predicted to hold
  std::deque<Asset> streaming_;  // deque: an asset's address is handed to the library and must not move
  PhaseReport phases_[3];
  int assetsStarted_ = 0, assetsReady_ = 0, assetsFailed_ = 0;
  int64_t initialisedSent_ = 0, initialisedReached_ = 0, chunksSent_ = 0, chunksReached_ = 0;
};

// What a run shares: the main thread's context and one per role thread, the roles, and the ledgers.
struct World {
  World(const BridgeApi& api, int scriptThreads, uint32_t seed, const SessionPlan* session);
  ThreadContext main;
  std::vector<std::unique_ptr<ThreadContext>> contexts;  // the scripts', then playback, render, log poller
  RenderTraffic traffic;  // producers: one per script thread, then the render thread's follow-ups
  LogLedger log;
  RegistryLedger registry;  // one share per script thread
  std::vector<std::unique_ptr<ScriptRole>> scripts;
  std::unique_ptr<PlaybackRole> playback;

  ThreadContext& playbackContext() { return *contexts[scripts.size()]; }
  ThreadContext& renderContext() { return *contexts[scripts.size() + 1]; }
  ThreadContext& pollerContext() { return *contexts[scripts.size() + 2]; }
  std::vector<const ThreadContext*> All() const;
  // The end checks of both modes, once every other thread has stopped.
  void Finish(bool session);
};

struct Options {
  int frames = 300;
  int scriptThreads = 4;
  int eventsPerFrame = 12;  // render events each script thread queues per frame, on average
  uint32_t seed = 1;
  double framesPerSecond = 100;  // 0 runs unpaced, as fast as the threads go
  double soakSeconds = 0;        // 0: a session
  bool progress = false;         // a session's progress line, a soak's line each second
};
bool RunSession(const BridgeApi& api, const Options& options);
bool RunSoak(const BridgeApi& api, const Options& options);

}  // namespace quorl::host
