// A global allocator for tests that makes one chosen allocation fail, so that an operation can be run
// once for every allocation it makes, each time with that allocation failing.
//
// The source beside this header replaces the global operator new and delete in the forms that code under
// test reaches (plain, array, sized, nothrow), in the allocation-failure test executables only; nothing
// under test allocates over-aligned objects. Memory comes from malloc, so AddressSanitizer and
// LeakSanitizer still see every block.
//
// Arming is per thread: ArmAllocationFailure(n) makes the n-th operator new on the calling thread,
// counted from the call, fail (the throwing forms raise std::bad_alloc, the nothrow forms give null);
// allocations on other threads are never counted. Only one failure is injected per arming. Nothing that
// allocates on the same thread (GoogleTest assertions included) may run between arming and disarming
// unless it is part of the operation under test.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <new>

namespace quorl::testing {

// Makes allocation number `n` (1 for the next one) on this thread fail. Replaces an earlier arming.
void ArmAllocationFailure(std::size_t n);
// Stops counting on this thread; true when the armed failure was injected.
bool DisarmAllocationFailure();

// Runs `call` with allocation 1, 2, 3, ... failing, until a run completes without reaching the armed
// allocation. After each failed run it expects std::bad_alloc to have reached the caller and then calls
// `afterFailure(n)` (disarmed) to check the state that the failure left. The completing run must raise
// nothing. Stops at the first n that produced a test failure, so that one fault gives one report, and
// after 100000 runs. Gives the number of runs that failed.
template <typename Call, typename AfterFailure>
std::size_t SweepFailingAllocations(Call&& call, AfterFailure&& afterFailure) {
  constexpr std::size_t kMaxRuns = 100000;
  const ::testing::TestResult& result = *::testing::UnitTest::GetInstance()->current_test_info()->result();
  const int reportsBefore = result.total_part_count();
  for (std::size_t n = 1; n <= kMaxRuns; ++n) {
    SCOPED_TRACE(::testing::Message() << "allocation " << n << " failing");
    // Exceptions are only noted while armed; the assertions come after disarming.
    bool badAlloc = false, otherError = false;
    ArmAllocationFailure(n);
    try {
      call();
    } catch (const std::bad_alloc&) {
      badAlloc = true;
    } catch (...) {
      otherError = true;
    }
    if (!DisarmAllocationFailure()) {
      EXPECT_FALSE(badAlloc || otherError) << "an exception without an injected failure";
      return n - 1;
    }
    EXPECT_TRUE(badAlloc) << "the failed allocation did not reach the caller as std::bad_alloc";
    EXPECT_FALSE(otherError) << "the failed allocation turned into another exception";
    afterFailure(n);
    if (result.total_part_count() != reportsBefore) return n;
  }
  ADD_FAILURE() << "the call did not complete within " << kMaxRuns << " allocations";
  return kMaxRuns;
}

}  // namespace quorl::testing
