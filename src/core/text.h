// The one check for texts that arrive as `const char*` and must become strings.
//
// A null pointer where a text is required raises std::logic_error with the exact message callers of
// this library depend on. The toolchain's own std::string(nullptr) message differs between library
// versions, so the check is made here and nowhere else. Stateless; any thread.
#pragma once

#include <string>

namespace quorl {

// The message of the logic error raised for a null text.
inline constexpr const char kNullTextMessage[] = "basic_string::_M_construct null not valid";

[[noreturn]] void ThrowNullText();

// Returns `text` unchanged, or raises the null-text logic error.
inline const char* RequireText(const char* text) {
  if (text == nullptr) ThrowNullText();
  return text;
}

// Copies `text` into a string, or raises the null-text logic error.
inline std::string TextOf(const char* text) {
  return std::string(RequireText(text));
}

}  // namespace quorl
