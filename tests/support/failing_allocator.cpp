#include "support/failing_allocator.h"

#include <cstdlib>

namespace quorl::testing {

namespace {

// Plain thread-local integers: reading them needs no initialisation call and never allocates, which
// matters inside operator new itself. 0 means disarmed.
thread_local std::size_t allocationsUntilFailure = 0;
thread_local bool failureInjected = false;

// True when this allocation is the armed one; it is then consumed.
bool ShouldFail() noexcept {
  if (allocationsUntilFailure == 0) return false;
  if (--allocationsUntilFailure != 0) return false;
  failureInjected = true;
  return true;
}

void* Allocate(std::size_t size) noexcept {
  if (ShouldFail()) return nullptr;
  for (;;) {
    if (void* block = std::malloc(size != 0 ? size : 1)) return block;
    std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) return nullptr;
    handler();
  }
}

void* AllocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
  if (ShouldFail()) return nullptr;
  std::size_t align = static_cast<std::size_t>(alignment);
  if (align < sizeof(void*)) align = sizeof(void*);
  for (;;) {
    void* block = nullptr;
    if (posix_memalign(&block, align, size != 0 ? size : 1) == 0) return block;
    std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) return nullptr;
    handler();
  }
}

void* AllocateOrThrow(std::size_t size) {
  if (void* block = Allocate(size)) return block;
  throw std::bad_alloc();
}

void* AllocateAlignedOrThrow(std::size_t size, std::align_val_t alignment) {
  if (void* block = AllocateAligned(size, alignment)) return block;
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

using quorl::testing::Allocate;
using quorl::testing::AllocateAligned;
using quorl::testing::AllocateAlignedOrThrow;
using quorl::testing::AllocateOrThrow;

void* operator new(std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return AllocateAlignedOrThrow(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return AllocateAlignedOrThrow(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AllocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AllocateAligned(size, alignment);
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
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
  std::free(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  std::free(block);
}
