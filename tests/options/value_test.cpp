#include "options/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <limits>
#include <set>
#include <string>

namespace quorl {
namespace {

template <class T>
OptionValue Of(const typename T::Payload& value) {
  return OptionValue::Of<T>(value);
}

template <class T>
typename T::Payload Parse(const std::string& text) {
  OptionValue value;
  value.SetFromText(EnsureRegistered<T>(), text);
  return *value.Get<T>();
}

template <class T>
int32_t Compare(const typename T::Payload& a, const typename T::Payload& b) {
  return EnsureRegistered<T>()->compare(&a, &b);
}

TEST(ValueText, EachTypeRendersAndParsesAsTabled) {
  EXPECT_EQ(Of<BoolType>(2).ToText(), "true");
  EXPECT_EQ(Of<BoolType>(0).ToText(), "false");
  for (const char* word : {"1", "true", "True", "TRUE"})
    EXPECT_EQ(Parse<BoolType>(word), 1) << word;
  for (const char* word : {"", "tRUE", "yes", "true "})
    EXPECT_EQ(Parse<BoolType>(word), 0) << word;
  EXPECT_EQ(Of<Int32Type>(-1).ToText(), "4294967295");  // the unsigned reading of a negative
  EXPECT_EQ(Parse<Int32Type>("4294967295"), -1);
  EXPECT_EQ(Of<Int64Type>(-1).ToText(), "-1");
  EXPECT_EQ(Parse<Int32Type>("12abc"), 12);
  EXPECT_EQ(Parse<Int32Type>("abc"), 0);
  EXPECT_EQ(Parse<UInt32Type>("-1"), 4294967295u);
  EXPECT_EQ(Parse<UInt64Type>("18446744073709551615"), 9223372036854775807ull);
  EXPECT_EQ(Of<FloatType>(1.5f).ToText(), "1.500000");
  EXPECT_EQ(Parse<DoubleType>(Of<DoubleType>(1e-7).ToText()), 0.0);  // six decimals only
  EXPECT_EQ(Of<HashedNameType>(HashedName("speed")).ToText(), "speed");
}

TEST(ValueTextDeathTest, HashedNameFromTextEndsTheProcessByTheTrapSignal) {
  EXPECT_EXIT(EnsureRegistered<HashedNameType>()->fromText("speed"), testing::KilledBySignal(SIGTRAP), "");
  // With the trap ignored, the result is an empty name.
  auto previous = std::signal(SIGTRAP, SIG_IGN);
  const HashedName name = Parse<HashedNameType>("speed");
  std::signal(SIGTRAP, previous);
  EXPECT_TRUE(name.name.empty() && name.hash == 0u);
}

TEST(ValueCompare, EachTypeOrdersByItsOwnRule) {
  EXPECT_EQ(Compare<DoubleType>(std::numeric_limits<double>::quiet_NaN(), 1.0), 0);
  EXPECT_EQ(Compare<FloatType>(-5.0f, std::nanf("")), 0);
  EXPECT_EQ(Compare<FloatType>(2.0f, 2.0f), 0);
  EXPECT_EQ(Compare<DoubleType>(-1.0, 1.0), -1);
  EXPECT_EQ(Compare<StringType>("ab", "abc"), -1);
  EXPECT_EQ(Compare<StringType>("\xff", "a"), 1);  // unsigned bytes
  EXPECT_EQ(Compare<BoolType>(2, 1), 1);
  EXPECT_EQ(Compare<HashedNameType>(HashedName("x", 5), HashedName("y", 5)), 0);
  EXPECT_EQ(Compare<HashedNameType>(HashedName("x", 0xF0000000u), HashedName("x", 1)), 1);
}

TEST(OptionValue, OperatorsOrderAcrossTypesByIdAndNeverConvert) {
  const OptionValue empty;
  EXPECT_TRUE(empty == OptionValue() && empty >= OptionValue() && !(empty < OptionValue()));
  const OptionValue flag = Of<BoolType>(0);
  EXPECT_TRUE(empty < flag && empty <= flag && empty != flag && !(empty >= flag));
  const OptionValue one = Of<Int32Type>(1);
  const OptionValue oneFloat = Of<FloatType>(1.0f);
  EXPECT_NE(one, oneFloat);
  EXPECT_EQ(one < oneFloat, one.TypeId() < oneFloat.TypeId());
  EXPECT_NE(Of<BoolType>(1), Of<StringType>("true"));
  const OptionValue minus = Of<Int32Type>(-3);
  EXPECT_TRUE(minus < one && minus <= one && !(minus > one) && !(minus >= one));
}

// A caller-defined type whose payloads come from its own allocator, as a type with pooled or arena
// storage would: its Clone keeps a ledger of what it made, its Destroy counts what it never made.
struct LedgerText : StringType {
  static inline std::set<const void*> made;
  static inline int foreign = 0;
  static void* Clone(const void* source) {
    std::string* payload = new std::string(*static_cast<const std::string*>(source));
    made.insert(payload);
    return payload;
  }
  static void Destroy(void* payload) {
    if (payload != nullptr && made.erase(payload) == 0) ++foreign;
    delete static_cast<std::string*>(payload);
  }
};

TEST(OptionValue, CopiesAreDeepAndEveryPayloadComesFromItsTypesTable) {
  static_assert(sizeof(OptionValue) == 2 * sizeof(void*), "a value stays two pointers wide");
  {
    std::string text = "moved in";
    OptionValue value;
    value.SetTyped<LedgerText>(std::move(text));
    OptionValue copy(value);
    EXPECT_EQ(LedgerText::made, (std::set<const void*>{value.GetPayload(), copy.GetPayload()}));
    copy = copy;
    EXPECT_EQ(copy.ToText(), "moved in");
    value = Of<LedgerText>("replaced by a temporary");
    value.SetTyped<Int32Type>(7);
    EXPECT_EQ(value.Get<LedgerText>(), nullptr);
    EXPECT_EQ(LedgerText::made, std::set<const void*>{copy.GetPayload()});
    copy = OptionValue();
    EXPECT_TRUE(copy.IsEmpty() && copy.GetPayload() == nullptr);
  }
  EXPECT_EQ(LedgerText::foreign, 0);
  EXPECT_TRUE(LedgerText::made.empty());
}

}  // namespace
}  // namespace quorl
