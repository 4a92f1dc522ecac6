// Name hashing: the 32-bit key by which the core layer identifies names (build information, option
// nodes, JSON member names, path parts), plus the 128-bit form offered as a service.
//
// MurmurHash3, little-endian, blocks read straight from the key. The 128-bit form stores its two result
// words swapped against the published reference; that is part of the design. Everything here is
// stateless, allocates nothing, and may run on any thread at once.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace quorl {

// The seed of every name hash.
inline constexpr uint32_t kNameHashSeed = 1429700616u;  // 0x55378008

// The published 32-bit form; writes one u32 to `out`.
void MurmurHash3_x86_32(const void* key, int32_t length, uint32_t seed, void* out);
// The 128-bit form; writes two u64 to `out`, word 0 being what the published function writes second.
void MurmurHash3_x64_128(const void* key, int32_t length, uint32_t seed, void* out);

// The hash of a zero-terminated name; 0 for null and for the empty text (which is not hashed).
uint32_t NameHash(const char* text);
// The same over a string's stored bytes, embedded NULs included; 0 when the low 32 bits of the size are 0.
uint32_t NameHashOfString(const std::string& text);

// The low 32 bits, or all 64, of word 0 of MurmurHash3_x64_128.
void Hash128Word32(const void* key, int32_t length, uint32_t seed, uint32_t* out);
void Hash128Word64(const void* key, int32_t length, uint32_t seed, uint64_t* out);

// A name with its hash. A plain value; only the hash is ever compared.
struct HashedName {
  std::string name;
  uint32_t hash = 0;

  HashedName() = default;
  // Raises the null-text logic error for a null `text`.
  HashedName(const char* text);  // NOLINT(google-explicit-constructor): built on the spot at call sites
  HashedName(std::string text);  // NOLINT(google-explicit-constructor)
  HashedName(std::string text, uint32_t precomputedHash) : name(std::move(text)), hash(precomputedHash) {}

  friend bool operator==(const HashedName& a, const HashedName& b) { return a.hash == b.hash; }
  friend bool operator!=(const HashedName& a, const HashedName& b) { return a.hash != b.hash; }
  friend bool operator<(const HashedName& a, const HashedName& b) { return a.hash < b.hash; }
};

}  // namespace quorl
