#include "core/base64.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <vector>

namespace quorl {
namespace {

using base64_internal::Base64DecodeWith;
using base64_internal::Base64EncodeWith;
using base64_internal::Base64Path;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

using namespace std::string_literals;

TEST(Base64, LoneLastByteKeepsItsLowBitsAndDecodingChecksOnlyTheLengthAndTheTail) {
  // A lone last byte keeps its two low bits in place: the standard gives TQ== for "M".
  const std::string cases[][2] = {{"M", "TB=="},          {"A", "QB=="},           {"\xff", "/D=="},
                                  {"\0"s, "AA=="},        {"foob", "Zm9vYC=="},    {"", ""},
                                  {"Ma", "TWE="},         {"Man", "TWFu"},         {"fooba", "Zm9vYmE="},
                                  {"foobar", "Zm9vYmFy"}, {"\xfb\xff\xbf", "+/+/"}};
  for (const auto& c : cases)
    EXPECT_EQ(Base64Encode(c[0]), c[1]) << c[0];
  const uint8_t bytes[] = {77, 0xf0};  // only the first byte is input, yet the one behind it shows
  EXPECT_EQ(Base64Encode(bytes, 1), "TP==");
  const std::string decoded[][2] = {
      {"TWFuT", ""}, {"TWFu==", ""},  {"    ", "\0\0\0"s},      {"AA=x", "\0"s},
      {"TB==", "L"}, {"TWFu", "Man"}, {"TQ==TWE=", "M\0\0Ma"s},  // "=" before the tail counts as 0
  };
  for (const auto& c : decoded)
    EXPECT_EQ(Base64Decode(c[0]), c[1]) << c[0];
  EXPECT_EQ(Base64Decode("TWFu", 0), "Man");  // a zero size still reads the four characters
}

// The portable path and every vector path that this machine can run.
std::vector<Base64Path> PathsHere() {
  std::vector<Base64Path> paths;
  for (Base64Path path : {Base64Path::kPortable, Base64Path::kSsse3, Base64Path::kAvx2}) {
    if (base64_internal::Base64PathAvailable(path)) paths.push_back(path);
  }
  return paths;
}

const char* Name(Base64Path path) {
  return path == Base64Path::kAvx2 ? "AVX2" : path == Base64Path::kSsse3 ? "SSSE3" : "portable";
}

// Every byte value at every position of a body that the widest decoding step covers twice over.
TEST(Base64Paths, DecodeMapsEveryByteInEveryPositionOfALongBody) {
  for (int c = 0; c < 256; ++c) {
    const char* found = c == 0 ? nullptr : std::strchr(kAlphabet, c);
    const uint32_t value = found == nullptr ? 0 : static_cast<uint32_t>(found - kAlphabet);
    for (std::size_t position = 0; position < 128; ++position) {
      std::string text(132, 'A');  // 128 body characters, then a tail group
      text[position] = static_cast<char>(c);
      const uint32_t group = value << (18 - 6 * (position % 4));
      std::string expected(99, '\0');
      expected.replace(position / 4 * 3, 3, {char(group >> 16), char(group >> 8), char(group)});
      for (Base64Path path : PathsHere()) {
        ASSERT_EQ(Base64DecodeWith(path, text.data(), text.size()), expected)
            << Name(path) << ": byte " << c << " at " << position;
      }
    }
  }
}

// Two readable pages between two that fault on access: input placed flush against either end shows a
// read outside what the portable code reads (the input, and the byte behind it when one byte remains).
struct GuardedPages {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const map = mmap(nullptr, 4 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  char* const base = static_cast<char*>(map);

  GuardedPages() {
    if (map == MAP_FAILED) return;
    mprotect(base, page, PROT_NONE);
    mprotect(base + 3 * page, page, PROT_NONE);
  }
  ~GuardedPages() {
    if (map != MAP_FAILED) munmap(map, 4 * page);
  }
  // A copy of `bytes` flush against the start (end 0) or the end (end 1) of the readable pages.
  const char* Place(const std::string& bytes, int end) const {
    char* at = end == 0 ? base + page : base + 3 * page - bytes.size();
    std::memcpy(at, bytes.data(), bytes.size());
    return at;
  }
};

// Random bytes of every length up to a few vector blocks past the widest step, their text, and random
// texts that mix the alphabet with "=" and bytes outside it, each against both guard pages.
TEST(Base64Paths, AgreeWithThePortablePathOnEveryLengthAndReadNothingOutsideTheInput) {
  const GuardedPages pages;
  ASSERT_NE(pages.map, MAP_FAILED);
  std::mt19937 random(20240521);
  const std::string characters = std::string(kAlphabet) + "=== \n-_\x80\xff";
  for (std::size_t length = 0; length <= 400; ++length) {
    for (int round = 0; round < 4; ++round) {
      std::string bytes(length + (length % 3 == 1 ? 1 : 0), '\0'), junk(length, '\0');
      for (char& byte : bytes)
        byte = static_cast<char>(random());
      for (char& c : junk)
        c = characters[random() % characters.size()];
      const std::string text =
          Base64EncodeWith(Base64Path::kPortable, reinterpret_cast<const uint8_t*>(bytes.data()), length);
      ASSERT_EQ(text.size(), (length + 2) / 3 * 4);
      std::string roundTrip = bytes.substr(0, length);
      if (length % 3 == 1) roundTrip.back() = static_cast<char>(roundTrip.back() & 0xfc);
      if (length > 0) {
        ASSERT_EQ(Base64DecodeWith(Base64Path::kPortable, text.data(), text.size()), roundTrip);
      }
      for (int end : {0, 1}) {
        for (Base64Path path : PathsHere()) {
          const auto* placed = reinterpret_cast<const uint8_t*>(pages.Place(bytes, end));
          ASSERT_EQ(Base64EncodeWith(path, placed, length), text) << Name(path) << ", " << length;
          if (length == 0) continue;  // decoding a zero size is outside the contract
          for (const std::string& input : {text, junk}) {
            const std::string decoded = Base64DecodeWith(path, pages.Place(input, end), input.size());
            ASSERT_EQ(decoded, Base64DecodeWith(Base64Path::kPortable, input.data(), input.size()))
                << Name(path) << ", " << length << ": " << input;
            ASSERT_EQ(decoded.c_str()[decoded.size()], '\0') << Name(path) << ", " << length;
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace quorl
