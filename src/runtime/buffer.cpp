#include "runtime/buffer.h"

#include <cstring>

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
  Resize(n);
  if (n != 0) std::memcpy(data, bytes, n);
}

}  // namespace quorl
