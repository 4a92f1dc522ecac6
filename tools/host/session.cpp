#include "roles.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <thread>

namespace quorl::host {

namespace {

// The main thread runs each frame with every participant and waits until all of them are done.
class FrameGate {
 public:
  explicit FrameGate(int participants) { pthread_barrier_init(&barrier_, nullptr, participants + 1); }
  ~FrameGate() { pthread_barrier_destroy(&barrier_); }
  // Main thread: runs `frame`, or with -1 lets the participants go.
  void Run(int frame) {
    frame_ = frame;
    pthread_barrier_wait(&barrier_);
    if (frame >= 0) pthread_barrier_wait(&barrier_);
  }
  // A participant: the next frame to work, -1 when it is time to go; then Done once it is worked.
  int Next() {
    pthread_barrier_wait(&barrier_);
    return frame_;
  }
  void Done() { pthread_barrier_wait(&barrier_); }

 private:
  pthread_barrier_t barrier_;
  int frame_ = -1;
};

}  // namespace

bool RunSession(const BridgeApi& api, const Options& options) {
  const int frames = options.frames;
  const SessionPlan plan{frames, options.eventsPerFrame, std::max(1, frames * 3 / 5), frames / 3,
                         2 * frames / 3};
  std::printf(
      "quorl-host: %d frames, %d script threads, %d render events per thread and frame, seed %u, %s\n",
      frames, options.scriptThreads, options.eventsPerFrame, options.seed,
      options.framesPerSecond > 0 ? Printf("%g fps", options.framesPerSecond).c_str() : "unpaced");

  // Start-up as the engine does it: the plug-in registers and announces itself.
  World world(api, options.scriptThreads, options.seed, &plan);
  BridgeModel& model = Model();
  ThreadContext& main = world.main;
  SetCurrentContext(&main);
  CALL(main, RegisterUnityPlugin)(2022, 3, 0, "quorl-host");
  const int64_t startNs = NowNs();
  CheckConstants(main, true);
  // Add never overwrites and SetValue never creates: the engine's frame counter relies on both.
  for (const int32_t value : {0, 99}) {
    CALL(main, Map_Add)("engine.frame", value);
    model.sharedKeys.emplace("engine.frame", value);
  }
  SetKey(main, model.sharedKeys, "engine.notAdded", 5);
  for (const char* key : {"engine.frame", "engine.notAdded"})
    CheckKey(main, Check::kMapModel, model.sharedKeys, key);
  UnderLock(main, false, [&] { SetShutdownCallback(main, kFirst); });

  // The render thread fires what the frame before handed over, as an engine renders a frame behind.
  FrameGate gate(options.scriptThreads + 2);
  std::vector<HandedEvent> toRender;  // written by the main thread between frames
  int64_t framesRendered = 0;
  std::vector<std::thread> threads;
  for (auto& script : world.scripts) {
    threads.emplace_back([&gate, &script, &plan] {
      for (int frame; (frame = gate.Next()) >= 0; gate.Done())
        script->Frame(frame, plan);
    });
  }
  threads.emplace_back([&] {
    SetCurrentContext(&world.playbackContext());
    for (int frame; (frame = gate.Next()) >= 0; gate.Done())
      world.playback->Frame(world.playbackContext().frame = frame);
    world.playback->Drain();
  });
  threads.emplace_back([&] {
    ThreadContext& render = world.renderContext();
    SetCurrentContext(&render);
    world.traffic.StartFiring(render);
    for (;;) {
      const int frame = gate.Next();
      for (const HandedEvent& event : toRender)
        world.traffic.Fire(render, event);
      framesRendered += toRender.empty() ? 0 : 1;
      if (frame < 0) break;
      gate.Done();
    }
    // The follow-ups that the last frame's render work queued.
    for (auto rest = world.traffic.TakeHandedOver(); !rest.empty(); rest = world.traffic.TakeHandedOver()) {
      for (const HandedEvent& event : rest)
        world.traffic.Fire(render, event);
    }
  });

  auto total = [&](int64_t ScriptRole::*count) {
    int64_t sum = 0;
    for (const auto& script : world.scripts)
      sum += (*script).*count;
    return sum;
  };
  int liveAtRequest = 0;
  int64_t requestedNs = 0;
  int peakObjects = 0;
  const auto period = std::chrono::nanoseconds(
      options.framesPerSecond > 0 ? static_cast<int64_t>(1e9 / options.framesPerSecond) : 0);
  const auto firstFrame = std::chrono::steady_clock::now();
  for (int frame = 0; frame < frames; ++frame) {
    main.frame = frame;
    UnderLock(main, false, [&] {
      if (frame == plan.hostCallbacksFrom || frame == plan.hostCallbacksUntil) {
        for (const RelayKind kind : {kInitialised, kSelect, kData})
          SetRelayCallback(main, kind, frame == plan.hostCallbacksFrom ? kFirst : kNone);
      }
      if (frame == plan.shutdownFrame) {
        // Requested while objects exist: it must wait for the last of them to go.
        liveAtRequest = CALL(main, Scene_Objects_GetCount)();
        requestedNs = NowNs();
        TriggerShutdown(main);
      }
      SetKey(main, model.sharedKeys, "engine.frame", frame);
    });
    gate.Run(frame);
    peakObjects = std::max(peakObjects, static_cast<int>(CALL(main, Scene_Objects_GetCount)()));
    toRender = world.traffic.TakeHandedOver();
    UnderLock(main, false, [&] { world.log.Poll(main, INT_MAX, nullptr); });
    if (options.progress) {
      std::fprintf(stderr, "\r  frame %d/%d   events %s queued, %s ran   objects %d   shutdown %s   ",
                   frame + 1, frames, Grouped(total(&ScriptRole::queued)).c_str(),
                   Grouped(world.traffic.ran()).c_str(), CALL(main, Scene_Objects_GetCount)(),
                   frame < plan.shutdownFrame ? "not requested"
                   : model.callsInRemove      ? "done"
                                              : "pending");
    }
    if (period.count() > 0) std::this_thread::sleep_until(firstFrame + period * (frame + 1));
  }
  gate.Run(-1);
  for (std::thread& thread : threads)
    thread.join();
  if (options.progress) std::fprintf(stderr, "\n");
  const int64_t sessionNs = NowNs() - startNs;

  // The session's own end checks, then those of every run.
  const int64_t spawned = total(&ScriptRole::spawned), removed = total(&ScriptRole::removed);
  UnderLock(main, false, [&] {
    for (const char* key : {"render.queuedByScripts", "scene.spawned", "engine.frame"})
      CheckKey(main, Check::kSharedModel, model.sharedKeys, key);
    // The model follows what each script read under Lock; the scripts' own counts tell whether an
    // increment was lost between two of them.
    const int32_t queuedKey = CALL(main, Map_GetValue)("render.queuedByScripts");
    const int32_t spawnedKey = CALL(main, Map_GetValue)("scene.spawned");
    EXPECT(main, kSharedModel, queuedKey == total(&ScriptRole::queued) && spawnedKey == spawned,
           "the scripts queued %lld events and added %lld objects, the shared keys count %d and %d",
           static_cast<long long>(total(&ScriptRole::queued)), static_cast<long long>(spawned), queuedKey,
           spawnedKey);
    const int32_t remaining = CALL(main, Scene_Objects_GetCount)();
    EXPECT(main, kShutdown,
           model.callsInRemove == 1 && model.callsInTrigger == 0 && remaining == 0 &&
               model.removalNoticeFrame >= plan.shutdownFrame && spawned == removed,
           "%lld notices on removal, %lld on request, %d objects left",
           static_cast<long long>(model.callsInRemove), static_cast<long long>(model.callsInTrigger),
           remaining);
  });
  const BridgeModel notice = model;
  world.Finish(true);

  // The summary.
  std::printf("\nquorl-host: %s frames in %s\n\n", Grouped(frames).c_str(), Duration(sessionNs).c_str());
  world.traffic.PrintSummary(framesRendered);
  std::printf(
      "Scene objects     %s added, %s removed, at most %d at once\n"
      "                  %s look-ups by handle and name; %s retries with a larger buffer after a cut text\n",
      Grouped(spawned).c_str(), Grouped(removed).c_str(), peakObjects,
      Grouped(total(&ScriptRole::lookups)).c_str(), Grouped(total(&ScriptRole::retries)).c_str());
  const std::string noticeText =
      Printf("notice at frame %d, %s later,\n                  on %s as it removed the last object",
             notice.removalNoticeFrame, Duration(notice.removalNoticeNs - requestedNs).c_str(),
             notice.removalNoticeOn.c_str());
  std::printf("Shutdown          requested at frame %d with %d objects; %s\n", plan.shutdownFrame,
              liveAtRequest, notice.removalNoticeFrame >= 0 ? noticeText.c_str() : "no notice came");
  world.playback->PrintSummary();
  std::printf("Log buffer        %s entries polled frame by frame, %s of them warnings or errors\n",
              Grouped(world.log.delivered()).c_str(), Grouped(world.log.warnings()).c_str());
  if (!world.log.lastMessage().empty())
    std::printf("                  last: %s\n", world.log.lastMessage().c_str());
  return ReportChecks(world.All(), false) == 0;
}

}  // namespace quorl::host
