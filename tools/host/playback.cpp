#include "playback.h"

#include <algorithm>

namespace quorl::host {

namespace {

Playback* g_playback = nullptr;

void HostOnInitialised(int32_t value, void* pointer) {
  g_playback->OnInitialised(value, pointer);
}
bool HostOnSelectRepresentation(RepresentationDescriptor* descriptor, int32_t value0, void* pointer0,
                                int32_t value1, void* pointer1) {
  return g_playback->OnSelectRepresentation(descriptor, value0, pointer0, value1, pointer1);
}
void HostOnDataReceived(void* pointer0, void* pointer1, void* pointer2, int32_t value, void* pointer3,
                        float amount) {
  g_playback->OnDataReceived(pointer0, pointer1, pointer2, value, pointer3, amount);
}

constexpr int kPolicyPhase = 0;
constexpr int kHostPhase = 1;
constexpr int kChunksPerAsset = 3;
const char* const kVolumetricPrefix = "volumetric/";

bool IsVolumetric(const std::string& mediaType) {
  return mediaType.compare(0, 11, kVolumetricPrefix) == 0;
}

const char* const kTitles[] = {"Dancer",    "Street Musician", "Lecture Hall", "Chess Match",
                               "Juggler",   "Weather Report",  "Tai Chi",      "Puppet Show",
                               "Beatboxer", "Sculptor",        "Skater",       "Storyteller"};
const char* const kMediaTypes[] = {"video/h264", "audio/opus", "volumetric/mesh", "volumetric/pointcloud",
                                   "volumetric"};
const char* const kKeys[] = {"high", "medium", "low", ""};

const char* const kArgumentsCheck = "host callbacks receive the playback library's arguments unchanged";
const char* const kReachCheck = "asset events reach the host exactly while its callbacks are set";

}  // namespace

Playback::Playback(const BridgeApi& api, Invariants& invariants, int frames, uint32_t seed,
                   int hostCallbacksFrom, int hostCallbacksUntil)
    : api_(api),
      invariants_(invariants),
      assetEvery_(std::max(1, frames / 12)),
      hostCallbacksFrom_(hostCallbacksFrom),
      hostCallbacksUntil_(hostCallbacksUntil),
      rng_(seed ^ 0x9e3779b9u),
      playbackLog_(api, "playback"),
      hostCallbackLog_(api, "host-callback") {
  g_playback = this;
  api_.Map_Add("playback.assetsReady", 0);
  api_.Map_Add("host.assetsInitialised", 0);
}

Playback::~Playback() {
  g_playback = nullptr;
}

void Playback::SetHostCallbacks(bool set) {
  api_.Callback_Set_OnAssetInitialised(set ? &HostOnInitialised : nullptr);
  api_.Callback_Set_OnAssetSelectRepresentation(set ? &HostOnSelectRepresentation : nullptr);
  api_.Callback_Set_OnAssetRepresentationDataReceived(set ? &HostOnDataReceived : nullptr);
}

int Playback::PhaseOf(int32_t frame) const {
  if (frame < hostCallbacksFrom_) return kPolicyPhase;
  return frame < hostCallbacksUntil_ ? kHostPhase : 2;
}

std::vector<Playback::Offer> Playback::OffersFor(int assetIndex) {
  std::vector<Offer> offers;
  if (assetIndex == 0) {
    // The first asset shows the policy at work: an empty key leaves the choice open, the next key
    // fixes it, another key is refused, and a bare "volumetric" (no slash) is not volumetric at all.
    const unsigned fixed = rng_() % 3;
    const unsigned other = (fixed + 1 + rng_() % 2) % 3;
    offers = {{"video/h264", "", {}},
              {"volumetric/mesh", "", {}},
              {"volumetric/mesh", kKeys[fixed], {}},
              {"volumetric/pointcloud", kKeys[other], {}},
              {"volumetric", "low", {}}};
  } else {
    const int count = 3 + static_cast<int>(rng_() % 3);
    for (int i = 0; i < count; ++i) {
      offers.push_back({kMediaTypes[rng_() % 5], kKeys[rng_() % 4], {}});
    }
  }
  for (Offer& offer : offers) {
    offer.descriptor.mediaType = offer.mediaType.c_str();
    offer.descriptor.selectionKey = offer.selectionKey.c_str();
  }
  return offers;
}

bool Playback::ModelDecision(const Offer& offer, PolicyPhaseReport& report, int assetIndex) {
  if (!IsVolumetric(offer.mediaType)) {
    ++report.notVolumetric;
    return true;
  }
  if (!modelKey_.empty()) {
    if (offer.selectionKey == modelKey_) {
      ++report.sameKeyAccepted;
      return true;
    }
    ++report.otherKeyRefused;
    return false;
  }
  modelKey_ = offer.selectionKey;
  if (modelKey_.empty()) {
    ++report.emptyKeyAccepted;
  } else {
    report.keyFixed = modelKey_;
    report.keyFixedByAsset = assetIndex;
    report.keyFixedMediaType = offer.mediaType;
  }
  return true;
}

void Playback::Frame(int32_t frame) {
  if (frame % assetEvery_ == 0) StartAsset(frame);
  DeliverChunks(PhaseOf(frame));
}

void Playback::Drain(int32_t frame) {
  while (!streaming_.empty())
    DeliverChunks(PhaseOf(frame));
}

void Playback::DeliverChunks(int phase) {
  for (Asset& asset : streaming_)
    DeliverChunk(asset, phase);
  // Every asset streams the same number of chunks, so they finish in the order they started.
  while (!streaming_.empty() && streaming_.front().chunksLeft == 0)
    streaming_.pop_front();
}

void Playback::StartAsset(int32_t frame) {
  const int phase = PhaseOf(frame);
  PolicyPhaseReport& phaseReport = report_.phases[phase];
  Asset& asset = streaming_.emplace_back();
  asset.index = report_.assetsStarted++;
  asset.title = kTitles[asset.index % 12];
  asset.offers = OffersFor(asset.index);
  asset.data.assign(4096, static_cast<unsigned char>(asset.index));
  ++phaseReport.assets;
  const std::string label = "asset " + std::to_string(asset.index) + " \"" + asset.title + "\"";
  playbackLog_.Add(1,
                   label + ": manifest parsed, " + std::to_string(asset.offers.size()) + " representations");

  expected_ = Expected{};
  expected_.value0 = asset.index;
  expected_.pointers[0] = &asset;
  api_.StaticHandler_OnAssetInitialised(asset.index, &asset);
  ++report_.initialisedSent;
  invariants_.Check(kReachCheck, expected_.calls == (phase == kHostPhase ? 1 : 0),
                    "initialisation of " + label + " reached the host " + std::to_string(expected_.calls) +
                        " times in phase " + std::to_string(phase + 1));

  for (size_t i = 0; i < asset.offers.size(); ++i) {
    Offer& offer = asset.offers[i];
    expected_ = Expected{};
    expected_.descriptor = &offer.descriptor;
    expected_.value0 = asset.index;
    expected_.pointers[0] = &asset;
    expected_.value1 = static_cast<int32_t>(i);
    expected_.pointers[1] = &offer;
    const bool answer = api_.StaticHandler_OnAssetSelectRepresentation(&offer.descriptor, asset.index, &asset,
                                                                       static_cast<int32_t>(i), &offer);
    ++phaseReport.offers;
    ++(answer ? phaseReport.accepted : phaseReport.refused);
    const std::string what = label + " offer " + offer.mediaType + "[" + offer.selectionKey + "]";
    if (phase == kHostPhase) {
      invariants_.Check(kReachCheck, expected_.calls == 1, what + " did not reach the host's callback");
      invariants_.Check("the relay returns the host callback's answer", answer == expected_.hostAnswer,
                        what + ": host said " + (expected_.hostAnswer ? "yes" : "no") + ", relay said " +
                            (answer ? "yes" : "no"));
    } else {
      const bool predicted = ModelDecision(offer, phaseReport, asset.index);
      invariants_.Check(kReachCheck, expected_.calls == 0, what + " reached a cleared callback");
      invariants_.Check("the built-in policy fixes the first volumetric key and holds it",
                        answer == predicted,
                        what + ": expected " + (predicted ? "accepted" : "refused") + " with key \"" +
                            modelKey_ + "\", got " + (answer ? "accepted" : "refused"));
    }
    if (answer && asset.chosen < 0) asset.chosen = static_cast<int>(i);
  }
  phaseReport.keyAtEnd = modelKey_;

  if (asset.chosen < 0) {
    playbackLog_.Add(3, label + ": " + api_.QuorlError_ToString(203));
    ++report_.assetsFailed;
    streaming_.pop_back();
    return;
  }
  if (asset.index > 0 && rng_() % 8 == 0) {
    playbackLog_.Add(3, label + ": " + api_.QuorlError_ToString(202));
    ++report_.assetsFailed;
    streaming_.pop_back();
    return;
  }
  const Offer& chosen = asset.offers[static_cast<size_t>(asset.chosen)];
  api_.Map_Add(("asset." + std::to_string(asset.index) + ".representation").c_str(), asset.chosen);
  playbackLog_.Add(1, label + ": streaming " + chosen.mediaType +
                          (chosen.selectionKey.empty() ? "" : " [" + chosen.selectionKey + "]"));
  asset.chunksLeft = kChunksPerAsset;
}

void Playback::DeliverChunk(Asset& asset, int phase) {
  if (asset.chunksLeft == 0) return;
  Offer& offer = asset.offers[static_cast<size_t>(asset.chosen)];
  const float progress = static_cast<float>(asset.chunk + 1) / static_cast<float>(kChunksPerAsset);
  expected_ = Expected{};
  expected_.pointers[0] = &asset;
  expected_.pointers[1] = &offer;
  expected_.pointers[2] = asset.data.data();
  expected_.pointers[3] = &report_;
  expected_.value0 = asset.chunk;
  expected_.amount = progress;
  api_.StaticHandler_OnAssetRepresentationDataReceived(&asset, &offer, asset.data.data(), asset.chunk,
                                                       &report_, progress);
  ++report_.chunksSent;
  invariants_.Check(kReachCheck, expected_.calls == (phase == kHostPhase ? 1 : 0),
                    "a data chunk reached the host " + std::to_string(expected_.calls) + " times in phase " +
                        std::to_string(phase + 1));
  ++asset.chunk;
  if (--asset.chunksLeft == 0) {
    api_.Map_Remove(("asset." + std::to_string(asset.index) + ".representation").c_str());
    ++report_.assetsReady;
    api_.Map_SetValue("playback.assetsReady", report_.assetsReady);
    playbackLog_.Add(1, "asset " + std::to_string(asset.index) + " \"" + asset.title + "\": ready");
  }
}

void Playback::OnInitialised(int32_t value, void* pointer) {
  ++expected_.calls;
  ++report_.initialisedReachedHost;
  invariants_.Check(kArgumentsCheck, value == expected_.value0 && pointer == expected_.pointers[0],
                    "initialisation arguments changed on the way");
  // The handler holds the bridge mutex; calling back in works because it is recursive.
  api_.Map_SetValue("host.assetsInitialised", static_cast<int32_t>(report_.initialisedReachedHost));
  hostCallbackLog_.Add(1, "host received asset " + std::to_string(value));
}

bool Playback::OnSelectRepresentation(RepresentationDescriptor* descriptor, int32_t value0, void* pointer0,
                                      int32_t value1, void* pointer1) {
  ++expected_.calls;
  ++report_.selectionsReachedHost;
  invariants_.Check(kArgumentsCheck,
                    descriptor == expected_.descriptor && value0 == expected_.value0 &&
                        pointer0 == expected_.pointers[0] && value1 == expected_.value1 &&
                        pointer1 == expected_.pointers[1],
                    "selection arguments changed on the way");
  // This host caps quality: no "high" volumetric representation, everything else is welcome.
  const std::string mediaType = descriptor->mediaType;
  const std::string key = descriptor->selectionKey;
  expected_.hostAnswer = !(IsVolumetric(mediaType) && key == "high");
  if (!expected_.hostAnswer) hostCallbackLog_.Add(2, "host refused " + mediaType + " [" + key + "]");
  return expected_.hostAnswer;
}

void Playback::OnDataReceived(void* pointer0, void* pointer1, void* pointer2, int32_t value, void* pointer3,
                              float amount) {
  ++expected_.calls;
  ++report_.chunksReachedHost;
  invariants_.Check(kArgumentsCheck,
                    pointer0 == expected_.pointers[0] && pointer1 == expected_.pointers[1] &&
                        pointer2 == expected_.pointers[2] && pointer3 == expected_.pointers[3] &&
                        value == expected_.value0 && amount == expected_.amount,
                    "data-received arguments changed on the way");
}

PlaybackReport Playback::Finish() {
  invariants_.Check("shared integers agree across threads",
                    api_.Map_GetValue("playback.assetsReady") == report_.assetsReady,
                    "playback.assetsReady reads " +
                        std::to_string(api_.Map_GetValue("playback.assetsReady")) +
                        ", the playback thread counted " + std::to_string(report_.assetsReady));
  for (int index = 0; index < report_.assetsStarted; ++index) {
    const std::string key = "asset." + std::to_string(index) + ".representation";
    invariants_.Check("shared integers agree across threads", !api_.Map_Contains(key.c_str()),
                      key + " outlived its asset");
  }
  return report_;
}

}  // namespace quorl::host
