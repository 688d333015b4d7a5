#include "frontend/value_parse.h"

#include <gtest/gtest.h>

namespace {

struct Parsed {
  bool ok;
  uint64_t magnitude;
  bool negative;
};

Parsed Integer(std::string_view text) {
  Parsed parsed{false, 12345, true};
  parsed.ok = ParseInteger(text, parsed.magnitude, parsed.negative);
  return parsed;
}

TEST(ParseSetTypeTest, KnowsEightKeywordsExactly) {
  EXPECT_EQ(ParseSetType("i32"), 1u);
  EXPECT_EQ(ParseSetType("i64"), 2u);
  EXPECT_EQ(ParseSetType("str"), 3u);
  EXPECT_EQ(ParseSetType("bin"), 4u);
  EXPECT_EQ(ParseSetType("b16"), 5u);
  EXPECT_EQ(ParseSetType("b64"), 6u);
  EXPECT_EQ(ParseSetType("fstr"), 7u);
  EXPECT_EQ(ParseSetType("fbin"), 8u);
  EXPECT_EQ(ParseSetType("I32"), 0u);
  EXPECT_EQ(ParseSetType("i3"), 0u);
  EXPECT_EQ(ParseSetType("i322"), 0u);
  EXPECT_EQ(ParseSetType(std::string_view("i32\0", 4)), 0u);
  EXPECT_EQ(ParseSetType(""), 0u);
}

TEST(ParseSetTypeTest, MapsCodesToStoredTypes) {
  EXPECT_EQ(SetTypeToValueType(kSetI32), regkey::kTypeI32);
  EXPECT_EQ(SetTypeToValueType(kSetI64), regkey::kTypeI64);
  EXPECT_EQ(SetTypeToValueType(kSetStr), regkey::kTypeStr);
  EXPECT_EQ(SetTypeToValueType(kSetFstr), regkey::kTypeStr);
  EXPECT_EQ(SetTypeToValueType(kSetBin), regkey::kTypeBin);
  EXPECT_EQ(SetTypeToValueType(kSetB16), regkey::kTypeBin);
  EXPECT_EQ(SetTypeToValueType(kSetB64), regkey::kTypeBin);
  EXPECT_EQ(SetTypeToValueType(kSetFbin), regkey::kTypeBin);
}

TEST(ParseIntegerTest, EmptyBlankAndLoneMinusAreZero) {
  for (std::string_view text : {"", " ", " \t\n\v\f\r", "-", "  -  "}) {
    Parsed parsed = Integer(text);
    EXPECT_TRUE(parsed.ok) << text;
    EXPECT_EQ(parsed.magnitude, 0u) << text;
  }
  EXPECT_FALSE(Integer("").negative);
  EXPECT_TRUE(Integer("-").negative);
}

TEST(ParseIntegerTest, BasesByPrefix) {
  EXPECT_EQ(Integer("0x10").magnitude, 16u);
  EXPECT_EQ(Integer("0XfF").magnitude, 255u);
  EXPECT_EQ(Integer("010").magnitude, 8u);
  EXPECT_EQ(Integer("0b101").magnitude, 5u);
  EXPECT_EQ(Integer("0B11").magnitude, 3u);
  EXPECT_EQ(Integer("0").magnitude, 0u);
  EXPECT_EQ(Integer(" 12 ").magnitude, 12u);
  EXPECT_TRUE(Integer("0b101").ok);
  EXPECT_FALSE(Integer("0b").ok);
  EXPECT_FALSE(Integer("0b2").ok);
  EXPECT_FALSE(Integer("0b10x").ok);
  EXPECT_FALSE(Integer("0x").ok);
  EXPECT_FALSE(Integer("08").ok);
  EXPECT_FALSE(Integer("12x").ok);
  EXPECT_FALSE(Integer("1 2").ok);
  EXPECT_FALSE(Integer("x").ok);
}

TEST(ParseIntegerTest, SignQuirksOfTheConversionStand) {
  Parsed plus = Integer("+7");
  EXPECT_TRUE(plus.ok);
  EXPECT_EQ(plus.magnitude, 7u);
  EXPECT_FALSE(plus.negative);

  Parsed blank_behind_minus = Integer("- 7");
  EXPECT_TRUE(blank_behind_minus.ok);
  EXPECT_EQ(blank_behind_minus.magnitude, 7u);
  EXPECT_TRUE(blank_behind_minus.negative);

  // The second minus is the conversion's: it negates the magnitude.
  Parsed double_minus = Integer("--1");
  EXPECT_TRUE(double_minus.ok);
  EXPECT_EQ(double_minus.magnitude, UINT64_MAX);
  EXPECT_TRUE(double_minus.negative);

  Parsed minus_binary = Integer("-+0b11");
  EXPECT_TRUE(minus_binary.ok);
  EXPECT_EQ(minus_binary.magnitude, 3u);
  EXPECT_EQ(Integer("--0b1").magnitude, UINT64_MAX);
  EXPECT_FALSE(Integer("+").ok);
  EXPECT_FALSE(Integer("-+").ok);
}

TEST(ParseIntegerTest, LengthLimitCountsAfterTrimAndSign) {
  std::string zeros21 = std::string(20, '0') + "123";  // 23 bytes
  EXPECT_TRUE(Integer(zeros21).ok);
  EXPECT_TRUE(Integer("  -" + zeros21 + "  ").ok);
  EXPECT_EQ(Integer(zeros21).magnitude, 0123u);  // leading zero: octal
  std::string zeros24 = std::string(21, '0') + "123";
  EXPECT_FALSE(Integer(zeros24).ok);
  EXPECT_FALSE(Integer("-" + zeros24).ok);
}

TEST(ParseIntegerTest, OverflowSaturates) {
  Parsed parsed = Integer("99999999999999999999");
  EXPECT_TRUE(parsed.ok);
  EXPECT_EQ(parsed.magnitude, UINT64_MAX);
  EXPECT_EQ(Integer("18446744073709551615").magnitude, UINT64_MAX);
  EXPECT_EQ(Integer("18446744073709551614").magnitude, UINT64_MAX - 1);
}

TEST(ParseInt32Test, RangeAndPattern) {
  uint32_t value = 0;
  EXPECT_TRUE(ParseInt32("4294967295", value));
  EXPECT_EQ(value, 4294967295u);
  EXPECT_TRUE(ParseInt32("-1", value));
  EXPECT_EQ(value, 4294967295u);
  EXPECT_TRUE(ParseInt32("-2147483648", value));
  EXPECT_EQ(value, 0x80000000u);
  EXPECT_TRUE(ParseInt32("-0", value));
  EXPECT_EQ(value, 0u);
  EXPECT_TRUE(ParseInt32("0xffffffff", value));
  EXPECT_EQ(value, 0xffffffffu);
  EXPECT_TRUE(ParseInt32("-5", value));
  EXPECT_EQ(value, static_cast<uint32_t>(-5));

  value = 77;
  EXPECT_FALSE(ParseInt32("4294967296", value));
  EXPECT_FALSE(ParseInt32("-2147483649", value));
  EXPECT_FALSE(ParseInt32("99999999999999999999", value));
  EXPECT_FALSE(ParseInt32("12x", value));
  EXPECT_EQ(value, 77u);
}

TEST(ParseInt64Test, RangeAndPattern) {
  uint64_t value = 0;
  EXPECT_TRUE(ParseInt64("18446744073709551615", value));
  EXPECT_EQ(value, UINT64_MAX);
  EXPECT_TRUE(ParseInt64("-1", value));
  EXPECT_EQ(value, UINT64_MAX);
  EXPECT_TRUE(ParseInt64("-9223372036854775808", value));
  EXPECT_EQ(value, 0x8000000000000000u);
  EXPECT_TRUE(ParseInt64("99999999999999999999", value));
  EXPECT_EQ(value, UINT64_MAX);
  EXPECT_TRUE(ParseInt64("", value));
  EXPECT_EQ(value, 0u);
  EXPECT_FALSE(ParseInt64("-9223372036854775809", value));
  EXPECT_FALSE(ParseInt64("--1", value));
  EXPECT_FALSE(ParseInt64("1.5", value));
}

}  // namespace
