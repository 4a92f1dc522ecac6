#include "reference/table_base64.h"

namespace quorl::bench {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct ValueTable {
  uint8_t values[256] = {};
  constexpr ValueTable() {
    for (int i = 0; i < 64; ++i)
      values[static_cast<uint8_t>(kAlphabet[i])] = static_cast<uint8_t>(i);
  }
};
constexpr ValueTable kValues;

}  // namespace

std::string TableBase64Encode(const uint8_t* data, std::size_t size) {
  std::string out((size + 2) / 3 * 4, '=');
  std::size_t o = 0, i = 0;
  for (; i + 3 <= size; i += 3, o += 4) {
    out[o] = kAlphabet[data[i] >> 2];
    out[o + 1] = kAlphabet[((data[i] & 3) << 4) | (data[i + 1] >> 4)];
    out[o + 2] = kAlphabet[((data[i + 1] & 15) << 2) | (data[i + 2] >> 6)];
    out[o + 3] = kAlphabet[data[i + 2] & 63];
  }
  if (size - i == 1) {
    out[o] = kAlphabet[data[i] >> 2];
    out[o + 1] = kAlphabet[(data[i] & 3) | (data[i + 1] >> 4)];
  } else if (size - i == 2) {
    out[o] = kAlphabet[data[i] >> 2];
    out[o + 1] = kAlphabet[((data[i] & 3) << 4) | (data[i + 1] >> 4)];
    out[o + 2] = kAlphabet[(data[i + 1] & 15) << 2];
  }
  return out;
}

std::string TableBase64Decode(const char* data, std::size_t size) {
  if (size == 0 || size % 4 != 0) return {};
  const std::size_t tail = data[size - 2] == '=' ? 2 : data[size - 1] == '=' ? 1 : 0;
  std::string out(size / 4 * 3 - tail, '\0');
  const auto* in = reinterpret_cast<const uint8_t*>(data);
  auto group = [&](std::size_t i) {
    return (uint32_t{kValues.values[in[i]]} << 18) | (uint32_t{kValues.values[in[i + 1]]} << 12) |
           (uint32_t{kValues.values[in[i + 2]]} << 6) | kValues.values[in[i + 3]];
  };
  std::size_t o = 0, i = 0;
  for (; i + 4 < size; i += 4, o += 3) {
    const uint32_t bits = group(i);
    out[o] = static_cast<char>(bits >> 16);
    out[o + 1] = static_cast<char>(bits >> 8);
    out[o + 2] = static_cast<char>(bits);
  }
  const uint32_t bits = group(i);
  out[o] = static_cast<char>(bits >> 16);
  if (tail < 2) out[o + 1] = static_cast<char>(bits >> 8);
  if (tail < 1) out[o + 2] = static_cast<char>(bits);
  return out;
}

}  // namespace quorl::bench
