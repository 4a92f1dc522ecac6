// Type ids follow first use in the running process. Each scenario runs in a child forked from a parent
// that has used no value type, so it starts with an empty registry whatever order the cases run in.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>

#include "options/json.h"
#include "options/value.h"

namespace quorl {
namespace {

// Ends the child with `code` and a note on standard error when `condition` fails.
#define CHECK_OR_EXIT(condition, code)                  \
  do {                                                  \
    if (!(condition)) {                                 \
      std::fprintf(stderr, "failed: %s\n", #condition); \
      _exit(code);                                      \
    }                                                   \
  } while (0)

void FirstUsesGetIdsFromOne() {
  OptionValue text = OptionValue::Of<StringType>("first");
  CHECK_OR_EXIT(text.TypeId() == 1, 1);
  OptionValue flag = OptionValue::Of<BoolType>(1);
  CHECK_OR_EXIT(flag.TypeId() == 2, 2);
  CHECK_OR_EXIT(OptionValue::Of<StringType>("again").TypeId() == 1, 3);
  {
    std::lock_guard<std::mutex> hold(ValueTypeLock());
    CHECK_OR_EXIT(ValueTypeRegistry().size() == 3 && ValueTypeRegistry()[0] == nullptr, 4);
  }
  // The order across types is the order of first use: the string sorts before the bool here.
  CHECK_OR_EXIT(text < flag, 7);
  _exit(0);
}

// Writing registers each table as its tests reach it: the value's tests first, then the name's passage.
void WritingRegistersTablesInTheOrderOfItsTests() {
  OptionValue number = OptionValue::Of<DoubleType>(2.5);
  CHECK_OR_EXIT(number.TypeId() == 1, 1);
  auto root = std::make_shared<OptionNode>();
  root->SetChild("rate", number);
  rapidjson::Document document;
  document.SetObject();
  CHECK_OR_EXIT(WriteJson(root, document, document.GetAllocator()), 2);
  CHECK_OR_EXIT(EnsureRegistered<BoolType>()->id == 2, 3);
  CHECK_OR_EXIT(EnsureRegistered<FloatType>()->id == 3, 4);
  CHECK_OR_EXIT(EnsureRegistered<HashedNameType>()->id == 4, 5);
  CHECK_OR_EXIT(EnsureRegistered<Int32Type>()->id == 5, 6);
  CHECK_OR_EXIT(EnsureRegistered<UInt32Type>()->id == 6, 7);
  CHECK_OR_EXIT(EnsureRegistered<Int64Type>()->id == 7, 8);
  CHECK_OR_EXIT(EnsureRegistered<UInt64Type>()->id == 8, 9);
  CHECK_OR_EXIT(EnsureRegistered<StringType>()->id == 9, 10);  // writing never met it
  CHECK_OR_EXIT(document["rate"].GetDouble() == 2.5, 11);
  _exit(0);
}

TEST(ValueTypeIds, FollowTheOrderOfFirstUse) {
  EXPECT_EXIT(FirstUsesGetIdsFromOne(), testing::ExitedWithCode(0), "");
}

TEST(ValueTypeIds, WritingJsonRegistersInTheOrderOfItsTests) {
  EXPECT_EXIT(WritingRegistersTablesInTheOrderOfItsTests(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quorl
