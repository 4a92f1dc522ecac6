#include "bridge/registration.h"

#include "core/build_info.h"
#include "core/build_info_values.h"
#include "core/logger.h"
#include "core/strings.h"
#include "core/text.h"

namespace quorl {

namespace {

bool buildInfoRegistered = false;

HostRegistrationRecord& StoredRegistration() {
  static HostRegistrationRecord record;
  return record;
}

void RegisterBuildInfoOnce() {
  if (buildInfoRegistered) return;
  BuildInfo::set("PRODUCT", QUORL_PRODUCT);
  BuildInfo::set("VERSION_MAJOR", QUORL_VERSION_MAJOR);
  BuildInfo::set("VERSION_MINOR", QUORL_VERSION_MINOR);
  BuildInfo::set("VERSION_PATCH", QUORL_VERSION_PATCH);
  BuildInfo::set("VERSION_CHANGES", QUORL_VERSION_CHANGES);
  BuildInfo::set("VERSION_EDIT", QUORL_VERSION_EDIT);
  BuildInfo::set("VERSION", QUORL_VERSION);
  BuildInfo::set("FULL_VERSION", QUORL_FULL_VERSION);
  // Latched only after all eight went in.
  buildInfoRegistered = true;
}

}  // namespace

void RegisterPlugin(int32_t first, int32_t second, int32_t third, const char* text) {
  RegisterBuildInfoOnce();
  const std::string buildInfo = BuildInfo::get("BUILD_INFO", "");
  const std::string version = BuildInfo::get("VERSION", "");
  Logger::Log(Logger::LOG_INFO, FormatString("QuorlBridge %s (%s)\n", version.c_str(), buildInfo.c_str()));
  HostRegistrationRecord& record = StoredRegistration();
  record.first = first;
  record.second = second;
  record.third = third;
  // Last on purpose: a null text raises after the banner and the numbers, and keeps the old text.
  record.text = TextOf(text);
}

const HostRegistrationRecord& HostRegistration() {
  return StoredRegistration();
}

}  // namespace quorl
