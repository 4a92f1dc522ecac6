#include "support/failing_allocator.h"

#include <cstdlib>

namespace quorl::testing {
namespace {

// Plain thread-local integers: reading them needs no initialisation call and never allocates, which
// matters inside operator new itself. 0 means disarmed.
thread_local std::size_t allocationsUntilFailure = 0;
thread_local bool failureInjected = false;

// A block from malloc, or null for the armed allocation, which is consumed by failing.
void* Allocate(std::size_t size) noexcept {
  if (allocationsUntilFailure != 0 && --allocationsUntilFailure == 0) {
    failureInjected = true;
    return nullptr;
  }
  return std::malloc(size != 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
  if (void* block = Allocate(size)) return block;
  throw std::bad_alloc();
}

}  // namespace

void ArmAllocationFailure(std::size_t n) {
  allocationsUntilFailure = n;
  failureInjected = false;
}

bool DisarmAllocationFailure() {
  allocationsUntilFailure = 0;
  const bool injected = failureInjected;
  failureInjected = false;
  return injected;
}

}  // namespace quorl::testing

void* operator new(std::size_t size) {
  return quorl::testing::AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return quorl::testing::AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return quorl::testing::Allocate(size);
}

void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
