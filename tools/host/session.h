// The two ways quorl-host plays the library through the roles of script, render, playback and log
// polling threads, checked by one checking layer (checks.h).
//
// RunSession plays one paced game session, from registration to the summary. The main thread plays the
// engine's main loop: it registers the plug-in, opens each frame for the script threads and the playback
// thread, hands the frame's render event ids to the render thread, polls the log buffer, sets and clears
// the host's asset callbacks, requests the interface shutdown part-way through and paces the frames.
//
// RunSoak calls every export unpaced, in random mixes, from all the roles at once (the log poller a
// thread of its own), checking each result against the model as it goes and everything again at the end,
// and reports operations per second.
//
// Each owns its threads and joins them before it returns; each prints to standard output and returns
// true when every check held.
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
