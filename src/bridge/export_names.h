// The 35 names that libQuorlBridge.so exports (declared in bridge/exports.h), as one list macro for code
// that meets the library from outside: quorl-host resolves them by name, the stand-in of its load test
// defines all but one, and the shipped-library tests expect exactly these in the symbol table. Plain
// preprocessor, includable from C and C++; it declares nothing. cmake/exports.map is the linker's copy.
#ifndef QUORL_BRIDGE_EXPORT_NAMES_H_
#define QUORL_BRIDGE_EXPORT_NAMES_H_

// The 35 exported names, in the order of the public header; X is applied to each.
#define QUORL_FOR_EACH_EXPORT(X)                     \
  X(Lock)                                            \
  X(Unlock)                                          \
  X(GetUnityRenderDevice)                            \
  X(SetFunc_InterfaceShutdown)                       \
  X(Trigger_InterfaceShutdown)                       \
  X(QueueGLEvent)                                    \
  X(QueueGLEventI)                                   \
  X(QueueGLEventIII)                                 \
  X(QueueGLEventPrepFrameContextI)                   \
  X(QueueGLEventPrepFrameContextIII)                 \
  X(UnityRenderEvent)                                \
  X(UnityRenderEventFunc)                            \
  X(Scene_Objects_Add)                               \
  X(Scene_Objects_Remove)                            \
  X(Scene_Objects_GetCount)                          \
  X(Scene_Objects_GetHandleAtIndex)                  \
  X(Scene_Objects_GetHandleFromName)                 \
  X(Scene_Objects_GetNameFromHandle)                 \
  X(Scene_Objects_GetTypeFromHandle)                 \
  X(Map_Add)                                         \
  X(Map_Remove)                                      \
  X(Map_Contains)                                    \
  X(Map_GetValue)                                    \
  X(Map_SetValue)                                    \
  X(LogBuffer_Add)                                   \
  X(LogBuffer_Get)                                   \
  X(LogBuffer_Pop)                                   \
  X(Callback_Set_OnAssetInitialised)                 \
  X(Callback_Set_OnAssetSelectRepresentation)        \
  X(Callback_Set_OnAssetRepresentationDataReceived)  \
  X(StaticHandler_OnAssetInitialised)                \
  X(StaticHandler_OnAssetSelectRepresentation)       \
  X(StaticHandler_OnAssetRepresentationDataReceived) \
  X(QuorlError_ToString)                             \
  X(RegisterUnityPlugin)

#endif  // QUORL_BRIDGE_EXPORT_NAMES_H_
