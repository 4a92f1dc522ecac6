// Session: one simulated run of an engine that hosts libQuorlBridge, from registration to the summary.
//
// The main thread plays the engine's main loop: it registers the plug-in, opens each frame for the script
// threads and the playback thread, submits the frame's render event ids to the render thread, polls the
// log buffer, requests the interface shutdown part-way through and paces the frames. Script threads queue
// render work of all five shapes, add and remove scene objects, and share named integers. The render
// thread fires what it was handed through the address UnityRenderEventFunc returned. The playback thread
// drives the asset relay (see playback.h).
//
// RunSession owns all of these threads and joins them before it returns. It prints the summary to
// standard output and, when asked, a live progress line to standard error.
#pragma once

#include <cstdint>
#include <string>

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

// Plays one session through `api`; returns true when every invariant held.
bool RunSession(const BridgeApi& api, const SessionOptions& options);

}  // namespace quorl::host
