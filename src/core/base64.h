// Base64 with the standard alphabet, "=" padding and no line breaks, plus two fixed departures.
//
// - Encoding a final single byte b0 gives alphabet[b0 >> 2], alphabet[(b0 & 3) | (b1 >> 4)], "==", where
//   b1 is the byte *behind* the input: the low bits of b0 are not moved up as the standard does. So the
//   pointer form needs one more readable byte behind `data` when size % 3 == 1, and a decoded round trip
//   of such an input loses the two low bits of its last byte. The string form reads the terminating NUL.
// - Decoding never validates: a size that isn't a multiple of 4 gives the empty string, every byte outside
//   the alphabet counts as 0 (white space, "=" before the tail, URL-safe characters, bytes from 128), and
//   "=" is only looked at in the last group. A zero size isn't guarded: the pointer form still reads four
//   characters at `data`, so callers must not pass it.
// Stateless; any thread. Results are byte strings and may hold NUL.
//
// The bulk of long inputs goes through vector code (AVX2, else SSSE3) when the processor has it and, for
// AVX2, the system saves the wide registers; the choice is made once, on first use. The portable code
// does the rest and everything on other processors. All paths give the same bytes, and none reads
// outside what the portable code reads: the input, plus the one byte behind it in the case above.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quorl {

std::string Base64Encode(const uint8_t* data, std::size_t size);
std::string Base64Encode(const std::string& text);

std::string Base64Decode(const char* data, std::size_t size);
std::string Base64Decode(const std::string& text);

// The paths, one by one, for tests that hold each against the portable one.
namespace base64_internal {

enum class Base64Path { kPortable, kSsse3, kAvx2 };

// Whether this processor and system can run `path`; always true for the portable one.
bool Base64PathAvailable(Base64Path path);

// Base64Encode and Base64Decode on `path`, which must be available.
std::string Base64EncodeWith(Base64Path path, const uint8_t* data, std::size_t size);
std::string Base64DecodeWith(Base64Path path, const char* data, std::size_t size);

}  // namespace base64_internal

}  // namespace quorl
