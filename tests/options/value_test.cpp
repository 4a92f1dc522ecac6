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
std::string Text(const typename T::Payload& value) {
  return OptionValue::Of<T>(value).ToText();
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

TEST(ValueText, BoolRendersAnyNonZeroByteAsTrueAndParsesOnlyFourWords) {
  EXPECT_EQ(Text<BoolType>(2), "true");
  EXPECT_EQ(Text<BoolType>(0), "false");
  for (const char* word : {"1", "true", "True", "TRUE"})
    EXPECT_EQ(Parse<BoolType>(word), 1) << word;
  for (const char* word : {"", "tRUE", "yes", "true "})
    EXPECT_EQ(Parse<BoolType>(word), 0) << word;
}

TEST(ValueText, NumbersRenderAndParseAsTabled) {
  EXPECT_EQ(Text<Int32Type>(-1), "4294967295");  // the unsigned reading of a negative
  EXPECT_EQ(Parse<Int32Type>("4294967295"), -1);
  EXPECT_EQ(Text<Int64Type>(-1), "-1");
  EXPECT_EQ(Parse<Int32Type>("12abc"), 12);
  EXPECT_EQ(Parse<Int32Type>("abc"), 0);
  EXPECT_EQ(Parse<UInt32Type>("-1"), 4294967295u);
  EXPECT_EQ(Parse<UInt64Type>("18446744073709551615"), 9223372036854775807ull);
  EXPECT_EQ(Text<FloatType>(1.5f), "1.500000");
  EXPECT_EQ(Parse<DoubleType>(Text<DoubleType>(1e-7)), 0.0);  // six decimals only
  EXPECT_EQ(Text<HashedNameType>(HashedName("speed")), "speed");
}

TEST(ValueTextDeathTest, HashedNameFromTextEndsTheProcessByTheTrapSignal) {
  EXPECT_EXIT(EnsureRegistered<HashedNameType>()->fromText("speed"), testing::KilledBySignal(SIGTRAP), "");
  // With the trap ignored, the result is an empty name.
  auto previous = std::signal(SIGTRAP, SIG_IGN);
  const HashedName name = Parse<HashedNameType>("speed");
  std::signal(SIGTRAP, previous);
  EXPECT_EQ(name.name, "");
  EXPECT_EQ(name.hash, 0u);
}

TEST(ValueCompare, EachTypeOrdersByItsOwnRule) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(Compare<DoubleType>(nan, 1.0), 0);
  EXPECT_EQ(Compare<FloatType>(-5.0f, std::nanf("")), 0);
  EXPECT_EQ(Compare<StringType>("ab", "abc"), -1);
  EXPECT_EQ(Compare<StringType>("\xff", "a"), 1);  // unsigned bytes
  EXPECT_EQ(Compare<BoolType>(2, 1), 1);
  EXPECT_EQ(Compare<HashedNameType>(HashedName("x", 5), HashedName("y", 5)), 0);
  EXPECT_EQ(Compare<HashedNameType>(HashedName("x", 0xF0000000u), HashedName("x", 1)), 1);
}

TEST(OptionValue, CopiesAreDeepAndReplacingFreesTheOldValue) {
  OptionValue a = OptionValue::Of<StringType>("first");
  OptionValue b(a);
  EXPECT_NE(a.GetPayload(), b.GetPayload());
  b = b;
  EXPECT_EQ(*b.Get<StringType>(), "first");
  b.SetTyped<Int32Type>(7);
  EXPECT_EQ(b.Get<StringType>(), nullptr);
  b = OptionValue();
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(b.GetPayload(), nullptr);
  EXPECT_EQ(b.ToText(), "");
  static_assert(sizeof(OptionValue) == 2 * sizeof(void*), "a value stays two pointers wide");
}

// A caller-defined type whose payloads come from its own allocator (here: a ledger of what it made), as
// a type with pooled or arena storage would. Its Destroy notes every payload that it never made.
struct LedgerText {
  using Payload = std::string;
  static std::set<const void*>& Made() {
    static std::set<const void*> made;
    return made;
  }
  static int& Foreign() {
    static int foreign = 0;
    return foreign;
  }
  static void* Keep(std::string* payload) {
    Made().insert(payload);
    return payload;
  }
  static void* Create() { return Keep(new std::string()); }
  static void* Clone(const void* source) {
    return Keep(new std::string(*static_cast<const std::string*>(source)));
  }
  static void* FromText(const std::string& text) { return Keep(new std::string(text)); }
  static void Destroy(void* payload) {
    if (payload == nullptr) return;
    if (Made().erase(payload) == 0) ++Foreign();
    delete static_cast<std::string*>(payload);
  }
  static void Assign(void* destination, const void* source) {
    *static_cast<std::string*>(destination) = *static_cast<const std::string*>(source);
  }
  static int32_t Compare(const void* a, const void* b) { return StringType::Compare(a, b); }
  static void ToText(std::string& result, const void* payload) { StringType::ToText(result, payload); }
};

TEST(OptionValue, EveryPayloadComesFromItsTypesTable) {
  {
    std::string text = "moved in";
    OptionValue value;
    value.SetTyped<LedgerText>(std::move(text));
    EXPECT_EQ(LedgerText::Made().count(value.GetPayload()), 1u);
    value.SetTyped<LedgerText>(std::string("replaced by a temporary"));
    OptionValue copy = value;
    value = OptionValue::Of<LedgerText>("and by a copy");
    EXPECT_EQ(copy.ToText(), "replaced by a temporary");
  }
  EXPECT_EQ(LedgerText::Foreign(), 0);
  EXPECT_TRUE(LedgerText::Made().empty());
}

TEST(OptionValue, OperatorsOrderAcrossTypesByIdAndNeverConvert) {
  const OptionValue empty;
  EXPECT_TRUE(empty == OptionValue() && empty >= OptionValue() && !(empty < OptionValue()));
  const OptionValue flag = OptionValue::Of<BoolType>(0);
  EXPECT_TRUE(empty < flag && empty <= flag && empty != flag && !(empty >= flag));

  const OptionValue one = OptionValue::Of<Int32Type>(1);
  const OptionValue oneFloat = OptionValue::Of<FloatType>(1.0f);
  EXPECT_NE(one, oneFloat);
  EXPECT_EQ(one < oneFloat, one.TypeId() < oneFloat.TypeId());
  EXPECT_EQ(one > oneFloat, one.TypeId() > oneFloat.TypeId());
  EXPECT_NE(OptionValue::Of<BoolType>(1), OptionValue::Of<StringType>("true"));
  const OptionValue minus = OptionValue::Of<Int32Type>(-3);
  EXPECT_TRUE(minus < one && minus <= one && !(minus > one) && !(minus >= one));
}

}  // namespace
}  // namespace quorl
