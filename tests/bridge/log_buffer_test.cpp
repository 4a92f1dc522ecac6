#include "bridge/log_buffer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "bridge_test_support.h"

namespace quorl {
namespace {

void Drain() {
  while (LogBuffer_Get() != nullptr)
    LogBuffer_Pop();
}

class LogBuffer : public ::testing::Test {
 protected:
  void SetUp() override { Drain(); }
  void TearDown() override { Drain(); }
};

TEST_F(LogBuffer, EntriesComeOutOldestFirstThroughOneView) {
  EXPECT_EQ(LogBuffer_Get(), nullptr);
  LogBuffer_Pop();  // nothing to pop: no effect
  LogBuffer_Add(7, "first");
  LogBuffer_Add(-2, "second");
  LogBufferView* view = LogBuffer_Get();
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(LogBuffer_Get(), view);
  EXPECT_EQ(view->level, 7);
  EXPECT_STREQ(view->message, "first");
  LogBuffer_Pop();
  EXPECT_EQ(LogBuffer_Get(), view);
  EXPECT_EQ(view->level, -2);
  EXPECT_STREQ(view->message, "second");
  LogBuffer_Pop();
  EXPECT_EQ(LogBuffer_Get(), nullptr);
  // A get that finds nothing leaves the view as it was.
  EXPECT_EQ(view->level, -2);
}

TEST_F(LogBuffer, AMessageStaysInPlaceWhileOthersAreAdded) {
  const std::string longText(1000, 'q');
  LogBuffer_Add(1, longText.c_str());
  LogBuffer_Add(1, "");
  const char* message = LogBuffer_Get()->message;
  for (int i = 0; i < 5000; ++i)
    LogBuffer_Add(2, "more entries than one block of the queue holds");
  EXPECT_EQ(message, LogBuffer_Get()->message);
  EXPECT_EQ(std::string(message), longText);
  LogBuffer_Pop();
  EXPECT_STREQ(LogBuffer_Get()->message, "");  // the empty text is a normal entry
}

TEST_F(LogBuffer, ANullTextRaisesAndAddsNothing) {
  testing::ExpectNullTextError([] { LogBuffer_Add(1, nullptr); });
  EXPECT_EQ(LogBuffer_Get(), nullptr);
  EXPECT_TRUE(testing::BridgeMutexFreeForOthers());
}

TEST(LogBufferView, IsLaidOutForTheBoundary) {
  EXPECT_EQ(offsetof(LogBufferView, level), 0u);
  EXPECT_EQ(offsetof(LogBufferView, message), 8u);
  EXPECT_EQ(sizeof(LogBufferView), 16u);
}

}  // namespace
}  // namespace quorl
