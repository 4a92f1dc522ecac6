// Typed values of the option system: OptionValue, a type-erased value of two pointers, and the
// ValueTypeTable of seven functions through which everything is done to the value it holds.
//
// An OptionValue owns its payload, a heap object of its table's type, and frees it through that table;
// two values never share a payload (copies go through `clone`). A table is one static object per type,
// filled and given its id by EnsureRegistered at the type's first use in the process and never changed
// afterwards, so a table pointer may be kept for the life of the process. Ids follow the order of first
// use in the running process and mean nothing across runs.
//
// Threads: EnsureRegistered may run on any thread at once; it holds ValueTypeLock for a few steps and
// never runs a table function under it. Table functions and filled tables need no lock. An OptionValue
// has no protection of its own: whoever shares one between threads guards it.
//
// A new type T is declared as a struct with `using Payload = ...;` and the static functions Create,
// Destroy, Assign, Clone (BasicValueType<T> gives the usual ones), Compare, ToText and FromText.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

#include "core/name_hash.h"
#include "runtime/type_registry.h"

namespace quorl {

struct ValueTypeTable {
  uint16_t id;  // 0 until registered; registered tables count from 1
  void* (*create)();
  void (*destroy)(void* payload);
  void (*assign)(void* destination, const void* source);
  void* (*clone)(const void* source);
  int32_t (*compare)(const void* a, const void* b);  // -1, 0 or 1
  void (*toText)(std::string& result, const void* payload);
  void* (*fromText)(const std::string& text);
};

// The creation, copying and freeing of a payload held as a plain heap object.
template <class T>
struct BasicValueType {
  static void* Create() { return new typename T::Payload(); }
  // Sized deallocation; a null payload is accepted.
  static void Destroy(void* payload) { delete static_cast<typename T::Payload*>(payload); }
  static void Assign(void* destination, const void* source) {
    *static_cast<typename T::Payload*>(destination) = *static_cast<const typename T::Payload*>(source);
  }
  static void* Clone(const void* source) {
    return new typename T::Payload(*static_cast<const typename T::Payload*>(source));
  }
};

// A byte, 0 or other. Text: "true" for any byte but 0; parses "1", "true", "True", "TRUE" as 1 and any
// other text as 0.
struct BoolType : BasicValueType<BoolType> {
  using Payload = uint8_t;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

// Floating types: rendered with "%f" (six decimals, so text round trips are not exact), parsed with
// strtod. Compare: -1 when b > a, else 1 when a > b, else 0, so a NaN equals everything.
struct FloatType : BasicValueType<FloatType> {
  using Payload = float;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

struct DoubleType : BasicValueType<DoubleType> {
  using Payload = double;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

// Integer types. The parses take no end pointer: trailing characters are ignored and a text without a
// number gives 0. The 32-bit types parse with strtol cut to 32 bits, the 64-bit ones with strtoll (so
// UInt64Type saturates at 9223372036854775807). Int32Type renders negative values as their unsigned
// 32-bit reading (-1 gives "4294967295").
struct Int32Type : BasicValueType<Int32Type> {
  using Payload = int32_t;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

struct UInt32Type : BasicValueType<UInt32Type> {
  using Payload = uint32_t;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

struct Int64Type : BasicValueType<Int64Type> {
  using Payload = int64_t;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

struct UInt64Type : BasicValueType<UInt64Type> {
  using Payload = uint64_t;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

// Byte strings, compared byte-wise unsigned with the shorter string first on a tie.
struct StringType : BasicValueType<StringType> {
  using Payload = std::string;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

// Names with their hash; compared by hash alone, rendered as the name text. FromText does not parse: it
// raises the trap signal and, if the process goes on, gives an empty name.
struct HashedNameType : BasicValueType<HashedNameType> {
  using Payload = HashedName;
  static int32_t Compare(const void* a, const void* b);
  static void ToText(std::string& result, const void* payload);
  static void* FromText(const std::string& text);
};

// Gives `table` the next id from the registry and the functions of `functions`. Call under
// ValueTypeLock, for a table whose id is 0.
void RegisterValueType(ValueTypeTable& table, const ValueTypeTable& functions);

// Makes sure that T's table is filled and has an id, and gives it. Every typed use of a table goes
// through here, and so through ValueTypeLock, also long after the registration.
template <class T>
const ValueTypeTable* EnsureRegistered() {
  std::lock_guard<std::mutex> hold(ValueTypeLock());
  // Zero-initialised once per process; filled below at the first use.
  static ValueTypeTable table{};
  if (table.id == 0) {
    RegisterValueType(table, ValueTypeTable{0, &T::Create, &T::Destroy, &T::Assign, &T::Clone, &T::Compare,
                                            &T::ToText, &T::FromText});
  }
  return &table;
}

class OptionValue {
 public:
  OptionValue() = default;
  OptionValue(const OptionValue& other) { CopyFrom(other); }
  OptionValue(OptionValue&& other) noexcept : table(other.table), payload(other.payload) {
    other.table = nullptr;
    other.payload = nullptr;
  }
  OptionValue& operator=(const OptionValue& other) {
    if (this != &other) CopyFrom(other);
    return *this;
  }
  OptionValue& operator=(OptionValue&& other) noexcept {
    if (this != &other) {
      Release();
      std::swap(table, other.table);
      std::swap(payload, other.payload);
    }
    return *this;
  }
  ~OptionValue() { Release(); }

  // A new value of type T.
  template <class T>
  static OptionValue Of(const typename T::Payload& value) {
    OptionValue result;
    result.SetTyped<T>(value);
    return result;
  }

  // Gives up the held value first, then registers T, stores T's table and then a clone of `value`. A
  // failed allocation leaves the table set and the payload null. There is deliberately no moving form:
  // every payload is made by its table (here `clone`), so that the table's `destroy` only ever meets
  // payloads of its own making, whatever storage a type keeps them in.
  template <class T>
  void SetTyped(const typename T::Payload& value) {
    Release();
    table = EnsureRegistered<T>();
    payload = table->clone(&value);
  }

  // Gives up the held value first, then stores `type` and the payload that its fromText makes of
  // `text`. A null `type` leaves the value empty.
  void SetFromText(const ValueTypeTable* type, const std::string& text);

  // Frees the payload through its table; the value is empty afterwards.
  void Release() {
    if (table != nullptr) table->destroy(payload);
    table = nullptr;
    payload = nullptr;
  }

  bool IsEmpty() const { return table == nullptr; }
  // The table's id, or 0 for the empty value.
  uint16_t TypeId() const { return table != nullptr ? table->id : 0; }
  const ValueTypeTable* GetTable() const { return table; }
  const void* GetPayload() const { return payload; }

  template <class T>
  bool Holds() const {
    return table != nullptr && table == EnsureRegistered<T>();
  }
  // The payload as T, or null when the value is not of type T.
  template <class T>
  const typename T::Payload* Get() const {
    return Holds<T>() ? static_cast<const typename T::Payload*>(payload) : nullptr;
  }

  // The value's text through its table; the empty text for the empty value.
  std::string ToText() const;

 private:
  void CopyFrom(const OptionValue& other);

  const ValueTypeTable* table = nullptr;
  void* payload = nullptr;
};

// Values of different types are ordered by type id (the empty value, id 0, first); values of one type
// by their table's compare. No conversion between types ever happens.
bool operator==(const OptionValue& a, const OptionValue& b);
bool operator!=(const OptionValue& a, const OptionValue& b);
bool operator>=(const OptionValue& a, const OptionValue& b);
bool operator<=(const OptionValue& a, const OptionValue& b);
bool operator>(const OptionValue& a, const OptionValue& b);
bool operator<(const OptionValue& a, const OptionValue& b);

}  // namespace quorl
