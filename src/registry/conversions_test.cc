#include "registry/conversions.h"

#include <climits>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace regkey {
namespace {

// Numbers wrap through 64 bits as the C library reads them, then saturate
// to 32 bits; words are read after leading blanks only.
TEST(TextToIntTest, NumbersWordsAndRefusals) {
  const struct {
    const char* text;
    bool understood;
    int32_t expected32;
    int64_t expected64;
  } cases[] = {
      {"12abc", true, 12, 12},                  {"1.5", true, 1, 1},
      {" \t\n\v\f\r42 ", true, 42, 42},         {"+7", true, 7, 7},
      {"-5", true, -5, -5},                     {"2147483647", true, INT32_MAX, INT32_MAX},
      {"2147483648", true, INT32_MIN, 2147483648LL}, {"4294967295", true, -1, 4294967295LL},
      {"4294967296", true, -1, 4294967296LL},   {"-2147483649", true, INT32_MIN, -2147483649LL},
      {"9223372036854775808", true, -1, INT64_MIN}, {"18446744073709551615", true, -1, -1},
      {"99999999999999999999999", true, -1, -1},
      {"-99999999999999999999999", true, INT32_MIN, INT64_MIN},
      {"TrUe", true, 1, 1},          {"No", true, 0, 0},           {" \tyes", true, 1, 1},
      {"yes ", false, 0, 0},         {"maybe", false, 0, 0},       {"", false, 0, 0},
      {"   ", false, 0, 0},          {"- 5", false, 0, 0},         {"yess", false, 0, 0},
      {"\xa0" "1", false, 0, 0},
  };
  for (const auto& c : cases) {
    int32_t out32 = 777;
    int64_t out64 = 777;
    EXPECT_EQ(TextToInt32(c.text, out32), c.understood) << c.text;
    EXPECT_EQ(TextToInt64(c.text, out64), c.understood) << c.text;
    EXPECT_EQ(out32, c.understood ? c.expected32 : 777) << c.text;
    EXPECT_EQ(out64, c.understood ? c.expected64 : 777) << c.text;
  }
}

// What the contract suite does not reach through a database key.
TEST(ConvertStoredTextTest, Table) {
  const struct {
    int code;
    std::string text;
    ValueType wanted;
    size_t limit;
    int64_t result;
    std::string bytes;
  } cases[] = {
      {kWireStr, "maybe", kTypeI32, 3, -4, ""},
      {kWireI64, "1", kTypeI64, 7, -8, ""},
      {kWireI32, "7", kTypeBin, kMaxValueSize, 1, "7"},
      {kWireStr, "hello", kTypeBin, 4, -5, ""},
      {kWireStr, "", kTypeBin, kMaxValueSize, 0, ""},
      {kWireBin, "AAEC/w==", kTypeBin, kMaxValueSize, 4, std::string("\x00\x01\x02\xff", 4)},
      {kWireBin, "AAEC/w==", kTypeBin, 3, -4, ""},
      {kWireBin, "", kTypeBin, kMaxValueSize, 0, ""},
      {kWireBin, "MTI=", kTypeI32, kMaxValueSize, 0, ""},
      {kWireBin, "MTI=", kTypeStr, kMaxValueSize, 0, ""},
      {5, "12", kTypeStr, kMaxValueSize, 0, ""},
      {-1, "12", kTypeBin, kMaxValueSize, 0, ""},
      {kWireStr, "12", static_cast<ValueType>(4), kMaxValueSize, 0, ""},
  };
  for (const auto& c : cases) {
    void* block = nullptr;
    const int64_t result = ConvertStoredText(c.code, c.text, c.wanted, &block, c.limit);
    EXPECT_EQ(result, c.result) << c.code << " " << c.text << " " << c.wanted;
    EXPECT_EQ(block != nullptr, result > 0) << c.code << " " << c.text << " " << c.wanted;
    const std::string bytes(static_cast<char*>(block), result > 0 ? result : 0);
    EXPECT_EQ(bytes, c.bytes) << c.text;
    std::free(block);
  }
  char buffer[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  void* out = buffer;
  EXPECT_EQ(ConvertStoredText(kWireStr, "abc", kTypeStr, &out, sizeof buffer), 4);
  EXPECT_EQ(out, static_cast<void*>(buffer));
  EXPECT_EQ(ConvertStoredText(kWireStr, "abcdefgh", kTypeStr, &out, sizeof buffer), -9);
  EXPECT_EQ(std::string(buffer, 5), std::string("abc\0x", 5));
}

}  // namespace
}  // namespace regkey
