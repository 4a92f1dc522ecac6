#include "bridge/asset_relay.h"

#include <cstring>

#include "bridge/state.h"
#include "core/text.h"

namespace quorl {

namespace {

// All guarded by the bridge mutex.
OnAssetInitialisedCallback onInitialised = nullptr;
OnAssetSelectRepresentationCallback onSelectRepresentation = nullptr;
OnAssetRepresentationDataReceivedCallback onDataReceived = nullptr;

std::string& SelectionKey() {
  // Never reset while the library is loaded: the key carries over from one asset to the next. Intended.
  static std::string chosenSelectionKey;
  return chosenSelectionKey;
}

bool BuiltInRepresentationPolicy(const RepresentationDescriptor& descriptor) {
  constexpr std::size_t prefixLength = sizeof(kVolumetricPrefix) - 1;
  if (std::strncmp(descriptor.mediaType, kVolumetricPrefix, prefixLength) != 0) return true;
  std::string& chosen = SelectionKey();
  if (!chosen.empty()) return chosen == descriptor.selectionKey;
  chosen = TextOf(descriptor.selectionKey);
  return true;
}

}  // namespace

void SetAssetInitialisedCallback(OnAssetInitialisedCallback callback) {
  BridgeLock lock;
  onInitialised = callback;
}

void SetAssetSelectRepresentationCallback(OnAssetSelectRepresentationCallback callback) {
  BridgeLock lock;
  onSelectRepresentation = callback;
}

void SetAssetRepresentationDataReceivedCallback(OnAssetRepresentationDataReceivedCallback callback) {
  BridgeLock lock;
  onDataReceived = callback;
}

void RelayAssetInitialised(int32_t value, void* pointer) {
  BridgeLock lock;
  if (onInitialised != nullptr) onInitialised(value, pointer);
}

bool RelayAssetSelectRepresentation(RepresentationDescriptor* descriptor, int32_t value0, void* pointer0,
                                    int32_t value1, void* pointer1) {
  BridgeLock lock;
  if (onSelectRepresentation != nullptr) {
    return onSelectRepresentation(descriptor, value0, pointer0, value1, pointer1);
  }
  return BuiltInRepresentationPolicy(*descriptor);
}

void RelayAssetRepresentationDataReceived(void* pointer0, void* pointer1, void* pointer2, int32_t value,
                                          void* pointer3, float amount) {
  BridgeLock lock;
  if (onDataReceived != nullptr) onDataReceived(pointer0, pointer1, pointer2, value, pointer3, amount);
}

std::string ChosenSelectionKey() {
  BridgeLock lock;
  return SelectionKey();
}

const char* QuorlErrorText(int32_t code) {
  switch (code) {
    case 0:
      return "Success";
    case 1:
      return "Unknown Error";
    case 200:
      return "Failed to download manifest from remote server or find cached copy";
    case 201:
      return "Failed to parse manifest";
    case 202:
      return "Failed to download representation from remote server or find cached copy";
    case 203:
      return "Failed to load representation for playback";
    case 204:
      return "Failed to find a valid decoder for the loaded representation";
    case 205:
      return "Cached copy not valid for offline playback";
    default:
      return "";
  }
}

}  // namespace quorl
