#include "runtime/buffer.h"

#include <gtest/gtest.h>

#include <string>

namespace quorl {
namespace {

std::string Text(const ByteBuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.Data()), buffer.Size());
}

TEST(ByteBuffer, CopiesAreDeepAcrossSizesAndToItselfAndZeroSizesAreEmpty) {
  ByteBuffer first("abcdef", 6);
  const ByteBuffer copy(first);
  ByteBuffer second("xy", 2);
  second = first;
  first.Data()[0] = 'Z';
  EXPECT_EQ(Text(copy), "abcdef");
  EXPECT_EQ(Text(second), "abcdef");
  ByteBuffer third("0123456789", 10);
  first = third;
  third.Data()[1] = 'Q';
  EXPECT_EQ(Text(first), "0123456789");
  const ByteBuffer& same = first;
  first = same;
  EXPECT_EQ(Text(first), "0123456789");
  first = ByteBuffer();
  EXPECT_TRUE(first.Data() == nullptr && first.Size() == 0);
  EXPECT_EQ(ByteBuffer("abc", 0).Data(), nullptr);
  EXPECT_EQ(ByteBuffer(std::size_t{0}).Data(), nullptr);
}

TEST(ByteBuffer, SameSizeKeepsTheStorageAnotherSizeReplacesIt) {
  ByteBuffer buffer("1234", 4);
  const uint8_t* before = buffer.Data();
  buffer.Resize(4);
  buffer.Assign("abcd", 4);
  EXPECT_EQ(buffer.Data(), before);
  EXPECT_EQ(Text(buffer), "abcd");
  buffer.Assign("hello", 5);
  EXPECT_EQ(Text(buffer), "hello");
  buffer.Assign("ignored", 0);
  EXPECT_TRUE(buffer.Data() == nullptr && buffer.Size() == 0);
}

// Assigning a window of the buffer's own bytes (the whole, a head, a tail, a middle) gives those bytes,
// whether the size stays or changes.
TEST(ByteBuffer, AssignFromItsOwnStorageCopiesBeforeItFrees) {
  const std::string original = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_";
  const std::size_t windows[][2] = {{0, 64}, {0, 5}, {0, 40}, {60, 4}, {17, 30}, {63, 1}};
  for (const auto& window : windows) {
    ByteBuffer buffer(original.data(), original.size());
    buffer.Assign(buffer.Data() + window[0], window[1]);
    EXPECT_EQ(Text(buffer), original.substr(window[0], window[1])) << window[0] << "+" << window[1];
  }
}

}  // namespace
}  // namespace quorl
