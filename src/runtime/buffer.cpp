#include "runtime/buffer.h"

#include <cstring>
#include <functional>

namespace quorl {

ByteBuffer::ByteBuffer(std::size_t n) {
  Resize(n);
}

ByteBuffer::ByteBuffer(const void* bytes, std::size_t n) {
  Assign(bytes, n);
}

ByteBuffer::ByteBuffer(const ByteBuffer& other) {
  Assign(other.data, other.size);
}

ByteBuffer& ByteBuffer::operator=(const ByteBuffer& other) {
  if (this != &other) Assign(other.data, other.size);
  return *this;
}

ByteBuffer::~ByteBuffer() {
  delete[] data;
}

void ByteBuffer::Clear() {
  delete[] data;
  data = nullptr;
  size = 0;
}

void ByteBuffer::Resize(std::size_t n) {
  if (n == size) return;
  // Emptied first, so that a failed allocation leaves a valid empty buffer behind.
  Clear();
  if (n == 0) return;
  data = new uint8_t[n];
  size = n;
}

void ByteBuffer::Assign(const void* bytes, std::size_t n) {
  if (n != size && n != 0 && Holds(bytes)) {
    // The source is a window of this buffer's own storage: copy it out before the storage goes.
    uint8_t* replacement = new uint8_t[n];
    std::memcpy(replacement, bytes, n);
    delete[] data;
    data = replacement;
    size = n;
    return;
  }
  Resize(n);
  // memmove: assigning the buffer's own bytes at the same size copies a range onto itself.
  if (n != 0) std::memmove(data, bytes, n);
}

bool ByteBuffer::Holds(const void* bytes) const {
  // std::less orders pointers into different objects too, where the plain operators do not.
  const std::less<const void*> before;
  return data != nullptr && !before(bytes, data) && before(bytes, data + size);
}

}  // namespace quorl
