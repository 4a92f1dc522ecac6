#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "roles.h"

namespace quorl::host {

namespace {

constexpr int kChunksPerAsset = 3;

// A session draws from the first five media types and four keys; a soak from all, edge cases included.
const char* const kMediaTypes[] = {
    "video/h264",       "audio/opus",
    "volumetric/mesh",  "volumetric/pointcloud",
    "volumetric",       "volumetric/",
    "Volumetric/mesh",  "",
    "volumetricmesh/x", "volumetric/a media type longer than any small-text buffer"};
const char* const kKeys[] = {
    "high", "medium", "low", "", "low ", "a selection key longer than any small-text buffer", "High"};
// The named integer that holds the representation an asset streams, while it streams.
std::string RepresentationKey(int asset) {
  return "asset." + std::to_string(asset) + ".representation";
}

float AnyAmount(Random& random) {
  const float special[] = {-0.0f, INFINITY, std::nanf("0x12345"), 1e-40f /* subnormal */, FLT_MAX};
  if (random.OneIn(2)) return random.Pick(special);
  // Any finite value (the top exponent bit cleared); signalling NaNs might come back quieted.
  const uint32_t bits = static_cast<uint32_t>(random.Next() >> 32) & 0xBFFFFFFFu;
  float value = 0;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

}  // namespace

PlaybackRole::PlaybackRole(ThreadContext& context, LogLedger& log, const SessionPlan* session)
    : context_(context),
      ledger_(log),
      log_(log.AddProducer("playback")),
      hostLog_(log.AddProducer("host-callback")),
      session_(session) {
  SetRelayHostLog(&ledger_, &hostLog_);
  CALL(context_, Map_Add)("playback.assetsReady", 0);
  CALL(context_, Map_Add)("host.assetsInitialised", 0);
}

void PlaybackRole::Frame(int frame) {
  // About a dozen assets over the session.
  if (frame % std::max(1, session_->frames / 12) == 0) {
    StartAsset(frame < session_->hostCallbacksFrom ? 0 : frame < session_->hostCallbacksUntil ? 1 : 2);
  }
  DeliverChunks();
}

void PlaybackRole::Step() {
  Random& random = context_.random;
  if (random.OneIn(32)) {
    ledger_.Add(context_, log_, random.Below(7) - 2,
                std::string(random.Below(61), static_cast<char>('a' + random.Below(26))));
  }
  if (random.OneIn(64)) {
    // The playback side also changes the host's callbacks now and then, under Lock like everyone.
    UnderLock(context_, false,
              [&] { SetRelayCallback(context_, kSelect, static_cast<Slot>(random.Below(3))); });
  }
  if (streaming_.size() < 4 && random.OneIn(2)) {
    StartAsset(0);
  } else {
    DeliverChunks();
  }
}

void PlaybackRole::Drain() {
  while (!streaming_.empty())
    DeliverChunks();
}

// In a session nobody changes the callbacks during a frame; in a soak only Lock keeps them still.
bool PlaybackRole::Relay(RelayEvent& event) {
  if (session_ != nullptr) return Deliver(context_, event, true, &policyKey_);
  // A soak hands the relay any values and addresses (null among them), which it must pass on untouched;
  // the event keeps its own afterwards.
  Random& random = context_.random;
  const RelayEvent own = event;
  if (random.OneIn(2)) {
    // Of the values and addresses, each kind of event carries the first one, two and four.
    const int carried = event.kind == kInitialised ? 1 : event.kind == kSelect ? 2 : 4;
    event.value0 = random.AnyInt();
    if (event.kind == kSelect) event.value1 = random.AnyInt();
    for (int i = 0; i < carried; ++i) {
      event.pointers[i] =
          random.OneIn(8) ? nullptr : reinterpret_cast<void*>(static_cast<uintptr_t>(random.Next()));
    }
  }
  bool answer = false;
  if (random.OneIn(2)) {
    answer = Deliver(context_, event, false, &policyKey_);
  } else {
    UnderLock(context_, random.OneIn(4), [&] { answer = Deliver(context_, event, true, &policyKey_); });
  }
  event.value0 = own.value0;
  event.value1 = own.value1;
  std::copy(std::begin(own.pointers), std::end(own.pointers), std::begin(event.pointers));
  return answer;
}

void PlaybackRole::StartAsset(int phase) {
  Random& random = context_.random;
  PhaseReport& report = phases_[phase];
  Asset& asset = streaming_.emplace_back();
  asset.index = assetsStarted_++;
  asset.label = "asset " + std::to_string(asset.index);
  if (asset.index == 0) {
    // The first asset shows the policy at work: an empty key leaves the choice open, the next key
    // fixes it, another key is refused, and a bare "volumetric" (no slash) is not volumetric at all.
    const unsigned fixed = random.Below(3);
    asset.offers = {{"video/h264", "", {}},
                    {"volumetric/mesh", "", {}},
                    {"volumetric/mesh", kKeys[fixed], {}},
                    {"volumetric/pointcloud", kKeys[(fixed + 1 + random.Below(2)) % 3], {}},
                    {"volumetric", "low", {}}};
  } else {
    const bool soak = session_ == nullptr;
    for (int i = 3 + random.Below(3); i > 0; --i)
      asset.offers.push_back(
          {kMediaTypes[random.Below(soak ? 10 : 5)], kKeys[random.Below(soak ? 7 : 4)], {}});
  }
  for (Offer& offer : asset.offers)
    offer.descriptor = RepresentationDescriptor{offer.mediaType.c_str(), offer.selectionKey.c_str()};
  ++report.assets;
  ledger_.Add(context_, log_, 1,
              asset.label + ": manifest parsed, " + std::to_string(asset.offers.size()) + " offers");

  RelayEvent initialised{kInitialised, asset.index, 0, {&asset}};
  Relay(initialised);
  ++initialisedSent_;
  initialisedReached_ += initialised.calls;

  for (size_t i = 0; i < asset.offers.size(); ++i) {
    Offer& offer = asset.offers[i];
    if (session_ == nullptr && random.OneIn(16)) NullKey(offer, asset);
    RelayEvent select{kSelect, asset.index, static_cast<int32_t>(i), {&asset, &offer}, &offer.descriptor};
    const bool answer = Relay(select);
    ++(answer ? report.accepted : report.refused);
    ++report.offers;
    if (select.byPolicy) ++report.outcomes[static_cast<int>(select.outcome)];
    if (select.byPolicy && select.outcome == PolicyOutcome::kKeyFixed) {
      report.keyFixed = Printf("\"%s\" fixed by asset %d (%s)", offer.selectionKey.c_str(), asset.index,
                               offer.mediaType.c_str());
    }
    if (answer && asset.chosen < 0) asset.chosen = static_cast<int>(i);
  }
  report.keyAtEnd = policyKey_;

  const bool unavailable = asset.index > 0 && random.OneIn(8);
  if (asset.chosen < 0 || unavailable) {
    ledger_.Add(context_, log_, 3,
                asset.label + ": " + CALL(context_, QuorlError_ToString)(unavailable ? 202 : 203));
    ++assetsFailed_;
    streaming_.pop_back();
    return;
  }
  const Offer& chosen = asset.offers[static_cast<size_t>(asset.chosen)];
  CALL(context_, Map_Add)(RepresentationKey(asset.index).c_str(), asset.chosen);
  ledger_.Add(context_, log_, 1,
              asset.label + ": streaming " + chosen.mediaType + " [" + chosen.selectionKey + "]");
}

// Under Lock, with no callback set and no key fixed yet: the key is the only text the policy copies, so a
// null one raises, and the key stays open.
void PlaybackRole::NullKey(Offer& offer, const Asset& asset) {
  UnderLock(context_, false, [&] {
    if (Model().relay[kSelect] != kNone || !policyKey_.empty() || !IsVolumetric(offer.mediaType)) return;
    offer.descriptor.selectionKey = nullptr;
    std::string seen = "no exception";
    try {
      const auto handler = CALL(context_, StaticHandler_OnAssetSelectRepresentation);
      handler(&offer.descriptor, asset.index, nullptr, 0, nullptr);
    } catch (const std::logic_error& error) {
      seen = error.what();
    }
    offer.descriptor.selectionKey = offer.selectionKey.c_str();
    EXPECT(context_, kNullText, seen == "basic_string::_M_construct null not valid",
           "the policy with a null selection key raised: %s", seen.c_str());
  });
}

void PlaybackRole::DeliverChunks() {
  for (Asset& asset : streaming_) {
    if (asset.chunk == kChunksPerAsset) continue;
    const float amount =
        session_ != nullptr ? (asset.chunk + 1.0f) / kChunksPerAsset : AnyAmount(context_.random);
    void* offer = &asset.offers[static_cast<size_t>(asset.chosen)];
    RelayEvent data{kData, asset.chunk, 0, {&asset, offer, asset.data, this}, nullptr, amount};
    Relay(data);
    ++chunksSent_;
    chunksReached_ += data.calls;
    if (++asset.chunk < kChunksPerAsset) continue;
    CALL(context_, Map_Remove)(RepresentationKey(asset.index).c_str());
    CALL(context_, Map_SetValue)("playback.assetsReady", ++assetsReady_);
    ledger_.Add(context_, log_, 1, asset.label + ": ready");
  }
  // Every asset streams the same number of chunks, so they finish in the order they started.
  while (!streaming_.empty() && streaming_.front().chunk == kChunksPerAsset)
    streaming_.pop_front();
}

void PlaybackRole::Finish(ThreadContext& main) {
  const int32_t ready = CALL(main, Map_GetValue)("playback.assetsReady");
  EXPECT(main, kSharedModel, ready == assetsReady_,
         "playback.assetsReady reads %d, the playback thread counted %d", ready, assetsReady_);
  const int32_t reached = CALL(main, Map_GetValue)("host.assetsInitialised");
  EXPECT(main, kSharedModel, reached == static_cast<int32_t>(HostInitialisations()),
         "host.assetsInitialised reads %d, the host counted %lld", reached,
         static_cast<long long>(HostInitialisations()));
  for (int index = 0; index < assetsStarted_; ++index) {
    EXPECT(main, kSharedModel, !CALL(main, Map_Contains)(RepresentationKey(index).c_str()),
           "%s outlived its asset", RepresentationKey(index).c_str());
  }
}

void PlaybackRole::PrintSummary() const {
  static const char* const kPhases[3] = {"built-in policy, no host callbacks",
                                         "host callbacks set (this host refuses volumetric \"high\")",
                                         "callbacks cleared, built-in policy again"};
  std::printf("Representations   offers decided in three phases\n");
  for (int phase = 0; phase < 3; ++phase) {
    const PhaseReport& report = phases_[phase];
    std::printf("                  %s: %d assets, %d offers, %d accepted, %d refused\n", kPhases[phase],
                report.assets, report.offers, report.accepted, report.refused);
    if (phase == 1) continue;
    const int* outcomes = report.outcomes;
    const std::string before = phase > 0 ? phases_[phase - 1].keyAtEnd : "";
    const std::string key = !report.keyFixed.empty() ? "key " + report.keyFixed
                            : before.empty()         ? "no key fixed"
                                                     : "key \"" + before + "\" still held from before";
    std::printf(
        "                    %d not volumetric, %d volumetric with an empty key (choice left open)\n"
        "                    %s\n                    %d with that key accepted, %d with another refused\n",
        outcomes[0], outcomes[1], key.c_str(), outcomes[3], outcomes[4]);
  }
  std::printf(
      "Asset events      %d assets: %d ready, %d failed\n"
      "                  %s initialisations (%s reached the host), %s data chunks (%s reached the host)\n",
      assetsStarted_, assetsReady_, assetsFailed_, Grouped(initialisedSent_).c_str(),
      Grouped(initialisedReached_).c_str(), Grouped(chunksSent_).c_str(), Grouped(chunksReached_).c_str());
}

}  // namespace quorl::host
