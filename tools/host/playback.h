// Playback: the playback library's thread of a session. It streams assets and reports their events
// through the StaticHandler_* exports, as a playback library of the family does: an asset is
// initialised, its representations are offered one by one for selection, and the chosen one's data
// arrives in chunks.
//
// The session runs in three phases. In the first the host has set no callbacks, so the library's
// built-in representation policy decides, and the first volumetric representation with a selection key
// fixes that key; in the second the host's callbacks are set and decide; in the third they are cleared
// again and the policy goes on with the key as it stood. A model of the policy predicts every answer.
//
// Threads: Frame runs on the playback thread only. SetHostCallbacks runs on the main thread between
// frames, when the playback thread is idle. The host callbacks run on the playback thread, inside the
// handlers, with the bridge mutex held; they call back into the library, which the recursive mutex
// allows. Reports are read after the thread stopped. One Playback may exist at a time, because the native
// callbacks find it through a global pointer.
#pragma once

#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "bridge_library.h"
#include "invariants.h"
#include "log_traffic.h"

namespace quorl::host {

// What the decisions of one phase looked like.
struct PolicyPhaseReport {
  int assets = 0;
  int offers = 0;
  int accepted = 0;
  int refused = 0;
  int notVolumetric = 0;     // accepted by the policy whatever the key
  int emptyKeyAccepted = 0;  // volumetric with an empty key while none was held: accepted, fixes nothing
  int sameKeyAccepted = 0;   // volumetric with the held key
  int otherKeyRefused = 0;   // volumetric with another key
  std::string keyFixed;      // the key this phase fixed, if it fixed one
  int keyFixedByAsset = -1;
  std::string keyFixedMediaType;
  std::string keyAtEnd;  // the key the model holds when the phase ends
};

struct PlaybackReport {
  PolicyPhaseReport phases[3];
  int assetsStarted = 0;
  int assetsReady = 0;
  int assetsFailed = 0;
  int64_t initialisedSent = 0;
  int64_t initialisedReachedHost = 0;
  int64_t chunksSent = 0;
  int64_t chunksReachedHost = 0;
  int64_t selectionsReachedHost = 0;
};

class Playback {
 public:
  // Phase 2 covers frames [hostCallbacksFrom, hostCallbacksUntil).
  Playback(const BridgeApi& api, Invariants& invariants, int frames, uint32_t seed, int hostCallbacksFrom,
           int hostCallbacksUntil);  // about a dozen assets over `frames`
  ~Playback();
  Playback(const Playback&) = delete;
  Playback& operator=(const Playback&) = delete;

  // Main thread, between frames: the host sets (true) or clears (false) its three asset callbacks.
  void SetHostCallbacks(bool set);

  // Playback thread: the asset events of one frame.
  void Frame(int32_t frame);

  // Playback thread, after the last frame: lets the assets still streaming finish.
  void Drain(int32_t frame);

  LogProducer& playbackLog() { return playbackLog_; }
  LogProducer& hostCallbackLog() { return hostCallbackLog_; }

  // Final checks and the report; after the playback thread stopped.
  PlaybackReport Finish();

  // Called by the host callbacks (playback thread, bridge mutex held).
  void OnInitialised(int32_t value, void* pointer);
  bool OnSelectRepresentation(RepresentationDescriptor* descriptor, int32_t value0, void* pointer0,
                              int32_t value1, void* pointer1);
  void OnDataReceived(void* pointer0, void* pointer1, void* pointer2, int32_t value, void* pointer3,
                      float amount);

 private:
  struct Offer {
    std::string mediaType;
    std::string selectionKey;
    RepresentationDescriptor descriptor{};
  };
  struct Asset {
    int index = 0;
    std::string title;
    std::vector<Offer> offers;  // filled before any descriptor points into it
    int chosen = -1;            // the first accepted offer
    int chunksLeft = 0;
    int chunk = 0;
    std::vector<unsigned char> data;
  };

  int PhaseOf(int32_t frame) const;
  void StartAsset(int32_t frame);
  void DeliverChunks(int phase);
  void DeliverChunk(Asset& asset, int phase);
  bool ModelDecision(const Offer& offer, PolicyPhaseReport& report, int assetIndex);
  std::vector<Offer> OffersFor(int assetIndex);

  const BridgeApi& api_;
  Invariants& invariants_;
  int assetEvery_;
  int hostCallbacksFrom_;
  int hostCallbacksUntil_;
  std::mt19937 rng_;
  LogProducer playbackLog_;
  LogProducer hostCallbackLog_;
  std::deque<Asset> streaming_;  // deque: an asset's address is handed to the library and must not move
  std::string modelKey_;         // what the library's policy is predicted to hold
  PlaybackReport report_;

  // What the handler being called right now must pass to the host callback unchanged.
  struct Expected {
    int32_t value0 = 0, value1 = 0;
    void* pointers[4] = {};
    RepresentationDescriptor* descriptor = nullptr;
    float amount = 0;
    bool hostAnswer = false;
    int calls = 0;
  } expected_;
};

}  // namespace quorl::host
