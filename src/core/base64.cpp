#include "core/base64.h"

#include <array>
#include <cstring>

namespace quorl {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Two output characters for each 12-bit half of a 3-byte group: one lookup per half instead of two.
struct PairTable {
  std::array<uint16_t, 4096> pairs{};
  constexpr PairTable() {
    for (unsigned i = 0; i < 4096; ++i) {
      // Little-endian: the first character goes into the low byte.
      pairs[i] = static_cast<uint16_t>(static_cast<uint8_t>(kAlphabet[i >> 6]) |
                                       (static_cast<uint8_t>(kAlphabet[i & 63]) << 8));
    }
  }
};
constexpr PairTable kPairs;

// The value of each character, pre-shifted into its place in a little-endian 24-bit group, so that a
// group decodes with four lookups and three ORs. Bytes outside the alphabet map to 0.
struct DecodeTables {
  std::array<uint32_t, 256> shifted[4]{};
  constexpr DecodeTables() {
    for (unsigned v = 0; v < 64; ++v) {
      const auto c = static_cast<uint8_t>(kAlphabet[v]);
      // Group bits: v0 << 18 | v1 << 12 | v2 << 6 | v3, stored with its top byte first in memory.
      const uint32_t bits[4] = {v << 18, v << 12, v << 6, v};
      for (int k = 0; k < 4; ++k) {
        const uint32_t b = bits[k];
        shifted[k][c] = ((b >> 16) & 0xFF) | (b & 0xFF00) | ((b & 0xFF) << 16);
      }
    }
  }
};
constexpr DecodeTables kDecode;

inline uint32_t ValueOf(char c) {
  return kDecode.shifted[3][static_cast<uint8_t>(c)] >> 16;
}

inline uint32_t DecodeGroup(const char* in) {
  return kDecode.shifted[0][static_cast<uint8_t>(in[0])] | kDecode.shifted[1][static_cast<uint8_t>(in[1])] |
         kDecode.shifted[2][static_cast<uint8_t>(in[2])] | kDecode.shifted[3][static_cast<uint8_t>(in[3])];
}

}  // namespace

std::string Base64Encode(const uint8_t* data, std::size_t size) {
  if (size == 0) return {};
  const std::size_t groups = size / 3;
  std::string result((groups + (size % 3 != 0)) * 4, '\0');
  char* out = result.data();
  std::size_t g = 0;
  // Two groups per step from one 8-byte load, while the load stays inside the input.
  for (; g + 2 < groups; g += 2, data += 6, out += 8) {
    uint64_t word;
    std::memcpy(&word, data, 8);
    word = __builtin_bswap64(word);  // the six bytes of the two groups in the top 48 bits
    const uint64_t chars = uint64_t{kPairs.pairs[(word >> 52) & 0xFFF]} |
                           (uint64_t{kPairs.pairs[(word >> 40) & 0xFFF]} << 16) |
                           (uint64_t{kPairs.pairs[(word >> 28) & 0xFFF]} << 32) |
                           (uint64_t{kPairs.pairs[(word >> 16) & 0xFFF]} << 48);
    std::memcpy(out, &chars, 8);
  }
  for (; g < groups; ++g, data += 3, out += 4) {
    const uint32_t bits = (uint32_t{data[0]} << 16) | (uint32_t{data[1]} << 8) | data[2];
    std::memcpy(out, &kPairs.pairs[bits >> 12], 2);
    std::memcpy(out + 2, &kPairs.pairs[bits & 0xFFF], 2);
  }
  switch (size % 3) {
    case 2:
      out[0] = kAlphabet[data[0] >> 2];
      out[1] = kAlphabet[((data[0] & 3) << 4) | (data[1] >> 4)];
      out[2] = kAlphabet[(data[1] & 15) << 2];
      out[3] = '=';
      break;
    case 1:
      out[0] = kAlphabet[data[0] >> 2];
      // Reads the byte behind the input and doesn't shift b0's low bits: this encoder's fixed tail.
      out[1] = kAlphabet[(data[0] & 3) | (data[1] >> 4)];
      out[2] = '=';
      out[3] = '=';
      break;
    default:
      break;
  }
  return result;
}

std::string Base64Encode(const std::string& text) {
  return Base64Encode(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

std::string Base64Decode(const char* data, std::size_t size) {
  if (size % 4 != 0) return {};
  // A zero size is not guarded: the tail below still reads four characters at data. Intended.
  const std::size_t bodyGroups = size == 0 ? 0 : size / 4 - 1;
  const char* tail = data + bodyGroups * 4;
  const std::size_t tailBytes = tail[2] == '=' ? 1 : tail[3] == '=' ? 2 : 3;
  std::string result(bodyGroups * 3 + tailBytes, '\0');
  char* out = result.data();
  // Stores run past the bytes a step owns (by two, or by one), always into bytes that a later step or
  // the tail writes: a pair is followed by at least one single group, never by the terminating NUL.
  std::size_t g = 0;
  for (; g + 2 < bodyGroups; g += 2, data += 8, out += 6) {
    const uint64_t groups = DecodeGroup(data) | (uint64_t{DecodeGroup(data + 4)} << 24);
    std::memcpy(out, &groups, 8);
  }
  for (; g < bodyGroups; ++g, data += 4, out += 3) {
    const uint32_t group = DecodeGroup(data);
    std::memcpy(out, &group, 4);
  }
  const uint32_t v0 = ValueOf(tail[0]), v1 = ValueOf(tail[1]), v2 = ValueOf(tail[2]), v3 = ValueOf(tail[3]);
  out[0] = static_cast<char>((v0 << 2) | (v1 >> 4));
  if (tailBytes >= 2) out[1] = static_cast<char>(((v1 & 15) << 4) | (v2 >> 2));
  if (tailBytes == 3) out[2] = static_cast<char>(((v2 & 3) << 6) | v3);
  return result;
}

std::string Base64Decode(const std::string& text) {
  return Base64Decode(text.data(), text.size());
}

}  // namespace quorl
