/*
 * The exported surface of libQuorlBridge: the 35 plain C entry points that game scripts (through
 * P/Invoke), sibling native libraries and the engine's render thread call. This header is plain C and
 * may be included from C and C++.
 *
 * Ownership: texts passed in are copied; texts passed out go into the caller's buffer, or point into
 * library storage for the lifetime stated beside the function. Every function may be called from any
 * thread, from the moment the library is loaded; none depends on RegisterUnityPlugin having run.
 * Exceptions (std::system_error for a failed lock, std::logic_error for a null text) are not caught
 * here: a C++ caller may catch them, a managed caller must not pass such input.
 */
#ifndef QUORL_BRIDGE_EXPORTS_H_
#define QUORL_BRIDGE_EXPORTS_H_

#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#if defined(QUORL_BUILDING_LIBRARY)
#define QUORL_EXPORT __attribute__((visibility("default")))
#else
#define QUORL_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The record a frame-context render callback receives; valid only during that call. */
typedef struct FrameContext {
  uint32_t structSize; /* always 24 */
  uint32_t reserved0;  /* always 0 */
  uint64_t reserved1;  /* always 0 */
  uint64_t reserved2;  /* always 0 */
} FrameContext;

/* The one view through which a log buffer entry leaves the library (see LogBuffer_Get). */
typedef struct LogBufferView {
  int32_t level;
  const char* message;
} LogBufferView;

/* The playback library's description of a representation; only the first two fields are read. */
typedef struct RepresentationDescriptor {
  const char* mediaType;
  const char* selectionKey;
} RepresentationDescriptor;

typedef void (*QuorlShutdownCallback)(void);
typedef void (*QuorlRenderFn)(void);
typedef void (*QuorlRenderFnI)(int32_t a);
typedef void (*QuorlRenderFnIII)(int32_t a, int32_t b, int32_t c);
typedef void (*QuorlRenderFnFrameContextI)(int32_t a, const FrameContext* context);
typedef void (*QuorlRenderFnFrameContextIII)(int32_t a, int32_t b, int32_t c, const FrameContext* context);

typedef void (*OnAssetInitialisedCallback)(int32_t value, void* pointer);
typedef bool (*OnAssetSelectRepresentationCallback)(RepresentationDescriptor* descriptor, int32_t value0,
                                                    void* pointer0, int32_t value1, void* pointer1);
typedef void (*OnAssetRepresentationDataReceivedCallback)(void* pointer0, void* pointer1, void* pointer2,
                                                          int32_t value, void* pointer3, float amount);

/* Lifecycle. Lock takes the recursive bridge mutex and keeps it; each Lock needs its own Unlock. */
QUORL_EXPORT void Lock(void);
QUORL_EXPORT void Unlock(void);
/* Always zero. */
QUORL_EXPORT intptr_t GetUnityRenderDevice(void);
QUORL_EXPORT void SetFunc_InterfaceShutdown(QuorlShutdownCallback callback);
QUORL_EXPORT void Trigger_InterfaceShutdown(void);

/* Render events. Each queue function returns the event identifier, 16000 plus the slot index; the
 * bound call runs once, on the thread that fires the identifier through UnityRenderEvent. */
QUORL_EXPORT int32_t QueueGLEvent(QuorlRenderFn fn);
QUORL_EXPORT int32_t QueueGLEventI(QuorlRenderFnI fn, int32_t a);
QUORL_EXPORT int32_t QueueGLEventIII(QuorlRenderFnIII fn, int32_t a, int32_t b, int32_t c);
QUORL_EXPORT int32_t QueueGLEventPrepFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void* x,
                                                   void* y);
QUORL_EXPORT int32_t QueueGLEventPrepFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b,
                                                     int32_t c, void* x, void* y);
QUORL_EXPORT void UnityRenderEvent(int32_t eventId);
/* The address of UnityRenderEvent, as the engine's plug-in event call wants it. */
QUORL_EXPORT intptr_t UnityRenderEventFunc(void);

/* Scene object registry. Handles are the caller's; 0 is also the answer for "not found". */
QUORL_EXPORT void Scene_Objects_Add(int32_t handle, const char* name, const char* type);
QUORL_EXPORT void Scene_Objects_Remove(int32_t handle);
QUORL_EXPORT int32_t Scene_Objects_GetCount(void);
/* Test Scene_Objects_GetCount first: with no records the index is not checked. */
QUORL_EXPORT int32_t Scene_Objects_GetHandleAtIndex(int32_t index);
QUORL_EXPORT int32_t Scene_Objects_GetHandleFromName(const char* name);
/* True when the whole text fit; false when it was cut or the handle is unknown. */
QUORL_EXPORT bool Scene_Objects_GetNameFromHandle(int32_t handle, char* buffer, int32_t bufferSize);
QUORL_EXPORT bool Scene_Objects_GetTypeFromHandle(int32_t handle, char* buffer, int32_t bufferSize);

/* Named integer map: Add never overwrites, SetValue never creates, GetValue gives 0 when absent. */
QUORL_EXPORT void Map_Add(const char* name, int32_t value);
QUORL_EXPORT void Map_Remove(const char* name);
QUORL_EXPORT bool Map_Contains(const char* name);
QUORL_EXPORT int32_t Map_GetValue(const char* name);
QUORL_EXPORT void Map_SetValue(const char* name, int32_t value);

/* Log buffer. The view is the library's and is overwritten by the next LogBuffer_Get; its message
 * is valid until the entry is popped. */
QUORL_EXPORT void LogBuffer_Add(int32_t level, const char* text);
QUORL_EXPORT LogBufferView* LogBuffer_Get(void);
QUORL_EXPORT void LogBuffer_Pop(void);

/* Asset callback relay. The handlers run the host's callback under the bridge mutex. */
QUORL_EXPORT void Callback_Set_OnAssetInitialised(OnAssetInitialisedCallback callback);
QUORL_EXPORT void Callback_Set_OnAssetSelectRepresentation(OnAssetSelectRepresentationCallback callback);
QUORL_EXPORT void Callback_Set_OnAssetRepresentationDataReceived(
    OnAssetRepresentationDataReceivedCallback callback);
QUORL_EXPORT void StaticHandler_OnAssetInitialised(int32_t value, void* pointer);
QUORL_EXPORT bool StaticHandler_OnAssetSelectRepresentation(RepresentationDescriptor* descriptor,
                                                            int32_t value0, void* pointer0, int32_t value1,
                                                            void* pointer1);
QUORL_EXPORT void StaticHandler_OnAssetRepresentationDataReceived(void* pointer0, void* pointer1,
                                                                  void* pointer2, int32_t value,
                                                                  void* pointer3, float amount);
/* A static text for the code; the empty text for codes it does not know, never null. */
QUORL_EXPORT const char* QuorlError_ToString(int32_t code);

/* Registration: completes the build information, logs the banner, keeps the arguments. */
QUORL_EXPORT void RegisterUnityPlugin(int32_t first, int32_t second, int32_t third, const char* text);

#ifdef __cplusplus
}
#endif

#endif /* QUORL_BRIDGE_EXPORTS_H_ */
