// The text that QuorlError_ToString gives each error code, as a host expects it: the known codes with their
// messages and, around them, codes without one, which give the empty text. One table for the relay tests
// and for quorl-host's checks. Constant data that any thread may read.
#pragma once

#include <cstdint>

namespace quorl::expected {

struct ErrorText {
  int32_t code;
  const char* text;
};

inline constexpr ErrorText kErrorTexts[] = {
    {0, "Success"},
    {1, "Unknown Error"},
    {200, "Failed to download manifest from remote server or find cached copy"},
    {201, "Failed to parse manifest"},
    {202, "Failed to download representation from remote server or find cached copy"},
    {203, "Failed to load representation for playback"},
    {204, "Failed to find a valid decoder for the loaded representation"},
    {205, "Cached copy not valid for offline playback"},
    {2, ""},
    {199, ""},
    {206, ""},
    {-1, ""},
    {INT32_MIN, ""},
    {INT32_MAX, ""},
};

}  // namespace quorl::expected
