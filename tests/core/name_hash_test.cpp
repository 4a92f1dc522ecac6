#include "core/name_hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace quorl {
namespace {

// Straightforward references, written from the published description: bytes are assembled into
// little-endian words one at a time, and the tail is folded in with a loop instead of a switch.
uint32_t Rotl(uint32_t x, int r) {
  return (x << r) | (x >> (32 - r));
}
uint64_t Rotl(uint64_t x, int r) {
  return (x << r) | (x >> (64 - r));
}

uint64_t LittleEndian(const uint8_t* p, int count) {
  uint64_t v = 0;
  for (int i = count - 1; i >= 0; --i)
    v = (v << 8) | p[i];
  return v;
}

uint32_t ReferenceX86_32(const std::vector<uint8_t>& key, uint32_t seed) {
  const int len = static_cast<int>(key.size());
  uint32_t h = seed;
  int i = 0;
  auto mixK = [](uint32_t k) { return Rotl(k * 0xcc9e2d51u, 15) * 0x1b873593u; };
  for (; i + 4 <= len; i += 4) {
    h ^= mixK(static_cast<uint32_t>(LittleEndian(key.data() + i, 4)));
    h = Rotl(h, 13) * 5 + 0xe6546b64u;
  }
  if (i < len) h ^= mixK(static_cast<uint32_t>(LittleEndian(key.data() + i, len - i)));
  h ^= static_cast<uint32_t>(len);
  h ^= h >> 16;
  h *= 0x85ebca6bu;
  h ^= h >> 13;
  h *= 0xc2b2ae35u;
  return h ^ (h >> 16);
}

uint64_t Fmix(uint64_t k) {
  k = (k ^ (k >> 33)) * 0xff51afd7ed558ccdull;
  k = (k ^ (k >> 33)) * 0xc4ceb9fe1a85ec53ull;
  return k ^ (k >> 33);
}

// Returns {first written word, second written word} of the published x64_128.
std::pair<uint64_t, uint64_t> ReferenceX64_128(const std::vector<uint8_t>& key, uint32_t seed) {
  const uint64_t c1 = 0x87c37b91114253d5ull, c2 = 0x4cf5ad432745937full;
  const int len = static_cast<int>(key.size());
  uint64_t h1 = seed, h2 = seed;
  int i = 0;
  for (; i + 16 <= len; i += 16) {
    h1 ^= Rotl(LittleEndian(key.data() + i, 8) * c1, 31) * c2;
    h1 = (Rotl(h1, 27) + h2) * 5 + 0x52dce729;
    h2 ^= Rotl(LittleEndian(key.data() + i + 8, 8) * c2, 33) * c1;
    h2 = (Rotl(h2, 31) + h1) * 5 + 0x38495ab5;
  }
  const int rest = len - i;
  if (rest > 8) h2 ^= Rotl(LittleEndian(key.data() + i + 8, rest - 8) * c2, 33) * c1;
  if (rest > 0) h1 ^= Rotl(LittleEndian(key.data() + i, rest < 8 ? rest : 8) * c1, 31) * c2;
  h1 ^= static_cast<uint64_t>(len);
  h2 ^= static_cast<uint64_t>(len);
  h1 += h2;
  h2 += h1;
  h1 = Fmix(h1);
  h2 = Fmix(h2);
  h1 += h2;
  h2 += h1;
  return {h1, h2};
}

std::vector<uint8_t> Bytes(const std::string& s) {
  return std::vector<uint8_t>(s.begin(), s.end());
}

// Keys of every tail length over two blocks, with bytes above 0x7f to catch sign extension.
std::vector<std::vector<uint8_t>> SampleKeys() {
  std::vector<std::vector<uint8_t>> keys;
  for (int n = 0; n <= 40; ++n) {
    std::vector<uint8_t> key;
    for (int i = 0; i < n; ++i)
      key.push_back(static_cast<uint8_t>(0x5b + i * 37));
    keys.push_back(key);
  }
  return keys;
}

const uint32_t kSeeds[] = {0u, 1u, 0x9747b28cu, 0xffffffffu, kNameHashSeed};

TEST(NameHashReference, MatchesPublishedValues) {
  EXPECT_EQ(ReferenceX86_32(Bytes("hello"), 0), 613153351u);
  const auto words = ReferenceX64_128(Bytes("hello"), 0);
  EXPECT_EQ(words.first, 0xcbd8a7b341bd9b02ull);
  EXPECT_EQ(words.second, 0x5b1e906a48ae1d19ull);
  // Published vectors that run through whole blocks as well as a tail.
  const auto fox = Bytes("The quick brown fox jumps over the lazy dog");
  EXPECT_EQ(ReferenceX86_32(fox, 0), 0x2e4ff723u);
  EXPECT_EQ(ReferenceX86_32(fox, 0x9747b28cu), 0x2fa826cdu);
  EXPECT_EQ(ReferenceX86_32({}, 0xffffffffu), 0x81f16f39u);
  EXPECT_EQ(ReferenceX64_128(fox, 0).first, 0xe34bbc7bbc071b6cull);
  EXPECT_EQ(ReferenceX64_128(fox, 0).second, 0x7a433ca9c49a9347ull);
}

TEST(MurmurHash, X86_32AgreesWithReferenceForEveryTailAndSeed) {
  for (const auto& key : SampleKeys()) {
    for (uint32_t seed : kSeeds) {
      uint32_t out = 0;
      MurmurHash3_x86_32(key.data(), static_cast<int32_t>(key.size()), seed, &out);
      EXPECT_EQ(out, ReferenceX86_32(key, seed)) << "length " << key.size() << " seed " << seed;
    }
  }
}

TEST(MurmurHash, X64_128StoresThePublishedWordsSwapped) {
  for (const auto& key : SampleKeys()) {
    for (uint32_t seed : kSeeds) {
      uint64_t out[2] = {0, 0};
      MurmurHash3_x64_128(key.data(), static_cast<int32_t>(key.size()), seed, out);
      const auto published = ReferenceX64_128(key, seed);
      EXPECT_EQ(out[0], published.second) << "length " << key.size() << " seed " << seed;
      EXPECT_EQ(out[1], published.first) << "length " << key.size() << " seed " << seed;
    }
  }
}

TEST(MurmurHash, ReadsUnalignedKeys) {
  const std::string buffer = "#unaligned key of forty-one bytes, really";
  const std::vector<uint8_t> key(buffer.begin() + 1, buffer.end());
  uint32_t out32 = 0;
  MurmurHash3_x86_32(buffer.data() + 1, static_cast<int32_t>(key.size()), 7, &out32);
  EXPECT_EQ(out32, ReferenceX86_32(key, 7));
  uint64_t out128[2] = {0, 0};
  MurmurHash3_x64_128(buffer.data() + 1, static_cast<int32_t>(key.size()), 7, out128);
  EXPECT_EQ(out128[0], ReferenceX64_128(key, 7).second);
}

TEST(MurmurHash, NarrowingWrappersTakeTheSecondPublishedWord) {
  for (const auto& key : SampleKeys()) {
    const auto published = ReferenceX64_128(key, 0x9747b28cu);
    uint32_t low = 0xdeadbeef;
    uint64_t word = 0xdeadbeef;
    Hash128Word32(key.data(), static_cast<int32_t>(key.size()), 0x9747b28cu, &low);
    Hash128Word64(key.data(), static_cast<int32_t>(key.size()), 0x9747b28cu, &word);
    EXPECT_EQ(low, static_cast<uint32_t>(published.second));
    EXPECT_EQ(word, published.second);
  }
}

TEST(NameHash, KnownKeysHaveTheirValuesAndEmptyIsZeroWithoutHashing) {
  EXPECT_EQ(NameHash("PRODUCT"), 1922325688u);
  EXPECT_EQ(NameHash("VERSION"), 1893125649u);
  EXPECT_EQ(NameHash("BUILD_INFO"), 2600028831u);
  EXPECT_EQ(NameHash("BUILD_INFO"), ReferenceX86_32(Bytes("BUILD_INFO"), 0x55378008u));
  EXPECT_EQ(NameHash(nullptr), 0u);
  EXPECT_EQ(NameHash(""), 0u);
  EXPECT_EQ(NameHashOfString(std::string()), 0u);
  EXPECT_NE(ReferenceX86_32({}, kNameHashSeed), 0u);  // so the zero above is the shortcut's
}

TEST(NameHash, StringFormAgreesAndCountsBytesAfterEmbeddedZero) {
  for (const char* text : {"a", "PRODUCT", "option.group.name", "\xff\x80 high bytes"}) {
    EXPECT_EQ(NameHashOfString(text), NameHash(text)) << text;
  }
  const std::string embedded("ab\0cd", 5);
  EXPECT_EQ(NameHash(embedded.c_str()), NameHash("ab"));
  EXPECT_EQ(NameHashOfString(embedded), ReferenceX86_32(Bytes(embedded), kNameHashSeed));
  EXPECT_NE(NameHashOfString(embedded), NameHash("ab"));
}

TEST(HashedName, CarriesTheNameHashAndComparesOnlyTheHash) {
  const HashedName name("GIT_HASH");
  EXPECT_EQ(name.name, "GIT_HASH");
  EXPECT_EQ(name.hash, NameHash("GIT_HASH"));
  EXPECT_EQ(HashedName(std::string("GIT_HASH")).hash, name.hash);
  EXPECT_EQ(HashedName(), HashedName(std::string(), 0u));
  EXPECT_EQ(HashedName("one", 5u), HashedName("other", 5u));
  EXPECT_NE(HashedName("one", 5u), HashedName("one", 6u));
  EXPECT_LT(HashedName("z", 1u), HashedName("a", 0x80000000u));  // unsigned order
  try {
    HashedName broken(static_cast<const char*>(nullptr));
    ADD_FAILURE() << "no exception for a null name";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(), "basic_string::_M_construct null not valid");
  }
}

}  // namespace
}  // namespace quorl
