/* Native threads for the binding's test under Mono: the engine's render thread and the playback
 * libraries' threads are native threads that the managed runtime has never seen, and managed callbacks
 * must work when called from them. Each function starts one such thread, lets it call into
 * libQuorlBridge, and joins it before returning. Also reports the native sizes of the records that cross
 * the boundary, so the test compares marshalled sizes with the compiler's answer rather than with numbers
 * written by hand. */
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "bridge/exports.h"

#define QUORL_TEST_EXPORT __attribute__((visibility("default")))

QUORL_TEST_EXPORT int32_t QuorlTest_NativeSize(const char* record);
QUORL_TEST_EXPORT int32_t QuorlTest_FireOnNativeThread(intptr_t renderEventFunc, const int32_t* ids,
                                                       int32_t count);
QUORL_TEST_EXPORT int32_t QuorlTest_PlaybackOnNativeThread(const char* mediaType, const char* selectionKey,
                                                           void* tag);

int32_t QuorlTest_NativeSize(const char* record) {
  if (strcmp(record, "FrameContext") == 0) return (int32_t)sizeof(FrameContext);
  if (strcmp(record, "LogBufferView") == 0) return (int32_t)sizeof(LogBufferView);
  if (strcmp(record, "RepresentationDescriptor") == 0) return (int32_t)sizeof(RepresentationDescriptor);
  return -1;
}

typedef struct {
  void (*fire)(int32_t);
  const int32_t* ids;
  int32_t count;
} FireJob;

static void* Fire(void* argument) {
  FireJob* job = (FireJob*)argument;
  for (int32_t i = 0; i < job->count; ++i)
    job->fire(job->ids[i]);
  return NULL;
}

/* Fires the ids in order through the address UnityRenderEventFunc gave, as the engine's render thread
 * does. Returns 0, or -1 if no thread could be started. */
int32_t QuorlTest_FireOnNativeThread(intptr_t renderEventFunc, const int32_t* ids, int32_t count) {
  FireJob job;
  pthread_t thread;
  job.fire = (void (*)(int32_t))renderEventFunc;
  job.ids = ids;
  job.count = count;
  if (pthread_create(&thread, NULL, Fire, &job) != 0) return -1;
  pthread_join(thread, NULL);
  return 0;
}

typedef struct {
  RepresentationDescriptor descriptor;
  void* tag;
  int32_t answer;
} PlaybackJob;

static void* Play(void* argument) {
  PlaybackJob* job = (PlaybackJob*)argument;
  StaticHandler_OnAssetInitialised(41, job->tag);
  job->answer =
      StaticHandler_OnAssetSelectRepresentation(&job->descriptor, 1, job->tag, 2, &job->descriptor) ? 1 : 0;
  StaticHandler_OnAssetRepresentationDataReceived(job->tag, &job->descriptor, job, 3, NULL, 0.75f);
  return NULL;
}

/* One asset's events, as a playback library's thread reports them: initialised (41, tag), one offer of
 * the given representation (1, tag, 2, the descriptor), one data chunk (tag, the descriptor, the job,
 * 3, null, 0.75). Returns the selection's answer, 1 or 0, or -1 if no thread could be started. */
int32_t QuorlTest_PlaybackOnNativeThread(const char* mediaType, const char* selectionKey, void* tag) {
  PlaybackJob job;
  pthread_t thread;
  job.descriptor.mediaType = mediaType;
  job.descriptor.selectionKey = selectionKey;
  job.tag = tag;
  job.answer = -1;
  if (pthread_create(&thread, NULL, Play, &job) != 0) return -1;
  pthread_join(thread, NULL);
  return job.answer;
}
