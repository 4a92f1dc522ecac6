#include "core/base64.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace quorl {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

TEST(Base64, SingleByteTailKeepsTheLowBitsInPlace) {
  EXPECT_EQ(Base64Encode(std::string("M")), "TB==");  // the standard has TQ==
  EXPECT_EQ(Base64Encode(std::string("A")), "QB==");
  EXPECT_EQ(Base64Encode(std::string("\xff")), "/D==");
  EXPECT_EQ(Base64Encode(std::string(1, '\0')), "AA==");
  EXPECT_EQ(Base64Encode(std::string("foob")), "Zm9vYC==");
  EXPECT_EQ(Base64Encode(std::string()), "");
}

TEST(Base64, OtherLengthsAreStandard) {
  EXPECT_EQ(Base64Encode(std::string("Ma")), "TWE=");
  EXPECT_EQ(Base64Encode(std::string("Man")), "TWFu");
  EXPECT_EQ(Base64Encode(std::string("fooba")), "Zm9vYmE=");
  EXPECT_EQ(Base64Encode(std::string("foobar")), "Zm9vYmFy");
  EXPECT_EQ(Base64Encode(std::string("\xfb\xff\xbf")), "+/+/");
}

TEST(Base64, PointerFormReadsTheByteBehindTheInput) {
  const uint8_t bytes[] = {77, 0xf0};  // only the first byte is input
  EXPECT_EQ(Base64Encode(bytes, 1), "TP==");
}

TEST(Base64, RoundTripLosesTheLowBitsOfALoneLastByteOnly) {
  for (std::size_t length = 0; length <= 64; ++length) {
    std::vector<uint8_t> bytes(length + 1);  // plus the readable byte behind the input
    for (std::size_t i = 0; i < length; ++i)
      bytes[i] = static_cast<uint8_t>(i * 167 + length * 59 + 3);
    bytes[length] = static_cast<uint8_t>(length * 17);
    const std::string text = Base64Encode(bytes.data(), length);
    ASSERT_EQ(text.size(), (length + 2) / 3 * 4);
    std::string expected(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
    if (length % 3 == 1) expected.back() = static_cast<char>(expected.back() & 0xfc);
    if (length == 0) continue;  // decoding a zero size is outside the contract (see the last test)
    const std::string decoded = Base64Decode(text.data(), text.size());
    EXPECT_EQ(decoded, expected) << length;
    EXPECT_EQ(decoded.c_str()[decoded.size()], '\0') << length;  // no store ran past the end
  }
}

TEST(Base64, DecodeMapsEveryByteInEveryPosition) {
  for (int c = 0; c < 256; ++c) {
    const char* found = c == 0 ? nullptr : std::strchr(kAlphabet, c);
    const uint32_t value = found == nullptr ? 0 : static_cast<uint32_t>(found - kAlphabet);
    for (int position = 0; position < 4; ++position) {
      std::string text = "AAAAAAAA";  // a body group, then a tail group of three bytes
      text[static_cast<std::size_t>(position)] = static_cast<char>(c);
      const std::string bytes = Base64Decode(text);
      ASSERT_EQ(bytes.size(), 6u);
      const uint32_t group = (uint32_t{static_cast<uint8_t>(bytes[0])} << 16) |
                             (uint32_t{static_cast<uint8_t>(bytes[1])} << 8) | static_cast<uint8_t>(bytes[2]);
      EXPECT_EQ(group, value << (18 - 6 * position)) << c << " at " << position;
    }
  }
}

TEST(Base64, DecodeChecksOnlyTheLengthAndTheTail) {
  EXPECT_EQ(Base64Decode(std::string("TWFuT")), "");
  EXPECT_EQ(Base64Decode(std::string("TWFu==")), "");
  EXPECT_EQ(Base64Decode(std::string("    ")), std::string(3, '\0'));
  EXPECT_EQ(Base64Decode(std::string("TQ==TWE=")), std::string("M\0\0Ma", 5));
  EXPECT_EQ(Base64Decode(std::string("AA=x")), std::string(1, '\0'));
  EXPECT_EQ(Base64Decode(std::string("TB==")), "L");
  EXPECT_EQ(Base64Decode(std::string("TWFu")), "Man");
  EXPECT_EQ(Base64Decode("TWFu", 0), "Man");  // a zero size still reads the four characters
}

// The vector paths against the portable one. Each test runs on every vector path this machine has.
using base64_internal::Base64DecodeWith;
using base64_internal::Base64EncodeWith;
using base64_internal::Base64Path;

struct NamedPath {
  Base64Path path;
  const char* name;
};

std::vector<NamedPath> VectorPathsHere() {
  std::vector<NamedPath> paths;
  for (const NamedPath& candidate :
       {NamedPath{Base64Path::kSsse3, "SSSE3"}, NamedPath{Base64Path::kAvx2, "AVX2"}}) {
    if (base64_internal::Base64PathAvailable(candidate.path)) paths.push_back(candidate);
  }
  return paths;
}

#define SKIP_WITHOUT_VECTOR_PATHS(paths) \
  if ((paths).empty()) GTEST_SKIP() << "this processor has no vector path"

// Bytes and texts of every length up to a few vector blocks past the widest step, with random content:
// bytes of any value, and texts that mix the alphabet with "=" and bytes outside it.
TEST(Base64Paths, AgreeWithThePortablePathOnEveryLength) {
  const std::vector<NamedPath> paths = VectorPathsHere();
  SKIP_WITHOUT_VECTOR_PATHS(paths);
  std::mt19937 random(20240521);
  const std::string characters = std::string(kAlphabet) + "=== \n-_\x80\xff";
  for (std::size_t length = 0; length <= 400; ++length) {
    for (int round = 0; round < 4; ++round) {
      std::vector<uint8_t> bytes(length + 1);  // plus the readable byte behind the input
      for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>(random());
      std::string text(length, '\0');
      for (char& c : text)
        c = characters[random() % characters.size()];
      const std::string encoded = Base64EncodeWith(Base64Path::kPortable, bytes.data(), length);
      for (const NamedPath& path : paths) {
        ASSERT_EQ(Base64EncodeWith(path.path, bytes.data(), length), encoded) << path.name << ", " << length;
        if (length == 0) continue;  // decoding a zero size is outside the contract
        ASSERT_EQ(Base64DecodeWith(path.path, text.data(), length),
                  Base64DecodeWith(Base64Path::kPortable, text.data(), length))
            << path.name << ", " << length;
        const std::string decoded = Base64DecodeWith(path.path, encoded.data(), encoded.size());
        ASSERT_EQ(decoded, Base64DecodeWith(Base64Path::kPortable, encoded.data(), encoded.size()))
            << path.name << ", " << length;
        ASSERT_EQ(decoded.c_str()[decoded.size()], '\0') << path.name << ", " << length;
      }
    }
  }
}

// Every byte value at every position of a body that the widest decoding step covers twice over.
TEST(Base64Paths, DecodeMapsEveryByteInEveryPositionOfALongBody) {
  const std::vector<NamedPath> paths = VectorPathsHere();
  SKIP_WITHOUT_VECTOR_PATHS(paths);
  for (int c = 0; c < 256; ++c) {
    for (std::size_t position = 0; position < 128; ++position) {
      std::string text(132, 'w');  // 128 body characters, then a tail group
      text[position] = static_cast<char>(c);
      const std::string expected = Base64DecodeWith(Base64Path::kPortable, text.data(), text.size());
      for (const NamedPath& path : paths) {
        ASSERT_EQ(Base64DecodeWith(path.path, text.data(), text.size()), expected)
            << path.name << ": byte " << c << " at " << position;
      }
    }
  }
}

// Two readable pages between two that fault on access: input placed flush against either end shows a
// read outside what the portable code reads (the input, and the byte behind it when one byte remains).
class GuardedPages {
 public:
  GuardedPages() {
    pageSize_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* map = mmap(nullptr, 4 * pageSize_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    base_ = map == MAP_FAILED ? nullptr : static_cast<unsigned char*>(map);
    if (base_ != nullptr) {
      mprotect(base_, pageSize_, PROT_NONE);
      mprotect(base_ + 3 * pageSize_, pageSize_, PROT_NONE);
    }
  }
  ~GuardedPages() {
    if (base_ != nullptr) munmap(base_, 4 * pageSize_);
  }
  bool ok() const { return base_ != nullptr; }
  unsigned char* begin() const { return base_ + pageSize_; }
  unsigned char* end() const { return base_ + 3 * pageSize_; }

 private:
  std::size_t pageSize_ = 0;
  unsigned char* base_ = nullptr;
};

TEST(Base64Paths, ReadNothingOutsideTheInputAtEitherEndOfAPage) {
  GuardedPages pages;
  ASSERT_TRUE(pages.ok());
  std::vector<NamedPath> paths = VectorPathsHere();
  paths.push_back({Base64Path::kPortable, "portable"});
  std::mt19937 random(77);
  for (std::size_t length = 1; length <= 300; ++length) {
    // Encoding reads one byte behind the input when one byte remains after the full groups.
    const std::size_t readable = length + (length % 3 == 1 ? 1 : 0);
    std::vector<uint8_t> bytes(readable);
    for (uint8_t& byte : bytes)
      byte = static_cast<uint8_t>(random());
    const std::string text = Base64EncodeWith(Base64Path::kPortable, bytes.data(), length);
    const std::string decoded = Base64DecodeWith(Base64Path::kPortable, text.data(), text.size());
    for (unsigned char* at : {pages.begin(), pages.end() - readable}) {
      std::memcpy(at, bytes.data(), readable);
      for (const NamedPath& path : paths)
        ASSERT_EQ(Base64EncodeWith(path.path, at, length), text) << path.name << ", " << length;
    }
    for (unsigned char* at : {pages.begin(), pages.end() - text.size()}) {
      std::memcpy(at, text.data(), text.size());
      for (const NamedPath& path : paths) {
        ASSERT_EQ(Base64DecodeWith(path.path, reinterpret_cast<const char*>(at), text.size()), decoded)
            << path.name << ", " << length;
      }
    }
  }
}

}  // namespace
}  // namespace quorl
