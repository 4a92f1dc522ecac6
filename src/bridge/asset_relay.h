// The asset callback relay and the error strings of the playback family.
//
// Playback libraries deliver asset events through the StaticHandler exports; each forwards to the
// callback that the host stored, with its arguments unchanged. With no callback, the initialised and
// data-received events are dropped, and the choice of representation falls to the built-in policy:
// everything that is not volumetric is accepted; the first volumetric representation offered fixes the
// selection key for as long as the library stays loaded, and from then on only that key is accepted.
//
// The callbacks and the selection key are guarded by the bridge mutex, which the handlers hold across
// the host's callback (the callback may call back in on the same thread). QuorlErrorText reads only
// constants.
#pragma once

#include <cstdint>
#include <string>

#include "bridge/exports.h"

namespace quorl {

inline constexpr char kVolumetricPrefix[] = "volumetric/";

void SetAssetInitialisedCallback(OnAssetInitialisedCallback callback);
void SetAssetSelectRepresentationCallback(OnAssetSelectRepresentationCallback callback);
void SetAssetRepresentationDataReceivedCallback(OnAssetRepresentationDataReceivedCallback callback);

void RelayAssetInitialised(int32_t value, void* pointer);
bool RelayAssetSelectRepresentation(RepresentationDescriptor* descriptor, int32_t value0, void* pointer0,
                                    int32_t value1, void* pointer1);
void RelayAssetRepresentationDataReceived(void* pointer0, void* pointer1, void* pointer2, int32_t value,
                                          void* pointer3, float amount);

// The selection key that the built-in policy holds (empty while none is fixed).
std::string ChosenSelectionKey();

// A static text for the code; the empty text for unknown codes.
const char* QuorlErrorText(int32_t code);

}  // namespace quorl
