#include "runtime/buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace quorl {
namespace {

std::string Text(const ByteBuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.Data()), buffer.Size());
}

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

TEST(ByteBuffer, CopyAssignmentIsDeepAcrossSizesAndToItself) {
  ByteBuffer first("abcdef", 6);
  ByteBuffer second("xy", 2);
  second = first;
  first.Data()[0] = 'Z';
  EXPECT_EQ(Text(second), "abcdef");
  ByteBuffer third("0123456789", 10);
  first = third;
  third.Data()[1] = 'Q';
  EXPECT_EQ(Text(first), "0123456789");
  const ByteBuffer& same = first;
  first = same;
  EXPECT_EQ(Text(first), "0123456789");
  first = ByteBuffer();
  EXPECT_EQ(first.Data(), nullptr);
  EXPECT_EQ(first.Size(), 0u);
}

// Assigning a window of the buffer's own bytes (the whole, a head, a tail, a middle) gives those bytes,
// whether the size stays or changes.
TEST(ByteBuffer, AssignFromItsOwnStorageCopiesBeforeItFrees) {
  const std::string original = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_";
  struct Window {
    std::size_t offset;
    std::size_t length;
  };
  for (const Window window :
       {Window{0, 64}, Window{0, 5}, Window{0, 40}, Window{60, 4}, Window{17, 30}, Window{63, 1}}) {
    SCOPED_TRACE(std::to_string(window.offset) + "+" + std::to_string(window.length));
    ByteBuffer buffer(original.data(), original.size());
    buffer.Assign(buffer.Data() + window.offset, window.length);
    ASSERT_EQ(buffer.Size(), window.length);
    EXPECT_EQ(Text(buffer), original.substr(window.offset, window.length));
  }
}

}  // namespace
}  // namespace quorl
