#include "bridge_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace quorl::host {

const char* ExportName(int id) {
  static const char* const kNames[] = {
#define QUORL_HOST_EXPORT_NAME(name) #name,
      QUORL_FOR_EACH_EXPORT(QUORL_HOST_EXPORT_NAME)
#undef QUORL_HOST_EXPORT_NAME
  };
  return id >= 0 && id < kExportCount ? kNames[id] : "?";
}

bool LoadBridge(std::string path, BridgeApi* api, std::string* message) {
  if (path.empty()) {
    char self[PATH_MAX] = {};
    const std::string program(
        self, static_cast<size_t>(std::max<ssize_t>(0, readlink("/proc/self/exe", self, PATH_MAX - 1))));
    const std::string beside = program.substr(0, program.rfind('/') + 1);
    path = "libQuorlBridge.so";
    for (const std::string& candidate : {beside + "../lib/libQuorlBridge.so", beside + "libQuorlBridge.so",
                                         std::string(QUORL_DEFAULT_LIBRARY)}) {
      if (access(candidate.c_str(), R_OK) == 0) {
        path = candidate;
        break;
      }
    }
  }
  // RTLD_LOCAL as the engine does: nothing the library exports may satisfy another plug-in's symbols.
  // RTLD_NODELETE: the engine keeps a plug-in loaded for the life of the process, and the library's
  // singletons (never freed, by design) must stay reachable until exit.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (handle == nullptr) {
    const char* reason = dlerror();
    *message = "cannot load " + path + ": " + (reason != nullptr ? reason : "unknown loader error");
    return false;
  }
  std::string missing;
  int missingCount = 0;
#define QUORL_HOST_RESOLVE(name)                                         \
  api->name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name)); \
  if (api->name == nullptr) {                                            \
    missing += missing.empty() ? #name : ", " #name;                     \
    ++missingCount;                                                      \
  }
  QUORL_FOR_EACH_EXPORT(QUORL_HOST_RESOLVE)
#undef QUORL_HOST_RESOLVE
  if (missingCount > 0) {
    *message = path + " lacks " + std::to_string(missingCount) + " of the " + std::to_string(kExportCount) +
               " exports: " + missing;
    dlclose(handle);
    return false;
  }
  *message = path;
  return true;
}

}  // namespace quorl::host
