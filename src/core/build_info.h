// Build information: a process-wide table of named texts fixed when the library was built (product,
// version, platform, configuration, host, date, source revision).
//
// The table is one heap object behind a global pointer, made on first use with ten keys, never freed.
// RegisterUnityPlugin adds eight more. Entries are keyed and ordered by the name's hash alone; the name is
// stored but never compared. There is no lock: the host makes its first RegisterUnityPlugin call before
// other threads touch build information, and two threads racing through the first use would each build
// a table.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "core/name_hash.h"

namespace quorl {

struct BuildInfoEntry {
  std::string name;
  uint32_t hash = 0;
  std::string value;
};

class BuildInfo {
 public:
  using Map = std::map<uint32_t, BuildInfoEntry>;

  BuildInfo() = delete;

  // The table, made on first use with the first-stage keys.
  static Map& instance();
  // Creates the entry if needed (keeping an existing entry's name) and assigns the value. Always true.
  static bool set(const HashedName& key, const std::string& value);
  // A copy of the value, or of `defaultValue` when the key is missing or its value is empty.
  static std::string get(const HashedName& key, const std::string& defaultValue);
  static void remove(const HashedName& key);
};

}  // namespace quorl
