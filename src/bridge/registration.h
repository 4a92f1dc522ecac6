// Plug-in registration: the one call a host makes to announce itself. It completes the build
// information (once), logs the banner "QuorlBridge <version> (<build info>)" at severity 1, and keeps the
// host's three numbers and text, which nothing in the library reads.
//
// No lock is taken: the host makes the first call before other threads touch build information.
#pragma once

#include <cstdint>
#include <string>

namespace quorl {

struct HostRegistrationRecord {
  int32_t first = 0;
  int32_t second = 0;
  int32_t third = 0;
  std::string text;
};

void RegisterPlugin(int32_t first, int32_t second, int32_t third, const char* text);

// What the last registration stored; for tests and diagnostics.
const HostRegistrationRecord& HostRegistration();

}  // namespace quorl
