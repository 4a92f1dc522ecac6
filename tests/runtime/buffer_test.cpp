#include "runtime/buffer.h"

#include <gtest/gtest.h>

#include <cstring>

namespace quorl {
namespace {

TEST(ByteBuffer, ConstructionFromBytesCopiesAndZeroSizeIsEmpty) {
  const char text[] = "abcdef";
  ByteBuffer copy(text, 6);
  ASSERT_EQ(copy.Size(), 6u);
  EXPECT_NE(static_cast<const void*>(copy.Data()), static_cast<const void*>(text));
  EXPECT_EQ(std::memcmp(copy.Data(), text, 6), 0);

  ByteBuffer none(text, 0);
  EXPECT_EQ(none.Data(), nullptr);
  EXPECT_EQ(none.Size(), 0u);
  ByteBuffer sized(0);
  EXPECT_EQ(sized.Data(), nullptr);
}

TEST(ByteBuffer, CopyIsDeep) {
  ByteBuffer a("xyz", 3);
  ByteBuffer b(a);
  b.Data()[0] = 'q';
  EXPECT_EQ(a.Data()[0], 'x');
  ByteBuffer c;
  c = b;
  EXPECT_EQ(std::memcmp(c.Data(), "qyz", 3), 0);
  EXPECT_NE(c.Data(), b.Data());
}

TEST(ByteBuffer, ResizeKeepsBytesOnlyForTheSameSize) {
  ByteBuffer buffer("1234", 4);
  uint8_t* before = buffer.Data();
  buffer.Resize(4);
  EXPECT_EQ(buffer.Data(), before);
  EXPECT_EQ(std::memcmp(buffer.Data(), "1234", 4), 0);

  buffer.Resize(9);
  EXPECT_EQ(buffer.Size(), 9u);
  buffer.Resize(0);
  EXPECT_EQ(buffer.Data(), nullptr);
  EXPECT_EQ(buffer.Size(), 0u);
}

TEST(ByteBuffer, AssignReusesStorageOfTheSameSizeAndZeroEmpties) {
  ByteBuffer buffer("abc", 3);
  uint8_t* before = buffer.Data();
  buffer.Assign("xyz", 3);
  EXPECT_EQ(buffer.Data(), before);
  EXPECT_EQ(std::memcmp(buffer.Data(), "xyz", 3), 0);

  buffer.Assign("hello", 5);
  EXPECT_EQ(std::memcmp(buffer.Data(), "hello", 5), 0);
  buffer.Assign("ignored", 0);
  EXPECT_EQ(buffer.Data(), nullptr);
  EXPECT_EQ(buffer.Size(), 0u);
  buffer.Assign("z", 1);
  buffer.Clear();
  EXPECT_EQ(buffer.Data(), nullptr);
}

}  // namespace
}  // namespace quorl
