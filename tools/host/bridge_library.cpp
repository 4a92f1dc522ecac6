#include "bridge_library.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

namespace quorl::host {

namespace {

bool FileExists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

std::string ExecutableDirectory() {
  char buffer[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
  if (length <= 0) return std::string();
  const std::string path(buffer, static_cast<size_t>(length));
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace

const char* ExportName(int id) {
  static const char* const kNames[] = {
#define QUORL_HOST_EXPORT_NAME(name) #name,
      QUORL_HOST_FOR_EACH_EXPORT(QUORL_HOST_EXPORT_NAME)
#undef QUORL_HOST_EXPORT_NAME
  };
  return id >= 0 && id < kExportCount ? kNames[id] : "?";
}

std::unique_ptr<BridgeLibrary> BridgeLibrary::Open(const std::string& path, std::string* error) {
  // RTLD_LOCAL as the engine does: nothing the library exports may satisfy another plug-in's symbols.
  // RTLD_NODELETE: the engine keeps a plug-in loaded for the life of the process, and the library's
  // singletons (never freed, by design) must stay reachable until exit.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (handle == nullptr) {
    const char* reason = dlerror();
    *error = "cannot load " + path + ": " + (reason != nullptr ? reason : "unknown loader error");
    return nullptr;
  }
  std::unique_ptr<BridgeLibrary> library(new BridgeLibrary());
  library->handle_ = handle;

  std::string missing;
  int missingCount = 0;
#define QUORL_HOST_RESOLVE(name)                                                  \
  library->api_.name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name)); \
  if (library->api_.name == nullptr) {                                            \
    missing += missing.empty() ? #name : ", " #name;                              \
    ++missingCount;                                                               \
  }
  QUORL_HOST_FOR_EACH_EXPORT(QUORL_HOST_RESOLVE)
#undef QUORL_HOST_RESOLVE
  if (missingCount > 0) {
    *error = path + " lacks " + std::to_string(missingCount) + " of the " + std::to_string(kExportCount) +
             " exports: " + missing;
    return nullptr;  // the destructor closes the handle
  }

  link_map* map = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr && map->l_name != nullptr &&
      map->l_name[0] != '\0') {
    library->resolvedPath_ = map->l_name;
  } else {
    library->resolvedPath_ = path;
  }
  return library;
}

BridgeLibrary::~BridgeLibrary() {
  if (handle_ != nullptr) dlclose(handle_);
}

std::vector<std::string> DefaultLibraryCandidates() {
  std::vector<std::string> candidates;
  const std::string beside = ExecutableDirectory();
  if (!beside.empty()) {
    for (const char* relative : {"/../lib/libQuorlBridge.so", "/libQuorlBridge.so"}) {
      if (FileExists(beside + relative)) candidates.push_back(beside + relative);
    }
  }
#ifdef QUORL_DEFAULT_LIBRARY
  if (FileExists(QUORL_DEFAULT_LIBRARY)) candidates.push_back(QUORL_DEFAULT_LIBRARY);
#endif
  candidates.push_back("libQuorlBridge.so");
  return candidates;
}

}  // namespace quorl::host
