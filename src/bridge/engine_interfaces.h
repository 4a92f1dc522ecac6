// The engine's native plug-in interface tables, declared by hand with the engine's public layout (its
// headers are not available here). Only what the bridge uses is named; the layout of each table is
// complete up to the last member used, so the hooks would work against a real engine.
//
// These are the engine's objects: the bridge never owns or frees them.
#pragma once

#include <cstdint>

namespace quorl {

// An interface identifier: two 64-bit words, passed by value.
struct EngineInterfaceGuid {
  uint64_t high;
  uint64_t low;
};

struct EngineInterface {};

// The table the engine hands to a plug-in when it loads it.
struct EngineInterfaceRegistry {
  EngineInterface* (*GetInterface)(EngineInterfaceGuid guid);
  void (*RegisterInterface)(EngineInterfaceGuid guid, EngineInterface* ptr);
  EngineInterface* (*GetInterfaceSplit)(uint64_t guidHigh, uint64_t guidLow);
  void (*RegisterInterfaceSplit)(uint64_t guidHigh, uint64_t guidLow, EngineInterface* ptr);
};

enum EngineGfxDeviceEventType : int32_t {
  kEngineGfxDeviceEventInitialize = 0,
  kEngineGfxDeviceEventShutdown = 1,
  kEngineGfxDeviceEventBeforeReset = 2,
  kEngineGfxDeviceEventAfterReset = 3,
};

using EngineGfxDeviceEventCallback = void (*)(int32_t eventType);

// The graphics interface.
struct IUnityGraphics : EngineInterface {
  int32_t (*GetRenderer)();
  void (*RegisterDeviceEventCallback)(EngineGfxDeviceEventCallback callback);
  void (*UnregisterDeviceEventCallback)(EngineGfxDeviceEventCallback callback);
  int32_t (*ReserveEventIDRange)(int32_t count);
};

inline constexpr EngineInterfaceGuid kIUnityGraphicsGuid{0x7CBA0A9CA4DDB544ull, 0x8C5AD4926EB17B11ull};

}  // namespace quorl
