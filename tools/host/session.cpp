#include "session.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "playback_role.h"
#include "script_role.h"

namespace quorl::host {

namespace {

std::string Duration(int64_t ns) {
  if (ns < 1000000) return Printf("%.1f us", static_cast<double>(ns) / 1e3);
  if (ns < 1000000000) return Printf("%.2f ms", static_cast<double>(ns) / 1e6);
  return Printf("%.2f s", static_cast<double>(ns) / 1e9);
}

// Frames are opened by the main thread and worked by a fixed set of participants; the main thread waits
// until all of them are done before it opens the next.
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

void StartupChecks(ThreadContext& main) {
  const intptr_t device = CALL(main, GetUnityRenderDevice)();
  EXPECT(main, kRenderDevice, device == 0, "saw %lld", static_cast<long long>(device));
  for (const int32_t code : {0, 204, 206}) {
    const char* text = CALL(main, QuorlError_ToString)(code);
    const char* expected = code == 0     ? "Success"
                           : code == 204 ? "Failed to find a valid decoder for the loaded representation"
                                         : "";
    EXPECT(main, kErrorText, text != nullptr && std::string(text) == expected, "code %d gave \"%s\"", code,
           text != nullptr ? text : "(null)");
  }
  // Add never overwrites and SetValue never creates: the engine's frame counter relies on both.
  CALL(main, Map_Add)("engine.frame", 0);
  CALL(main, Map_Add)("engine.frame", 99);
  CALL(main, Map_SetValue)("engine.notAdded", 5);
  const int32_t frame = CALL(main, Map_GetValue)("engine.frame");
  const bool created =
      CALL(main, Map_Contains)("engine.notAdded") || CALL(main, Map_GetValue)("engine.notAdded") != 0;
  EXPECT(main, kMapModel, frame == 0 && !created,
         "a second Add left engine.frame at %d; SetValue %s engine.notAdded", frame,
         created ? "created" : "did not create");
  Model().sharedMap["engine.frame"] = 0;
}

}  // namespace

bool RunSession(const BridgeApi& api, const SessionOptions& options) {
  const int frames = options.frames;
  const SessionPlan plan{frames, std::max(1, frames * 3 / 5), options.eventsPerFrame};
  const int hostCallbacksFrom = frames / 3;
  const int hostCallbacksUntil = 2 * frames / 3;
  std::printf(
      "quorl-host: %d frames, %d script threads, %d render events per thread and frame, seed %u, %s\n",
      frames, options.scriptThreads, options.eventsPerFrame, options.seed,
      options.framesPerSecond > 0 ? Printf("%g fps", options.framesPerSecond).c_str() : "unpaced");
  std::fflush(stdout);

  // Start-up as the engine does it: the plug-in registers and announces itself.
  ThreadContext main(api, Role::kMain, 0, options.seed);
  SetCurrentContext(&main);
  CALL(main, RegisterUnityPlugin)(2022, 3, 0, "quorl-host");
  std::fflush(stdout);
  const int64_t startNs = NowNs();
  StartupChecks(main);
  UnderLock(main, false, [&] { SetShutdownCallback(main, kFirst); });

  ScriptWorld world(options.scriptThreads, true);
  std::vector<std::unique_ptr<ThreadContext>> contexts;
  for (int i = 0; i < options.scriptThreads + 2; ++i) {
    const Role role = i < options.scriptThreads    ? Role::kScript
                      : i == options.scriptThreads ? Role::kPlayback
                                                   : Role::kRender;
    contexts.push_back(
        std::make_unique<ThreadContext>(api, role, i, options.seed * 7919u + static_cast<uint32_t>(i)));
  }
  std::vector<std::unique_ptr<ScriptRole>> scripts;
  for (int i = 0; i < options.scriptThreads; ++i)
    scripts.push_back(std::make_unique<ScriptRole>(world, *contexts[static_cast<size_t>(i)]));
  ThreadContext& playbackContext = *contexts[static_cast<size_t>(options.scriptThreads)];
  ThreadContext& renderContext = *contexts.back();
  PlaybackRole playback(playbackContext, world.log, frames);

  // Every thread works each frame the main thread opens; the render thread fires what the frame before
  // handed over, as an engine renders one frame behind its main loop.
  FrameGate gate(options.scriptThreads + 2);
  std::vector<HandedEvent> toRender;  // written by the main thread between frames
  int64_t framesRendered = 0;
  std::vector<std::thread> threads;
  for (auto& script : scripts) {
    threads.emplace_back([&gate, &script, &plan] {
      for (int frame = gate.WaitNext(-1); frame >= 0; frame = gate.WaitNext(frame)) {
        script->Frame(frame, plan);
        gate.Done();
      }
    });
  }
  threads.emplace_back([&] {
    SetCurrentContext(&playbackContext);
    for (int frame = gate.WaitNext(-1); frame >= 0; frame = gate.WaitNext(frame)) {
      playbackContext.frame = frame;
      playback.Frame(frame, frame < hostCallbacksFrom ? 0 : frame < hostCallbacksUntil ? 1 : 2);
      gate.Done();
    }
    playback.Drain();
  });
  threads.emplace_back([&] {
    SetCurrentContext(&renderContext);
    world.traffic.StartFiring(renderContext);
    for (int frame = gate.WaitNext(-1);; frame = gate.WaitNext(frame)) {
      for (const HandedEvent& event : toRender)
        world.traffic.Fire(renderContext, event);
      framesRendered += toRender.empty() ? 0 : 1;
      if (frame < 0) break;
      gate.Done();
    }
    // The follow-ups that the last frame's render work queued.
    for (auto rest = world.traffic.TakeHandedOver(); !rest.empty(); rest = world.traffic.TakeHandedOver()) {
      for (const HandedEvent& event : rest)
        world.traffic.Fire(renderContext, event);
    }
  });

  BridgeModel& model = Model();
  int liveAtRequest = 0;
  int64_t requestedNs = 0;
  int peakObjects = 0;
  int64_t progressNs = 0;
  const auto period = std::chrono::nanoseconds(
      options.framesPerSecond > 0 ? static_cast<int64_t>(1e9 / options.framesPerSecond) : 0);
  const auto firstFrame = std::chrono::steady_clock::now();
  for (int frame = 0; frame < frames; ++frame) {
    main.frame = frame;
    UnderLock(main, false, [&] {
      if (frame == hostCallbacksFrom || frame == hostCallbacksUntil) {
        for (const RelayKind kind : {kInitialised, kSelect, kData})
          SetRelayCallback(main, kind, frame == hostCallbacksFrom ? kFirst : kNone);
      }
      if (frame == plan.shutdownFrame) {
        // Requested while objects exist: it must wait for the last of them to go.
        liveAtRequest = CALL(main, Scene_Objects_GetCount)();
        requestedNs = NowNs();
        TriggerShutdown(main);
      }
      SetShared(main, "engine.frame", frame);
    });
    gate.Open(frame);
    gate.WaitAllDone();
    peakObjects = std::max(peakObjects, static_cast<int>(CALL(main, Scene_Objects_GetCount)()));
    toRender = world.traffic.TakeHandedOver();
    UnderLock(main, false, [&] { world.log.Poll(main, INT_MAX, nullptr); });
    if (options.progress && (frame + 1 == frames || NowNs() - progressNs > 50000000)) {
      progressNs = NowNs();
      int64_t queued = 0;
      for (const auto& script : scripts)
        queued += script->queued();
      std::fprintf(stderr,
                   "\r\033[2K  frame %d/%d   events %s queued, %s ran   objects %d   log %s   shutdown %s",
                   frame + 1, frames, Grouped(queued).c_str(), Grouped(world.traffic.ran()).c_str(),
                   CALL(main, Scene_Objects_GetCount)(), Grouped(world.log.delivered()).c_str(),
                   frame < plan.shutdownFrame         ? "not requested"
                   : model.shutdownCallsInRemove == 0 ? "pending"
                                                      : "done");
      std::fflush(stderr);
    }
    if (period.count() > 0) std::this_thread::sleep_until(firstFrame + period * (frame + 1));
  }
  gate.Stop();
  for (std::thread& thread : threads)
    thread.join();
  if (options.progress) std::fprintf(stderr, "\r\033[2K");
  const int64_t sessionNs = NowNs() - startNs;

  // Accounting, now that every thread has stopped.
  const RenderReport render = world.traffic.Finish(main, true);
  playback.Finish(main);
  UnderLock(main, false, [&] {
    world.log.Poll(main, INT_MAX, nullptr);
    world.log.CheckComplete(main);
  });
  int64_t spawned = 0, removed = 0, lookups = 0, retries = 0;
  for (const auto& script : scripts) {
    script->CheckEnd(main);
    spawned += script->spawned();
    removed += script->removed();
    lookups += script->lookups();
    retries += script->retries();
  }
  bool noticeAtOnce = false;
  UnderLock(main, false, [&] {
    for (const char* key : {"render.queuedByScripts", "scene.spawned", "engine.frame"})
      CheckSharedKey(main, key);
    const int32_t remaining = CALL(main, Scene_Objects_GetCount)();
    EXPECT(main, kShutdown,
           model.shutdownCallsInRemove == 1 && model.shutdownCallsInTrigger == 0 && remaining == 0 &&
               model.removalNoticeFrame >= plan.shutdownFrame && spawned == removed,
           "%lld notices on removal, %lld on request, %d objects left",
           static_cast<long long>(model.shutdownCallsInRemove),
           static_cast<long long>(model.shutdownCallsInTrigger), remaining);
    // A second request on the empty registry is carried out at once.
    const int64_t before = model.shutdownCalls;
    TriggerShutdown(main);
    noticeAtOnce = model.shutdownCalls == before + 1;
  });
  const BridgeModel notice = model;
  CheckShutdownGate(main);
  std::vector<const ThreadContext*> all{&main};
  for (const auto& c : contexts)
    all.push_back(c.get());
  CheckCoverage(main, all);

  // The summary.
  std::printf("\nquorl-host: %s frames in %s\n\n", Grouped(frames).c_str(), Duration(sessionNs).c_str());
  int64_t queuedAll = 0;
  for (int64_t count : render.queued)
    queuedAll += count;
  std::printf(
      "Render events     %s queued, %s fired, %s ran: lost %s, ran twice %s, under a wrong id %s\n           "
      "       ",
      Grouped(queuedAll).c_str(), Grouped(render.fired).c_str(), Grouped(render.ran).c_str(),
      Grouped(render.lost).c_str(), Grouped(render.ranTwice).c_str(), Grouped(render.wrongId).c_str());
  for (int shape = 0; shape < kShapeCount; ++shape)
    std::printf("%s%s %s", shape == 0 ? "" : " | ", ShapeName(static_cast<Shape>(shape)),
                Grouped(render.queued[shape]).c_str());
  // Reusing the running id needs every lower slot pending, which a session rarely arranges.
  std::printf(
      "\n                  %s follow-ups queued from inside render work (%s got the id they ran under)\n",
      Grouped(render.followUps).c_str(), Grouped(render.followUpsOnOwnId).c_str());
  std::printf("                  ids 16000..%d (slots are reused as they free up), %s frames rendered\n",
              render.highestId, Grouped(framesRendered).c_str());
  std::printf("  latency         queue to run: p50 %s, p99 %s, max %s\n", Duration(render.latencyP50).c_str(),
              Duration(render.latencyP99).c_str(), Duration(render.latencyMax).c_str());
  std::printf(
      "Scene objects     %s added, %s removed, at most %d at once\n"
      "                  %s look-ups by handle and name; %s retries with a larger buffer after a cut text\n",
      Grouped(spawned).c_str(), Grouped(removed).c_str(), peakObjects, Grouped(lookups).c_str(),
      Grouped(retries).c_str());
  std::printf("Shutdown          requested at frame %d with %d objects; ", plan.shutdownFrame, liveAtRequest);
  if (notice.removalNoticeFrame >= 0) {
    std::printf("notice at frame %d, %s later,\n                  on %s as it removed the last object\n",
                notice.removalNoticeFrame, Duration(notice.removalNoticeNs - requestedNs).c_str(),
                notice.removalNoticeOn.c_str());
  } else {
    std::printf("no notice came\n");
  }
  std::printf("                  requested again on the empty registry: %s\n",
              noticeAtOnce ? "notice at once" : "no notice");
  playback.PrintSummary();
  std::printf(
      "Named integers    render.queuedByScripts %s, scene.spawned %s\n"
      "                  playback.assetsReady %d, host.assetsInitialised %d\n",
      Grouped(CALL(main, Map_GetValue)("render.queuedByScripts")).c_str(),
      Grouped(CALL(main, Map_GetValue)("scene.spawned")).c_str(),
      CALL(main, Map_GetValue)("playback.assetsReady"), CALL(main, Map_GetValue)("host.assetsInitialised"));
  std::printf("Log buffer        %s entries polled frame by frame, %s of them warnings or errors\n",
              Grouped(world.log.delivered()).c_str(),
              Grouped(world.log.deliveredAtLevel(2) + world.log.deliveredAtLevel(3)).c_str());
  if (!world.log.lastMessage().empty())
    std::printf("                  last: %s\n", world.log.lastMessage().c_str());
  return ReportChecks(all, false) == 0;
}

}  // namespace quorl::host
