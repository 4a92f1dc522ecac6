// The two modes of quorl-host. RunSession plays one paced game session: the main thread plays the engine's
// main loop (registers the plug-in, runs each frame with the script, playback and render threads, polls
// the log buffer, sets and clears the host's asset callbacks, requests the shutdown part-way, paces the
// frames) and prints a summary. RunSoak calls every export unpaced from all roles at once, the log poller
// a thread of its own, checks all along and at the end, and reports operations per second. Each joins its
// threads before it returns true when every check held; both print to standard output.
#pragma once

#include <cstdint>

#include "bridge_library.h"

namespace quorl::host {

struct SessionOptions {
  int frames = 300;
  int scriptThreads = 4;
  int eventsPerFrame = 12;  // render events each script thread queues per frame, on average
  uint32_t seed = 1;
  double framesPerSecond = 100;  // 0 runs unpaced, as fast as the threads go
  bool progress = false;         // the live progress line on standard error
};

bool RunSession(const BridgeApi& api, const SessionOptions& options);

struct SoakOptions {
  double seconds = 10;
  int scriptThreads = 4;
  uint32_t seed = 1;
  bool progress = true;  // a line each second
};

bool RunSoak(const BridgeApi& api, const SoakOptions& options);

}  // namespace quorl::host
