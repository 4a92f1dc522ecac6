#include "core/name_hash.h"

#include <cstring>
#include <utility>

#include "core/text.h"

namespace quorl {

namespace {

inline uint32_t Rotl32(uint32_t x, int r) {
  return (x << r) | (x >> (32 - r));
}
inline uint64_t Rotl64(uint64_t x, int r) {
  return (x << r) | (x >> (64 - r));
}

// Keys need not be aligned; memcpy is the defined way to read a block and compiles to one load.
inline uint32_t Block32(const uint8_t* p) {
  uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline uint64_t Block64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline uint32_t Fmix32(uint32_t h) {
  h ^= h >> 16;
  h *= 0x85ebca6bu;
  h ^= h >> 13;
  h *= 0xc2b2ae35u;
  h ^= h >> 16;
  return h;
}

inline uint64_t Fmix64(uint64_t k) {
  k ^= k >> 33;
  k *= 0xff51afd7ed558ccdull;
  k ^= k >> 33;
  k *= 0xc4ceb9fe1a85ec53ull;
  k ^= k >> 33;
  return k;
}

}  // namespace

void MurmurHash3_x86_32(const void* key, int32_t length, uint32_t seed, void* out) {
  const auto* data = static_cast<const uint8_t*>(key);
  const int32_t nblocks = length / 4;
  uint32_t h1 = seed;
  const uint32_t c1 = 0xcc9e2d51u;
  const uint32_t c2 = 0x1b873593u;

  for (int32_t i = 0; i < nblocks; ++i) {
    uint32_t k1 = Block32(data + static_cast<std::ptrdiff_t>(i) * 4);
    k1 *= c1;
    k1 = Rotl32(k1, 15);
    k1 *= c2;
    h1 ^= k1;
    h1 = Rotl32(h1, 13);
    h1 = h1 * 5 + 0xe6546b64u;
  }

  const uint8_t* tail = data + static_cast<std::ptrdiff_t>(nblocks) * 4;
  uint32_t k1 = 0;
  switch (length & 3) {
    case 3:
      k1 ^= static_cast<uint32_t>(tail[2]) << 16;
      [[fallthrough]];
    case 2:
      k1 ^= static_cast<uint32_t>(tail[1]) << 8;
      [[fallthrough]];
    case 1:
      k1 ^= tail[0];
      k1 *= c1;
      k1 = Rotl32(k1, 15);
      k1 *= c2;
      h1 ^= k1;
  }

  h1 ^= static_cast<uint32_t>(length);
  h1 = Fmix32(h1);
  std::memcpy(out, &h1, sizeof h1);
}

void MurmurHash3_x64_128(const void* key, int32_t length, uint32_t seed, void* out) {
  const auto* data = static_cast<const uint8_t*>(key);
  const int32_t nblocks = length / 16;
  uint64_t h1 = seed;
  uint64_t h2 = seed;
  const uint64_t c1 = 0x87c37b91114253d5ull;
  const uint64_t c2 = 0x4cf5ad432745937full;

  for (int32_t i = 0; i < nblocks; ++i) {
    uint64_t k1 = Block64(data + static_cast<std::ptrdiff_t>(i) * 16);
    uint64_t k2 = Block64(data + static_cast<std::ptrdiff_t>(i) * 16 + 8);
    k1 *= c1;
    k1 = Rotl64(k1, 31);
    k1 *= c2;
    h1 ^= k1;
    h1 = Rotl64(h1, 27);
    h1 += h2;
    h1 = h1 * 5 + 0x52dce729;
    k2 *= c2;
    k2 = Rotl64(k2, 33);
    k2 *= c1;
    h2 ^= k2;
    h2 = Rotl64(h2, 31);
    h2 += h1;
    h2 = h2 * 5 + 0x38495ab5;
  }

  const uint8_t* tail = data + static_cast<std::ptrdiff_t>(nblocks) * 16;
  uint64_t k1 = 0;
  uint64_t k2 = 0;
  switch (length & 15) {
    case 15:
      k2 ^= static_cast<uint64_t>(tail[14]) << 48;
      [[fallthrough]];
    case 14:
      k2 ^= static_cast<uint64_t>(tail[13]) << 40;
      [[fallthrough]];
    case 13:
      k2 ^= static_cast<uint64_t>(tail[12]) << 32;
      [[fallthrough]];
    case 12:
      k2 ^= static_cast<uint64_t>(tail[11]) << 24;
      [[fallthrough]];
    case 11:
      k2 ^= static_cast<uint64_t>(tail[10]) << 16;
      [[fallthrough]];
    case 10:
      k2 ^= static_cast<uint64_t>(tail[9]) << 8;
      [[fallthrough]];
    case 9:
      k2 ^= static_cast<uint64_t>(tail[8]);
      k2 *= c2;
      k2 = Rotl64(k2, 33);
      k2 *= c1;
      h2 ^= k2;
      [[fallthrough]];
    case 8:
      k1 ^= static_cast<uint64_t>(tail[7]) << 56;
      [[fallthrough]];
    case 7:
      k1 ^= static_cast<uint64_t>(tail[6]) << 48;
      [[fallthrough]];
    case 6:
      k1 ^= static_cast<uint64_t>(tail[5]) << 40;
      [[fallthrough]];
    case 5:
      k1 ^= static_cast<uint64_t>(tail[4]) << 32;
      [[fallthrough]];
    case 4:
      k1 ^= static_cast<uint64_t>(tail[3]) << 24;
      [[fallthrough]];
    case 3:
      k1 ^= static_cast<uint64_t>(tail[2]) << 16;
      [[fallthrough]];
    case 2:
      k1 ^= static_cast<uint64_t>(tail[1]) << 8;
      [[fallthrough]];
    case 1:
      k1 ^= static_cast<uint64_t>(tail[0]);
      k1 *= c1;
      k1 = Rotl64(k1, 31);
      k1 *= c2;
      h1 ^= k1;
  }

  // The length enters as the published code has it: a signed int widened to 64 bits.
  const auto widened = static_cast<uint64_t>(static_cast<int64_t>(length));
  h1 ^= widened;
  h2 ^= widened;
  h1 += h2;
  h2 += h1;
  h1 = Fmix64(h1);
  h2 = Fmix64(h2);
  h1 += h2;
  h2 += h1;

  // The two words change places against the published reference; intended.
  const uint64_t words[2] = {h2, h1};
  std::memcpy(out, words, sizeof words);
}

uint32_t NameHash(const char* text) {
  if (text == nullptr) return 0;
  const auto length = static_cast<uint32_t>(std::strlen(text));
  if (length == 0) return 0;
  uint32_t hash;
  MurmurHash3_x86_32(text, static_cast<int32_t>(length), kNameHashSeed, &hash);
  return hash;
}

uint32_t NameHashOfString(const std::string& text) {
  const auto length = static_cast<uint32_t>(text.size());
  if (length == 0) return 0;
  uint32_t hash;
  MurmurHash3_x86_32(text.data(), static_cast<int32_t>(length), kNameHashSeed, &hash);
  return hash;
}

void Hash128Word32(const void* key, int32_t length, uint32_t seed, uint32_t* out) {
  uint64_t words[2] = {0, 0};
  MurmurHash3_x64_128(key, length, seed, words);
  *out = static_cast<uint32_t>(words[0]);
}

void Hash128Word64(const void* key, int32_t length, uint32_t seed, uint64_t* out) {
  uint64_t words[2] = {0, 0};
  MurmurHash3_x64_128(key, length, seed, words);
  *out = words[0];
}

HashedName::HashedName(const char* text) : name(TextOf(text)), hash(NameHashOfString(name)) {}

HashedName::HashedName(std::string text) : name(std::move(text)), hash(NameHashOfString(name)) {}

}  // namespace quorl
