#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

#include "roles.h"

namespace quorl::host {

bool RunSoak(const BridgeApi& api, const Options& options) {
  using Clock = std::chrono::steady_clock;
  std::printf("quorl-host: soak of %g s, %d script threads, seed %u\n", options.soakSeconds,
              options.scriptThreads, options.seed);
  World world(api, options.scriptThreads, options.seed, nullptr);
  ThreadContext& main = world.main;
  SetCurrentContext(&main);
  // The first registration comes before any other thread may touch build information.
  CALL(main, RegisterUnityPlugin)(1, 2, 3, "quorl-host");
  LogProducer& pollerLog = world.log.AddProducer("log-poller");
  LogProducer& renderLog = world.log.AddProducer("render");

  // Script and playback threads and the log poller stop first, then the render thread, which fires what
  // was handed over last. A thread that ends with an exception, or does not end, fails a check.
  std::atomic<bool> stop[2] = {{false}, {false}};
  std::atomic<int> running{0};
  std::vector<std::thread> threads;
  // Runs `step` on a thread of its own until stop[group], pausing when it found nothing to do, then `last`.
  auto start = [&](ThreadContext& context, int group, auto step, auto last) {
    running.fetch_add(1);
    threads.emplace_back([&context, &running, &stop, group, step, last] {
      SetCurrentContext(&context);
      try {
        while (!stop[group].load()) {
          if (!step()) std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        last();
      } catch (const std::exception& error) {
        FAIL(context, kThreadsFinish, "the thread ended with an exception: %s", error.what());
      }
      running.fetch_sub(1);
    });
  };
  // What a script queued but did not hand over stays pending: the end checks find those ids taken.
  for (auto& script : world.scripts)
    start(
        script->context(), 0,
        [role = script.get()] {
          role->Step();
          return true;
        },
        [] {});
  start(
      world.playbackContext(), 0,
      [&] {
        world.playback->Step();
        return true;
      },
      [&] { world.playback->Drain(); });
  ThreadContext& poller = world.pollerContext();
  start(
      poller, 0,
      [&] {
        int taken = 0;
        UnderLock(poller, poller.random.OneIn(4), [&] { taken = world.log.Poll(poller, 64, &pollerLog); });
        return taken > 0;
      },
      [] {});
  ThreadContext& render = world.renderContext();
  world.traffic.StartFiring(render);
  auto renderStep = [&] {
    if (render.random.OneIn(64)) world.log.Add(render, renderLog, 1, "a frame was rendered");
    return world.traffic.RenderStep(render) > 0;
  };
  // Once stopped, nobody hands over more: fire until a round finds nothing handed over.
  start(render, 1, renderStep, [&] {
    while (renderStep()) {
    }
  });

  const auto begin = Clock::now();
  const std::vector<const ThreadContext*> all = world.All();
  uint64_t lastCalls = 0;
  for (int second = 1;; ++second) {
    std::this_thread::sleep_until(
        begin + std::chrono::duration<double>(std::min<double>(second, options.soakSeconds)));
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
    if (second >= options.soakSeconds) break;
  }
  auto joinWithin = [&](int left, std::chrono::seconds limit) {
    for (const auto deadline = Clock::now() + limit; running.load() > left && Clock::now() < deadline;)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return running.load() <= left;
  };
  stop[0].store(true);
  bool finished = joinWithin(1, std::chrono::seconds(120));
  stop[1].store(true);
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
  uint64_t calls = 0;
  for (const ThreadContext* context : all)
    calls += context->totalCalls();
  std::printf("\nOperations per second over %.1f s: %s\n\n", elapsed, Grouped(calls / elapsed).c_str());
  world.traffic.PrintSummary(-1);
  return ReportChecks(all, true) == 0;
}

}  // namespace quorl::host
