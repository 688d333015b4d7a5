#include "registry/conversions.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace regkey {
namespace {

// Numbers wrap through 64 bits as the C library reads them; words are read
// after leading blanks only.
TEST(TextToInt32Test, NumbersWordsAndRefusals) {
  struct Case {
    const char* text;
    bool understood;
    int32_t expected;
  };
  const Case cases[] = {
      {"12abc", true, 12},       {"1.5", true, 1},         {" \t\n\v\f\r42 ", true, 42},
      {"+7", true, 7},           {"-5", true, -5},         {"2147483647", true, INT32_MAX},
      {"2147483648", true, INT32_MIN},                     {"4294967295", true, -1},
      {"4294967296", true, -1},  {"-2147483649", true, INT32_MIN},
      {"99999999999999999999999", true, -1},               {"-99999999999999999999999", true, INT32_MIN},
      {"TrUe", true, 1},         {"False", true, 0},       {" \tyes", true, 1},
      {"yes ", false, 0},        {"maybe", false, 0},      {"", false, 0},
      {"   ", false, 0},         {"- 5", false, 0},        {"yess", false, 0},
      {"\xa0" "1", false, 0},
  };
  for (const Case& c : cases) {
    int32_t out = 777;
    EXPECT_EQ(TextToInt32(c.text, out), c.understood) << c.text;
    EXPECT_EQ(out, c.understood ? c.expected : 777) << c.text;
  }
}

TEST(TextToInt64Test, NumbersAndWords) {
  struct Case {
    const char* text;
    bool understood;
    int64_t expected;
  };
  const Case cases[] = {
      {"42", true, 42},          {"  -5x", true, -5},       {"9223372036854775807", true, INT64_MAX},
      {"9223372036854775808", true, INT64_MIN},            {"18446744073709551615", true, -1},
      {"99999999999999999999999", true, -1},               {"-9223372036854775809", true, INT64_MIN},
      {"4294967296", true, 4294967296LL},                  {"No", true, 0},
      {"\tTRUE", true, 1},      {"true!", false, 0},       {"x1", false, 0},
  };
  for (const Case& c : cases) {
    int64_t out = 777;
    EXPECT_EQ(TextToInt64(c.text, out), c.understood) << c.text;
    EXPECT_EQ(out, c.understood ? c.expected : 777) << c.text;
  }
}

template <typename T>
std::string Raw(T number) {
  return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

std::string WithNul(const char* text) { return std::string(text, std::strlen(text) + 1); }

// The size test comes before the parse; textual codes read as bin give
// their text without the NUL; bin decodes, and only as bin.
TEST(ConvertStoredTextTest, Table) {
  struct Case {
    int code;
    std::string text;
    ValueType wanted;
    size_t limit;
    int64_t result;
    std::string bytes;
  } const cases[] = {
      {kWireI32, "42", kTypeI32, kMaxValueSize, 4, Raw<int32_t>(42)},
      {kWireI64, "-5", kTypeI64, kMaxValueSize, 8, Raw<int64_t>(-5)},
      {kWireStr, "5000000000", kTypeI32, kMaxValueSize, 4, Raw<int32_t>(-1)},
      {kWireStr, "maybe", kTypeI32, kMaxValueSize, 0, ""},
      {kWireStr, "maybe", kTypeI32, 3, -4, ""},
      {kWireI64, "1", kTypeI64, 7, -8, ""},
      {kWireI32, "7", kTypeStr, kMaxValueSize, 2, WithNul("7")},
      {kWireStr, "hello", kTypeStr, 5, -6, ""},
      {kWireStr, "", kTypeStr, kMaxValueSize, 1, WithNul("")},
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
  for (const Case& c : cases) {
    void* block = nullptr;
    const int64_t result = ConvertStoredText(c.code, c.text, c.wanted, &block, c.limit);
    EXPECT_EQ(result, c.result) << c.code << " " << c.text << " " << c.wanted;
    EXPECT_EQ(block != nullptr, result > 0) << c.code << " " << c.text << " " << c.wanted;
    if (result > 0) {
      EXPECT_EQ(std::string(static_cast<char*>(block), result), c.bytes) << c.text;
    }
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
