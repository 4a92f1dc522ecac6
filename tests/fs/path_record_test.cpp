#include "fs/path_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace quorl {
namespace {

TEST(PathRecord, ComposePutsTheFirstPieceBeforeThePaddedNumber) {
  const struct {
    const char* pattern;
    int32_t index;
    const char* path;
  } cases[] = {
      {"frame_####.png", 7, "d/frame_0007.png"},
      {"a_###_b.png", 7, "d/a_007_b.png"},
      {"a#b#c.png", 7, "d/a07b.png"},  // the third piece is dropped
      {"###_b.png", 7, "d/_b007.png"},
      {"####.png", 7, ""},  // no literal piece: no path
      {"frame_###", 7, "d/frame_007."},
      {"frame.png", 7, "d/frame7.png"},
      {"f_##.png", 123, "d/f_123.png"},
      {"f_###.png", -5, "d/f_0-5.png"},
      {"x.png_#.png", 3, "d/x_3.png"},  // every copy of the extension leaves the body
  };
  for (const auto& c : cases) {
    const PathRecord record("d/", c.pattern, c.index);
    EXPECT_EQ(record.path, c.path) << c.pattern;
    EXPECT_EQ(record.directory, "d/");
    EXPECT_EQ(record.index, c.index);
    EXPECT_EQ(record.name, "");
  }
  EXPECT_EQ(PathRecord("", "frame_###", 1).extension, ".");
  EXPECT_EQ(PathRecord("", "a.tar.gz#", 1).extension, ".gz#");
}

TEST(PathRecord, ParseReadsTheNumberWhenTheRestHasTheRunsLength) {
  const struct {
    const char *path, *pattern, *directory, *name, *extension;
    int32_t index;
  } cases[] = {
      {"d/frame_0007.png", "frame_####.png", "d/", "frame_0007", ".png", 7},
      {"d\\frame_0007.png", nullptr, "d/", "frame_0007", ".png", -1},
      {"d/frame_007.png", "frame_####.png", "d/", "frame_007", ".png", -1},
      {"d/frame_abcd.png", "frame_####.png", "d/", "frame_abcd", ".png", 0},
      {"d/take_0012.png", "frame_####.png", "d/", "take_0012", ".png", -1},
      {"d/a_07_b.png", "a_##_b.png", "d/", "a_07_b", ".png", 7},
      {"d/111.png", "1##.png", "d/", "111", ".png", -1},  // the piece also eats the digits
      {"d/0042.png", "####.png", "d/", "0042", ".png", -1},
      {"a/b", "b#", "a/b/", "", ".", -1},
      {"b.png", "b#.png", "b.png/", "", ".png/", -1},
      {"x.d/f.tar.gz", nullptr, "x.d/", "f.tar", ".gz", -1},
      {"a/x.d/f", nullptr, "a/x.d/f/", "x", ".d/f/", -1},  // the dot leaks
  };
  for (const auto& c : cases) {
    const PathRecord record(c.path, c.pattern, true);
    EXPECT_EQ(record.directory, c.directory) << c.path;
    EXPECT_EQ(record.name, c.name) << c.path;
    EXPECT_EQ(record.extension, c.extension) << c.path;
    EXPECT_EQ(record.index, c.index) << c.path;
  }
}

TEST(PathRecord, NullPatternOfComposeAndNullPathOfParseRaiseTheNullTextError) {
  const auto nullTextError =
      testing::ThrowsMessage<std::logic_error>(testing::StrEq("basic_string::_M_construct null not valid"));
  EXPECT_THAT([] { PathRecord("d/", nullptr, 1); }, nullTextError);
  EXPECT_THAT([] { PathRecord(nullptr, "f#.png", true); }, nullTextError);
}

}  // namespace
}  // namespace quorl
