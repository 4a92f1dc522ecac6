#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

#include "roles.h"
#include "session.h"

namespace quorl::host {

bool RunSoak(const BridgeApi& api, const SoakOptions& options) {
  using Clock = std::chrono::steady_clock;
  std::printf("quorl-host: soak of %g s, %d script threads, seed %u\n", options.seconds,
              options.scriptThreads, options.seed);
  std::fflush(stdout);
  World world(api, options.scriptThreads, options.seed, nullptr);
  ThreadContext& main = world.main;
  SetCurrentContext(&main);
  // The first registration comes before any other thread may touch build information.
  CALL(main, RegisterUnityPlugin)(1, 2, 3, "quorl-host");
  LogProducer& pollerLog = world.log.AddProducer("log poller");
  LogProducer& renderLog = world.log.AddProducer("render");

  // Script and playback threads and the log poller stop first, then the render thread, which fires what
  // was handed over last. A thread that ends with an exception, or does not end, fails a check.
  std::atomic<bool> stop{false};
  std::atomic<bool> stopRender{false};
  std::atomic<int> running{0};
  std::vector<std::thread> threads;
  auto start = [&](ThreadContext& context, auto body) {
    running.fetch_add(1);
    threads.emplace_back([&context, &running, body] {
      SetCurrentContext(&context);
      try {
        body();
      } catch (const std::exception& error) {
        FAIL(context, kThreadsFinish, "the thread ended with an exception: %s", error.what());
      }
      running.fetch_sub(1);
    });
  };
  for (auto& script : world.scripts) {
    start(script->context(), [&stop, role = script.get()] {
      while (!stop.load(std::memory_order_relaxed)) {
        for (int i = 0; i < 32; ++i)
          role->Step();
      }
      // What was queued but not yet handed over stays pending: the end checks find those ids taken and
      // the slots around them free.
    });
  }
  start(world.playbackContext(), [&] {
    while (!stop.load(std::memory_order_relaxed)) {
      for (int i = 0; i < 16; ++i)
        world.playback->Step();
    }
    world.playback->Drain();
  });
  start(world.pollerContext(), [&] {
    ThreadContext& poller = world.pollerContext();
    while (!stop.load(std::memory_order_relaxed)) {
      int taken = 0;
      UnderLock(poller, poller.random.OneIn(4), [&] { taken = world.log.Poll(poller, 64, &pollerLog); });
      if (taken == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  });
  start(world.renderContext(), [&] {
    ThreadContext& render = world.renderContext();
    world.traffic.StartFiring(render);
    for (;;) {
      const bool stopping = stopRender.load(std::memory_order_acquire);
      const size_t handed = world.traffic.RenderStep(render);
      if (render.random.OneIn(64)) world.log.Add(render, renderLog, 1, "a frame was rendered");
      // Once stopped, nobody hands over more: one empty round means all that was handed over was fired.
      if (stopping && handed == 0) break;
      if (handed == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  });

  const auto begin = Clock::now();
  const std::vector<const ThreadContext*> all = world.All();
  uint64_t lastCalls = 0;
  for (int second = 1;; ++second) {
    std::this_thread::sleep_until(begin +
                                  std::chrono::duration<double>(std::min<double>(second, options.seconds)));
    uint64_t calls = 0;
    for (const ThreadContext* context : all)
      calls += context->totalCalls();
    if (options.progress) {
      std::printf("quorl-host: %4d s  %12s calls/s  %lld failed\n", second,
                  Grouped(static_cast<int64_t>(calls - lastCalls)).c_str(),
                  static_cast<long long>(FailuresSoFar()));
      std::fflush(stdout);
    }
    lastCalls = calls;
    if (second >= options.seconds) break;
  }
  auto joinWithin = [&](int left, std::chrono::seconds limit) {
    for (const auto deadline = Clock::now() + limit; running.load() > left && Clock::now() < deadline;)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return running.load() <= left;
  };
  stop.store(true);
  bool finished = joinWithin(1, std::chrono::seconds(120));
  stopRender.store(true, std::memory_order_release);
  finished = finished && joinWithin(0, std::chrono::seconds(120));
  const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
  if (!EXPECT(main, kThreadsFinish, finished,
              "%d threads still ran 120 s after the stop (a mutex never released?)", running.load())) {
    ReportChecks(all, true);
    std::_Exit(1);  // the threads that hang cannot be joined
  }
  for (std::thread& thread : threads)
    thread.join();

  world.Finish(false);
  std::printf("\nOperations per second over %.1f s\n", elapsed);
  uint64_t byRole[kRoleCount + 1] = {};
  for (const ThreadContext* context : all) {
    byRole[static_cast<int>(context->role)] += context->totalCalls();
    byRole[kRoleCount] += context->totalCalls();
  }
  for (int role = 0; role <= kRoleCount; ++role) {
    std::printf("  %-12s %14s\n", role < kRoleCount ? RoleName(static_cast<Role>(role)) : "all",
                Grouped(static_cast<int64_t>(static_cast<double>(byRole[role]) / elapsed)).c_str());
  }
  std::printf("\n");
  world.traffic.PrintSummary(-1);
  const BridgeModel& model = Model();  // every other thread stopped
  std::printf(
      "Shutdown          %s requests with objects, %s on an empty registry; %s notices at the request, "
      "%s at the last removal\n",
      Grouped(model.triggersWithObjects).c_str(), Grouped(model.triggersEmpty).c_str(),
      Grouped(model.callsInTrigger).c_str(), Grouped(model.callsInRemove).c_str());
  return ReportChecks(all, true) == 0;
}

}  // namespace quorl::host
