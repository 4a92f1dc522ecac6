// RunSoak: every role at once, unpaced, for a while; see session.h.
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "playback_role.h"
#include "script_role.h"
#include "session.h"

namespace quorl::host {

namespace {

using Clock = std::chrono::steady_clock;

// Threads of the soak, with a count of those that have not finished.
class SoakThreads {
 public:
  template <typename Body>
  void Start(ThreadContext& context, Body body) {
    running_.fetch_add(1);
    threads_.emplace_back([this, &context, body] {
      SetCurrentContext(&context);
      try {
        body();
      } catch (const std::exception& error) {
        FAIL(context, kThreadsFinish, "the thread ended with an exception: %s", error.what());
      }
      running_.fetch_sub(1);
    });
  }
  // Waits up to `limit` for every started thread to finish, then joins them; false if they did not.
  bool JoinWithin(std::chrono::seconds limit) {
    const auto deadline = Clock::now() + limit;
    while (running_.load() > 0 && Clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (running_.load() > 0) return false;
    for (std::thread& thread : threads_)
      thread.join();
    threads_.clear();
    return true;
  }
  int running() const { return running_.load(); }

 private:
  std::vector<std::thread> threads_;
  std::atomic<int> running_{0};
};

}  // namespace

bool RunSoak(const BridgeApi& api, const SoakOptions& options) {
  std::printf("quorl-host: soak of %g s, %d script threads, seed %u\n", options.seconds,
              options.scriptThreads, options.seed);
  std::fflush(stdout);
  PrintFailuresAtOnce(true);
  ThreadContext main(api, Role::kMain, 0, options.seed);
  SetCurrentContext(&main);
  // The first registration comes before any other thread may touch build information.
  CALL(main, RegisterUnityPlugin)(1, 2, 3, "quorl-host");

  ScriptWorld world(options.scriptThreads, false);
  std::vector<std::unique_ptr<ThreadContext>> contexts;
  auto context = [&](Role role, int index) -> ThreadContext& {
    const uint64_t seed =
        options.seed * 1000003ull + static_cast<uint64_t>(role) * 101 + static_cast<uint64_t>(index);
    contexts.push_back(std::make_unique<ThreadContext>(api, role, index, seed));
    return *contexts.back();
  };
  std::vector<std::unique_ptr<ScriptRole>> scripts;
  for (int i = 0; i < options.scriptThreads; ++i)
    scripts.push_back(std::make_unique<ScriptRole>(world, context(Role::kScript, i)));
  ThreadContext& playbackContext = context(Role::kPlayback, 0);
  PlaybackRole playback(playbackContext, world.log, 0);
  ThreadContext& pollerContext = context(Role::kLogPoller, 0);
  LogProducer& pollerLog = world.log.AddProducer("log poller");
  ThreadContext& renderContext = context(Role::kRender, 0);
  LogProducer& renderLog = world.log.AddProducer("render");

  // Script and playback threads and the log poller stop first; then the render thread, which fires
  // what was handed over last.
  std::atomic<bool> stopWorkers{false};
  std::atomic<bool> stopRender{false};
  SoakThreads workers;
  SoakThreads render;
  const auto start = Clock::now();
  for (auto& script : scripts) {
    ScriptRole* role = script.get();
    workers.Start(role->context(), [role, &stopWorkers] {
      while (!stopWorkers.load(std::memory_order_relaxed)) {
        for (int i = 0; i < 32; ++i)
          role->Step();
      }
      // What was queued but not yet handed over stays pending: the end checks find those ids taken and
      // the slots around them free.
    });
  }
  workers.Start(playbackContext, [&] {
    while (!stopWorkers.load(std::memory_order_relaxed)) {
      for (int i = 0; i < 16; ++i)
        playback.Step();
    }
  });
  workers.Start(pollerContext, [&] {
    while (!stopWorkers.load(std::memory_order_relaxed)) {
      int taken = 0;
      UnderLock(pollerContext, pollerContext.random().OneIn(4),
                [&] { taken = world.log.Poll(pollerContext, 64, &pollerLog); });
      if (taken == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  });
  render.Start(renderContext, [&] {
    world.traffic.StartFiring(renderContext);
    for (;;) {
      const bool stopping = stopRender.load(std::memory_order_acquire);
      const size_t handed = world.traffic.RenderStep(renderContext);
      if (renderContext.random().OneIn(64))
        world.log.Add(renderContext, renderLog, 1, "a frame was rendered");
      // Once stopped, nobody hands over more: one empty round means all that was handed over was fired.
      if (stopping && handed == 0) break;
      if (handed == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  });

  std::vector<const ThreadContext*> all{&main};
  for (const auto& c : contexts)
    all.push_back(c.get());
  const auto totalCalls = [&] {
    uint64_t total = 0;
    for (const ThreadContext* c : all)
      total += c->totalCalls();
    return total;
  };
  uint64_t lastCalls = 0;
  for (int second = 1;; ++second) {
    std::this_thread::sleep_until(start +
                                  std::chrono::duration<double>(std::min<double>(second, options.seconds)));
    if (options.progress) {
      const uint64_t calls = totalCalls();
      std::printf("quorl-host: %4d s  %10.0f calls/s  %lld failed\n", second,
                  static_cast<double>(calls - lastCalls), static_cast<long long>(FailuresSoFar()));
      std::fflush(stdout);
      lastCalls = calls;
    }
    if (second >= options.seconds) break;
  }
  stopWorkers.store(true);
  const bool workersDone = workers.JoinWithin(std::chrono::seconds(120));
  stopRender.store(true, std::memory_order_release);
  const bool renderDone = workersDone && render.JoinWithin(std::chrono::seconds(120));
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT(main, kThreadsFinish, workersDone && renderDone,
         "%d threads still ran 120 s after the stop (a bridge mutex never released?)",
         workers.running() + render.running());
  if (!workersDone || !renderDone) {
    ReportChecks(all, true);
    std::fflush(stdout);
    std::_Exit(1);  // the threads that hang cannot be joined
  }

  // Everyone else stopped: the end state, checked from this thread alone.
  const RenderReport report = world.traffic.Finish(main, false);
  for (auto& script : scripts)
    script->CheckEnd(main);
  for (auto& script : scripts)
    script->RemoveAll(main);
  CheckShutdownGate(main);
  UnderLock(main, false, [&] {
    while (world.log.Poll(main, 1 << 20, nullptr) > 0) {
    }
    world.log.CheckComplete(main);
  });
  CheckCoverage(main, all);

  std::printf("\nCalls per export\n");
  uint64_t total = 0;
  for (int id = 0; id < kExportCount; ++id) {
    uint64_t calls = 0;
    for (const ThreadContext* c : all)
      calls += c->calls(id);
    total += calls;
    std::printf("  %-48s %14s\n", ExportName(id), Grouped(static_cast<int64_t>(calls)).c_str());
  }
  std::printf("\nOperations per second over %.1f s: %s overall\n", elapsed,
              Grouped(static_cast<int64_t>(static_cast<double>(total) / elapsed)).c_str());
  uint64_t byRole[kRoleCount] = {};
  for (const ThreadContext* c : all)
    byRole[static_cast<int>(c->role())] += c->totalCalls();
  for (int role = 0; role < kRoleCount; ++role) {
    const int threads = role == static_cast<int>(Role::kScript) ? options.scriptThreads : 1;
    std::printf("  %-12s %14s  (%d thread%s)\n", RoleName(static_cast<Role>(role)),
                Grouped(static_cast<int64_t>(static_cast<double>(byRole[role]) / elapsed)).c_str(), threads,
                threads == 1 ? "" : "s");
  }
  std::printf("\nRender events     ");
  for (int shape = 0; shape < kShapeCount; ++shape)
    std::printf("%s%s %s", shape == 0 ? "" : " | ", ShapeName(static_cast<Shape>(shape)),
                Grouped(report.queued[shape]).c_str());
  std::printf(
      "\n                  %s fired as handed over, %s other fires, %s follow-ups (%s on their own id)\n",
      Grouped(report.fired).c_str(), Grouped(report.firedOther).c_str(), Grouped(report.followUps).c_str(),
      Grouped(report.followUpsOnOwnId).c_str());
  std::printf("                  %s pending at the end, highest id %d, %s probes of the free slots\n",
              Grouped(report.pendingAtEnd).c_str(), report.highestId, Grouped(report.probes).c_str());
  const BridgeModel& model = Model();  // every other thread stopped
  std::printf(
      "Shutdown          %s requests with objects, %s on an empty registry; %s notices at the request, "
      "%s at the last removal\n",
      Grouped(model.triggersWithObjects).c_str(), Grouped(model.triggersEmpty).c_str(),
      Grouped(model.shutdownCallsInTrigger).c_str(), Grouped(model.shutdownCallsInRemove).c_str());
  return ReportChecks(all, true) == 0;
}

}  // namespace quorl::host
