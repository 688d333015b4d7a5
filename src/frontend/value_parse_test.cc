#include "frontend/value_parse.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

// Blank and lone minus are zero; the base follows the prefix; a second sign is
// the conversion's own; at most 23 bytes after trim and sign; overflow saturates.
TEST(ParseIntegerTest, SignsBasesLengthAndOverflow) {
  const std::string zeros23 = std::string(20, '0') + "123";
  const std::tuple<std::string, bool, uint64_t, bool> cases[] = {
      {"", true, 0, false},
      {" \t\n\v\f\r", true, 0, false},
      {"-", true, 0, true},
      {" 12 ", true, 12, false},
      {"0XfF", true, 255, false},
      {"010", true, 8, false},
      {"0B11", true, 3, false},
      {"- 7", true, 7, true},
      {"-+0b11", true, 3, true},
      {"--0b1", true, UINT64_MAX, true},  // negated twice
      {zeros23, true, 0123, false},
      {"  -" + zeros23 + "  ", true, 0123, true},
      {"99999999999999999999", true, UINT64_MAX, false},
      {"18446744073709551614", true, UINT64_MAX - 1, false},
      {"0" + zeros23, false, 0, false},
      {"-0" + zeros23, false, 0, false},
      {"0b", false, 0, false},
      {"0b2", false, 0, false},
      {"0b10x", false, 0, false},
      {"1 2", false, 0, false},
      {"+", false, 0, false},
      {std::string("12\0" "3456", 7), false, 0, false},  // a NUL ends the text early
  };
  for (const auto& [text, ok, want_magnitude, want_negative] : cases) {
    uint64_t magnitude = 12345;
    bool negative = !want_negative;
    EXPECT_EQ(ParseInteger(text, magnitude, negative), ok) << text;
    if (!ok) continue;
    EXPECT_EQ(std::pair(magnitude, negative), std::pair(want_magnitude, want_negative)) << text;
  }
}

}  // namespace
