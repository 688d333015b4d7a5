#include "frontend/show_command.h"

#include <gtest/gtest.h>

namespace {

std::string Escape(std::string_view text) {
  std::string scratch;
  return std::string(EscapeForDisplay(text.data(), text.size(), scratch));
}

TEST(EscapeForDisplayTest, PlainTextIsReturnedAsItStands) {
  std::string scratch = "untouched";
  const std::string text = "tab\there, space, back\\slash, \xc3\xa4\x80\xff";
  std::string_view result = EscapeForDisplay(text.data(), text.size(), scratch);
  EXPECT_EQ(result.data(), text.data());
  EXPECT_EQ(result.size(), text.size());
  EXPECT_EQ(scratch, "untouched");
  EXPECT_EQ(Escape(""), "");
}

TEST(EscapeForDisplayTest, ControlBytes) {
  EXPECT_EQ(Escape("a\nb"), "a\\nb");
  EXPECT_EQ(Escape("\r"), "\\r");
  EXPECT_EQ(Escape(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(Escape("\x01\x08\x0b\x0c\x1b\x1f\x7f"), "\\x01\\x08\\x0b\\x0c\\x1b\\x1f\\x7f");
  EXPECT_EQ(Escape("\t\x1f\x20\x7e\x7f\x80"), "\t\\x1f ~\\x7f\x80");
  EXPECT_EQ(Escape("\\\n"), "\\\\n");
}

TEST(EscapeForDisplayTest, ScratchIsReplacedNotAppended) {
  std::string scratch = "previous content";
  EXPECT_EQ(EscapeForDisplay("\x01", 1, scratch), "\\x01");
  EXPECT_EQ(scratch, "\\x01");
  EXPECT_EQ(EscapeForDisplay("x\n", 2, scratch), "x\\n");
}

}  // namespace
