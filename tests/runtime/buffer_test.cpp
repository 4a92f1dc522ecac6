#include "runtime/buffer.h"

#include <gtest/gtest.h>

#include <cstring>

namespace quorl {
namespace {

TEST(ByteBuffer, CopiesAreDeepAndZeroSizesAreEmpty) {
  ByteBuffer a("xyz", 3);
  ByteBuffer b(a);
  b.Data()[0] = 'q';
  EXPECT_EQ(std::memcmp(a.Data(), "xyz", 3), 0);
  EXPECT_EQ(ByteBuffer("abc", 0).Data(), nullptr);
  EXPECT_EQ(ByteBuffer(std::size_t{0}).Data(), nullptr);
}

TEST(ByteBuffer, SameSizeKeepsTheStorageAnotherSizeReplacesIt) {
  ByteBuffer buffer("1234", 4);
  uint8_t* before = buffer.Data();
  buffer.Resize(4);
  buffer.Assign("abcd", 4);
  EXPECT_EQ(buffer.Data(), before);
  EXPECT_EQ(std::memcmp(buffer.Data(), "abcd", 4), 0);
  buffer.Assign("hello", 5);
  EXPECT_EQ(std::memcmp(buffer.Data(), "hello", 5), 0);
  buffer.Assign("ignored", 0);
  EXPECT_EQ(buffer.Data(), nullptr);
  EXPECT_EQ(buffer.Size(), 0u);
}

}  // namespace
}  // namespace quorl
