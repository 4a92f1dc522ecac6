// ByteBuffer: an owning array of bytes for the runtime toolbox.
//
// The buffer owns its storage (array new/delete). A null pointer with size 0 is the empty buffer, and
// every operation keeps that pairing, also when an allocation fails half-way. Resizing to another size
// does not keep the old bytes. No internal locking: one thread at a time per buffer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorl {

class ByteBuffer {
 public:
  ByteBuffer() = default;
  // `n` uninitialised bytes; empty for 0.
  explicit ByteBuffer(std::size_t n);
  // A copy of `n` bytes at `bytes`; empty for 0.
  ByteBuffer(const void* bytes, std::size_t n);
  ByteBuffer(const ByteBuffer& other);
  ByteBuffer& operator=(const ByteBuffer& other);
  ~ByteBuffer();

  // Frees the storage; the buffer is empty afterwards.
  void Clear();
  // Same size: nothing, the bytes stay. Another size: the old bytes are freed and `n` new, uninitialised
  // bytes take their place.
  void Resize(std::size_t n);
  // Same size: copies over the present storage. Another size: frees, allocates `n`, copies. `bytes` may
  // point into this buffer's own storage (a window of its bytes): then the new storage is made and
  // filled before the old is freed, and a failed allocation leaves the buffer as it was.
  void Assign(const void* bytes, std::size_t n);

  uint8_t* Data() const { return data; }
  std::size_t Size() const { return size; }

 private:
  // True when `bytes` points into the present storage.
  bool Holds(const void* bytes) const;

  uint8_t* data = nullptr;
  std::size_t size = 0;
};

}  // namespace quorl
