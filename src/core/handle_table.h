// Typed handle table: objects of caller-defined kinds kept behind 32-bit handles that carry a
// generation, for code that must hold a value without owning a pointer; and BucketedSharedList, a locked
// list of lists of shared pointers addressed by number.
//
// A handle is the slot's index in its high 16 bits and the slot's allocation count (the generation,
// wrapping within 16 bits) in its low 16 bits. The index is read as a signed 16-bit number, so only slots
// 1 to 32767 are reachable (slot 0 is reserved). Destroy checks the whole handle, generation included;
// Invoke checks only the slot's type, so an old handle reaches a newer object of the same type in a
// reused slot. The table owns each value through its HandleType's destroy and never owns the types.
//
// HandleTable has no lock: it belongs to one thread at a time, or to a caller that guards it.
// BucketedSharedList's operations may run on any threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace quorl {

// A plain table of functions that knows how to make, use and end one kind of object. Declared once per
// kind, with static storage; the table only points at it.
struct HandleType {
  const char* name;  // for the caller's diagnostics; HandleTable never reads it
  void* context;     // for the caller's own use; HandleTable never reads it
  void (*destroy)(void* value);
  void (*invoke)(uintptr_t argument, void* value);
  void* (*create)(uintptr_t argument);
};

struct HandleSlot {
  uint32_t handle;   // index << 16 | generation
  HandleType* type;  // null when the slot is empty
  void* value;       // owned through type->destroy; null when the slot is empty
};
static_assert(sizeof(HandleSlot) == 3 * sizeof(void*), "a slot is three machine words");

// Invariants: slots[i].handle >> 16 == i (mod 65536); slots grows only while freeList is empty, so the
// raw pointers in freeList never dangle; slot 0 is appended by the constructor and Clear.
class HandleTable {
 public:
  HandleTable();
  ~HandleTable();  // destroys every remaining value; a throwing destroy ends the process
  HandleTable(const HandleTable&) = delete;
  HandleTable& operator=(const HandleTable&) = delete;

  // A slot from the back of freeList with its handle unchanged, or a new zeroed slot at the end.
  HandleSlot* Allocate();
  // Advances the slot's generation, stores type and makes the value with type->create(argument). If
  // create throws, the slot keeps the type without a value and is neither returned nor freed.
  uint32_t Create(HandleType* type, uintptr_t argument);
  // Calls type->invoke(argument, value) when the handle's index is in range and the slot holds `type`.
  // The generation is not compared. `type` must not be null.
  bool Invoke(uint32_t handle, HandleType* type, uintptr_t argument);
  // Destroys the slot's value, if any, and empties the slot; the slot doesn't go to freeList.
  void ReleaseSlot(HandleSlot* slot);
  // Destroys the value behind a handle that matches its slot in all 32 bits and frees the slot. The slot
  // keeps the handle until it is reused, so the caller must destroy a handle once: a second call frees
  // the slot a second time.
  void Destroy(uint32_t handle);
  // Destroys every value and starts over with the reserved slot: old handles may become valid again.
  void Clear();

  std::size_t SlotCount() const { return slots.size(); }
  std::size_t FreeCount() const { return freeList.size(); }

 private:
  // The slot a handle addresses, or null when its index, read as signed 16 bits, is out of range.
  HandleSlot* SlotOf(uint32_t handle);

  std::vector<HandleSlot> slots;
  std::vector<HandleSlot*> freeList;
};

// Buckets of shared pointers, addressed by a zero-based number and created on demand. Whoever owns the
// list decides when to take a bucket out.
template <typename T>
class BucketedSharedList {
 public:
  // Appends a copy of `item` to bucket `bucket`, adding empty buckets until it exists. A failed lock
  // throws std::system_error; the lock is released also when an allocation throws.
  void Add(const std::shared_ptr<T>& item, std::size_t bucket) {
    const std::lock_guard<std::mutex> lock(mutex);
    while (bucket >= buckets.size())
      buckets.emplace_back();
    buckets[bucket].push_back(item);
  }

  std::size_t BucketCount() {
    const std::lock_guard<std::mutex> lock(mutex);
    return buckets.size();
  }

  // Moves bucket `bucket` out and leaves it empty; an absent bucket gives an empty list.
  std::vector<std::shared_ptr<T>> TakeBucket(std::size_t bucket) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (bucket >= buckets.size()) return {};
    return std::move(buckets[bucket]);
  }

 private:
  std::mutex mutex;
  std::deque<std::vector<std::shared_ptr<T>>> buckets;
};

}  // namespace quorl
