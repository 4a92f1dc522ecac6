#include "core/handle_table.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace quorl {
namespace {

// A kind whose objects are ints; counts what the table does with them.
int created = 0, destroyed = 0, lastInvoked = 0;
HandleType MakeType() {
  created = destroyed = lastInvoked = 0;
  return HandleType{"int", nullptr,
                    [](void* value) {
                      ++destroyed;
                      delete static_cast<int*>(value);
                    },
                    [](uintptr_t, void* value) { lastInvoked = *static_cast<int*>(value); },
                    [](uintptr_t argument) -> void* {
                      ++created;
                      return new int(static_cast<int>(argument));
                    }};
}

TEST(HandleTable, FreedSlotsComeBackLastFirstAndRefuseOldHandlesInDestroyButNotInInvoke) {
  HandleType type = MakeType(), other = MakeType();
  HandleTable table;
  table.Destroy(5u << 16 | 1u);  // beyond the table: nothing happens
  EXPECT_EQ(table.FreeCount(), 0u);
  const uint32_t first = table.Create(&type, 10);
  EXPECT_EQ(first, 65537u);
  EXPECT_FALSE(table.Invoke(first, &other, 0));
  table.Destroy(first);
  EXPECT_FALSE(table.Invoke(first, &type, 0));  // empty slot
  const uint32_t second = table.Create(&type, 20);
  EXPECT_EQ(second, 65538u);
  table.Destroy(first);
  EXPECT_EQ(destroyed, 1);
  EXPECT_TRUE(table.Invoke(first, &type, 0));
  EXPECT_EQ(lastInvoked, 20);
  const uint32_t third = table.Create(&type, 30);
  table.Destroy(second);
  table.Destroy(third);
  EXPECT_EQ(table.Create(&type, 0), third + 1);  // the slot freed last comes back first
  table.Destroy(second);                         // a second destroy puts the slot on the free list again
  EXPECT_EQ(table.FreeCount(), 2u);
  EXPECT_EQ(destroyed, 3);
}

// The index in a handle is read as a signed 16-bit number, so a table reaches indices up to 32767 only.
TEST(HandleTable, GenerationWrapsWithinItsBitsAndIndicesFrom32768AreOutOfRange) {
  HandleType type = MakeType();
  {
    HandleTable table;
    uint32_t handle = table.Create(&type, 0);
    for (int generation = 2; generation <= 0xffff; ++generation) {
      table.Destroy(handle);
      handle = table.Create(&type, 0);
    }
    EXPECT_EQ(handle, 1u << 16 | 0xffff);
    table.Destroy(handle);
    EXPECT_EQ(table.Create(&type, 7), 1u << 16);  // generation 0
    for (int i = 1; i < 32768; ++i)
      handle = table.Create(&type, 5);
    EXPECT_EQ(handle >> 16, 32768u);
    EXPECT_FALSE(table.Invoke(handle, &type, 0));
    table.Destroy(handle);
    EXPECT_EQ(table.FreeCount(), 0u);
    EXPECT_TRUE(table.Invoke(handle - (1u << 16), &type, 0));
  }
  EXPECT_EQ(destroyed, created);  // the destructor ends what is left
}

TEST(HandleTable, ClearDestroysEverythingAndRestartsGenerationsAndTheZeroHandleFreesSlotZero) {
  HandleType type = MakeType();
  HandleTable table;
  const uint32_t first = table.Create(&type, 0);
  table.Destroy(first);
  table.Create(&type, 0);
  table.Create(&type, 0);
  table.Clear();
  EXPECT_EQ(destroyed, 3);
  EXPECT_EQ(table.SlotCount(), 1u);
  EXPECT_EQ(table.Create(&type, 0), first);
  // Slot 0 is reserved, yet destroying the zero handle passes every test and puts it on the free list.
  table.Clear();
  table.Destroy(0);
  EXPECT_EQ(table.Create(&type, 0), 1u);
}

TEST(HandleTable, ThrowingCreateLeavesTheSlotTakenButUnreturned) {
  HandleType type = MakeType();
  HandleType failing = type;
  failing.create = [](uintptr_t) -> void* { throw std::runtime_error("no"); };
  HandleTable table;
  EXPECT_THROW(table.Create(&failing, 0), std::runtime_error);
  EXPECT_EQ(table.SlotCount(), 2u);
  EXPECT_EQ(table.Create(&type, 0), 2u << 16 | 1u);
}

}  // namespace
}  // namespace quorl
