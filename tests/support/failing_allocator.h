// A global allocator for tests that makes one chosen allocation fail, so that an operation can be run
// once for every allocation it makes, each time with that allocation failing.
//
// The source beside this header replaces every standard form of the global operator new and delete
// (plain, array, nothrow, aligned, sized). It is linked only into the allocation-failure test
// executables, never into the library or into other tests. Memory comes from malloc and
// posix_memalign, so AddressSanitizer and LeakSanitizer still see every block.
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
#include <utility>

namespace quorl::testing {

// Makes allocation number `n` (1 for the next one) on this thread fail. Replaces an earlier arming.
void ArmAllocationFailure(std::size_t n);

// Stops counting on this thread; true when the armed failure was injected.
bool DisarmAllocationFailure();

// How one call went with one allocation armed to fail.
struct InjectedRun {
  bool injected = false;    // the armed allocation was reached and failed
  bool badAlloc = false;    // the call raised std::bad_alloc
  bool otherError = false;  // the call raised something else
};

// Runs `call` with allocation `n` armed to fail and disarms afterwards, whatever happens. Exceptions
// are caught and reported in the result, so that the caller asserts only after disarming.
template <typename Call>
InjectedRun RunWithFailingAllocation(std::size_t n, Call&& call) {
  InjectedRun run;
  ArmAllocationFailure(n);
  try {
    std::forward<Call>(call)();
  } catch (const std::bad_alloc&) {
    run.badAlloc = true;
  } catch (...) {
    run.otherError = true;
  }
  run.injected = DisarmAllocationFailure();
  return run;
}

// An upper bound on the allocations one operation under test makes, so that a sweep that never
// completes stops instead of looping.
inline constexpr std::size_t kMaxSweepAllocations = 100000;

// Runs `call` with allocation 1, 2, 3, ... failing, until a run completes without reaching the armed
// allocation. After each failed run it expects std::bad_alloc to have reached the caller and then calls
// `afterFailure(n)` (disarmed) to check the state that the failure left. The completing run must raise
// nothing. Stops at the first n that produced a test failure, so one fault gives one report. Gives the
// number of runs that failed.
template <typename Call, typename AfterFailure>
std::size_t SweepFailingAllocations(Call&& call, AfterFailure&& afterFailure) {
  const ::testing::TestResult& result = *::testing::UnitTest::GetInstance()->current_test_info()->result();
  const int reportsBefore = result.total_part_count();
  for (std::size_t n = 1; n <= kMaxSweepAllocations; ++n) {
    SCOPED_TRACE(::testing::Message() << "allocation " << n << " failing");
    const InjectedRun run = RunWithFailingAllocation(n, call);
    if (!run.injected) {
      EXPECT_FALSE(run.badAlloc) << "std::bad_alloc without an injected failure";
      EXPECT_FALSE(run.otherError) << "an exception without an injected failure";
      return n - 1;
    }
    EXPECT_TRUE(run.badAlloc) << "the failed allocation did not reach the caller as std::bad_alloc";
    EXPECT_FALSE(run.otherError) << "the failed allocation turned into another exception";
    afterFailure(n);
    if (result.total_part_count() != reportsBefore) return n;
  }
  ADD_FAILURE() << "the call did not complete within " << kMaxSweepAllocations << " allocations";
  return kMaxSweepAllocations;
}

}  // namespace quorl::testing
