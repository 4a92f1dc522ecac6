// Uses both parts of an installed libQuorlBridge: the exports of the shared library and the static core
// layer. Prints "consumer: ok" when everything answered as documented, and what went wrong otherwise.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "bridge/exports.h"
#include "core/name_hash.h"
#include "core/strings.h"

static int failures = 0;

static void Check(bool holds, const char* what) {
  if (!holds) {
    std::printf("consumer: FAILED %s\n", what);
    ++failures;
  }
}

int main() {
  Check(std::string(QuorlError_ToString(201)) == "Failed to parse manifest", "an export answers");
  Map_Add("consumer.value", 3);
  Map_Add("consumer.value", 4);
  Check(Map_GetValue("consumer.value") == 3 && Map_Contains("consumer.value"),
        "the shared library keeps state");

  // The exports must come from the installed library, not from a build tree.
  Dl_info info{};
  Check(dladdr(reinterpret_cast<void*>(&Map_GetValue), &info) != 0 && info.dli_fname != nullptr &&
            std::strncmp(info.dli_fname, EXPECTED_PREFIX, std::strlen(EXPECTED_PREFIX)) == 0,
        "libQuorlBridge.so is loaded from the installed tree");

  Check(quorl::NameHash("") == 0 && quorl::NameHash("volumetric") != 0 &&
            quorl::NameHash("volumetric") == quorl::NameHashOfString(std::string("volumetric")),
        "the core layer's name hash links and runs");
  Check(quorl::FormatString("%s-%03d", "frame", 7) == "frame-007", "the core layer's strings link and run");

  if (failures == 0) std::printf("consumer: ok\n");
  return failures == 0 ? 0 : 1;
}
