#include "options/value.h"

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "core/strings.h"

namespace quorl {

namespace {

template <class P>
const P& As(const void* payload) {
  return *static_cast<const P*>(payload);
}

template <class P>
int32_t CompareOrdered(const void* a, const void* b) {
  const P& x = As<P>(a);
  const P& y = As<P>(b);
  if (x < y) return -1;
  return y < x ? 1 : 0;
}

// Written with "greater than" alone, so that a NaN on either side compares equal (intended).
template <class P>
int32_t CompareFloating(const void* a, const void* b) {
  const P x = As<P>(a);
  const P y = As<P>(b);
  if (y > x) return -1;
  return x > y ? 1 : 0;
}

}  // namespace

int32_t BoolType::Compare(const void* a, const void* b) {
  return CompareOrdered<uint8_t>(a, b);
}

void BoolType::ToText(std::string& result, const void* payload) {
  result = As<uint8_t>(payload) != 0 ? "true" : "false";
}

void* BoolType::FromText(const std::string& text) {
  const bool truth = text == "1" || text == "true" || text == "True" || text == "TRUE";
  return new uint8_t(truth ? 1 : 0);
}

int32_t FloatType::Compare(const void* a, const void* b) {
  return CompareFloating<float>(a, b);
}

void FloatType::ToText(std::string& result, const void* payload) {
  result = FormatString("%f", static_cast<double>(As<float>(payload)));
}

void* FloatType::FromText(const std::string& text) {
  return new float(static_cast<float>(std::strtod(text.c_str(), nullptr)));
}

int32_t DoubleType::Compare(const void* a, const void* b) {
  return CompareFloating<double>(a, b);
}

void DoubleType::ToText(std::string& result, const void* payload) {
  result = FormatString("%f", As<double>(payload));
}

void* DoubleType::FromText(const std::string& text) {
  return new double(std::strtod(text.c_str(), nullptr));
}

int32_t Int32Type::Compare(const void* a, const void* b) {
  return CompareOrdered<int32_t>(a, b);
}

void Int32Type::ToText(std::string& result, const void* payload) {
  // Intended: the value is widened without its sign, so -1 renders as 4294967295.
  result = FormatString("%ld", static_cast<long>(static_cast<uint32_t>(As<int32_t>(payload))));
}

void* Int32Type::FromText(const std::string& text) {
  return new int32_t(static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10)));
}

int32_t UInt32Type::Compare(const void* a, const void* b) {
  return CompareOrdered<uint32_t>(a, b);
}

void UInt32Type::ToText(std::string& result, const void* payload) {
  result = FormatString("%lu", static_cast<unsigned long>(As<uint32_t>(payload)));
}

void* UInt32Type::FromText(const std::string& text) {
  // Intended: the signed parse, cut to 32 bits.
  return new uint32_t(static_cast<uint32_t>(std::strtol(text.c_str(), nullptr, 10)));
}

int32_t Int64Type::Compare(const void* a, const void* b) {
  return CompareOrdered<int64_t>(a, b);
}

void Int64Type::ToText(std::string& result, const void* payload) {
  result = FormatString("%lld", static_cast<long long>(As<int64_t>(payload)));
}

void* Int64Type::FromText(const std::string& text) {
  return new int64_t(std::strtoll(text.c_str(), nullptr, 10));
}

int32_t UInt64Type::Compare(const void* a, const void* b) {
  return CompareOrdered<uint64_t>(a, b);
}

void UInt64Type::ToText(std::string& result, const void* payload) {
  result = FormatString("%llu", static_cast<unsigned long long>(As<uint64_t>(payload)));
}

void* UInt64Type::FromText(const std::string& text) {
  // Intended: the signed parse, which saturates at 9223372036854775807.
  return new uint64_t(static_cast<uint64_t>(std::strtoll(text.c_str(), nullptr, 10)));
}

int32_t StringType::Compare(const void* a, const void* b) {
  // std::string's compare is byte-wise unsigned over the shorter length, the shorter first on a tie.
  const int order = As<std::string>(a).compare(As<std::string>(b));
  return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

void StringType::ToText(std::string& result, const void* payload) {
  result = As<std::string>(payload);
}

void* StringType::FromText(const std::string& text) {
  return new std::string(text);
}

int32_t HashedNameType::Compare(const void* a, const void* b) {
  const uint32_t x = As<HashedName>(a).hash;
  const uint32_t y = As<HashedName>(b).hash;
  return x < y ? -1 : (x > y ? 1 : 0);
}

void HashedNameType::ToText(std::string& result, const void* payload) {
  result = As<HashedName>(payload).name;
}

void* HashedNameType::FromText(const std::string&) {
  HashedName* empty = new HashedName();
  // Intended: a deliberate trap that stops a debugger here; the text is never parsed.
  std::raise(SIGTRAP);
  return empty;
}

void RegisterValueType(ValueTypeTable& table, const ValueTypeTable& functions) {
  std::vector<ValueTypeTable*>& registry = ValueTypeRegistry();
  if (registry.empty()) registry.push_back(nullptr);  // no registered table has id 0
  const uint16_t id = static_cast<uint16_t>(registry.size());
  registry.push_back(&table);  // before the id, so a failed append leaves the table unregistered
  table = functions;
  table.id = id;
}

void OptionValue::SetFromText(const ValueTypeTable* type, const std::string& text) {
  Release();
  if (type == nullptr) return;
  table = type;
  payload = type->fromText(text);
}

std::string OptionValue::ToText() const {
  std::string text;
  if (table != nullptr) table->toText(text, payload);
  return text;
}

void OptionValue::CopyFrom(const OptionValue& other) {
  Release();
  table = other.table;
  if (table != nullptr) payload = table->clone(other.payload);
}

namespace {

// The comparison of two values as a number whose sign gives the order: the id difference across
// types, the table's compare within one type, 0 for two empty values.
int32_t Order(const OptionValue& a, const OptionValue& b) {
  const int32_t d = static_cast<int32_t>(a.TypeId()) - static_cast<int32_t>(b.TypeId());
  if (d != 0) return d;
  if (a.GetTable() == nullptr && b.GetTable() == nullptr) return 0;
  return a.GetTable()->compare(a.GetPayload(), b.GetPayload());
}

}  // namespace

bool operator==(const OptionValue& a, const OptionValue& b) {
  return Order(a, b) == 0;
}
bool operator!=(const OptionValue& a, const OptionValue& b) {
  return Order(a, b) != 0;
}
bool operator>=(const OptionValue& a, const OptionValue& b) {
  return Order(a, b) >= 0;
}
bool operator<=(const OptionValue& a, const OptionValue& b) {
  return Order(a, b) <= 0;
}
bool operator>(const OptionValue& a, const OptionValue& b) {
  return Order(a, b) > 0;
}
bool operator<(const OptionValue& a, const OptionValue& b) {
  return Order(a, b) < 0;
}

}  // namespace quorl
