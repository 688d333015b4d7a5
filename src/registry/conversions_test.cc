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
      {"42", true, 42},
      {"  -5x", true, -5},
      {"9223372036854775807", true, INT64_MAX},
      {"9223372036854775808", true, INT64_MIN},
      {"18446744073709551615", true, -1},
      {"99999999999999999999999", true, -1},
      {"-9223372036854775809", true, INT64_MIN},
      {"4294967296", true, 4294967296LL},
      {"No", true, 0},
      {"\tTRUE", true, 1},
      {"true!", false, 0},
      {"x1", false, 0},
  };
  for (const Case& c : cases) {
    int64_t out = 777;
    EXPECT_EQ(TextToInt64(c.text, out), c.understood) << c.text;
    EXPECT_EQ(out, c.understood ? c.expected : 777) << c.text;
  }
}

// Result and bytes of a conversion into a fresh block (null *out).
struct Converted {
  int64_t result;
  std::string bytes;
  bool allocated;
};

Converted Finish(int64_t result, void* block) {
  Converted converted{result, std::string(), block != nullptr};
  if (result > 0) converted.bytes.assign(static_cast<const char*>(block), static_cast<size_t>(result));
  std::free(block);
  return converted;
}

Converted FromText(int code, const std::string& text, ValueType wanted,
                   size_t limit = kMaxValueSize) {
  void* block = nullptr;
  const int64_t result = ConvertStoredText(code, text, wanted, &block, limit);
  return Finish(result, block);
}

template <typename T>
std::string Raw(T number) {
  return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

std::string WithNul(const char* text) { return std::string(text, std::strlen(text) + 1); }

TEST(ConvertStoredTextTest, TextualCodesAsNumbers) {
  EXPECT_EQ(FromText(kWireI32, "42", kTypeI32).bytes, Raw<int32_t>(42));
  EXPECT_EQ(FromText(kWireI32, "42", kTypeI32).result, 4);
  EXPECT_EQ(FromText(kWireI64, "-5", kTypeI64).bytes, Raw<int64_t>(-5));
  EXPECT_EQ(FromText(kWireStr, "5000000000", kTypeI32).bytes, Raw<int32_t>(-1));
  EXPECT_EQ(FromText(kWireStr, "maybe", kTypeI32).result, 0);
  // The size test comes before the parse.
  EXPECT_EQ(FromText(kWireStr, "maybe", kTypeI32, 3).result, -4);
  EXPECT_EQ(FromText(kWireI64, "1", kTypeI64, 7).result, -8);
  EXPECT_FALSE(FromText(kWireI64, "1", kTypeI64, 7).allocated);
}

TEST(ConvertStoredTextTest, TextualCodesAsStrAndBin) {
  Converted text = FromText(kWireI32, "7", kTypeStr);
  EXPECT_EQ(text.result, 2);
  EXPECT_EQ(text.bytes, WithNul("7"));
  EXPECT_EQ(FromText(kWireStr, "hello", kTypeStr, 5).result, -6);
  EXPECT_EQ(FromText(kWireStr, "", kTypeStr).bytes, std::string(1, '\0'));

  // bin of a textual value: its text without the NUL.
  EXPECT_EQ(FromText(kWireI32, "7", kTypeBin).bytes, "7");
  EXPECT_EQ(FromText(kWireStr, "hello", kTypeBin).result, 5);
  EXPECT_EQ(FromText(kWireStr, "hello", kTypeBin, 4).result, -5);
  EXPECT_EQ(FromText(kWireStr, "", kTypeBin).result, 0);
}

TEST(ConvertStoredTextTest, BinCode) {
  Converted decoded = FromText(kWireBin, "AAEC/w==", kTypeBin);
  EXPECT_EQ(decoded.result, 4);
  EXPECT_EQ(decoded.bytes, std::string("\x00\x01\x02\xff", 4));
  EXPECT_EQ(FromText(kWireBin, "AAEC/w==", kTypeBin, 3).result, -4);
  EXPECT_FALSE(FromText(kWireBin, "AAEC/w==", kTypeBin, 3).allocated);
  EXPECT_EQ(FromText(kWireBin, "", kTypeBin).result, 0);
  EXPECT_FALSE(FromText(kWireBin, "", kTypeBin).allocated);
  for (ValueType wanted : {kTypeI32, kTypeI64, kTypeStr}) {
    EXPECT_EQ(FromText(kWireBin, "MTI=", wanted).result, 0) << wanted;
  }
}

TEST(ConvertStoredTextTest, UnknownCodeAndType) {
  for (int code : {0, 5, -1}) {
    for (ValueType wanted : {kTypeI32, kTypeI64, kTypeStr, kTypeBin}) {
      EXPECT_EQ(FromText(code, "12", wanted).result, 0) << code << " " << wanted;
    }
  }
  EXPECT_EQ(FromText(kWireStr, "12", static_cast<ValueType>(4)).result, 0);
}

TEST(ConvertStoredTextTest, WritesIntoGivenBuffer) {
  char buffer[8];
  std::memset(buffer, 'x', sizeof buffer);
  void* out = buffer;
  EXPECT_EQ(ConvertStoredText(kWireStr, "abc", kTypeStr, &out, sizeof buffer), 4);
  EXPECT_EQ(out, static_cast<void*>(buffer));
  EXPECT_EQ(std::string(buffer, 5), std::string("abc\0x", 5));
  EXPECT_EQ(ConvertStoredText(kWireStr, "abcdefgh", kTypeStr, &out, sizeof buffer), -9);
  EXPECT_EQ(std::string(buffer, 5), std::string("abc\0x", 5));
}

}  // namespace
}  // namespace regkey
