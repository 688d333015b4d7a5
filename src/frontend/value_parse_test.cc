#include "frontend/value_parse.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Blank and lone minus are zero; the base follows the prefix; a second sign is
// the conversion's own; at most 23 bytes after trim and sign; overflow saturates.
TEST(ParseIntegerTest, Table) {
  struct Case {
    std::string text;
    bool ok;
    uint64_t magnitude;
    bool negative;
  };
  const std::string zeros23 = std::string(20, '0') + "123";
  const Case cases[] = {
      {"", true, 0, false},          {" \t\n\v\f\r", true, 0, false},
      {"-", true, 0, true},             {" 12 ", true, 12, false},
      {"0x10", true, 16, false},     {"0XfF", true, 255, false},
      {"010", true, 8, false},       {"0B11", true, 3, false},
      {"+7", true, 7, false},        {"- 7", true, 7, true},
      {"--1", true, UINT64_MAX, true},  // the second minus negates the magnitude
      {"-+0b11", true, 3, true},     {"--0b1", true, UINT64_MAX, true},
      {zeros23, true, 0123, false},  {"  -" + zeros23 + "  ", true, 0123, true},
      {"99999999999999999999", true, UINT64_MAX, false},
      {"18446744073709551614", true, UINT64_MAX - 1, false},
      {"0" + zeros23, false, 0, false},  {"-0" + zeros23, false, 0, false},
      {"0b", false, 0, false},       {"0b2", false, 0, false},
      {"0b10x", false, 0, false},    {"0x", false, 0, false},
      {"08", false, 0, false},       {"12x", false, 0, false},
      {"1 2", false, 0, false},      {"+", false, 0, false},
      {"-+", false, 0, false},
      {std::string("12\0" "3456", 7), false, 0, false},  // a NUL ends the text early
      {std::string("0b1\0", 4), false, 0, false},
  };
  for (const Case& c : cases) {
    uint64_t magnitude = 12345;
    bool negative = !c.negative;
    EXPECT_EQ(ParseInteger(c.text, magnitude, negative), c.ok) << c.text;
    if (!c.ok) continue;
    EXPECT_EQ(magnitude, c.magnitude) << c.text;
    EXPECT_EQ(negative, c.negative) << c.text;
  }
}

// The ranges and patterns beyond those the e2e cases set and get: a value
// refused leaves the result alone.
TEST(ParseInt32And64Test, RangeAndPattern) {
  const struct {
    const char* text;
    bool ok32;
    uint32_t value32;
    bool ok64;
    uint64_t value64;
  } cases[] = {
      {"-0", true, 0, true, 0},
      {"99999999999999999999", false, 77, true, UINT64_MAX},
      {"-9223372036854775809", false, 77, false, 77},
      {"--1", false, 77, false, 77},
  };
  for (const auto& c : cases) {
    uint32_t value32 = 77;
    uint64_t value64 = 77;
    EXPECT_EQ(ParseInt32(c.text, value32), c.ok32) << c.text;
    EXPECT_EQ(ParseInt64(c.text, value64), c.ok64) << c.text;
    EXPECT_EQ(value32, c.value32) << c.text;
    EXPECT_EQ(value64, c.value64) << c.text;
  }
}

}  // namespace
