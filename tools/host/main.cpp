// quorl-host: an engine-host simulator for libQuorlBridge. It loads the library as the engine loads a
// native plug-in and plays it through all 35 exports: by default a paced headless game session with a
// summary, or with --soak an unpaced random mix from every role at once. It exits non-zero if any check
// failed. See session.h.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bridge_library.h"
#include "session.h"

namespace {

void PrintUsage(FILE* out) {
  std::fprintf(
      out,
      "usage: quorl-host [options]\n"
      "Plays a headless engine session against libQuorlBridge.so and checks what it sees.\n\n"
      "  --frames N       frames to play (default 300, at least 10)\n"
      "  --scripts N      script threads (default 4, 1 to 64)\n"
      "  --events N       render events each script thread queues per frame, on average (default 12)\n"
      "  --seed N         seed of the random choices (default 1)\n"
      "  --fps N          frame rate to pace at; 0 plays unpaced (default 100)\n"
      "  --soak SECONDS   instead of a session, call every export from all threads at once in random\n"
      "                   mixes for this long, checking a model of the library all along\n"
      "  --library PATH   the library to load (default: ../lib beside this program, else the\n"
      "                   build tree it was built in, else the loader's search path)\n"
      "  --progress       show the live progress line (default when standard error is a terminal;\n"
      "                   a soak shows a line each second unless --no-progress)\n"
      "  --no-progress    never show it\n"
      "  -h, --help       this text\n\n"
      "Exit status: 0 when every check held, 1 when one failed, 2 for bad options or a library\n"
      "that cannot be loaded or lacks an export.\n");
}

bool ParseNumber(const char* text, double low, double high, double* value) {
  char* end = nullptr;
  const double parsed = std::strtod(text, &end);
  if (end == text || *end != '\0' || !(parsed >= low && parsed <= high)) return false;
  *value = parsed;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  quorl::host::SessionOptions session;
  quorl::host::SoakOptions soak;
  session.progress = isatty(STDERR_FILENO) == 1;
  bool soaking = false;
  bool quiet = false;
  std::string library;

  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    double value = 0;
    // Options with a number: the name, its bounds, whether it must be whole, and where it goes.
    auto number = [&](double low, double high, bool whole) {
      if (i + 1 >= argc || !ParseNumber(argv[i + 1], low, high, &value) ||
          (whole && value != static_cast<double>(static_cast<long long>(value)))) {
        std::fprintf(stderr, "quorl-host: %s wants a %snumber from %g to %g\n", arg.c_str(),
                     whole ? "whole " : "", low, high);
        std::exit(2);
      }
      ++i;
      return value;
    };
    if (arg == "-h" || arg == "--help") {
      PrintUsage(stdout);
      return 0;
    } else if (arg == "--frames") {
      session.frames = static_cast<int>(number(10, 1000000, true));
    } else if (arg == "--scripts") {
      soak.scriptThreads = session.scriptThreads = static_cast<int>(number(1, 64, true));
    } else if (arg == "--events") {
      session.eventsPerFrame = static_cast<int>(number(1, 1000, true));
    } else if (arg == "--seed") {
      soak.seed = session.seed = static_cast<uint32_t>(number(0, 4294967295.0, true));
    } else if (arg == "--fps") {
      session.framesPerSecond = number(0, 10000, true);
    } else if (arg == "--soak") {
      soaking = true;
      soak.seconds = number(0.1, 7 * 86400, false);
    } else if (arg == "--library" && i + 1 < argc) {
      library = argv[++i];
    } else if (arg == "--progress" || arg == "--no-progress") {
      session.progress = arg == "--progress";
      quiet = !session.progress;
    } else {
      std::fprintf(stderr, "quorl-host: unknown option or missing value: %s\n\n", arg.c_str());
      PrintUsage(stderr);
      return 2;
    }
  }
  soak.progress = !quiet;

  if (library.empty()) library = quorl::host::DefaultLibraryCandidates().front();
  std::string error;
  auto bridge = quorl::host::BridgeLibrary::Open(library, &error);
  if (!bridge) {
    std::fprintf(stderr, "quorl-host: %s\n", error.c_str());
    return 2;
  }
  std::printf("quorl-host: loaded %s, all %d exports resolved\n", bridge->resolvedPath().c_str(),
              quorl::host::kExportCount);
  const bool held = soaking ? RunSoak(bridge->api(), soak) : RunSession(bridge->api(), session);
  return held ? 0 : 1;
}
