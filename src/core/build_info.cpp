#include "core/build_info.h"

#include "core/build_info_values.h"

namespace quorl {

namespace {

BuildInfo::Map* table = nullptr;

}  // namespace

BuildInfo::Map& BuildInfo::instance() {
  if (table != nullptr) return *table;
  // The pointer is published before filling: set() comes back through instance() and must find it.
  table = new Map();
  set("BUILD_PLATFORM", QUORL_BUILD_PLATFORM);
  set("BUILD_CONFIG", QUORL_BUILD_CONFIG);
  set("BUILD_NUMBER", QUORL_BUILD_NUMBER);
  set("BUILD_HOST", QUORL_BUILD_HOST);
  set("BUILD_DATE", QUORL_BUILD_DATE);
  set("BUILD_INFO", QUORL_BUILD_INFO);
  set("GIT_BRANCH", QUORL_GIT_BRANCH);
  set("GIT_HASH", QUORL_GIT_HASH);
  set("GIT_MODIFIED", QUORL_GIT_MODIFIED);
  set("GIT_INFO", QUORL_GIT_INFO);
  return *table;
}

bool BuildInfo::set(const HashedName& key, const std::string& value) {
  Map& map = instance();
  auto found = map.find(key.hash);
  if (found == map.end())
    found = map.emplace(key.hash, BuildInfoEntry{key.name, key.hash, std::string()}).first;
  found->second.value = value;
  return true;
}

std::string BuildInfo::get(const HashedName& key, const std::string& defaultValue) {
  const Map& map = instance();
  const auto found = map.find(key.hash);
  if (found != map.end() && !found->second.value.empty()) return found->second.value;
  return defaultValue;
}

void BuildInfo::remove(const HashedName& key) {
  instance().erase(key.hash);
}

}  // namespace quorl
