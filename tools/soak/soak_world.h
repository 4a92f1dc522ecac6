// SoakWorld: what the threads of one soak share, and the bodies of those threads.
//
// The main thread builds the world, starts the threads, stops them in order (script and playback threads
// and the log poller first, then the render thread, which fires what was handed over last), and runs the
// final checks with every other thread stopped. Each thread owns its ThreadContext; the world's members
// are either immutable after construction, atomics, or guarded as their own headers say.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "bridge_model.h"
#include "render_traffic.h"
#include "soak_context.h"

namespace quorl::soak {

struct SoakWorld {
  SoakWorld(const BridgeApi& bridgeApi, int scriptThreads)
      : api(bridgeApi),
        scripts(scriptThreads),
        traffic(scriptThreads + 1),
        log(scriptThreads + 3),
        registry(scriptThreads) {}

  const BridgeApi& api;
  const int scripts;
  RenderTraffic traffic;    // producers: one per script thread, then the render thread's follow-ups
  LogLedger log;            // producers: script threads, then render, playback, log poller
  RegistryLedger registry;  // one share per script thread
  std::atomic<bool> stopScripts{false};
  std::atomic<bool> stopRender{false};

  int renderLogProducer() const { return scripts; }
  int playbackLogProducer() const { return scripts + 1; }
  int pollerLogProducer() const { return scripts + 2; }
};

// Thread bodies; each returns when its stop flag is seen. Script threads are ScriptThread objects.
void RunRenderThread(SoakWorld& world, ThreadContext& context);
void RunPlaybackThread(SoakWorld& world, ThreadContext& context);
void RunLogPoller(SoakWorld& world, ThreadContext& context);

// Main thread, after every other thread stopped: the shutdown gate and the log buffer's end state.
void CheckShutdownEnd(SoakWorld& world, ThreadContext& context);
void CheckLogEnd(SoakWorld& world, ThreadContext& context);

// The relay's host functions, for the script threads that set them: [callback][slot - 1].
extern const OnAssetInitialisedCallback kInitialisedCallbacks[2];
extern const OnAssetSelectRepresentationCallback kSelectCallbacks[2];
extern const OnAssetRepresentationDataReceivedCallback kDataCallbacks[2];

}  // namespace quorl::soak
