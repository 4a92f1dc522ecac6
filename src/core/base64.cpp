#include "core/base64.h"

#include <immintrin.h>

#include <array>
#include <cstring>

#include "runtime/cpu.h"

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

// A vector path does the bulk of the full groups and the portable code below does the rest, so the
// vector code never sees a tail. Neither kind of kernel reads a byte outside [in, in + size): the one
// byte that the encoder reads behind its input is read by the portable tail alone.
//
// EncodeBody: encodes whole 3-byte groups from the start of `in` and returns how many bytes it took
// (a multiple of 3, possibly 0); writes exactly four characters per group taken.
// DecodeBody: decodes whole 4-character groups of the `size` body characters (the tail group is not
// among them) and returns how many characters it took (a multiple of 4). Its stores may run past the
// bytes it decoded, but never past the body's size / 4 * 3 bytes, where later steps write.
using EncodeBody = std::size_t (*)(const uint8_t* in, std::size_t size, char* out);
using DecodeBody = std::size_t (*)(const char* in, std::size_t size, char* out);

struct Kernels {
  EncodeBody encode;  // null: all portable
  DecodeBody decode;
};

// ---- SSSE3 and AVX2 ------------------------------------------------------------------------------------
//
// The encoder spreads each 3-byte group over a 32-bit lane as bytes b1 b0 b2 b1, cuts the four 6-bit
// indices out with two masks and two 16-bit multiplies, and maps indices to characters by adding an
// offset looked up by range (A-Z, a-z, 0-9, +, /). The decoder looks up each character's low and high
// nibble: two table bytes whose AND is zero exactly for the 64 characters of the alphabet, and the
// offset that turns a character into its value; bytes outside the alphabet become 0, as the portable
// decoder has them. Then two multiply-adds pack four 6-bit values into three bytes.

#define QUORL_TARGET_SSSE3 __attribute__((target("ssse3")))
#define QUORL_TARGET_AVX2 __attribute__((target("avx2")))

QUORL_TARGET_SSSE3 inline __m128i EncodeIndices128(__m128i groups) {
  const __m128i spread =
      _mm_shuffle_epi8(groups, _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
  const __m128i i0i2 =
      _mm_mulhi_epu16(_mm_and_si128(spread, _mm_set1_epi32(0x0fc0fc00)), _mm_set1_epi32(0x04000040));
  const __m128i i1i3 =
      _mm_mullo_epi16(_mm_and_si128(spread, _mm_set1_epi32(0x003f03f0)), _mm_set1_epi32(0x01000010));
  return _mm_or_si128(i0i2, i1i3);
}

QUORL_TARGET_SSSE3 inline __m128i IndicesToAscii128(__m128i indices) {
  const __m128i offsets =
      _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                    '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  // 0 for a-z, 1 to 10 for digits, 11 for +, 12 for /, 13 for A-Z.
  __m128i range = _mm_subs_epu8(indices, _mm_set1_epi8(51));
  range = _mm_or_si128(range, _mm_and_si128(_mm_cmpgt_epi8(_mm_set1_epi8(26), indices), _mm_set1_epi8(13)));
  return _mm_add_epi8(indices, _mm_shuffle_epi8(offsets, range));
}

QUORL_TARGET_SSSE3 std::size_t EncodeBodySsse3(const uint8_t* in, std::size_t size, char* out) {
  std::size_t i = 0;
  // Each step takes 12 bytes from a 16-byte load.
  for (; i + 16 <= size; i += 12, out += 16) {
    const __m128i groups = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), IndicesToAscii128(EncodeIndices128(groups)));
  }
  return i;
}

// The values of 16 characters, 0 for those outside the alphabet.
QUORL_TARGET_SSSE3 inline __m128i AsciiToValues128(__m128i chars) {
  const __m128i lowBits = _mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13,
                                        0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
  const __m128i highBits = _mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10,
                                         0x10, 0x10, 0x10, 0x10, 0x10);
  const __m128i offsets = _mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m128i slash = _mm_set1_epi8(0x2F);
  // Masking with 0x2F keeps the nibble and clears bit 7, the one bit beside the nibble that the shuffle
  // reads; bit 5 may carry a bit of the neighbouring byte and is ignored.
  const __m128i high = _mm_and_si128(_mm_srli_epi32(chars, 4), slash);
  const __m128i low = _mm_and_si128(chars, slash);
  const __m128i invalid = _mm_and_si128(_mm_shuffle_epi8(lowBits, low), _mm_shuffle_epi8(highBits, high));
  const __m128i valid = _mm_cmpeq_epi8(invalid, _mm_setzero_si128());
  const __m128i offset = _mm_shuffle_epi8(offsets, _mm_add_epi8(high, _mm_cmpeq_epi8(chars, slash)));
  return _mm_and_si128(_mm_add_epi8(chars, offset), valid);
}

// Four 6-bit values per 32-bit lane become three bytes, in the low 12 bytes in order.
QUORL_TARGET_SSSE3 inline __m128i PackValues128(__m128i values) {
  const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
  const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
  return _mm_shuffle_epi8(groups, _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
}

QUORL_TARGET_SSSE3 std::size_t DecodeBodySsse3(const char* in, std::size_t size, char* out) {
  const std::size_t outLimit = size / 4 * 3;
  std::size_t i = 0, o = 0;
  // Each step decodes 16 characters into 12 bytes with a 16-byte store.
  for (; i + 16 <= size && o + 16 <= outLimit; i += 16, o += 12) {
    const __m128i chars = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + o), PackValues128(AsciiToValues128(chars)));
  }
  return i;
}

QUORL_TARGET_AVX2 inline __m256i EncodeIndices256(__m256i groups) {
  const __m256i spread =
      _mm256_shuffle_epi8(groups, _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0, 2,
                                                   1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
  const __m256i i0i2 = _mm256_mulhi_epu16(_mm256_and_si256(spread, _mm256_set1_epi32(0x0fc0fc00)),
                                          _mm256_set1_epi32(0x04000040));
  const __m256i i1i3 = _mm256_mullo_epi16(_mm256_and_si256(spread, _mm256_set1_epi32(0x003f03f0)),
                                          _mm256_set1_epi32(0x01000010));
  return _mm256_or_si256(i0i2, i1i3);
}

QUORL_TARGET_AVX2 inline __m256i IndicesToAscii256(__m256i indices) {
  const __m256i offsets = _mm256_setr_epi8(
      'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
      '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0, 'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
      '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  __m256i range = _mm256_subs_epu8(indices, _mm256_set1_epi8(51));
  range = _mm256_or_si256(
      range, _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(26), indices), _mm256_set1_epi8(13)));
  return _mm256_add_epi8(indices, _mm256_shuffle_epi8(offsets, range));
}

QUORL_TARGET_AVX2 inline __m256i LoadTwelvePairs(const uint8_t* in) {
  // Bytes [0, 12) in the low lane and [12, 24) in the high one, from two 16-byte loads.
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 12));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
}

QUORL_TARGET_AVX2 std::size_t EncodeBodyAvx2(const uint8_t* in, std::size_t size, char* out) {
  std::size_t i = 0;
  // Each step takes 24 bytes, the last of its loads ending 4 bytes further on.
  for (; i + 52 <= size; i += 48, out += 64) {
    const __m256i first = IndicesToAscii256(EncodeIndices256(LoadTwelvePairs(in + i)));
    const __m256i second = IndicesToAscii256(EncodeIndices256(LoadTwelvePairs(in + i + 24)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), first);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 32), second);
  }
  for (; i + 28 <= size; i += 24, out += 32) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out),
                        IndicesToAscii256(EncodeIndices256(LoadTwelvePairs(in + i))));
  }
  return i;
}

QUORL_TARGET_AVX2 inline __m256i AsciiToValues256(__m256i chars) {
  const __m256i lowBits = _mm256_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13,
                                           0x1A, 0x1B, 0x1B, 0x1B, 0x1A, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11,
                                           0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
  const __m256i highBits = _mm256_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10,
                                            0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08,
                                            0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
  const __m256i offsets = _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16,
                                           19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m256i slash = _mm256_set1_epi8(0x2F);
  const __m256i high = _mm256_and_si256(_mm256_srli_epi32(chars, 4), slash);
  const __m256i low = _mm256_and_si256(chars, slash);
  const __m256i invalid =
      _mm256_and_si256(_mm256_shuffle_epi8(lowBits, low), _mm256_shuffle_epi8(highBits, high));
  const __m256i valid = _mm256_cmpeq_epi8(invalid, _mm256_setzero_si256());
  const __m256i offset = _mm256_shuffle_epi8(offsets, _mm256_add_epi8(high, _mm256_cmpeq_epi8(chars, slash)));
  return _mm256_and_si256(_mm256_add_epi8(chars, offset), valid);
}

// 24 bytes in order in the low 24 bytes.
QUORL_TARGET_AVX2 inline __m256i PackValues256(__m256i values) {
  const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
  const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
  const __m256i lanes =
      _mm256_shuffle_epi8(groups, _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2,
                                                   1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
  return _mm256_permutevar8x32_epi32(lanes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}

QUORL_TARGET_AVX2 std::size_t DecodeBodyAvx2(const char* in, std::size_t size, char* out) {
  const std::size_t outLimit = size / 4 * 3;
  std::size_t i = 0, o = 0;
  // Each step decodes 32 characters into 24 bytes with a 32-byte store.
  for (; i + 64 <= size && o + 56 <= outLimit; i += 64, o += 48) {
    const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    const __m256i second = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i + 32));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + o), PackValues256(AsciiToValues256(first)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + o + 24), PackValues256(AsciiToValues256(second)));
  }
  for (; i + 32 <= size && o + 32 <= outLimit; i += 32, o += 24) {
    const __m256i chars = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + o), PackValues256(AsciiToValues256(chars)));
  }
  return i;
}

// Whether the system saves the wide registers across context switches: the processor facts say what the
// processor can do, not what the system has switched on.
bool SystemSavesAvxState() {
  uint32_t leaf1[4];
  CpuIdQuery(1, 0, leaf1);
  if ((leaf1[2] & (1u << 27)) == 0) return false;  // OSXSAVE: XGETBV is usable
  uint32_t low, high;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  static_cast<void>(high);
  return (low & 0x6) == 0x6;  // both the SSE and the AVX register state
}

Kernels KernelsOf(base64_internal::Base64Path path) {
  switch (path) {
    case base64_internal::Base64Path::kAvx2:
      return {&EncodeBodyAvx2, &DecodeBodyAvx2};
    case base64_internal::Base64Path::kSsse3:
      return {&EncodeBodySsse3, &DecodeBodySsse3};
    case base64_internal::Base64Path::kPortable:
      break;
  }
  return {nullptr, nullptr};
}

// The best path of this processor and system, chosen once.
const Kernels& BestKernels() {
  static const Kernels best = [] {
    using base64_internal::Base64Path;
    for (Base64Path path : {Base64Path::kAvx2, Base64Path::kSsse3}) {
      if (base64_internal::Base64PathAvailable(path)) return KernelsOf(path);
    }
    return KernelsOf(Base64Path::kPortable);
  }();
  return best;
}

std::string Encode(const Kernels& kernels, const uint8_t* data, std::size_t size) {
  if (size == 0) return {};
  const std::size_t groups = size / 3;
  std::string result((groups + (size % 3 != 0)) * 4, '\0');
  char* out = result.data();
  std::size_t g = 0;
  if (kernels.encode != nullptr) {
    const std::size_t taken = kernels.encode(data, size, out);
    g = taken / 3;
    data += taken;
    out += g * 4;
  }
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

std::string Decode(const Kernels& kernels, const char* data, std::size_t size) {
  if (size % 4 != 0) return {};
  // A zero size is not guarded: the tail below still reads four characters at data. Intended.
  const std::size_t bodyGroups = size == 0 ? 0 : size / 4 - 1;
  const char* tail = data + bodyGroups * 4;
  const std::size_t tailBytes = tail[2] == '=' ? 1 : tail[3] == '=' ? 2 : 3;
  std::string result(bodyGroups * 3 + tailBytes, '\0');
  char* out = result.data();
  std::size_t g = 0;
  if (kernels.decode != nullptr) {
    const std::size_t taken = kernels.decode(data, bodyGroups * 4, out);
    g = taken / 4;
    data += taken;
    out += g * 3;
  }
  // Stores run past the bytes a step owns (by two, or by one), always into bytes that a later step or
  // the tail writes: a pair is followed by at least one single group, never by the terminating NUL.
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

}  // namespace

std::string Base64Encode(const uint8_t* data, std::size_t size) {
  return Encode(BestKernels(), data, size);
}

std::string Base64Encode(const std::string& text) {
  return Base64Encode(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

std::string Base64Decode(const char* data, std::size_t size) {
  return Decode(BestKernels(), data, size);
}

std::string Base64Decode(const std::string& text) {
  return Base64Decode(text.data(), text.size());
}

namespace base64_internal {

bool Base64PathAvailable(Base64Path path) {
  switch (path) {
    case Base64Path::kAvx2:
      return CpuFeatures::instance().AVX2 && SystemSavesAvxState();
    case Base64Path::kSsse3:
      return CpuFeatures::instance().SSSE3;
    case Base64Path::kPortable:
      return true;
  }
  return false;
}

std::string Base64EncodeWith(Base64Path path, const uint8_t* data, std::size_t size) {
  return Encode(KernelsOf(path), data, size);
}

std::string Base64DecodeWith(Base64Path path, const char* data, std::size_t size) {
  return Decode(KernelsOf(path), data, size);
}

}  // namespace base64_internal

}  // namespace quorl
