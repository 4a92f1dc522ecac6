// quorl-host: an engine-host simulator for libQuorlBridge. It loads the library as the engine loads a
// native plug-in and plays it through all 35 exports: by default a paced headless game session with a
// summary, or with --soak an unpaced random mix from every role at once. See roles.h.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "roles.h"

namespace {

const char* const kUsage =
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
    "  --progress, --no-progress   show the progress (default: a session's when standard error\n"
    "                   is a terminal, a soak's line each second)\n"
    "  -h, --help       this text\n\n"
    "Exit status: 0 when every check held, 1 when one failed, 2 for bad options or a library\n"
    "that cannot be loaded or lacks an export.\n";

}  // namespace

int main(int argc, char** argv) {
  quorl::host::Options options;
  int progress = -1;  // not chosen
  std::string library;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    // The value of an option with a number, checked against its bounds.
    auto number = [&](double low, double high) {
      char* end = nullptr;
      const double value = i + 1 < argc ? std::strtod(argv[i + 1], &end) : 0;
      if (end == nullptr || end == argv[i + 1] || *end != '\0' || !(value >= low && value <= high)) {
        std::fprintf(stderr, "quorl-host: %s wants a number from %.10g to %.10g\n", arg.c_str(), low, high);
        std::exit(2);
      }
      ++i;
      return value;
    };
    if (arg == "-h" || arg == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--frames") {
      options.frames = static_cast<int>(number(10, 1000000));
    } else if (arg == "--scripts") {
      options.scriptThreads = static_cast<int>(number(1, 64));
    } else if (arg == "--events") {
      options.eventsPerFrame = static_cast<int>(number(1, 1000));
    } else if (arg == "--seed") {
      options.seed = static_cast<uint32_t>(number(0, 4294967295.0));
    } else if (arg == "--fps") {
      options.framesPerSecond = number(0, 10000);
    } else if (arg == "--soak") {
      options.soakSeconds = number(0.1, 7 * 86400);
    } else if (arg == "--library" && i + 1 < argc) {
      library = argv[++i];
    } else if (arg == "--progress" || arg == "--no-progress") {
      progress = arg == "--progress";
    } else {
      std::fprintf(stderr, "quorl-host: unknown option or missing value: %s\n\n%s", arg.c_str(), kUsage);
      return 2;
    }
  }
  const bool soak = options.soakSeconds > 0;
  options.progress = progress >= 0 ? progress == 1 : soak || isatty(STDERR_FILENO) == 1;
  quorl::host::BridgeApi api;
  std::string loaded;
  if (!quorl::host::LoadBridge(library, &api, &loaded)) {
    std::fprintf(stderr, "quorl-host: %s\n", loaded.c_str());
    return 2;
  }
  std::printf("quorl-host: loaded %s, all %d exports resolved\n", loaded.c_str(), quorl::host::kExportCount);
  return (soak ? RunSoak(api, options) : RunSession(api, options)) ? 0 : 1;
}
