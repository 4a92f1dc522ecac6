#include "session.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "invariants.h"
#include "log_traffic.h"
#include "playback.h"
#include "render_work.h"

namespace quorl::host {

namespace {

using Clock = std::chrono::steady_clock;

int64_t NowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

std::string Grouped(int64_t value) {
  std::string digits = std::to_string(value < 0 ? -value : value);
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3)
    digits.insert(static_cast<size_t>(i), ",");
  return value < 0 ? "-" + digits : digits;
}

std::string Duration(int64_t ns) {
  char text[32];
  if (ns < 1000000) {
    std::snprintf(text, sizeof(text), "%.1f us", static_cast<double>(ns) / 1e3);
  } else if (ns < 1000000000) {
    std::snprintf(text, sizeof(text), "%.2f ms", static_cast<double>(ns) / 1e6);
  } else {
    std::snprintf(text, sizeof(text), "%.2f s", static_cast<double>(ns) / 1e9);
  }
  return text;
}

// Frames are opened by the main thread and worked by a fixed set of participants; the main thread waits
// until all of them are done before it submits the frame to the render thread.
class FrameGate {
 public:
  explicit FrameGate(int participants) : participants_(participants) {}

  void Open(int frame) {
    std::lock_guard<std::mutex> guard(mutex_);
    frame_ = frame;
    pending_ = participants_;
    changed_.notify_all();
  }
  void WaitAllDone() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return pending_ == 0; });
  }
  void Stop() {
    std::lock_guard<std::mutex> guard(mutex_);
    stopped_ = true;
    changed_.notify_all();
  }
  // A participant's wait for the frame after `last`; -1 once stopped.
  int WaitNext(int last) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return stopped_ || frame_ > last; });
    return frame_ > last ? frame_ : -1;
  }
  void Done() {
    std::lock_guard<std::mutex> guard(mutex_);
    if (--pending_ == 0) changed_.notify_all();
  }

 private:
  const int participants_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int frame_ = -1;
  int pending_ = 0;
  bool stopped_ = false;
};

// The engine's command stream to the render thread: one batch of ids per frame, in the order the
// scripts issued them. The main loop may run at most two frames ahead of rendering, as engines allow.
class RenderQueue {
 public:
  void Submit(std::vector<HandedEvent> batch) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return frames_.size() < 2; });
    frames_.push_back(std::move(batch));
    changed_.notify_all();
  }
  void Close() {
    std::lock_guard<std::mutex> guard(mutex_);
    closed_ = true;
    changed_.notify_all();
  }
  bool Take(std::vector<HandedEvent>* batch) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return closed_ || !frames_.empty(); });
    if (frames_.empty()) return false;
    *batch = std::move(frames_.front());
    frames_.pop_front();
    changed_.notify_all();
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::vector<HandedEvent>> frames_;
  bool closed_ = false;
};

// Ids issued by the scripts during the frame that is open.
class CommandBuffer {
 public:
  void Append(const HandedEvent& event) {
    std::lock_guard<std::mutex> guard(mutex_);
    events_.push_back(event);
  }
  std::vector<HandedEvent> Take() {
    std::lock_guard<std::mutex> guard(mutex_);
    std::vector<HandedEvent> taken;
    taken.swap(events_);
    return taken;
  }

 private:
  std::mutex mutex_;
  std::vector<HandedEvent> events_;
};

// What the interface shutdown callback observed. It runs on whichever thread removed the last object,
// under the bridge mutex; the main thread reads the record after that frame, through the frame gate.
struct ShutdownRecord {
  std::atomic<int> calls{0};
  int64_t requestedNs = 0;
  int requestedFrame = -1;
  int liveAtRequest = 0;
  int64_t completedNs = 0;
  int completedFrame = -1;
  std::string completedOn;
  int countInside = -1;
};

const BridgeApi* g_api = nullptr;
ShutdownRecord* g_shutdown = nullptr;
thread_local const char* t_threadName = "main";
thread_local int t_frame = -1;

void OnInterfaceShutdown() {
  ShutdownRecord& record = *g_shutdown;
  const int call = record.calls.fetch_add(1) + 1;
  if (call == 1) {
    record.completedNs = NowNs();
    record.completedFrame = t_frame;
    record.completedOn = t_threadName;
  }
  // The callback runs with the bridge mutex held; asking the registry again works because it is recursive.
  record.countInside = g_api->Scene_Objects_GetCount();
}

const char* const kSceneCheck = "scene look-ups agree with what the scripts added";
const char* const kObjectKinds[] = {"MeshRenderer", "QuorlVolumetricPlayer", "AudioSource", "Light",
                                    "ParticleSystem"};

struct LiveObject {
  int32_t handle;
  std::string name;
  std::string type;
  int despawnFrame;
};

class ScriptThread {
 public:
  ScriptThread(int index, const BridgeApi& api, Invariants& invariants, RenderWork& render,
               CommandBuffer& commands, const SessionOptions& options, int shutdownFrame)
      : index_(index),
        name_("script-" + std::to_string(index)),
        api_(api),
        invariants_(invariants),
        render_(render),
        commands_(commands),
        options_(options),
        shutdownFrame_(shutdownFrame),
        rng_(options.seed * 7919u + static_cast<uint32_t>(index)),
        log_(api, name_),
        queuedKey_("script." + std::to_string(index) + ".queued") {
    api_.Map_Add(queuedKey_.c_str(), 0);
  }

  void Frame(int frame) {
    t_frame = frame;
    const int32_t published = api_.Map_GetValue("engine.frame");
    invariants_.Check(
        "every script reads the frame the engine published", published == frame,
        name_ + " read frame " + std::to_string(published) + " during frame " + std::to_string(frame));
    QueueRenderWork(frame);
    if (frame < shutdownFrame_) {
      LiveScene(frame);
    } else {
      TearDown(frame);
    }
    if (!live_.empty()) Inspect(live_[rng_() % live_.size()]);
    if ((frame + index_ * 7) % 25 == 0) Enumerate();
  }

  void Run(FrameGate& gate) {
    t_threadName = name_.c_str();
    for (int frame = gate.WaitNext(-1); frame >= 0; frame = gate.WaitNext(frame)) {
      Frame(frame);
      gate.Done();
    }
  }

  const std::string& name() const { return name_; }
  const std::string& queuedKey() const { return queuedKey_; }
  const LogProducer& log() const { return log_; }
  int64_t queued() const { return queued_; }
  int64_t spawned() const { return spawned_; }
  int64_t removed() const { return removed_; }
  int64_t lookups() const { return lookups_; }
  int64_t retries() const { return retries_; }
  size_t live() const { return live_.size(); }

 private:
  void QueueRenderWork(int frame) {
    const int count = options_.eventsPerFrame / 2 + static_cast<int>(rng_() % (options_.eventsPerFrame + 1));
    for (int i = 0; i < count; ++i) {
      commands_.Append(render_.Queue(static_cast<Shape>(rng_() % kShapeCount), frame));
    }
    queued_ += count;
    // A read followed by a write is only one step for the other threads under Lock and Unlock.
    api_.Lock();
    api_.Map_SetValue("render.queuedByScripts", api_.Map_GetValue("render.queuedByScripts") + count);
    api_.Unlock();
    api_.Map_SetValue(queuedKey_.c_str(), static_cast<int32_t>(queued_));
  }

  void Spawn(int frame) {
    const int number = nextObject_++;
    const char* kind = kObjectKinds[rng_() % 5];
    LiveObject object{(index_ + 1) * 100000 + number, name_ + "/" + kind + std::to_string(number), kind,
                      frame + 5 + static_cast<int>(rng_() % 36)};
    api_.Scene_Objects_Add(object.handle, object.name.c_str(), object.type.c_str());
    live_.push_back(object);
    ++spawned_;
    api_.Lock();
    api_.Map_SetValue("scene.spawned", api_.Map_GetValue("scene.spawned") + 1);
    api_.Unlock();
    if (number % 4 == 0) log_.Add(0, "spawned " + object.name);
  }

  void Remove(size_t position) {
    api_.Scene_Objects_Remove(live_[position].handle);
    live_.erase(live_.begin() + static_cast<std::ptrdiff_t>(position));
    ++removed_;
  }

  void LiveScene(int frame) {
    for (size_t i = live_.size(); i-- > 0;) {
      if (live_[i].despawnFrame <= frame) Remove(i);
    }
    // At least two objects each, so the registry is never empty while no shutdown is under way.
    while (live_.size() < 2)
      Spawn(frame);
    if (live_.size() < 8 && rng_() % 3 == 0) Spawn(frame);
  }

  void TearDown(int frame) {
    if (frame == options_.frames - 1) {
      while (!live_.empty())
        Remove(live_.size() - 1);
    } else if (!live_.empty()) {
      Remove(0);
    }
  }

  // Reads a text through a caller's buffer the way a careful host does: a small buffer first, and a
  // larger one while the answer says the text was cut.
  std::string ReadText(bool (*read)(int32_t, char*, int32_t), int32_t handle, const std::string& expected) {
    int32_t size = 8;
    for (;;) {
      std::vector<char> buffer(static_cast<size_t>(size), 'x');
      const bool whole = read(handle, buffer.data(), size);
      if (whole) return std::string(buffer.data());
      const size_t kept = static_cast<size_t>(size - 1);
      invariants_.Check("a cut text keeps its first size-1 characters",
                        expected.size() >= kept && std::string(buffer.data()) == expected.substr(0, kept),
                        "handle " + std::to_string(handle) + " gave \"" + buffer.data() + "\" for \"" +
                            expected + "\" in " + std::to_string(size) + " bytes");
      ++retries_;
      if (size >= 4096) return std::string();
      size *= 2;
    }
  }

  void Inspect(const LiveObject& object) {
    ++lookups_;
    const std::string name = ReadText(api_.Scene_Objects_GetNameFromHandle, object.handle, object.name);
    const std::string type = ReadText(api_.Scene_Objects_GetTypeFromHandle, object.handle, object.type);
    const int32_t found = api_.Scene_Objects_GetHandleFromName(object.name.c_str());
    invariants_.Check(kSceneCheck, name == object.name && type == object.type && found == object.handle,
                      "handle " + std::to_string(object.handle) + " read back as \"" + name + "\" / \"" +
                          type + "\", its name finds " + std::to_string(found));
  }

  // Walks the whole registry as one step for the other threads, as the count is only current under Lock.
  void Enumerate() {
    std::set<int32_t> handles;
    api_.Lock();
    const int32_t count = api_.Scene_Objects_GetCount();
    for (int32_t i = 0; i < count; ++i)
      handles.insert(api_.Scene_Objects_GetHandleAtIndex(i));
    api_.Unlock();
    bool allThere = true;
    for (const LiveObject& object : live_)
      allThere = allThere && handles.count(object.handle) == 1;
    invariants_.Check(kSceneCheck, allThere && count >= static_cast<int32_t>(live_.size()),
                      name_ + " did not find all of its " + std::to_string(live_.size()) +
                          " objects among the " + std::to_string(count) + " listed");
  }

  const int index_;
  const std::string name_;
  const BridgeApi& api_;
  Invariants& invariants_;
  RenderWork& render_;
  CommandBuffer& commands_;
  const SessionOptions& options_;
  const int shutdownFrame_;
  std::mt19937 rng_;
  LogProducer log_;
  const std::string queuedKey_;
  std::vector<LiveObject> live_;
  int nextObject_ = 0;
  int64_t queued_ = 0;
  int64_t spawned_ = 0;
  int64_t removed_ = 0;
  int64_t lookups_ = 0;
  int64_t retries_ = 0;
};

class Progress {
 public:
  explicit Progress(bool enabled) : enabled_(enabled) {}
  void Show(int frame, int frames, int64_t queued, int64_t ran, int objects, int64_t log,
            const char* shutdown) {
    if (!enabled_) return;
    const int64_t now = NowNs();
    if (frame + 1 < frames && now - lastNs_ < 50000000) return;
    lastNs_ = now;
    std::fprintf(stderr,
                 "\r\033[2K  frame %d/%d   events %s queued, %s ran   objects %d   log %s   shutdown %s",
                 frame + 1, frames, Grouped(queued).c_str(), Grouped(ran).c_str(), objects,
                 Grouped(log).c_str(), shutdown);
    std::fflush(stderr);
  }
  void Clear() {
    if (!enabled_) return;
    std::fprintf(stderr, "\r\033[2K");
    std::fflush(stderr);
  }

 private:
  bool enabled_;
  int64_t lastNs_ = 0;
};

void StartupChecks(const BridgeApi& api, Invariants& invariants) {
  invariants.Check("GetUnityRenderDevice gives zero", api.GetUnityRenderDevice() == 0);

  const char* success = api.QuorlError_ToString(0);
  const char* decoder = api.QuorlError_ToString(204);
  const char* unknown = api.QuorlError_ToString(206);
  invariants.Check(
      "error codes read as their messages",
      success != nullptr && std::string(success) == "Success" && decoder != nullptr &&
          std::string(decoder) == "Failed to find a valid decoder for the loaded representation" &&
          unknown != nullptr && unknown[0] == '\0',
      "codes 0, 204 and 206 did not give \"Success\", the decoder message and the empty text");

  // Add never overwrites and SetValue never creates: the engine's frame counter relies on both.
  api.Map_Add("engine.frame", 0);
  api.Map_Add("engine.frame", 99);
  api.Map_SetValue("engine.notAdded", 5);
  invariants.Check("the named-integer map keeps Add and SetValue apart",
                   api.Map_GetValue("engine.frame") == 0 && !api.Map_Contains("engine.notAdded") &&
                       api.Map_GetValue("engine.notAdded") == 0,
                   "a second Add overwrote, or SetValue created an entry");
  api.Map_Add("render.queuedByScripts", 0);
  api.Map_Add("scene.spawned", 0);
}

void PrintPolicyPhase(const char* title, const PolicyPhaseReport& phase, const std::string& keyBefore,
                      bool host) {
  std::printf("                  %s: %d assets, %d offers, %d accepted, %d refused\n", title, phase.assets,
              phase.offers, phase.accepted, phase.refused);
  if (host) return;
  std::string line = "                    " + std::to_string(phase.notVolumetric) + " not volumetric";
  if (phase.emptyKeyAccepted > 0) {
    line +=
        ", " + std::to_string(phase.emptyKeyAccepted) + " volumetric with an empty key (choice left open)";
  }
  std::printf("%s\n", line.c_str());
  if (!phase.keyFixed.empty()) {
    std::printf("                    key \"%s\" fixed by asset %d (%s)\n", phase.keyFixed.c_str(),
                phase.keyFixedByAsset, phase.keyFixedMediaType.c_str());
  } else if (!keyBefore.empty()) {
    std::printf("                    key \"%s\" still held from before\n", keyBefore.c_str());
  }
  std::printf("                    %d with that key accepted, %d with another key refused\n",
              phase.sameKeyAccepted, phase.otherKeyRefused);
}

}  // namespace

bool RunSession(const BridgeApi& api, const SessionOptions& options) {
  Invariants invariants;
  g_api = &api;
  ShutdownRecord shutdown;
  g_shutdown = &shutdown;

  const int frames = options.frames;
  const int hostCallbacksFrom = frames / 3;
  const int hostCallbacksUntil = 2 * frames / 3;
  const int shutdownFrame = std::max(1, frames * 3 / 5);

  std::printf(
      "quorl-host: %d frames, %d script threads, %d render events per thread and frame, seed %u, %s\n",
      frames, options.scriptThreads, options.eventsPerFrame, options.seed,
      options.framesPerSecond > 0
          ? (std::to_string(static_cast<int>(options.framesPerSecond)) + " fps").c_str()
          : "unpaced");
  std::fflush(stdout);

  // Start-up as the engine does it: the plug-in registers and announces itself.
  api.RegisterUnityPlugin(2022, 3, 0, "quorl-host");
  std::fflush(stdout);
  const int64_t startNs = NowNs();
  StartupChecks(api, invariants);
  api.SetFunc_InterfaceShutdown(&OnInterfaceShutdown);

  const size_t capacity = static_cast<size_t>(frames) * static_cast<size_t>(options.scriptThreads) *
                              static_cast<size_t>(options.eventsPerFrame + options.eventsPerFrame / 2 + 1) *
                              2 +
                          64;
  RenderWork render(api, invariants, capacity);
  Playback playback(api, invariants, frames, options.seed, hostCallbacksFrom, hostCallbacksUntil);
  LogPoller poller(api, invariants);
  poller.Expect(&playback.playbackLog());
  poller.Expect(&playback.hostCallbackLog());

  CommandBuffer commands;
  std::vector<std::unique_ptr<ScriptThread>> scripts;
  for (int i = 0; i < options.scriptThreads; ++i) {
    scripts.push_back(
        std::make_unique<ScriptThread>(i, api, invariants, render, commands, options, shutdownFrame));
    poller.Expect(&scripts.back()->log());
  }

  FrameGate gate(options.scriptThreads + 1);
  RenderQueue renderQueue;
  int64_t framesRendered = 0;
  std::thread renderThread([&] {
    t_threadName = "render";
    std::vector<HandedEvent> batch;
    while (renderQueue.Take(&batch)) {
      // Follow-ups queued by last frame's render work go first, as the engine would issue them.
      for (const HandedEvent& event : render.TakeFollowUps())
        render.Fire(event);
      for (const HandedEvent& event : batch)
        render.Fire(event);
      ++framesRendered;
    }
    for (std::vector<HandedEvent> rest = render.TakeFollowUps(); !rest.empty();
         rest = render.TakeFollowUps()) {
      for (const HandedEvent& event : rest)
        render.Fire(event);
    }
  });
  std::vector<std::thread> scriptThreads;
  for (auto& script : scripts)
    scriptThreads.emplace_back([&gate, &script] { script->Run(gate); });
  std::thread playbackThread([&] {
    t_threadName = "playback";
    int last = -1;
    for (int frame = gate.WaitNext(-1); frame >= 0; frame = gate.WaitNext(frame)) {
      t_frame = frame;
      playback.Frame(frame);
      last = frame;
      gate.Done();
    }
    playback.Drain(last);
  });

  Progress progress(options.progress);
  int peakObjects = 0;
  const auto period = options.framesPerSecond > 0
                          ? std::chrono::nanoseconds(static_cast<int64_t>(1e9 / options.framesPerSecond))
                          : std::chrono::nanoseconds(0);
  const Clock::time_point firstFrame = Clock::now();
  for (int frame = 0; frame < frames; ++frame) {
    t_frame = frame;
    if (frame == hostCallbacksFrom) playback.SetHostCallbacks(true);
    if (frame == hostCallbacksUntil) playback.SetHostCallbacks(false);
    if (frame == shutdownFrame) {
      // Requested while objects exist: it must wait for the last of them to go.
      api.Lock();
      shutdown.liveAtRequest = api.Scene_Objects_GetCount();
      shutdown.requestedNs = NowNs();
      shutdown.requestedFrame = frame;
      api.Trigger_InterfaceShutdown();
      const int callsNow = shutdown.calls.load();
      api.Unlock();
      invariants.Check("a shutdown requested while objects exist waits for the last one",
                       shutdown.liveAtRequest > 0 && callsNow == 0,
                       std::to_string(shutdown.liveAtRequest) + " objects, callback called " +
                           std::to_string(callsNow) + " times at once");
    }
    api.Map_SetValue("engine.frame", frame);
    gate.Open(frame);
    gate.WaitAllDone();
    peakObjects = std::max(peakObjects, static_cast<int>(api.Scene_Objects_GetCount()));
    renderQueue.Submit(commands.Take());
    poller.Poll();
    const int calls = shutdown.calls.load();
    progress.Show(frame, frames, render.QueuedCount(), render.RanCount(), api.Scene_Objects_GetCount(),
                  poller.delivered(),
                  frame < shutdownFrame ? "not requested"
                  : calls == 0          ? "pending"
                                        : "done");
    if (period.count() > 0) std::this_thread::sleep_until(firstFrame + period * (frame + 1));
  }
  gate.Stop();
  for (std::thread& thread : scriptThreads)
    thread.join();
  playbackThread.join();
  renderQueue.Close();
  renderThread.join();
  progress.Clear();
  poller.Poll();
  const int64_t sessionNs = NowNs() - startNs;

  // Accounting, now that every thread has stopped.
  const RenderStats renderStats = render.Finish();
  const PlaybackReport playbackReport = playback.Finish();
  poller.Finish();

  int64_t queuedByScripts = 0, spawned = 0, removed = 0, lookups = 0, retries = 0;
  bool perThreadCounts = true;
  for (const auto& script : scripts) {
    queuedByScripts += script->queued();
    spawned += script->spawned();
    removed += script->removed();
    lookups += script->lookups();
    retries += script->retries();
    perThreadCounts = perThreadCounts && api.Map_GetValue(script->queuedKey().c_str()) == script->queued();
  }
  invariants.Check(
      "shared integers agree across threads",
      perThreadCounts && api.Map_GetValue("render.queuedByScripts") == queuedByScripts &&
          api.Map_GetValue("scene.spawned") == spawned && api.Map_GetValue("engine.frame") == frames - 1,
      "render.queuedByScripts " + std::to_string(api.Map_GetValue("render.queuedByScripts")) + " against " +
          std::to_string(queuedByScripts) + ", scene.spawned " +
          std::to_string(api.Map_GetValue("scene.spawned")) + " against " + std::to_string(spawned));

  const int remaining = api.Scene_Objects_GetCount();
  invariants.Check("the shutdown notice comes once, when the last object goes",
                   shutdown.calls.load() == 1 && remaining == 0 && shutdown.countInside == 0 &&
                       shutdown.completedFrame >= shutdownFrame && spawned == removed,
                   "callback called " + std::to_string(shutdown.calls.load()) + " times, " +
                       std::to_string(remaining) + " objects left, " + std::to_string(shutdown.countInside) +
                       " seen inside the callback");
  // A second request on the empty registry is carried out at once, like the first would have been.
  api.Trigger_InterfaceShutdown();
  const int callsAfterSecond = shutdown.calls.load();
  invariants.Check("a shutdown requested with no objects completes at once", callsAfterSecond == 2,
                   "callback called " + std::to_string(callsAfterSecond) + " times in all");
  api.SetFunc_InterfaceShutdown(nullptr);

  // The summary.
  std::printf("\nquorl-host: %s frames in %s\n\n", Grouped(frames).c_str(), Duration(sessionNs).c_str());
  int64_t queuedAll = 0;
  for (int64_t count : renderStats.queued)
    queuedAll += count;
  std::printf("Render events     %s queued, %s fired, %s ran: lost %s, ran twice %s, under a wrong id %s\n",
              Grouped(queuedAll).c_str(), Grouped(renderStats.fired).c_str(),
              Grouped(renderStats.ran).c_str(), Grouped(renderStats.lost).c_str(),
              Grouped(renderStats.ranTwice).c_str(), Grouped(renderStats.wrongId).c_str());
  std::printf("                  ");
  for (int shape = 0; shape < kShapeCount; ++shape) {
    std::printf("%s%s %s", shape == 0 ? "" : " | ", ShapeName(static_cast<Shape>(shape)),
                Grouped(renderStats.queued[shape]).c_str());
  }
  // Reusing the running id needs every lower slot pending, which a session rarely arranges.
  const std::string ownId = renderStats.followUpsOnOwnId == 0 ? std::string()
                                                              : " (" + Grouped(renderStats.followUpsOnOwnId) +
                                                                    " got the id they ran under)";
  std::printf("\n                  %s follow-ups queued from inside render work%s\n",
              Grouped(renderStats.followUps).c_str(), ownId.c_str());
  std::printf("                  ids %d..%d (slots are reused as they free up), %s frames rendered\n",
              renderStats.lowestId, renderStats.highestId, Grouped(framesRendered).c_str());
  std::printf("  latency         queue to run: p50 %s, p99 %s, max %s\n",
              Duration(renderStats.latencyP50).c_str(), Duration(renderStats.latencyP99).c_str(),
              Duration(renderStats.latencyMax).c_str());

  std::printf(
      "Scene objects     %s added, %s removed, at most %d at once\n"
      "                  %s look-ups by handle and name; %s retries with a larger buffer after a cut text\n",
      Grouped(spawned).c_str(), Grouped(removed).c_str(), peakObjects, Grouped(lookups).c_str(),
      Grouped(retries).c_str());
  if (shutdown.completedFrame >= 0) {
    std::printf(
        "Shutdown          requested at frame %d with %d objects; notice at frame %d, %s later,\n"
        "                  on %s as it removed the last object\n",
        shutdown.requestedFrame, shutdown.liveAtRequest, shutdown.completedFrame,
        Duration(shutdown.completedNs - shutdown.requestedNs).c_str(), shutdown.completedOn.c_str());
  } else {
    std::printf("Shutdown          requested at frame %d with %d objects; no notice came\n",
                shutdown.requestedFrame, shutdown.liveAtRequest);
  }
  std::printf("                  requested again on the empty registry: %s\n",
              callsAfterSecond == 2 ? "notice at once" : "no notice");

  std::printf("Representations   offers decided in three phases\n");
  PrintPolicyPhase("built-in policy, no host callbacks", playbackReport.phases[0], "", false);
  PrintPolicyPhase("host callbacks set (this host refuses volumetric \"high\")", playbackReport.phases[1], "",
                   true);
  PrintPolicyPhase("callbacks cleared, built-in policy again", playbackReport.phases[2],
                   playbackReport.phases[1].keyAtEnd, false);
  std::printf(
      "Asset events      %d assets: %d ready, %d failed\n"
      "                  %s initialisations (%s reached the host), %s data chunks (%s reached the host)\n",
      playbackReport.assetsStarted, playbackReport.assetsReady, playbackReport.assetsFailed,
      Grouped(playbackReport.initialisedSent).c_str(), Grouped(playbackReport.initialisedReachedHost).c_str(),
      Grouped(playbackReport.chunksSent).c_str(), Grouped(playbackReport.chunksReachedHost).c_str());
  std::printf(
      "Named integers    render.queuedByScripts %s, scene.spawned %s\n"
      "                  playback.assetsReady %d, host.assetsInitialised %d\n",
      Grouped(api.Map_GetValue("render.queuedByScripts")).c_str(),
      Grouped(api.Map_GetValue("scene.spawned")).c_str(), api.Map_GetValue("playback.assetsReady"),
      api.Map_GetValue("host.assetsInitialised"));
  std::printf("Log buffer        %s entries polled frame by frame, %s of them warnings or errors\n",
              Grouped(poller.delivered()).c_str(),
              Grouped(poller.deliveredAtLevel(2) + poller.deliveredAtLevel(3)).c_str());
  if (!poller.lastMessage().empty())
    std::printf("                  last: %s\n", poller.lastMessage().c_str());

  const std::vector<Invariants::Row> rows = invariants.Rows();
  const int failed = invariants.FailedCount();
  std::printf("\nInvariants\n");
  for (const Invariants::Row& row : rows) {
    std::printf("  %s  %s\n", row.failed == 0 ? "ok    " : "FAILED", row.name.c_str());
    for (const std::string& detail : row.details)
      std::printf("            %s\n", detail.c_str());
  }
  if (failed == 0) {
    std::printf("\nAll %zu invariants hold.\n", rows.size());
  } else {
    std::printf("\n%d of %zu invariants FAILED.\n", failed, rows.size());
  }
  std::fflush(stdout);
  g_shutdown = nullptr;
  return failed == 0;
}

}  // namespace quorl::host
