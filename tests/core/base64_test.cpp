#include "core/base64.h"

#include <gtest/gtest.h>

#include <cstring>
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

}  // namespace
}  // namespace quorl
