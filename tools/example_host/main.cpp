// A small example host: loads libQuorlBridge.so the way the engine does, registers it (the banner
// appears), queues a few render events from a script thread, fires them from a render thread through the
// address that UnityRenderEventFunc returns, and prints what happened.
//
// Usage: quorl-example-host [path/to/libQuorlBridge.so]
#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "bridge/exports.h"

namespace {

std::atomic<int> ran{0};

void OnRenderI(int32_t a) {
  ran.fetch_add(1);
  std::printf("  render thread: event with %d\n", a);
}

void OnRenderFrameContext(int32_t a, const FrameContext* context) {
  ran.fetch_add(1);
  std::printf("  render thread: frame-context event with %d, structSize %u\n", a, context->structSize);
}

template <typename T>
T Resolve(void* library, const char* name) {
  void* symbol = dlsym(library, name);
  if (symbol == nullptr) {
    std::fprintf(stderr, "example host: the library does not export %s\n", name);
    std::exit(2);
  }
  return reinterpret_cast<T>(symbol);
}

}  // namespace

int main(int argc, char** argv) {
  const char* path = argc > 1 ? argv[1] : QUORL_DEFAULT_LIBRARY;
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "example host: cannot load %s: %s\n", path, dlerror());
    return 2;
  }
  std::printf("loaded %s\n", path);

  auto registerPlugin = Resolve<decltype(&RegisterUnityPlugin)>(library, "RegisterUnityPlugin");
  auto queueI = Resolve<decltype(&QueueGLEventI)>(library, "QueueGLEventI");
  auto queueFrameContextI =
      Resolve<decltype(&QueueGLEventPrepFrameContextI)>(library, "QueueGLEventPrepFrameContextI");
  auto renderEventFunc = Resolve<decltype(&UnityRenderEventFunc)>(library, "UnityRenderEventFunc");
  auto errorText = Resolve<decltype(&QuorlError_ToString)>(library, "QuorlError_ToString");

  registerPlugin(1, 2, 3, "example-host");
  auto fire = reinterpret_cast<void (*)(int32_t)>(renderEventFunc());

  std::vector<int32_t> ids;
  std::thread script([&] {
    for (int32_t i = 0; i < 3; ++i)
      ids.push_back(queueI(&OnRenderI, 100 + i));
    ids.push_back(queueFrameContextI(&OnRenderFrameContext, 7, nullptr, nullptr));
  });
  script.join();
  std::printf("script thread queued %zu events:", ids.size());
  for (int32_t id : ids)
    std::printf(" %d", id);
  std::printf("\n");

  std::thread render([&] {
    for (int32_t id : ids)
      fire(id);
    for (int32_t id : ids)
      fire(id);  // a second firing does nothing
  });
  render.join();

  std::printf("fired every id twice: %d calls ran (expected %zu)\n", ran.load(), ids.size());
  std::printf("error 201 reads \"%s\"\n", errorText(201));
  // Kept loaded to the end, as the engine keeps its plug-ins: the build information table is never freed.
  return ran.load() == static_cast<int>(ids.size()) ? 0 : 1;
}
