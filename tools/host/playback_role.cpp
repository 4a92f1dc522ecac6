#include "playback_role.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace quorl::host {

namespace {

constexpr int kChunksPerAsset = 3;
constexpr int kHostPhase = 1;

// A session draws from the first five media types and four keys; a soak from all, edge cases included.
const char* const kMediaTypes[] = {
    "video/h264",       "audio/opus",
    "volumetric/mesh",  "volumetric/pointcloud",
    "volumetric",       "volumetric/",
    "Volumetric/mesh",  "",
    "volumetricmesh/x", "volumetric/a media type longer than any small-text buffer"};
const char* const kKeys[] = {"high", "medium", "low",
                             "",     "low ",   "a selection key longer than any small-text buffer"};
const char* const kTitles[] = {"Dancer",    "Street Musician", "Lecture Hall", "Chess Match",
                               "Juggler",   "Weather Report",  "Tai Chi",      "Puppet Show",
                               "Beatboxer", "Sculptor",        "Skater",       "Storyteller"};

float AnyAmount(Random& random) {
  switch (random.Below(8)) {
    case 0:
      return -0.0f;
    case 1:
      return INFINITY;
    case 2:
      return std::nanf("0x12345");  // a quiet NaN with a payload
    case 3:
      return 1e-40f;  // subnormal
    case 4:
      return FLT_MAX;
    default: {
      // Any finite value (the top exponent bit cleared); signalling NaNs might come back quieted.
      const uint32_t bits = static_cast<uint32_t>(random.Next() >> 32) & 0xBFFFFFFFu;
      float value = 0;
      std::memcpy(&value, &bits, sizeof(value));
      return value;
    }
  }
}

}  // namespace

PlaybackRole::PlaybackRole(ThreadContext& context, LogLedger& log, int frames)
    : context_(context),
      ledger_(log),
      log_(log.AddProducer("playback")),
      hostLog_(log.AddProducer("host-callback")),
      assetEvery_(std::max(1, frames / 12)) {
  SetRelayHostLog(&ledger_, &hostLog_);
  CALL(context_, Map_Add)("playback.assetsReady", 0);
  CALL(context_, Map_Add)("host.assetsInitialised", 0);
}

std::vector<PlaybackRole::Offer> PlaybackRole::OffersFor(int index) {
  Random& random = context_.random();
  std::vector<Offer> offers;
  if (index == 0) {
    // The first asset shows the policy at work: an empty key leaves the choice open, the next key
    // fixes it, another key is refused, and a bare "volumetric" (no slash) is not volumetric at all.
    const unsigned fixed = random.Below(3);
    const unsigned other = (fixed + 1 + random.Below(2)) % 3;
    offers = {{"video/h264", "", {}},
              {"volumetric/mesh", "", {}},
              {"volumetric/mesh", kKeys[fixed], {}},
              {"volumetric/pointcloud", kKeys[other], {}},
              {"volumetric", "low", {}}};
  } else {
    for (int i = 3 + static_cast<int>(random.Below(3)); i > 0; --i)
      offers.push_back({kMediaTypes[random.Below(5)], kKeys[random.Below(4)], {}});
  }
  for (Offer& offer : offers)
    offer.descriptor = RepresentationDescriptor{offer.mediaType.c_str(), offer.selectionKey.c_str()};
  return offers;
}

void PlaybackRole::Frame(int32_t frame, int phase) {
  if (frame % assetEvery_ == 0) StartAsset(phase);
  DeliverChunks();
}

void PlaybackRole::Drain() {
  while (!streaming_.empty())
    DeliverChunks();
}

void PlaybackRole::StartAsset(int phase) {
  PolicyPhaseReport& report = phases_[phase];
  Asset& asset = streaming_.emplace_back();
  asset.index = assetsStarted_++;
  asset.label = "asset " + std::to_string(asset.index) + " \"" + kTitles[asset.index % 12] + "\"";
  asset.offers = OffersFor(asset.index);
  asset.data.assign(4096, static_cast<unsigned char>(asset.index));
  ++report.assets;
  ledger_.Add(context_, log_, 1,
              asset.label + ": manifest parsed, " + std::to_string(asset.offers.size()) + " representations");

  RelayEvent initialised;
  initialised.value0 = asset.index;
  initialised.pointers[0] = &asset;
  Deliver(context_, initialised, true, policy_);
  ++initialisedSent_;
  initialisedReachedHost_ += initialised.calls;

  for (size_t i = 0; i < asset.offers.size(); ++i) {
    Offer& offer = asset.offers[i];
    RelayEvent select;
    select.kind = kSelect;
    select.descriptor = &offer.descriptor;
    select.value0 = asset.index;
    select.pointers[0] = &asset;
    select.value1 = static_cast<int32_t>(i);
    select.pointers[1] = &offer;
    const bool answer = Deliver(context_, select, true, policy_);
    ++report.offers;
    ++(answer ? report.accepted : report.refused);
    if (select.byPolicy) {
      ++report.outcomes[static_cast<int>(select.outcome)];
      if (select.outcome == PolicyOutcome::kKeyFixed) {
        report.keyFixed = offer.selectionKey;
        report.keyFixedByAsset = asset.index;
        report.keyFixedMediaType = offer.mediaType;
      }
    }
    if (answer && asset.chosen < 0) asset.chosen = static_cast<int>(i);
  }
  report.keyAtEnd = policy_.key();

  const bool unavailable = asset.index > 0 && context_.random().OneIn(8);
  if (asset.chosen < 0 || unavailable) {
    ledger_.Add(context_, log_, 3,
                asset.label + ": " + CALL(context_, QuorlError_ToString)(unavailable ? 202 : 203));
    ++assetsFailed_;
    streaming_.pop_back();
    return;
  }
  const Offer& chosen = asset.offers[static_cast<size_t>(asset.chosen)];
  CALL(context_, Map_Add)(("asset." + std::to_string(asset.index) + ".representation").c_str(), asset.chosen);
  ledger_.Add(context_, log_, 1,
              asset.label + ": streaming " + chosen.mediaType +
                  (chosen.selectionKey.empty() ? "" : " [" + chosen.selectionKey + "]"));
}

void PlaybackRole::DeliverChunks() {
  for (Asset& asset : streaming_) {
    if (asset.chunk == kChunksPerAsset) continue;
    RelayEvent data;
    data.kind = kData;
    data.pointers[0] = &asset;
    data.pointers[1] = &asset.offers[static_cast<size_t>(asset.chosen)];
    data.pointers[2] = asset.data.data();
    data.pointers[3] = this;
    data.value0 = asset.chunk;
    data.amount = static_cast<float>(asset.chunk + 1) / static_cast<float>(kChunksPerAsset);
    Deliver(context_, data, true, policy_);
    ++chunksSent_;
    chunksReachedHost_ += data.calls;
    if (++asset.chunk == kChunksPerAsset) {
      CALL(context_, Map_Remove)(("asset." + std::to_string(asset.index) + ".representation").c_str());
      CALL(context_, Map_SetValue)("playback.assetsReady", ++assetsReady_);
      ledger_.Add(context_, log_, 1, asset.label + ": ready");
    }
  }
  // Every asset streams the same number of chunks, so they finish in the order they started.
  while (!streaming_.empty() && streaming_.front().chunk == kChunksPerAsset)
    streaming_.pop_front();
}

void PlaybackRole::Step() {
  Random& random = context_.random();
  if (random.OneIn(32)) {
    ledger_.Add(context_, log_, static_cast<int32_t>(random.Below(7)) - 2,
                std::string(random.Below(61), static_cast<char>('a' + random.Below(26))));
  }
  if (random.OneIn(64)) {
    // The playback side also changes the host's callbacks now and then, under Lock like everyone.
    UnderLock(context_, false,
              [&] { SetRelayCallback(context_, kSelect, static_cast<Slot>(random.Below(3))); });
  }
  const std::string mediaType = random.Pick(kMediaTypes);
  const std::string key = random.Pick(kKeys);
  RepresentationDescriptor descriptor{mediaType.c_str(), key.c_str()};
  RelayEvent event;
  event.kind = static_cast<RelayKind>(random.Below(3));
  event.value0 = random.AnyInt();
  event.value1 = random.AnyInt();
  for (void*& pointer : event.pointers)
    pointer = random.OneIn(8) ? nullptr : reinterpret_cast<void*>(static_cast<uintptr_t>(random.Next()));
  event.descriptor = &descriptor;
  event.amount = AnyAmount(random);

  const bool locked = random.OneIn(2);
  auto body = [&] {
    if (locked && event.kind == kSelect && Model().relay[kSelect] == kNone && policy_.key().empty() &&
        IsVolumetric(mediaType) && random.OneIn(4)) {
      // The only text the policy copies; a null one raises, and the key stays open.
      descriptor.selectionKey = nullptr;
      std::string seen = "no exception";
      try {
        CALL(context_, StaticHandler_OnAssetSelectRepresentation)
        (&descriptor, event.value0, event.pointers[0], event.value1, event.pointers[1]);
      } catch (const std::logic_error& error) {
        seen = error.what();
      }
      EXPECT(context_, kNullText, seen == "basic_string::_M_construct null not valid",
             "the policy with a null selection key raised: %s", seen.c_str());
      return;
    }
    Deliver(context_, event, locked, policy_);
  };
  if (locked) {
    UnderLock(context_, random.OneIn(4), body);
  } else {
    body();
  }
}

void PlaybackRole::Finish(ThreadContext& main) {
  const int32_t ready = CALL(main, Map_GetValue)("playback.assetsReady");
  EXPECT(main, kSharedModel, ready == assetsReady_,
         "playback.assetsReady reads %d, the playback thread counted %d", ready, assetsReady_);
  for (int index = 0; index < assetsStarted_; ++index) {
    const std::string key = "asset." + std::to_string(index) + ".representation";
    EXPECT(main, kSharedModel, !CALL(main, Map_Contains)(key.c_str()), "%s outlived its asset", key.c_str());
  }
}

void PlaybackRole::PrintSummary() const {
  static const char* const kPhases[3] = {"built-in policy, no host callbacks",
                                         "host callbacks set (this host refuses volumetric \"high\")",
                                         "callbacks cleared, built-in policy again"};
  std::printf("Representations   offers decided in three phases\n");
  for (int phase = 0; phase < 3; ++phase) {
    const PolicyPhaseReport& report = phases_[phase];
    std::printf("                  %s: %d assets, %d offers, %d accepted, %d refused\n", kPhases[phase],
                report.assets, report.offers, report.accepted, report.refused);
    if (phase == kHostPhase) continue;
    const int* outcomes = report.outcomes;
    std::printf("                    %d not volumetric", outcomes[0]);
    if (outcomes[1] > 0) std::printf(", %d volumetric with an empty key (choice left open)", outcomes[1]);
    if (!report.keyFixed.empty()) {
      std::printf("\n                    key \"%s\" fixed by asset %d (%s)", report.keyFixed.c_str(),
                  report.keyFixedByAsset, report.keyFixedMediaType.c_str());
    } else if (phase > 0 && !phases_[phase - 1].keyAtEnd.empty()) {
      std::printf("\n                    key \"%s\" still held from before",
                  phases_[phase - 1].keyAtEnd.c_str());
    }
    std::printf("\n                    %d with that key accepted, %d with another key refused\n", outcomes[3],
                outcomes[4]);
  }
  std::printf(
      "Asset events      %d assets: %d ready, %d failed\n"
      "                  %s initialisations (%s reached the host), %s data chunks (%s reached the host)\n",
      assetsStarted_, assetsReady_, assetsFailed_, Grouped(initialisedSent_).c_str(),
      Grouped(initialisedReachedHost_).c_str(), Grouped(chunksSent_).c_str(),
      Grouped(chunksReachedHost_).c_str());
}

}  // namespace quorl::host
