// The plain table-driven Base64 codec that the Base64 benchmark measures the library's codec against:
// one alphabet lookup per character out, one value lookup per character in. It is compiled like the
// library (a static, position-independent library of its own) and called the same way, through these
// out-of-line functions with the library's signatures, so neither side is inlined into the benchmark.
//
// The encoder has the library's single-byte tail (it reads the byte behind the input); the decoder is
// the standard one. Stateless; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quorl::bench {

std::string TableBase64Encode(const uint8_t* data, std::size_t size);
std::string TableBase64Decode(const char* data, std::size_t size);

}  // namespace quorl::bench
