// The render thread, the playback thread and the log poller of a soak, and the relay's host functions.
#include <cfloat>
#include <chrono>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "soak_world.h"

namespace quorl::soak {

namespace {

enum RelayKind : int { kInitialised = 0, kSelect = 1, kData = 2 };
const char* const kRelayNames[3] = {"OnAssetInitialised", "OnAssetSelectRepresentation",
                                    "OnAssetRepresentationDataReceived"};

// The handler call in progress on this thread: what its callback must receive, and what it did.
struct RelayCall {
  RelayKind kind = kInitialised;
  int32_t value0 = 0;
  int32_t value1 = 0;
  void* pointers[4] = {};
  RepresentationDescriptor* descriptor = nullptr;
  float amount = 0;
  Slot called = kNone;
  int calls = 0;
};
thread_local RelayCall* relayCall = nullptr;

uint32_t Bits(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

bool SelectAnswer(Slot slot, int32_t value0, int32_t value1) {
  return slot == kFirst ? (value0 & 1) != 0 : (value1 & 1) == 0;
}

RelayCall* CalledBack(RelayKind kind, Slot slot) {
  ThreadContext& context = CurrentContext();
  RelayCall* call = relayCall;
  if (call == nullptr || call->kind != kind) {
    context.Fail(Check::kRelayArguments,
                 Printf("the %s callback ran outside a call of its handler", kRelayNames[kind]));
    return nullptr;
  }
  // The handler holds the bridge mutex while it calls us, so the model is ours to read.
  const Slot set = Model().relay[kind];
  context.Expect(Check::kRelayCallbackSet, set == slot, [&] {
    return Printf("%s: host function %d was called, but %d was set last (0 is none)", kRelayNames[kind],
                  static_cast<int>(slot), static_cast<int>(set));
  });
  call->called = slot;
  ++call->calls;
  return call;
}

template <Slot kSlot>
void OnInitialised(int32_t value, void* pointer) {
  RelayCall* call = CalledBack(kInitialised, kSlot);
  if (call == nullptr) return;
  CurrentContext().Expect(Check::kRelayArguments, value == call->value0 && pointer == call->pointers[0], [&] {
    return Printf("OnAssetInitialised: expected (%d, %p), saw (%d, %p)", call->value0, call->pointers[0],
                  value, pointer);
  });
}

template <Slot kSlot>
bool OnSelect(RepresentationDescriptor* descriptor, int32_t value0, void* pointer0, int32_t value1,
              void* pointer1) {
  RelayCall* call = CalledBack(kSelect, kSlot);
  if (call == nullptr) return false;
  CurrentContext().Expect(
      Check::kRelayArguments,
      descriptor == call->descriptor && value0 == call->value0 && pointer0 == call->pointers[0] &&
          value1 == call->value1 && pointer1 == call->pointers[1],
      [&] {
        return Printf(
            "OnAssetSelectRepresentation: expected (%p, %d, %p, %d, %p), saw (%p, %d, "
            "%p, %d, %p)",
            static_cast<void*>(call->descriptor), call->value0, call->pointers[0], call->value1,
            call->pointers[1], static_cast<void*>(descriptor), value0, pointer0, value1, pointer1);
      });
  return SelectAnswer(kSlot, value0, value1);
}

template <Slot kSlot>
void OnData(void* pointer0, void* pointer1, void* pointer2, int32_t value, void* pointer3, float amount) {
  RelayCall* call = CalledBack(kData, kSlot);
  if (call == nullptr) return;
  CurrentContext().Expect(
      Check::kRelayArguments,
      pointer0 == call->pointers[0] && pointer1 == call->pointers[1] && pointer2 == call->pointers[2] &&
          value == call->value0 && pointer3 == call->pointers[3] && Bits(amount) == Bits(call->amount),
      [&] {
        return Printf(
            "OnAssetRepresentationDataReceived: expected (%p, %p, %p, %d, %p, %#x), "
            "saw (%p, %p, %p, %d, %p, %#x)",
            call->pointers[0], call->pointers[1], call->pointers[2], call->value0, call->pointers[3],
            Bits(call->amount), pointer0, pointer1, pointer2, value, pointer3, Bits(amount));
      });
}

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

// The playback library's side: asset events through the handlers, and a model of the built-in policy.
class PlaybackThread {
 public:
  PlaybackThread(SoakWorld& world, ThreadContext& context) : world_(world), context_(context) {}

  void Run() {
    SetCurrentContext(&context_);
    while (!world_.stopScripts.load(std::memory_order_relaxed)) {
      for (int i = 0; i < 16; ++i)
        Step();
    }
  }

 private:
  // The policy as the rules state it, kept from the first call of the run on.
  bool Policy(const std::string& mediaType, const std::string& key) {
    static const std::string kPrefix = "volumetric/";
    if (mediaType.compare(0, kPrefix.size(), kPrefix) != 0) return true;
    if (!key_.empty()) return key == key_;
    key_ = key;  // an empty key fixes nothing
    return true;
  }

  void Step() {
    Random& random = context_.random();
    if (random.OneIn(32)) world_.log.Add(context_, world_.playbackLogProducer());
    if (random.OneIn(64)) {
      // The playback side also changes the host's callbacks now and then, under Lock like everyone.
      UnderLock(context_, false, [&] {
        const auto slot = static_cast<Slot>(random.Below(3));
        SOAK_CALL(context_, Callback_Set_OnAssetSelectRepresentation)
        (slot == kNone ? nullptr : kSelectCallbacks[slot - 1]);
        Model().relay[kSelect] = slot;
      });
    }

    static const char* const kMediaTypes[] = {
        "video/mp4",        "audio/aac",
        "volumetric/mesh",  "volumetric/points",
        "volumetric",       "volumetric/",
        "Volumetric/mesh",  "",
        "volumetricmesh/x", "volumetric/a media type longer than any small-text buffer"};
    static const char* const kKeys[] = {"A", "B",  "",
                                        "a", "A ", "a selection key longer than any small-text buffer"};
    const std::string mediaType = kMediaTypes[random.Below(sizeof(kMediaTypes) / sizeof(kMediaTypes[0]))];
    const std::string key = kKeys[random.Below(sizeof(kKeys) / sizeof(kKeys[0]))];
    RepresentationDescriptor descriptor{mediaType.c_str(), key.c_str()};

    RelayCall call;
    call.kind = static_cast<RelayKind>(random.Below(3));
    call.value0 = random.AnyInt();
    call.value1 = random.AnyInt();
    for (void*& pointer : call.pointers)
      pointer = random.OneIn(8) ? nullptr : reinterpret_cast<void*>(static_cast<uintptr_t>(random.Next()));
    call.descriptor = &descriptor;
    call.amount = AnyAmount(random);

    const bool locked = random.OneIn(2);
    relayCall = &call;
    auto body = [&] {
      // Under Lock nobody changes the callbacks, so which one runs, if any, is known before the call.
      const Slot expected = locked ? Model().relay[call.kind] : kNone;
      bool answer = false;
      switch (call.kind) {
        case kInitialised:
          SOAK_CALL(context_, StaticHandler_OnAssetInitialised)(call.value0, call.pointers[0]);
          break;
        case kSelect:
          if (locked && expected == kNone && key_.empty() && mediaType.compare(0, 11, "volumetric/") == 0 &&
              random.OneIn(4)) {
            // The only text the policy copies; a null one raises, and the key stays open.
            descriptor.selectionKey = nullptr;
            try {
              SOAK_CALL(context_, StaticHandler_OnAssetSelectRepresentation)
              (&descriptor, call.value0, call.pointers[0], call.value1, call.pointers[1]);
              context_.Fail(Check::kNullText, "the policy took a null selection key without an exception");
            } catch (const std::logic_error& error) {
              context_.Expect(
                  Check::kNullText,
                  std::strcmp(error.what(), "basic_string::_M_construct null not valid") == 0,
                  [&] { return Printf("the policy with a null key raised \"%s\"", error.what()); });
            }
            return;
          }
          answer = SOAK_CALL(context_, StaticHandler_OnAssetSelectRepresentation)(
              &descriptor, call.value0, call.pointers[0], call.value1, call.pointers[1]);
          if (call.calls == 1) {
            context_.Expect(Check::kRelayArguments,
                            answer == SelectAnswer(call.called, call.value0, call.value1), [&] {
                              return Printf("the select callback answered %d, the handler returned %d",
                                            SelectAnswer(call.called, call.value0, call.value1), answer);
                            });
          } else {
            const std::string before = key_;
            const bool predicted = Policy(mediaType, key);
            context_.Expect(Check::kSelectionPolicy, answer == predicted, [&] {
              return Printf("media type \"%s\" key \"%s\" with \"%s\" chosen: expected %s, saw %s",
                            mediaType.c_str(), key.c_str(), before.c_str(), predicted ? "true" : "false",
                            answer ? "true" : "false");
            });
          }
          break;
        case kData:
          SOAK_CALL(context_, StaticHandler_OnAssetRepresentationDataReceived)
          (call.pointers[0], call.pointers[1], call.pointers[2], call.value0, call.pointers[3], call.amount);
          break;
      }
      if (locked) {
        context_.Expect(Check::kRelayCallbackSet,
                        call.calls == (expected == kNone ? 0 : 1) && call.called == expected, [&] {
                          return Printf("%s with host function %d set: %d calls, of %d",
                                        kRelayNames[call.kind], static_cast<int>(expected), call.calls,
                                        static_cast<int>(call.called));
                        });
      } else {
        context_.Expect(Check::kRelayCallbackSet, call.calls <= 1, [&] {
          return Printf("%s called the host %d times for one event", kRelayNames[call.kind], call.calls);
        });
      }
    };
    if (locked) {
      UnderLock(context_, random.OneIn(4), body);
    } else {
      body();
    }
    relayCall = nullptr;
  }

  SoakWorld& world_;
  ThreadContext& context_;
  std::string key_;
};

}  // namespace

const OnAssetInitialisedCallback kInitialisedCallbacks[2] = {&OnInitialised<kFirst>, &OnInitialised<kSecond>};
const OnAssetSelectRepresentationCallback kSelectCallbacks[2] = {&OnSelect<kFirst>, &OnSelect<kSecond>};
const OnAssetRepresentationDataReceivedCallback kDataCallbacks[2] = {&OnData<kFirst>, &OnData<kSecond>};

void RunRenderThread(SoakWorld& world, ThreadContext& context) {
  SetCurrentContext(&context);
  world.traffic.StartRenderThread(context);
  for (;;) {
    const bool stopping = world.stopRender.load(std::memory_order_acquire);
    const size_t handed = world.traffic.RenderStep(context);
    if (context.random().OneIn(64)) world.log.Add(context, world.renderLogProducer());
    // Once stopped, nobody hands over more: one empty round means all that was handed over was fired.
    if (stopping && handed == 0) break;
    if (handed == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

void RunPlaybackThread(SoakWorld& world, ThreadContext& context) {
  PlaybackThread(world, context).Run();
}

void RunLogPoller(SoakWorld& world, ThreadContext& context) {
  SetCurrentContext(&context);
  while (!world.stopScripts.load(std::memory_order_relaxed)) {
    int taken = 0;
    UnderLock(context, context.random().OneIn(4),
              [&] { taken = world.log.Poll(context, 64, world.pollerLogProducer()); });
    if (taken == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

void CheckLogEnd(SoakWorld& world, ThreadContext& context) {
  UnderLock(context, false, [&] {
    while (world.log.Poll(context, 1 << 20, -1) > 0) {
    }
    world.log.CheckComplete(context);
  });
}

}  // namespace quorl::soak
