#include "core/strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <printf.h>

#include <climits>
#include <locale>
#include <stdexcept>

namespace quorl {
namespace {

// A printf conversion whose output grows at every call, so the two passes of FormatString disagree.
int growingCalls = 0;
int PrintGrowing(FILE* stream, const printf_info*, const void* const*) {
  return std::fprintf(stream, "%s", ++growingCalls % 2 ? "ab" : "abc");
}
int NoArguments(const printf_info*, size_t, int*, int*) {
  return 0;
}

TEST(FormatString, FormatsWithoutLimitThrowsOnAFailedFirstPassAndGivesEmptyOnAnotherSecondLength) {
  EXPECT_EQ(FormatString("%s=%d%%", "x", -7), "x=-7%");
  EXPECT_EQ(FormatString("%s", ""), "");
  EXPECT_EQ(FormatString("%5000d|", 1), std::string(4999, ' ') + "1|");
  // A character that the C locale cannot encode makes vsnprintf return -1.
  const wchar_t unencodable[] = {0x100, 0};
  EXPECT_THROW(FormatString("%ls", unencodable), std::length_error);
  ASSERT_EQ(register_printf_specifier('Q', PrintGrowing, NoArguments), 0);
  const char* format = "x%Qy";  // not a literal: the compiler does not know %Q
  growingCalls = 0;
  EXPECT_EQ(FormatString(format), "");
  EXPECT_EQ(growingCalls, 2);
}

TEST(PadNumber, FillsInFrontOfTheSignAndNeverCuts) {
  EXPECT_EQ(PadNumber(-5, 4, '0'), "00-5");
  EXPECT_EQ(PadNumber(123456, 3, '0'), "123456");
  EXPECT_EQ(PadNumber(INT_MIN, 13, '#'), "##-2147483648");
  EXPECT_EQ(PadNumber(-12, 0, '0'), "-12");
  EXPECT_EQ(PadNumber(12, -4, '0'), "12");
}

TEST(Slicing, CutsAtFirstOrLastWholeSeparatorOfTheTextUpToItsFirstNul) {
  const struct {
    const char *text, *separator, *afterFirst, *beforeFirst, *afterLast, *beforeLast;
  } cases[] = {
      {"a/b/c", "/", "b/c", "a", "c", "a/b"}, {"a:b::c::d", "::", "c::d", "a:b", "d", "a:b::c"},
      {"abc", "", "abc", "", "", "abc"},      {"", "", "", "", "", ""},
      {"dir/", "/", "", "dir", "", "dir"},    {"/root", "/", "root", "", "root", ""},
      {"none", "/", "", "", "", ""},          {"ab", "abc", "", "", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.text) + " | " + c.separator);
    EXPECT_EQ(AfterFirst(c.text, c.separator), c.afterFirst);
    EXPECT_EQ(BeforeFirst(c.text, c.separator), c.beforeFirst);
    EXPECT_EQ(AfterLast(c.text, c.separator), c.afterLast);
    EXPECT_EQ(BeforeLast(c.text, c.separator), c.beforeLast);
  }
  const std::string text("a/b\0c/d", 7);  // the string forms end at the first NUL
  EXPECT_EQ(AfterLast(text, "/"), "b");
  EXPECT_EQ(BeforeLast(text, "/"), "a");
  EXPECT_EQ(AfterFirst(text, "/"), "b");
  EXPECT_EQ(BeforeFirst(text, "b"), "a/");
  EXPECT_EQ(AfterFirst(text, "c"), "");
  EXPECT_TRUE(Contains(text, "b"));
  EXPECT_FALSE(Contains(text, "c"));
}

TEST(Predicates, CompareWholePrefixSuffixAndNeedle) {
  EXPECT_TRUE(StartsWith("", "") && StartsWith("abc", "") && StartsWith("abc", "abc"));
  EXPECT_FALSE(StartsWith("ab", "abc") || StartsWith("abc", "b"));
  EXPECT_TRUE(EndsWith("", "") && EndsWith("abc", "bc") && EndsWith("abc", "abc"));
  EXPECT_FALSE(EndsWith("bc", "abc") || EndsWith("abc", "ab"));
  EXPECT_TRUE(Contains("", "") && Contains("abc", "bc"));
  EXPECT_FALSE(Contains("abc", "cb"));
}

TEST(NullText, EveryCheckedArgumentRaisesTheExactLogicError) {
  const auto nullTextError =
      testing::ThrowsMessage<std::logic_error>(testing::StrEq("basic_string::_M_construct null not valid"));
  const char* n = nullptr;
  std::vector<std::string> out;
  for (auto* slice : {+[](const char*t, const char*s) { return AfterFirst(t, s); },
                      +[](const char*t, const char*s) { return BeforeFirst(t, s); },
                      +[](const char*t, const char*s) { return AfterLast(t, s); },
                      +[](const char*t, const char*s) { return BeforeLast(t, s); }}) {
    EXPECT_THAT([&] { slice(n, "/"); }, nullTextError);
    EXPECT_THAT([&] { slice("a/b", n); }, nullTextError);
  }
  EXPECT_THAT([&] { AfterFirst(std::string("a/b"), n); }, nullTextError);
  EXPECT_THAT([&] { StartsWith(n, "a"); }, nullTextError);
  EXPECT_THAT([&] { StartsWith("a", n); }, nullTextError);
  EXPECT_THAT([&] { EndsWith(n, "a"); }, nullTextError);
  EXPECT_THAT([&] { EndsWith("a", n); }, nullTextError);
  EXPECT_THAT([&] { Contains(n, "a"); }, nullTextError);
  EXPECT_THAT([&] { ToLower(n); }, nullTextError);
  EXPECT_THAT([&] { ToUpper(n); }, nullTextError);
  EXPECT_THAT([&] { ReplaceAll(n, "a", "b"); }, nullTextError);
  EXPECT_THAT([&] { ReplaceAll("a", n, "b"); }, nullTextError);
  EXPECT_THAT([&] { ReplaceAll("a", "a", n); }, nullTextError);
  EXPECT_THAT([&] { Split(n, out, "/", false); }, nullTextError);
  EXPECT_THAT([&] { Split("a", out, n, false); }, nullTextError);
  EXPECT_TRUE(out.empty());
}

// Maps 'x' to '!' and '!' to 'Y', so only a conversion through the global C++ locale shows them.
struct MarkingCtype : std::ctype<char> {
  char do_tolower(char c) const override { return c == 'x' ? '!' : std::ctype<char>::do_tolower(c); }
  char do_toupper(char c) const override { return c == '!' ? 'Y' : std::ctype<char>::do_toupper(c); }
};

TEST(Case, ConvertsEachByteThroughTheGlobalLocaleOfTheCall) {
  EXPECT_EQ(ToLower("MiXed 1/\xc4"), "mixed 1/\xc4");
  EXPECT_EQ(ToUpper("MiXed 1/\xe4"), "MIXED 1/\xe4");
  const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new MarkingCtype));
  const std::string lower = ToLower("Ax!");
  const std::string upper = ToUpper("ax!");
  std::locale::global(previous);
  EXPECT_EQ(lower, "a!!");
  EXPECT_EQ(upper, "AXY");
}

TEST(ReplaceAndErase, RescanFromTheStartAfterEveryReplacement) {
  EXPECT_EQ(ReplaceAll("aabb", "ab", ""), "");
  EXPECT_EQ(ReplaceAll("aaaa", "aa", "a"), "a");
  EXPECT_EQ(ReplaceAll("a.b.c", ".", "::"), "a::b::c");
  EXPECT_EQ(ReplaceAll("abc", "x", "y"), "abc");
  // The string form works on the zero-terminated texts of all three; EraseAll on the stored length.
  EXPECT_EQ(ReplaceAll(std::string("a-b\0-c", 6), std::string("-\0x", 3), std::string("+\0y", 3)), "a+b");
  std::string text("aabb");
  EXPECT_EQ(EraseAll(text, "ab"), 0u);
  EXPECT_EQ(text, "");
  text.assign("x\0y\0yz", 6);
  EXPECT_EQ(EraseAll(text, std::string("\0y", 2)), 2u);
  EXPECT_EQ(text, "xz");
  text = "abc";
  EXPECT_EQ(EraseAll(text, "q"), 3u);
}

TEST(Join, PutsSeparatorBetweenAndReadsItOnlyWhenNeeded) {
  EXPECT_EQ(Join({}, nullptr), "");
  EXPECT_EQ(Join({"only"}, nullptr), "only");
  EXPECT_EQ(Join({"a", "", "c"}, ", "), "a, , c");
  EXPECT_EQ(Join({std::string("a\0b", 3), "c"}, "/"), std::string("a\0b/c", 5));
}

TEST(Split, AppendsNonEmptyTokensOrWithInvertTheRunsOfTheSet) {
  std::vector<std::string> out{"kept"};
  Split("a//b", out, "/", false);
  Split(",a;b,,c;", out, ",;", false);
  Split("", out, "/", false);
  Split("///", out, "/", false);
  Split("abc", out, "", true);
  Split("a b", out, "", false);
  Split("ab12cd345e6", out, "0123456789", true);
  Split(std::string("a/b-c\0d/e", 9), out, std::string("/\0-", 3), false);  // both end at the first NUL
  EXPECT_EQ(out,
            (std::vector<std::string>{"kept", "a", "b", "a", "b", "c", "a b", "12", "345", "6", "a", "b-c"}));
}

}  // namespace
}  // namespace quorl
