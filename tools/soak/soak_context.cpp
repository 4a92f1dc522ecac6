#include "soak_context.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace quorl::soak {

namespace {

const char* const kExportNames[] = {
#define QUORL_SOAK_EXPORT_NAME(name) #name,
    QUORL_HOST_FOR_EACH_EXPORT(QUORL_SOAK_EXPORT_NAME)
#undef QUORL_SOAK_EXPORT_NAME
};

const char* const kCheckNames[kCheckCount] = {
    "every queued event runs exactly once",
    "a fired event gets the arguments queued under its id",
    "a frame-context event sees structSize 24 and zeros",
    "firing a pending id runs the event queued under it",
    "no slot is lost: the ids in use are the pending ones and the lowest free is reused",
    "UnityRenderEventFunc gives the address of UnityRenderEvent",
    "each thread's scene objects match its model",
    "the scene object count matches the threads' models",
    "names and types come back into buffers of any size as the rules say",
    "the named-integer map matches each thread's model",
    "shared keys and objects changed under Lock match their model",
    "the log buffer is FIFO per producer, nothing lost or repeated",
    "the log view stays at one address and its message stays put while others add",
    "the shutdown callback runs exactly once per trigger as the rules say",
    "relay callbacks receive their arguments unchanged",
    "the relay calls the callback set last, and none when cleared",
    "the selection policy's key rule holds",
    "a null text raises the exact logic error and the mutex is released",
    "QuorlError_ToString gives the table's text, and the empty text for unknown codes",
    "GetUnityRenderDevice gives zero",
    "every export was called",
    "every thread finishes after the stop",
};

std::mutex printMutex;
std::atomic<int> printed[kCheckCount] = {};
thread_local ThreadContext* currentContext = nullptr;

}  // namespace

const char* ExportName(int id) {
  return id >= 0 && id < kExportCount ? kExportNames[id] : "?";
}

const char* CheckName(Check check) {
  return kCheckNames[static_cast<int>(check)];
}

const char* ThreadKindName(ThreadKind kind) {
  switch (kind) {
    case ThreadKind::kMain:
      return "main";
    case ThreadKind::kScript:
      return "script";
    case ThreadKind::kRender:
      return "render";
    case ThreadKind::kPlayback:
      return "playback";
    case ThreadKind::kLogPoller:
      return "log poller";
    case ThreadKind::kCount:
      break;
  }
  return "?";
}

ThreadContext::ThreadContext(const BridgeApi& api, ThreadKind kind, int index, uint64_t seed)
    : api_(api), kind_(kind), index_(index), random_(seed) {}

std::string ThreadContext::label() const {
  return kind_ == ThreadKind::kScript ? Printf("script %d", index_) : ThreadKindName(kind_);
}

uint64_t ThreadContext::totalCalls() const {
  uint64_t total = 0;
  for (int id = 0; id < kExportCount; ++id)
    total += calls(id);
  return total;
}

void ThreadContext::Fail(Check check, const std::string& detail) {
  const int index = static_cast<int>(check);
  ++failed_[index];
  if (printed[index].fetch_add(1, std::memory_order_relaxed) >= kFailuresPrinted) return;
  std::lock_guard<std::mutex> guard(printMutex);
  std::fprintf(stderr, "quorl-soak: FAILED  %s [%s]: %s\n", kCheckNames[index], label().c_str(),
               detail.c_str());
}

ThreadContext& CurrentContext() {
  return *currentContext;
}

void SetCurrentContext(ThreadContext* context) {
  currentContext = context;
}

std::string Printf(const char* format, ...) {
  char buffer[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(buffer, sizeof(buffer), format, arguments);
  va_end(arguments);
  return buffer;
}

}  // namespace quorl::soak
