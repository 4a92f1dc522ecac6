// quorl-soak: a long concurrent soak of libQuorlBridge's 35 exports. Script threads call everything in
// random mixes, a render thread fires ids, a playback thread drives the relay, a poller drains the log
// buffer, and every result is checked against a model as it happens and again at the end. Exits non-zero
// when any check failed. It loads the library with dlopen, as the engine does, so the same program can
// run against a stand-in library that breaks one behaviour on purpose.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bridge_library.h"
#include "script_thread.h"
#include "soak_world.h"

namespace {

using namespace quorl::soak;
using Clock = std::chrono::steady_clock;

struct Options {
  double seconds = 10;
  int scripts = 4;
  uint64_t seed = 1;
  bool quiet = false;
  std::string library;
};

void PrintUsage(FILE* out) {
  std::fprintf(out,
               "usage: quorl-soak [options]\n"
               "Calls every export of libQuorlBridge.so from many threads at once for a while, checking a\n"
               "model of the library all along.\n\n"
               "  --seconds S      how long to run (default 10)\n"
               "  --scripts N      script threads (default 4, 1 to 30)\n"
               "  --seed X         seed of the threads' random mixes (default 1)\n"
               "  --quiet          no progress line each second\n"
               "  --library PATH   the library to load (default: the one this program was built with)\n"
               "  -h, --help       this text\n\n"
               "Exit status: 0 when every check held, 1 when one failed, 2 for bad options or a library\n"
               "that cannot be loaded.\n");
}

bool ParseNumber(const char* text, double low, double high, double* value) {
  char* end = nullptr;
  const double parsed = std::strtod(text, &end);
  if (end == text || *end != '\0' || !(parsed >= low && parsed <= high)) return false;
  *value = parsed;
  return true;
}

bool ParseOptions(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    double value = 0;
    auto number = [&](double low, double high) {
      if (i + 1 >= argc || !ParseNumber(argv[i + 1], low, high, &value)) {
        std::fprintf(stderr, "quorl-soak: %s wants a number from %g to %g\n", arg.c_str(), low, high);
        return false;
      }
      ++i;
      return true;
    };
    if (arg == "-h" || arg == "--help") {
      PrintUsage(stdout);
      std::exit(0);
    } else if (arg == "--seconds") {
      if (!number(0.1, 86400 * 7)) return false;
      options->seconds = value;
    } else if (arg == "--scripts") {
      if (!number(1, 30)) return false;
      options->scripts = static_cast<int>(value);
    } else if (arg == "--seed") {
      if (!number(0, 18446744073709551615.0)) return false;
      options->seed = static_cast<uint64_t>(value);
    } else if (arg == "--quiet") {
      options->quiet = true;
    } else if (arg == "--library" && i + 1 < argc) {
      options->library = argv[++i];
    } else {
      std::fprintf(stderr, "quorl-soak: unknown option %s\n\n", arg.c_str());
      PrintUsage(stderr);
      return false;
    }
  }
  return true;
}

// A thread of the soak, with a count of those that have not finished.
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
        context.Fail(Check::kThreadsFinish,
                     std::string("the thread ended with an exception: ") + error.what());
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

int main(int argc, char** argv) {
  Options options;
  if (!ParseOptions(argc, argv, &options)) return 2;
  if (options.library.empty()) options.library = quorl::host::DefaultLibraryCandidates().front();
  std::string error;
  const auto library = quorl::host::BridgeLibrary::Open(options.library, &error);
  if (!library) {
    std::fprintf(stderr, "quorl-soak: %s\n", error.c_str());
    return 2;
  }
  const BridgeApi& api = library->api();
  std::printf("quorl-soak: %s, %d script threads, %g s, seed %llu\n", library->resolvedPath().c_str(),
              options.scripts, options.seconds, static_cast<unsigned long long>(options.seed));
  std::fflush(stdout);

  ThreadContext main(api, ThreadKind::kMain, 0, options.seed);
  SetCurrentContext(&main);
  // The first registration comes before any other thread may touch build information.
  SOAK_CALL(main, RegisterUnityPlugin)(1, 2, 3, "quorl-soak");

  SoakWorld world(api, options.scripts);
  std::vector<std::unique_ptr<ThreadContext>> contexts;
  std::vector<std::unique_ptr<ScriptThread>> scripts;
  auto context = [&](ThreadKind kind, int index) -> ThreadContext& {
    const uint64_t seed =
        options.seed * 1000003 + static_cast<uint64_t>(kind) * 101 + static_cast<uint64_t>(index);
    contexts.push_back(std::make_unique<ThreadContext>(api, kind, index, seed));
    return *contexts.back();
  };

  SoakThreads workers;
  SoakThreads render;
  const auto start = Clock::now();
  for (int i = 0; i < options.scripts; ++i) {
    scripts.push_back(std::make_unique<ScriptThread>(world, context(ThreadKind::kScript, i)));
    ScriptThread* script = scripts.back().get();
    workers.Start(*contexts.back(), [script] { script->Run(); });
  }
  ThreadContext& playback = context(ThreadKind::kPlayback, 0);
  workers.Start(playback, [&world, &playback] { RunPlaybackThread(world, playback); });
  ThreadContext& poller = context(ThreadKind::kLogPoller, 0);
  workers.Start(poller, [&world, &poller] { RunLogPoller(world, poller); });
  ThreadContext& renderContext = context(ThreadKind::kRender, 0);
  render.Start(renderContext, [&world, &renderContext] { RunRenderThread(world, renderContext); });

  const auto totalCalls = [&] {
    uint64_t total = main.totalCalls();
    for (const auto& c : contexts)
      total += c->totalCalls();
    return total;
  };
  uint64_t lastCalls = 0;
  for (int second = 1;; ++second) {
    const auto until = start + std::chrono::duration<double>(std::min<double>(second, options.seconds));
    std::this_thread::sleep_until(until);
    if (!options.quiet) {
      const uint64_t calls = totalCalls();
      std::printf("quorl-soak: %4d s  %10.0f calls/s\n", second, static_cast<double>(calls - lastCalls));
      std::fflush(stdout);
      lastCalls = calls;
    }
    if (second >= options.seconds) break;
  }

  world.stopScripts.store(true);
  const bool workersDone = workers.JoinWithin(std::chrono::seconds(120));
  world.stopRender.store(true, std::memory_order_release);
  const bool renderDone = workersDone && render.JoinWithin(std::chrono::seconds(120));
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  if (!workersDone || !renderDone) {
    main.Fail(Check::kThreadsFinish,
              Printf("%d threads still ran 120 s after the stop (a bridge mutex never released?)",
                     workers.running() + render.running()));
    std::printf("quorl-soak: FAILED\n");
    std::fflush(stdout);
    std::_Exit(1);
  }

  // Everyone else stopped: the end state, checked from this thread alone.
  const RenderReport renderReport = world.traffic.Finish(main);
  for (auto& script : scripts)
    script->CheckEnd(main);
  for (auto& script : scripts)
    script->RemoveAll(main);
  CheckShutdownEnd(world, main);
  CheckLogEnd(world, main);

  uint64_t calls[kExportCount] = {};
  uint64_t byKind[kThreadKindCount] = {};
  std::vector<const ThreadContext*> all{&main};
  for (const auto& c : contexts)
    all.push_back(c.get());
  for (const ThreadContext* c : all) {
    for (int id = 0; id < kExportCount; ++id)
      calls[id] += c->calls(id);
    byKind[static_cast<int>(c->kind())] += c->totalCalls();
  }
  uint64_t total = 0;
  std::string never;
  for (int id = 0; id < kExportCount; ++id) {
    total += calls[id];
    if (calls[id] == 0) never += std::string(never.empty() ? "" : ", ") + ExportName(id);
  }
  main.Expect(Check::kCoverage, never.empty(), [&] { return "never called: " + never; });

  std::printf("\ncalls per export:\n");
  for (int id = 0; id < kExportCount; ++id)
    std::printf("  %-48s %12llu\n", ExportName(id), static_cast<unsigned long long>(calls[id]));
  std::printf("\noperations per second over %.1f s: %.0f overall\n", elapsed,
              static_cast<double>(total) / elapsed);
  for (int kind = 0; kind < kThreadKindCount; ++kind) {
    const int threads = kind == static_cast<int>(ThreadKind::kScript) ? options.scripts : 1;
    std::printf("  %-12s %12.0f  (%d thread%s)\n", ThreadKindName(static_cast<ThreadKind>(kind)),
                static_cast<double>(byKind[kind]) / elapsed, threads, threads == 1 ? "" : "s");
  }
  std::printf(
      "\nrender events: %lld plain, %lld I, %lld III, %lld frame-context I, %lld frame-context III queued\n",
      static_cast<long long>(renderReport.queued[0]), static_cast<long long>(renderReport.queued[1]),
      static_cast<long long>(renderReport.queued[2]), static_cast<long long>(renderReport.queued[3]),
      static_cast<long long>(renderReport.queued[4]));
  std::printf(
      "  fired as handed %lld, other fires %lld, follow-ups from render work %lld (%lld on their own id)\n",
      static_cast<long long>(renderReport.firedPublished), static_cast<long long>(renderReport.firedRandom),
      static_cast<long long>(renderReport.followUps), static_cast<long long>(renderReport.followUpsOnOwnId));
  std::printf("  pending at the end %lld, highest id %d, probes of the free slots %lld\n",
              static_cast<long long>(renderReport.pendingAtEnd), renderReport.highestId,
              static_cast<long long>(renderReport.probes));
  {
    const BridgeModel& model = Model();  // every other thread stopped
    std::printf(
        "shutdown: %lld triggers with objects, %lld on an empty registry; %lld notices at the trigger, "
        "%lld at the last removal\n",
        static_cast<long long>(model.triggersWithObjects), static_cast<long long>(model.triggersEmpty),
        static_cast<long long>(model.shutdownCallsInTrigger),
        static_cast<long long>(model.shutdownCallsInRemove));
  }

  std::printf("\nchecks:\n");
  int failedChecks = 0;
  for (int check = 0; check < kCheckCount; ++check) {
    uint64_t checked = 0;
    uint64_t failed = 0;
    for (const ThreadContext* c : all) {
      checked += c->checked(static_cast<Check>(check));
      failed += c->failed(static_cast<Check>(check));
    }
    if (failed > 0) ++failedChecks;
    std::printf("  %-6s %12llu checked %8llu failed  %s\n", failed > 0 ? "FAILED" : "ok",
                static_cast<unsigned long long>(checked), static_cast<unsigned long long>(failed),
                CheckName(static_cast<Check>(check)));
  }
  if (failedChecks > 0) {
    std::printf("quorl-soak: FAILED (%d of %d checks)\n", failedChecks, kCheckCount);
    return 1;
  }
  std::printf("quorl-soak: passed\n");
  return 0;
}
