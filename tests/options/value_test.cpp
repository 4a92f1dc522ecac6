#include "options/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <limits>

namespace quorl {
namespace {

template <class T>
std::string TextOfTyped(const typename T::Payload& value) {
  std::string text;
  EnsureRegistered<T>()->toText(text, &value);
  return text;
}

// Parses through T's table and hands back the payload's value, freeing the payload through the table.
template <class T>
typename T::Payload Parse(const std::string& text) {
  const ValueTypeTable* table = EnsureRegistered<T>();
  void* payload = table->fromText(text);
  typename T::Payload result = *static_cast<typename T::Payload*>(payload);
  table->destroy(payload);
  return result;
}

template <class T>
int32_t CompareTyped(const typename T::Payload& a, const typename T::Payload& b) {
  return EnsureRegistered<T>()->compare(&a, &b);
}

TEST(ValueText, BoolRendersAnyNonZeroByteAsTrueAndParsesOnlyFourWords) {
  EXPECT_EQ(TextOfTyped<BoolType>(2), "true");
  EXPECT_EQ(TextOfTyped<BoolType>(0), "false");
  for (const char* word : {"1", "true", "True", "TRUE"})
    EXPECT_EQ(Parse<BoolType>(word), 1) << word;
  for (const char* word : {"", "tRUE", "yes", "2", "true ", "false"})
    EXPECT_EQ(Parse<BoolType>(word), 0) << word;
}

TEST(ValueText, Int32RendersNegativesAsTheirUnsignedReading) {
  EXPECT_EQ(TextOfTyped<Int32Type>(-1), "4294967295");
  EXPECT_EQ(TextOfTyped<Int32Type>(-2147483647 - 1), "2147483648");
  EXPECT_EQ(TextOfTyped<Int32Type>(42), "42");
  EXPECT_EQ(Parse<Int32Type>("4294967295"), -1);
  EXPECT_EQ(Parse<Int32Type>(TextOfTyped<Int32Type>(-77)), -77);
  EXPECT_EQ(TextOfTyped<Int64Type>(-1), "-1");
}

TEST(ValueText, IntegerParsesAreSignedAndLenient) {
  EXPECT_EQ(Parse<Int32Type>("12abc"), 12);
  EXPECT_EQ(Parse<Int32Type>("abc"), 0);
  EXPECT_EQ(Parse<UInt32Type>("-1"), 4294967295u);
  EXPECT_EQ(Parse<UInt32Type>("4294967296"), 0u);  // cut to 32 bits
  EXPECT_EQ(Parse<UInt64Type>("18446744073709551615"), 9223372036854775807ull);
  EXPECT_EQ(Parse<UInt64Type>("-2"), 18446744073709551614ull);
  EXPECT_EQ(Parse<Int64Type>("-9000000000x"), -9000000000ll);
  EXPECT_EQ(TextOfTyped<UInt32Type>(4000000000u), "4000000000");
  EXPECT_EQ(TextOfTyped<UInt64Type>(18446744073709551615ull), "18446744073709551615");
}

TEST(ValueText, FloatingTextHasSixDecimalsAndIsNotExact) {
  EXPECT_EQ(TextOfTyped<FloatType>(1.5f), "1.500000");
  EXPECT_EQ(TextOfTyped<DoubleType>(-0.25), "-0.250000");
  EXPECT_EQ(Parse<DoubleType>(TextOfTyped<DoubleType>(1e-7)), 0.0);
  EXPECT_EQ(Parse<FloatType>("0.1"), 0.1f);
  EXPECT_EQ(Parse<DoubleType>("2.5e3 meters"), 2500.0);
}

TEST(ValueText, StringAndNameTextsAreTheTextsThemselves) {
  EXPECT_EQ(TextOfTyped<StringType>("a b\n"), "a b\n");
  EXPECT_EQ(Parse<StringType>("copy"), "copy");
  EXPECT_EQ(TextOfTyped<HashedNameType>(HashedName("speed")), "speed");
}

TEST(ValueTextDeathTest, HashedNameFromTextEndsTheProcessByTheTrapSignal) {
  EXPECT_EXIT(EnsureRegistered<HashedNameType>()->fromText("speed"), testing::KilledBySignal(SIGTRAP), "");
}

TEST(ValueText, HashedNameFromTextGivesAnEmptyNameWhenTheTrapIsIgnored) {
  const ValueTypeTable* table = EnsureRegistered<HashedNameType>();
  auto previous = std::signal(SIGTRAP, SIG_IGN);
  void* payload = table->fromText("speed");
  std::signal(SIGTRAP, previous);
  EXPECT_EQ(static_cast<HashedName*>(payload)->name, "");
  EXPECT_EQ(static_cast<HashedName*>(payload)->hash, 0u);
  table->destroy(payload);
}

TEST(ValueCompare, FloatingNaNComparesEqualToEverything) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(CompareTyped<DoubleType>(nan, 1.0), 0);
  EXPECT_EQ(CompareTyped<DoubleType>(-5.0, nan), 0);
  EXPECT_EQ(CompareTyped<FloatType>(std::nanf(""), 3.0f), 0);
  EXPECT_EQ(CompareTyped<DoubleType>(1.0, 2.0), -1);
  EXPECT_EQ(CompareTyped<FloatType>(2.0f, 1.0f), 1);
}

TEST(ValueCompare, StringsCompareAsUnsignedBytesWithTheShorterFirst) {
  EXPECT_EQ(CompareTyped<StringType>("ab", "abc"), -1);
  EXPECT_EQ(CompareTyped<StringType>("b", "abc"), 1);
  EXPECT_EQ(CompareTyped<StringType>("\xff", "a"), 1);
  EXPECT_EQ(CompareTyped<StringType>(std::string("a\0b", 3), std::string("a\0c", 3)), -1);
  EXPECT_EQ(CompareTyped<StringType>("same", "same"), 0);
}

TEST(ValueCompare, OtherTypesCompareByTheirNumbers) {
  EXPECT_EQ(CompareTyped<BoolType>(0, 7), -1);
  EXPECT_EQ(CompareTyped<BoolType>(2, 1), 1);
  EXPECT_EQ(CompareTyped<Int32Type>(-1, 1), -1);
  EXPECT_EQ(CompareTyped<UInt32Type>(4000000000u, 1), 1);
  EXPECT_EQ(CompareTyped<UInt64Type>(1, 18446744073709551615ull), -1);
  EXPECT_EQ(CompareTyped<HashedNameType>(HashedName("x", 5), HashedName("y", 5)), 0);
  EXPECT_EQ(CompareTyped<HashedNameType>(HashedName("x", 0xF0000000u), HashedName("x", 1)), 1);
}

TEST(OptionValue, CopiesAreDeepAndReplacingFreesTheOldValue) {
  OptionValue a = OptionValue::Of<StringType>("first");
  OptionValue b(a);
  EXPECT_NE(a.GetPayload(), b.GetPayload());
  EXPECT_EQ(a, b);
  b = b;  // self-assignment keeps the value
  EXPECT_EQ(*b.Get<StringType>(), "first");
  b.SetTyped<Int32Type>(7);
  EXPECT_EQ(b.Get<StringType>(), nullptr);
  EXPECT_EQ(*b.Get<Int32Type>(), 7);
  b = OptionValue();
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(b.GetPayload(), nullptr);
  OptionValue moved(std::move(a));
  EXPECT_TRUE(a.IsEmpty());
  EXPECT_EQ(moved.ToText(), "first");
  moved.SetFromText(EnsureRegistered<UInt32Type>(), "-1");
  EXPECT_EQ(*moved.Get<UInt32Type>(), 4294967295u);
  moved.SetFromText(nullptr, "x");
  EXPECT_TRUE(moved.IsEmpty());
  EXPECT_EQ(moved.ToText(), "");
}

struct Relations {
  bool eq, ne, ge, le, gt, lt;
};
Relations Relate(const OptionValue& a, const OptionValue& b) {
  return {a == b, a != b, a >= b, a <= b, a > b, a < b};
}

TEST(OptionValue, EmptyValuesAreEqualAndBeforeEveryValue) {
  const OptionValue empty;
  const Relations same = Relate(empty, OptionValue());
  EXPECT_TRUE(same.eq && same.ge && same.le);
  EXPECT_FALSE(same.ne || same.gt || same.lt);
  const Relations before = Relate(empty, OptionValue::Of<BoolType>(0));
  EXPECT_TRUE(before.ne && before.le && before.lt);
  EXPECT_FALSE(before.eq || before.ge || before.gt);
}

TEST(OptionValue, ValuesOfDifferentTypesAreOrderedByTypeIdAndNeverEqual) {
  const OptionValue one = OptionValue::Of<Int32Type>(1);
  const OptionValue oneFloat = OptionValue::Of<FloatType>(1.0f);
  const OptionValue trueBool = OptionValue::Of<BoolType>(1);
  const OptionValue trueText = OptionValue::Of<StringType>("true");
  EXPECT_NE(one, oneFloat);
  EXPECT_EQ(trueBool.ToText(), trueText.ToText());
  EXPECT_NE(trueBool, trueText);
  // The order across types is that of the ids, whichever way round they were handed out.
  EXPECT_EQ(one < oneFloat, one.TypeId() < oneFloat.TypeId());
  EXPECT_EQ(one > oneFloat, one.TypeId() > oneFloat.TypeId());
  // Within a type, the table's compare: -3 is less than 2 whatever their texts say.
  const Relations ints = Relate(OptionValue::Of<Int32Type>(-3), OptionValue::Of<Int32Type>(2));
  EXPECT_TRUE(ints.lt && ints.le && ints.ne);
  EXPECT_FALSE(ints.gt || ints.ge || ints.eq);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(OptionValue::Of<DoubleType>(nan), OptionValue::Of<DoubleType>(4.0));
}

}  // namespace
}  // namespace quorl
