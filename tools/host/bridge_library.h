// The bridge library: libQuorlBridge.so loaded the way the engine loads a native plug-in, with dlopen,
// and its 35 exports resolved by name into a table of function pointers.
//
// quorl-host never links against the library: every call goes through the table, so a library that lacks
// an export (or exports it under a decorated name) is caught at load time with the missing names listed,
// as the engine would fail to bind it. Like the engine, it keeps the library loaded until the process
// ends. The table is immutable once loaded and may be read from any thread.
#pragma once

#include <string>

#include "bridge/exports.h"

#include "bridge/export_names.h"

namespace quorl::host {

// One function pointer per export, typed from the public header so a signature change there fails to
// compile here rather than misbehaving at run time.
struct BridgeApi {
#define QUORL_HOST_DECLARE_POINTER(name) decltype(&::name) name = nullptr;
  QUORL_FOR_EACH_EXPORT(QUORL_HOST_DECLARE_POINTER)
#undef QUORL_HOST_DECLARE_POINTER
};

// Each export's place in QUORL_FOR_EACH_EXPORT, for counting calls: kExport_Map_Add, ...
enum ExportId : int {
#define QUORL_HOST_EXPORT_ID(name) kExport_##name,
  QUORL_FOR_EACH_EXPORT(QUORL_HOST_EXPORT_ID)
#undef QUORL_HOST_EXPORT_ID
      kExportCount
};
const char* ExportName(int id);

// Loads the library at `path` (empty: ../lib beside this program, else the build tree it was built in,
// else the loader's search path) and resolves every export into `api`. On failure returns false and sets
// `message` to the loader's own text or the list of missing exports; on success, to the path loaded.
bool LoadBridge(std::string path, BridgeApi* api, std::string* message);

}  // namespace quorl::host
