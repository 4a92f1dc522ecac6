#include "bridge_model.h"

#include <cstring>

namespace quorl::host {

namespace {

const char* const kRelayNames[3] = {"OnAssetInitialised", "OnAssetSelectRepresentation",
                                    "OnAssetRepresentationDataReceived"};

thread_local RelayEvent* relayCall = nullptr;
LogLedger* hostLedger = nullptr;
LogProducer* hostLog = nullptr;
int64_t hostInitialisations = 0;  // under the bridge mutex

uint32_t Bits(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

std::string Describe(const RelayEvent& e) {
  return Printf("(%d, %d, %p, %p, %p, %p, descriptor %p, amount %#x)", e.value0, e.value1, e.pointers[0],
                e.pointers[1], e.pointers[2], e.pointers[3], static_cast<void*>(e.descriptor),
                Bits(e.amount));
}

// A host function in `slot` received `seen`: checks it against the handler call in progress on this
// thread, and returns that call, or null when there is none.
RelayEvent* Arrived(Slot slot, const RelayEvent& seen) {
  ThreadContext& context = CurrentContext();
  RelayEvent* call = relayCall;
  const char* name = kRelayNames[seen.kind];
  if (call == nullptr || call->kind != seen.kind) {
    FAIL(context, kRelayArguments, "the %s callback ran outside a call of its handler", name);
    return nullptr;
  }
  // The handler holds the bridge mutex while it calls us, so the model is ours to read.
  EXPECT(context, kRelayCallbackSet, Model().relay[seen.kind] == slot, "%s: function %d ran, %d was set last",
         name, static_cast<int>(slot), static_cast<int>(Model().relay[seen.kind]));
  // Bit for bit: a relay that does arithmetic on the float turns -0 into +0 or quiets a NaN.
  EXPECT(context, kRelayArguments,
         std::memcmp(call->pointers, seen.pointers, sizeof(seen.pointers)) == 0 &&
             call->value0 == seen.value0 && call->value1 == seen.value1 &&
             call->descriptor == seen.descriptor && Bits(call->amount) == Bits(seen.amount),
         "%s: expected %s, saw %s", name, Describe(*call).c_str(), Describe(seen).c_str());
  call->called = slot;
  ++call->calls;
  return call;
}

template <Slot kSlot>
void OnInitialised(int32_t value, void* pointer) {
  if (Arrived(kSlot, RelayEvent{kInitialised, value, 0, {pointer}}) == nullptr || kSlot != kFirst) return;
  // Calling back into the library from inside works because the bridge mutex is recursive.
  ThreadContext& context = CurrentContext();
  CALL(context, Map_SetValue)("host.assetsInitialised", static_cast<int32_t>(++hostInitialisations));
  hostLedger->Add(context, *hostLog, 1, "host received asset " + std::to_string(value));
}

template <Slot kSlot>
bool OnSelect(RepresentationDescriptor* descriptor, int32_t value0, void* pointer0, int32_t value1,
              void* pointer1) {
  RelayEvent* call = Arrived(kSlot, RelayEvent{kSelect, value0, value1, {pointer0, pointer1}, descriptor});
  if (call == nullptr) return false;
  if (kSlot == kSecond) return call->hostAnswer = (value1 & 1) == 0;
  // This host caps quality: no "high" volumetric representation, everything else is welcome.
  const std::string mediaType = descriptor->mediaType != nullptr ? descriptor->mediaType : "";
  const std::string key = descriptor->selectionKey != nullptr ? descriptor->selectionKey : "";
  call->hostAnswer = !(IsVolumetric(mediaType) && key == "high");
  if (!call->hostAnswer)
    hostLedger->Add(CurrentContext(), *hostLog, 2, "host refused " + mediaType + " " + key);
  return call->hostAnswer;
}

template <Slot kSlot>
void OnData(void* pointer0, void* pointer1, void* pointer2, int32_t value, void* pointer3, float amount) {
  Arrived(kSlot, RelayEvent{kData, value, 0, {pointer0, pointer1, pointer2, pointer3}, nullptr, amount});
}

const OnAssetInitialisedCallback kInitialisedCallbacks[3] = {nullptr, &OnInitialised<kFirst>,
                                                             &OnInitialised<kSecond>};
const OnAssetSelectRepresentationCallback kSelectCallbacks[3] = {nullptr, &OnSelect<kFirst>,
                                                                 &OnSelect<kSecond>};
const OnAssetRepresentationDataReceivedCallback kDataCallbacks[3] = {nullptr, &OnData<kFirst>,
                                                                     &OnData<kSecond>};

}  // namespace

bool IsVolumetric(const std::string& mediaType) {
  return mediaType.compare(0, 11, "volumetric/") == 0;
}

PolicyOutcome DecideByPolicy(std::string* held, const std::string& mediaType, const std::string& key) {
  if (!IsVolumetric(mediaType)) return PolicyOutcome::kNotVolumetric;
  if (!held->empty()) return key == *held ? PolicyOutcome::kSameKey : PolicyOutcome::kOtherKey;
  *held = key;
  return key.empty() ? PolicyOutcome::kEmptyKey : PolicyOutcome::kKeyFixed;
}

void SetRelayHostLog(LogLedger* ledger, LogProducer* log) {
  hostLedger = ledger;
  hostLog = log;
}

int64_t HostInitialisations() {
  return hostInitialisations;
}

void SetRelayCallback(ThreadContext& context, RelayKind kind, Slot slot) {
  if (kind == kInitialised) CALL(context, Callback_Set_OnAssetInitialised)(kInitialisedCallbacks[slot]);
  if (kind == kSelect) CALL(context, Callback_Set_OnAssetSelectRepresentation)(kSelectCallbacks[slot]);
  if (kind == kData) CALL(context, Callback_Set_OnAssetRepresentationDataReceived)(kDataCallbacks[slot]);
  Model().relay[kind] = slot;
}

bool Deliver(ThreadContext& context, RelayEvent& event, bool callbacksKnown, std::string* policyKey) {
  const Slot expected = callbacksKnown ? Model().relay[event.kind] : kNone;
  bool answer = false;
  relayCall = &event;
  void** p = event.pointers;
  if (event.kind == kInitialised) CALL(context, StaticHandler_OnAssetInitialised)(event.value0, p[0]);
  if (event.kind == kSelect) {
    answer = CALL(context, StaticHandler_OnAssetSelectRepresentation)(event.descriptor, event.value0, p[0],
                                                                      event.value1, p[1]);
  }
  if (event.kind == kData) {
    const auto handler = CALL(context, StaticHandler_OnAssetRepresentationDataReceived);
    handler(p[0], p[1], p[2], event.value0, p[3], event.amount);
  }
  relayCall = nullptr;
  if (event.kind == kSelect && event.calls == 1) {
    EXPECT(context, kRelayAnswer, answer == event.hostAnswer,
           "the host function answered %d, the handler returned %d", event.hostAnswer, answer);
  } else if (event.kind == kSelect && event.calls == 0) {
    const std::string mediaType = event.descriptor->mediaType;
    const std::string key = event.descriptor->selectionKey;
    const std::string before = *policyKey;
    event.byPolicy = true;
    event.outcome = DecideByPolicy(policyKey, mediaType, key);
    const bool predicted = event.outcome != PolicyOutcome::kOtherKey;
    EXPECT(context, kSelectionPolicy, answer == predicted,
           "media type \"%s\" key \"%s\" with key \"%s\" held: %s", mediaType.c_str(), key.c_str(),
           before.c_str(), answer ? "accepted" : "refused");
  }
  // Unless the callbacks are known, one may have been set or cleared just before the call.
  EXPECT(context, kRelayCallbackSet,
         callbacksKnown ? event.calls == (expected == kNone ? 0 : 1) && event.called == expected
                        : event.calls <= 1,
         "%s with host function %d set: %d calls, the last of function %d", kRelayNames[event.kind],
         static_cast<int>(expected), event.calls, static_cast<int>(event.called));
  return answer;
}

}  // namespace quorl::host
