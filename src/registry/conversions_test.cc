#include "registry/conversions.h"

#include <climits>
#include <cstdlib>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

namespace regkey {
namespace {

// Numbers wrap through 64 bits as the C library reads them, then saturate
// to 32 bits; words are read after leading blanks only. Refusals leave the result.
TEST(TextToIntTest, NumbersWordsAndRefusals) {
  const std::tuple<const char*, bool, int32_t, int64_t> cases[] = {
      {"12abc", true, 12, 12},                  {"1.5", true, 1, 1},
      {" \t\n\v\f\r42 ", true, 42, 42},         {"+7", true, 7, 7},
      {"-5", true, -5, -5},                     {"2147483647", true, INT32_MAX, INT32_MAX},
      {"2147483648", true, INT32_MIN, 2147483648LL}, {"4294967295", true, -1, 4294967295LL},
      {"4294967296", true, -1, 4294967296LL},   {"-2147483649", true, INT32_MIN, -2147483649LL},
      {"9223372036854775808", true, -1, INT64_MIN}, {"18446744073709551615", true, -1, -1},
      {"99999999999999999999999", true, -1, -1},
      {"-99999999999999999999999", true, INT32_MIN, INT64_MIN},
      {"TrUe", true, 1, 1},          {"No", true, 0, 0},           {" \tyes", true, 1, 1},
      {"yes ", false, 777, 777},     {"maybe", false, 777, 777},   {"", false, 777, 777},
      {"   ", false, 777, 777},      {"- 5", false, 777, 777},     {"yess", false, 777, 777},
      {"\xa0" "1", false, 777, 777},
  };
  for (const auto& [text, understood, expected32, expected64] : cases) {
    int32_t out32 = 777;
    int64_t out64 = 777;
    EXPECT_EQ(TextToInt32(text, out32), understood) << text;
    EXPECT_EQ(TextToInt64(text, out64), understood) << text;
    EXPECT_EQ(std::make_pair(out32, out64), std::make_pair(expected32, expected64)) << text;
  }
}

// What the contract suite does not reach through a database key: result, block and bytes.
TEST(ConvertStoredTextTest, Table) {
  const std::tuple<int, std::string, ValueType, size_t, int64_t, std::string> cases[] = {
      {kWireStr, "maybe", kTypeI32, 3, -4, ""},   {kWireI64, "1", kTypeI64, 7, -8, ""},
      {kWireStr, "hello", kTypeBin, 4, -5, ""},   {kWireBin, "AAEC/w==", kTypeBin, 3, -4, ""},
      {kWireI32, "7", kTypeBin, kMaxValueSize, 1, "7"},
      {kWireStr, "", kTypeBin, kMaxValueSize, 0, ""},
      {kWireBin, "AAEC/w==", kTypeBin, kMaxValueSize, 4, std::string("\x00\x01\x02\xff", 4)},
      {kWireBin, "", kTypeBin, kMaxValueSize, 0, ""},
      {kWireBin, "MTI=", kTypeI32, kMaxValueSize, 0, ""},
      {kWireBin, "MTI=", kTypeStr, kMaxValueSize, 0, ""},
      {5, "12", kTypeStr, kMaxValueSize, 0, ""},  {-1, "12", kTypeBin, kMaxValueSize, 0, ""},
      {kWireStr, "12", static_cast<ValueType>(4), kMaxValueSize, 0, ""},
  };
  for (const auto& [code, text, wanted, limit, expected, bytes] : cases) {
    void* block = nullptr;
    const int64_t result = ConvertStoredText(code, text, wanted, &block, limit);
    EXPECT_EQ(std::make_tuple(result, block != nullptr,
                              std::string(static_cast<char*>(block), result > 0 ? result : 0)),
              std::make_tuple(expected, expected > 0, bytes))
        << code << " " << text << " " << wanted;
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
