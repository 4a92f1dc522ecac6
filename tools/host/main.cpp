// quorl-host: an engine-host simulator for libQuorlBridge. It loads the library as the engine loads a
// native plug-in and plays a headless session through all 35 exports, then prints what happened and
// exits non-zero if any invariant failed. See session.h for what a session does.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
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
      "  --seed N         seed of the session's random choices (default 1)\n"
      "  --fps N          frame rate to pace at; 0 plays unpaced (default 100)\n"
      "  --library PATH   the library to load (default: ../lib beside this program, else the\n"
      "                   build tree it was built in, else the loader's search path)\n"
      "  --progress       show the live progress line (default when standard error is a terminal)\n"
      "  --no-progress    never show it\n"
      "  -h, --help       this text\n\n"
      "Exit status: 0 when every invariant held, 1 when one failed, 2 for bad options or a library\n"
      "that cannot be loaded or lacks an export.\n");
}

bool ParseInt(const char* text, long low, long high, long* value) {
  char* end = nullptr;
  const long parsed = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || parsed < low || parsed > high) return false;
  *value = parsed;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  quorl::host::SessionOptions options;
  options.progress = isatty(STDERR_FILENO) == 1;
  std::string library;

  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    auto number = [&](long low, long high, long* value) {
      if (i + 1 >= argc || !ParseInt(argv[i + 1], low, high, value)) {
        std::fprintf(stderr, "quorl-host: %s wants a number from %ld to %ld\n", arg.c_str(), low, high);
        std::exit(2);
      }
      ++i;
    };
    long value = 0;
    if (arg == "-h" || arg == "--help") {
      PrintUsage(stdout);
      return 0;
    } else if (arg == "--frames") {
      number(10, 1000000, &value);
      options.frames = static_cast<int>(value);
    } else if (arg == "--scripts") {
      number(1, 64, &value);
      options.scriptThreads = static_cast<int>(value);
    } else if (arg == "--events") {
      number(1, 1000, &value);
      options.eventsPerFrame = static_cast<int>(value);
    } else if (arg == "--seed") {
      number(0, 4294967295L, &value);
      options.seed = static_cast<uint32_t>(value);
    } else if (arg == "--fps") {
      number(0, 10000, &value);
      options.framesPerSecond = static_cast<double>(value);
    } else if (arg == "--library") {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "quorl-host: --library wants a path\n");
        return 2;
      }
      library = argv[++i];
    } else if (arg == "--progress") {
      options.progress = true;
    } else if (arg == "--no-progress") {
      options.progress = false;
    } else {
      std::fprintf(stderr, "quorl-host: unknown option %s\n\n", arg.c_str());
      PrintUsage(stderr);
      return 2;
    }
  }

  if (library.empty()) library = quorl::host::DefaultLibraryCandidates().front();
  std::string error;
  auto bridge = quorl::host::BridgeLibrary::Open(library, &error);
  if (!bridge) {
    std::fprintf(stderr, "quorl-host: %s\n", error.c_str());
    return 2;
  }
  std::printf("quorl-host: loaded %s, all %d exports resolved\n", bridge->resolvedPath().c_str(),
              quorl::host::ExportCount());
  return quorl::host::RunSession(bridge->api(), options) ? 0 : 1;
}
