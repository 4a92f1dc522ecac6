// PlaybackRole: the playback library's thread. It reports asset events through the StaticHandler_*
// exports, as a playback library of the family does, and AssetRelay checks each call.
//
// In a session it streams about a dozen assets over the frames: each is initialised, its representations
// are offered one by one for selection, and the chosen one's data arrives in chunks. The session runs in
// three phases: the host sets no callbacks, so the built-in policy decides and the first volumetric
// offer with a key fixes it; then the host's callbacks decide; then they are cleared again and the policy
// goes on with the key as it stood. In a soak it makes random handler calls, under Lock or not, while
// other threads change the callbacks, with random arguments down to the float's bits.
//
// Threads: everything but Finish and PrintSummary runs on the playback thread; those run on the main
// thread after it stopped.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "asset_relay.h"
#include "log_ledger.h"

namespace quorl::host {

// What the offers of one session phase looked like.
struct PolicyPhaseReport {
  int assets = 0;
  int offers = 0;
  int accepted = 0;
  int refused = 0;
  int outcomes[5] = {};  // by PolicyOutcome, for the offers the built-in policy decided
  std::string keyFixed;  // the key this phase fixed, if it fixed one
  int keyFixedByAsset = -1;
  std::string keyFixedMediaType;
  std::string keyAtEnd;
};

class PlaybackRole {
 public:
  // `frames`: the length of a session (0 in a soak).
  PlaybackRole(ThreadContext& context, LogLedger& log, int frames);

  // Session: the asset events of one frame in phase 0, 1 or 2; after the last frame, what still streams.
  void Frame(int32_t frame, int phase);
  void Drain();
  // Soak: one random handler call.
  void Step();

  // Main thread, afterwards: the named integers the playback thread kept, and the session's summary.
  void Finish(ThreadContext& main);
  void PrintSummary() const;

  LogProducer& log() { return log_; }
  LogProducer& hostLog() { return hostLog_; }

 private:
  struct Offer {
    std::string mediaType;
    std::string selectionKey;
    RepresentationDescriptor descriptor{};
  };
  struct Asset {
    int index = 0;
    std::string label;
    std::vector<Offer> offers;  // filled before any descriptor points into it
    int chosen = -1;            // the first accepted offer
    int chunk = 0;
    std::vector<unsigned char> data;
  };

  void StartAsset(int phase);
  std::vector<Offer> OffersFor(int index);
  void DeliverChunks();

  ThreadContext& context_;
  LogLedger& ledger_;
  LogProducer& log_;
  LogProducer& hostLog_;
  const int assetEvery_;
  SelectionPolicy policy_;
  std::deque<Asset> streaming_;  // deque: an asset's address is handed to the library and must not move
  PolicyPhaseReport phases_[3];
  int assetsStarted_ = 0;
  int assetsReady_ = 0;
  int assetsFailed_ = 0;
  int64_t initialisedSent_ = 0;
  int64_t initialisedReachedHost_ = 0;
  int64_t chunksSent_ = 0;
  int64_t chunksReachedHost_ = 0;
};

}  // namespace quorl::host
