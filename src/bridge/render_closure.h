// RenderEventClosure: a type-erased callable without arguments or result, with a distinct empty state.
//
// It owns what it binds and can be copied and swapped. Callables that are trivially copyable and fit
// in kInlineSize bytes (every shape the render-event exports bind: a function pointer, up to three ints
// and two pointers) are stored inline, so making, copying and swapping such a closure allocates
// nothing. Anything larger lives on the heap behind the closure. Every representation is relocatable
// byte for byte, which makes swapping a constant-size exchange of bytes.
//
// A closure is a value: one thread at a time, like any standard container.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace quorl {

class RenderEventClosure {
 public:
  static constexpr std::size_t kInlineSize = 40;

  RenderEventClosure() noexcept = default;

  template <typename F, typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, RenderEventClosure>>>
  explicit RenderEventClosure(F&& callable) {
    using Callable = std::decay_t<F>;
    if constexpr (StoredInline<Callable>()) {
      ::new (static_cast<void*>(storage_)) Callable(std::forward<F>(callable));
      ops_ = &InlineOps<Callable>::kOps;
    } else {
      Callable* heap = new Callable(std::forward<F>(callable));
      std::memcpy(storage_, &heap, sizeof heap);
      ops_ = &HeapOps<Callable>::kOps;
    }
  }

  RenderEventClosure(const RenderEventClosure& other) : ops_(nullptr) { CopyIntoEmpty(other); }

  RenderEventClosure(RenderEventClosure&& other) noexcept { TakeFrom(other); }

  RenderEventClosure& operator=(const RenderEventClosure& other) {
    RenderEventClosure copy(other);
    swap(copy);
    return *this;
  }

  RenderEventClosure& operator=(RenderEventClosure&& other) noexcept {
    RenderEventClosure taken(std::move(other));
    swap(taken);
    return *this;
  }

  ~RenderEventClosure() {
    if (ops_ != nullptr && ops_->destroy != nullptr) ops_->destroy(storage_);
  }

  void swap(RenderEventClosure& other) noexcept {
    RenderEventClosure held;
    held.TakeFrom(*this);
    TakeFrom(other);
    other.TakeFrom(held);
  }

  // Moves `other`'s callable (if any) into this empty closure and leaves `other` empty: one copy of the
  // bytes.
  void TakeFrom(RenderEventClosure& other) noexcept {
    if (other.ops_ != nullptr) std::memcpy(storage_, other.storage_, kInlineSize);
    ops_ = other.ops_;
    other.ops_ = nullptr;
  }

  // Whether copying this closure is copying its bytes (empty, or an inline callable); such a copy
  // cannot throw. Known when the compiler knows the closure's type, as in a caller that just bound it.
  bool CopiesAsBytes() const noexcept { return ops_ == nullptr || ops_->copy == nullptr; }

  // Copies `other`, which must copy as bytes, into this closure, which must be empty.
  void CopyBytesIntoEmpty(const RenderEventClosure& other) noexcept {
    std::memcpy(storage_, other.storage_, kInlineSize);
    ops_ = other.ops_;
  }

  // Copies `other` into this closure, which must be empty.
  void CopyIntoEmpty(const RenderEventClosure& other) {
    if (other.ops_ == nullptr) return;
    if (other.ops_->copy == nullptr) {
      std::memcpy(storage_, other.storage_, kInlineSize);
    } else {
      other.ops_->copy(storage_, other.storage_);
    }
    ops_ = other.ops_;
  }

  bool empty() const noexcept { return ops_ == nullptr; }
  explicit operator bool() const noexcept { return ops_ != nullptr; }

  // Calls the bound callable. Must not be called on an empty closure.
  void operator()() { ops_->invoke(storage_); }

 private:
  struct Ops {
    void (*invoke)(void* storage);
    void (*copy)(void* destination, const void* source);  // null when a copy of the bytes will do
    void (*destroy)(void* storage);                       // null when there is nothing to release
  };

  template <typename Callable>
  static constexpr bool StoredInline() {
    return sizeof(Callable) <= kInlineSize && alignof(Callable) <= alignof(void*) &&
           std::is_trivially_copyable_v<Callable> && std::is_trivially_destructible_v<Callable>;
  }

  template <typename Callable>
  struct InlineOps {
    static void Invoke(void* storage) { (*std::launder(static_cast<Callable*>(storage)))(); }
    static constexpr Ops kOps{&Invoke, nullptr, nullptr};
  };

  template <typename Callable>
  struct HeapOps {
    static Callable* Get(const void* storage) {
      Callable* heap;
      std::memcpy(&heap, storage, sizeof heap);
      return heap;
    }
    static void Invoke(void* storage) { (*Get(storage))(); }
    static void Copy(void* destination, const void* source) {
      Callable* heap = new Callable(*Get(source));
      std::memcpy(destination, &heap, sizeof heap);
    }
    static void Destroy(void* storage) { delete Get(storage); }
    static constexpr Ops kOps{&Invoke, &Copy, &Destroy};
  };

  const Ops* ops_ = nullptr;
  // Left uninitialised while empty: only copied as bytes, never read as a callable then.
  alignas(void*) unsigned char storage_[kInlineSize];
};

inline void swap(RenderEventClosure& a, RenderEventClosure& b) noexcept {
  a.swap(b);
}

}  // namespace quorl
