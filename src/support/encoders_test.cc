#include "support/encoders.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/value_codec.h"

namespace {

// Through the value codec: the size, then the conversion.
std::string Decode(const std::string& text) {
  std::string bytes(Base64DecodedSize(text.data(), text.size()), '\0');
  size_t size = bytes.size();
  EXPECT_TRUE(Base64Decode(text.data(), text.size(), bytes.data(), size));
  EXPECT_EQ(size, bytes.size());
  return bytes;
}

// Position of the first error, or -1 for valid text.
long Validate(const std::string& text) {
  size_t position = 12345;
  const bool valid = Base64Validate(text.data(), text.size(), position);
  EXPECT_TRUE(!valid || position == 12345u) << "position written for valid text " << text;
  return valid ? -1 : static_cast<long>(position);
}

// Padding is optional, a lone last character gives nothing, only trailing padding counts
// ("====" is two zero characters), bytes outside the alphabet are zero bits.
TEST(Base64Test, DecodeTrustsItsInput) {
  const std::pair<std::string, std::string> decoded[] = {
      {"Zm8", "fo"},
      {"Zm9vYg", "foob"},
      {"Zm9vY", "foo"},
      {"====", std::string(1, '\0')},
      {"*m9v", Decode("Am9v")},
  };
  for (const auto& [text, bytes] : decoded) EXPECT_EQ(Decode(text), bytes) << text;
}

// Spare bits zero, padding only where a group is short, no white space, no URL-safe alphabet.
TEST(Base64Test, ValidateFindsFirstBadByte) {
  const std::pair<std::string, long> cases[] = {
      {"Zm8", -1},
      {"Zg", -1},
      {"Zg=", -1},
      {"+/+/", -1},
      {"Zh", 1},
      {"Zm9", 2},
      {"Zg=x", 3},
      {"Z", 0},
      {"Zm9vY", 4},
      {"Zm9v=", 4},
      {" Zm9v", 0},
      {"Zm9v\r\n", 4},
      {"Zg===", 4},
      {"Zm8==", 4},
      {"Zg-v", 2},
      {std::string("Zg\0v", 4), 2},
  };
  for (const auto& [text, position] : cases) EXPECT_EQ(Validate(text), position) << text;
}

}  // namespace
