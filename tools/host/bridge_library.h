// BridgeLibrary: libQuorlBridge.so loaded the way the engine loads a native plug-in, with dlopen, and
// its 35 exports resolved by name into a table of function pointers.
//
// The simulator never links against the library: every call goes through the table, so a library that
// lacks an export (or exports it under a decorated name) is caught at load time with the missing names
// listed, exactly as the engine would fail to bind it. The object owns the dlopen handle and closes it
// when destroyed, but the library stays mapped until the process ends, as in the engine; destroy it only
// after every thread that calls through the table has stopped. The table is immutable after Open and
// may be read from any thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bridge/exports.h"

#include "export_names.h"

namespace quorl::host {

// One function pointer per export, typed from the public header so a signature change there fails to
// compile here rather than misbehaving at run time.
struct BridgeApi {
#define QUORL_HOST_DECLARE_POINTER(name) decltype(&::name) name = nullptr;
  QUORL_HOST_FOR_EACH_EXPORT(QUORL_HOST_DECLARE_POINTER)
#undef QUORL_HOST_DECLARE_POINTER
};

// Each export's place in QUORL_HOST_FOR_EACH_EXPORT, for counting calls: kExport_Map_Add, ...
enum ExportId : int {
#define QUORL_HOST_EXPORT_ID(name) kExport_##name,
  QUORL_HOST_FOR_EACH_EXPORT(QUORL_HOST_EXPORT_ID)
#undef QUORL_HOST_EXPORT_ID
      kExportCount
};
const char* ExportName(int id);

class BridgeLibrary {
 public:
  // Loads the library at `path` (a bare file name goes through the dynamic loader's search path) and
  // resolves every export. On failure returns null and sets `error` to a message for a person: the
  // loader's own text, or the list of exports that are missing.
  static std::unique_ptr<BridgeLibrary> Open(const std::string& path, std::string* error);

  ~BridgeLibrary();
  BridgeLibrary(const BridgeLibrary&) = delete;
  BridgeLibrary& operator=(const BridgeLibrary&) = delete;

  const BridgeApi& api() const { return api_; }
  // The file the loader actually mapped, for the report.
  const std::string& resolvedPath() const { return resolvedPath_; }

 private:
  BridgeLibrary() = default;

  void* handle_ = nullptr;
  BridgeApi api_;
  std::string resolvedPath_;
};

// Where to look for the library when no path is given: beside an installed executable first
// (../lib), then the build tree the simulator was built in, then the loader's search path.
std::vector<std::string> DefaultLibraryCandidates();

}  // namespace quorl::host
