#include "core/name_hash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace quorl {
namespace {

// The first n bytes of a fixed key whose bytes climb above 0x7f, to catch sign extension.
std::string Sample(int n) {
  std::string key;
  for (int i = 0; i < n; ++i)
    key.push_back(static_cast<char>(0x5b + i * 37));
  return key;
}

// Known vectors: the 32-bit values of the first four rows and the 128-bit words of the first two are
// published, the rest come from a plain reference written from the published description. The 128-bit
// words are in this library's order: word0 is the one that the reference writes second. Lengths 1 to 16
// reach every tail of both forms.
constexpr char kFox[] = "The quick brown fox jumps over the lazy dog";
struct HashVector {
  std::string key;
  uint32_t seed;
  uint32_t x86_32;
  uint64_t word0, word1;
};
const HashVector kVectors[] = {
    {"hello", 0x00000000u, 0x248bfa47u, 0x5b1e906a48ae1d19ull, 0xcbd8a7b341bd9b02ull},
    {kFox, 0x00000000u, 0x2e4ff723u, 0x7a433ca9c49a9347ull, 0xe34bbc7bbc071b6cull},
    {kFox, 0x9747b28cu, 0x2fa826cdu, 0xf94573727ec016e5ull, 0x738a7f3bd2633121ull},
    {"", 0xffffffffu, 0x81f16f39u, 0x857421121ee6446bull, 0x6af1df4d9d3bc9ecull},
    {Sample(1), 0x00000001u, 0xe8b26751u, 0xe3608f81a0f2f79cull, 0x42405fabc0a1fa68ull},
    {Sample(2), 0x9747b28cu, 0x73e6b847u, 0x4e16f2c86c133869ull, 0xf972528441aa24a4ull},
    {Sample(3), 0xffffffffu, 0x2b39d4cbu, 0xb0578b442820a2ccull, 0x6f2872059dd78fa2ull},
    {Sample(4), 0x55378008u, 0xafdef99du, 0xee6cb0e60527c1b0ull, 0xf2ba815dc201639cull},
    {Sample(5), 0x00000000u, 0x094d7b74u, 0xdd71336e0c89b429ull, 0xee022fe955485b5dull},
    {Sample(6), 0x00000001u, 0x5f623a59u, 0x8a6271b870df388dull, 0x3f99fd2329c5d47full},
    {Sample(7), 0x9747b28cu, 0x56972526u, 0xb7fd6cdec5acdabfull, 0xc87b30e6fa00ebbaull},
    {Sample(8), 0xffffffffu, 0xa32dffefu, 0xf80facd4d1b7e565ull, 0xcabb20bc943f1755ull},
    {Sample(9), 0x55378008u, 0x6f56b065u, 0xfcacc300bbafb5a1ull, 0x0bd18cff935a8e5bull},
    {Sample(10), 0x00000000u, 0x5a5295c9u, 0x4bc13ada6acd19e0ull, 0x0eea081985fb4691ull},
    {Sample(11), 0x00000001u, 0x15eb0583u, 0xe66d8c1dc5d49716ull, 0x275e3991af346b65ull},
    {Sample(12), 0x9747b28cu, 0xde20cfc8u, 0x05592722efc87ca1ull, 0xe80ece417cf70fc2ull},
    {Sample(13), 0xffffffffu, 0x72a0dee7u, 0x7c3319e6c67d683cull, 0xcffcd29911d76daeull},
    {Sample(14), 0x55378008u, 0xa8af3b70u, 0x9390cf868d53470aull, 0x84ffb3884b57ade8ull},
    {Sample(15), 0x00000000u, 0x8c360b98u, 0xc0d17b09ba659ca3ull, 0x675bb2b58c5d35bdull},
    {Sample(16), 0x00000001u, 0xf24abbe0u, 0x63d33428f7ca49b9ull, 0x3d64f6145486ebaaull},
};

TEST(MurmurHash, KnownVectorsFromAlignedAndUnalignedKeysWithThe128BitWordsSwapped) {
  for (const HashVector& v : kVectors) {
    SCOPED_TRACE("length " + std::to_string(v.key.size()) + " seed " + std::to_string(v.seed));
    const std::string shifted = "#" + v.key;
    const int32_t length = static_cast<int32_t>(v.key.size());
    for (const char* key : {v.key.data(), shifted.data() + 1}) {
      uint32_t out32 = 0;
      MurmurHash3_x86_32(key, length, v.seed, &out32);
      EXPECT_EQ(out32, v.x86_32);
      uint64_t out128[2] = {0, 0};
      MurmurHash3_x64_128(key, length, v.seed, out128);
      EXPECT_EQ(out128[0], v.word0);
      EXPECT_EQ(out128[1], v.word1);
      uint32_t low = 0xdeadbeef;
      uint64_t word = 0xdeadbeef;
      Hash128Word32(key, length, v.seed, &low);
      Hash128Word64(key, length, v.seed, &word);
      EXPECT_EQ(low, static_cast<uint32_t>(v.word0));
      EXPECT_EQ(word, v.word0);
    }
  }
}

TEST(NameHash, KnownKeysNullAndEmptyGiveZeroAndTheStringFormCountsPastAnEmbeddedZero) {
  EXPECT_EQ(NameHash("PRODUCT"), 1922325688u);
  EXPECT_EQ(NameHash("VERSION"), 1893125649u);
  EXPECT_EQ(NameHash("BUILD_INFO"), 2600028831u);
  EXPECT_EQ(NameHashOfString("BUILD_INFO"), 2600028831u);
  EXPECT_EQ(NameHash(nullptr), 0u);
  EXPECT_EQ(NameHash(""), 0u);
  EXPECT_EQ(NameHashOfString(""), 0u);
  uint32_t hashedEmpty = 0;
  MurmurHash3_x86_32("", 0, kNameHashSeed, &hashedEmpty);
  EXPECT_NE(hashedEmpty, 0u);  // so the zeros above are the shortcut's
  const std::string embedded("ab\0cd", 5);
  uint32_t expected = 0;
  MurmurHash3_x86_32(embedded.data(), 5, kNameHashSeed, &expected);
  EXPECT_EQ(NameHashOfString(embedded), expected);
  EXPECT_EQ(NameHash(embedded.c_str()), NameHash("ab"));
  EXPECT_NE(NameHashOfString(embedded), NameHash("ab"));
}

TEST(HashedName, CarriesTheNameHashAndComparesOnlyTheHash) {
  const HashedName name("GIT_HASH");
  EXPECT_EQ(name.name, "GIT_HASH");
  EXPECT_EQ(name.hash, NameHash("GIT_HASH"));
  EXPECT_EQ(HashedName("one", 5u), HashedName("other", 5u));
  EXPECT_NE(HashedName("one", 5u), HashedName("one", 6u));
  EXPECT_LT(HashedName("z", 1u), HashedName("a", 0x80000000u));  // unsigned order
  EXPECT_THAT(
      [] { HashedName broken(static_cast<const char*>(nullptr)); },
      testing::ThrowsMessage<std::logic_error>(testing::StrEq("basic_string::_M_construct null not valid")));
}

}  // namespace
}  // namespace quorl
