// AssetRelay: the host's side of the asset callback relay, and the checks of every handler call. The
// playback role calls the StaticHandler_* exports as a playback library does; the library passes each
// call on to the callback the host set last, with the bridge mutex held, or, for a representation offer
// with no callback set, decides by its built-in policy, which a model here predicts.
//
// The host has two functions per callback (slots), so a relay that calls a stale one is caught. The
// first is the session's host: it counts what it receives in the named integer "host.assetsInitialised",
// calling back into the library from inside the callback, logs it, and refuses volumetric "high"
// representations. The second answers by the parity of the offer's second value.
//
// Threads: Deliver runs on the playback thread, the only one that calls the handlers, so the callbacks
// run there too and find what they must receive through a thread-local pointer. SetRelayCallback runs
// under Lock, or in a session on the main thread between frames.
#pragma once

#include <cstdint>
#include <string>

#include "bridge_model.h"
#include "log_ledger.h"

namespace quorl::host {

enum RelayKind : int { kInitialised = 0, kSelect = 1, kData = 2 };

bool IsVolumetric(const std::string& mediaType);

// The built-in policy: anything but a volumetric media type ("volumetric/" and more) is accepted; the
// first volumetric offer with a non-empty key fixes that key, and from then on only it is accepted.
enum class PolicyOutcome { kNotVolumetric, kEmptyKey, kKeyFixed, kSameKey, kOtherKey };
class SelectionPolicy {
 public:
  PolicyOutcome Decide(const std::string& mediaType, const std::string& key);
  const std::string& key() const { return key_; }

 private:
  std::string key_;
};

// One handler call: what its callback must receive, and what happened.
struct RelayEvent {
  RelayKind kind = kInitialised;
  int32_t value0 = 0;
  int32_t value1 = 0;
  void* pointers[4] = {};
  RepresentationDescriptor* descriptor = nullptr;
  float amount = 0;

  Slot called = kNone;
  int calls = 0;
  bool hostAnswer = false;
  bool byPolicy = false;  // an offer the built-in policy decided, with this outcome
  PolicyOutcome outcome = PolicyOutcome::kNotVolumetric;
};

// The log the host functions write to: the playback thread's, made before the threads start.
void SetRelayHostLog(LogLedger* ledger, LogProducer* log);
// How many initialisations reached the first host function.
int64_t HostInitialisations();

// Sets callback `kind` to the host function in `slot` (kNone clears it), and the model with it.
void SetRelayCallback(ThreadContext& context, RelayKind kind, Slot slot);

// Calls the handler of `event` and checks what reached the host; returns the handler's answer.
// `callbacksKnown`: nobody changes the callbacks meanwhile (Lock is held, or the session's frame order
// keeps them still), so which one must run, if any, is known.
bool Deliver(ThreadContext& context, RelayEvent& event, bool callbacksKnown, SelectionPolicy& policy);

}  // namespace quorl::host
