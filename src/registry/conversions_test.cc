#include "registry/conversions.h"

#include <climits>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

namespace regkey {
namespace {

// Numbers wrap through 64 bits as the C library reads them, then saturate
// to 32 bits; words are read after leading blanks only. Refusals leave the result.
TEST(TextToIntTest, NumbersWordsAndRefusals) {
  const std::tuple<const char*, bool, int32_t, int64_t> cases[] = {
      {"12abc", true, 12, 12},
      {" \t\n\v\f\r42 ", true, 42, 42},
      {"2147483647", true, INT32_MAX, INT32_MAX},
      {"2147483648", true, INT32_MIN, 2147483648LL},
      {"4294967296", true, -1, 4294967296LL},
      {"-2147483649", true, INT32_MIN, -2147483649LL},
      {"9223372036854775808", true, -1, INT64_MIN},
      {"99999999999999999999999", true, -1, -1},
      {"-99999999999999999999999", true, INT32_MIN, INT64_MIN},
      {"TrUe", true, 1, 1},
      {"No", true, 0, 0},
      {" \tyes", true, 1, 1},
      {"yes ", false, 777, 777},
      {"", false, 777, 777},
      {"yess", false, 777, 777},
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

}  // namespace
}  // namespace regkey
