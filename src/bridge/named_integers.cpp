#include "bridge/named_integers.h"

#include <map>
#include <string>
#include <string_view>

#include "bridge/state.h"
#include "core/text.h"

namespace quorl {

namespace {

using NamedIntegerMap = std::map<std::string, int32_t, std::less<>>;

// Used only under the bridge mutex.
NamedIntegerMap& Integers() {
  static NamedIntegerMap map;
  return map;
}

}  // namespace

void AddNamedInteger(const char* name, int32_t value) {
  BridgeLock lock;
  Integers().try_emplace(TextOf(name), value);
}

void RemoveNamedInteger(const char* name) {
  BridgeLock lock;
  NamedIntegerMap& map = Integers();
  const auto found = map.find(std::string_view(RequireText(name)));
  if (found != map.end()) map.erase(found);
}

bool ContainsNamedInteger(const char* name) {
  BridgeLock lock;
  const NamedIntegerMap& map = Integers();
  return map.find(std::string_view(RequireText(name))) != map.end();
}

int32_t GetNamedInteger(const char* name) {
  BridgeLock lock;
  const NamedIntegerMap& map = Integers();
  const auto found = map.find(std::string_view(RequireText(name)));
  return found != map.end() ? found->second : 0;
}

void SetNamedInteger(const char* name, int32_t value) {
  BridgeLock lock;
  NamedIntegerMap& map = Integers();
  const auto found = map.find(std::string_view(RequireText(name)));
  if (found != map.end()) found->second = value;
}

}  // namespace quorl
