#include "support/encoders.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/value_codec.h"

namespace {

// Through the value codec's two calls: the size, then the conversion.
std::string Encode(const std::string& bytes) {
  std::string text;
  EXPECT_TRUE(Base64EncodeTo(bytes.data(), bytes.size(), text));
  return text;
}

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

TEST(Base64Test, RfcVectorsAndAllBytesRoundTrip) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"\xff", "/w=="},
      {"\xff\xff", "//8="},
      {bytes, Encode(bytes)},
  };
  for (const auto& [raw, text] : cases) {
    EXPECT_EQ(Encode(raw), text);
    EXPECT_EQ(Validate(text), -1) << text;
    EXPECT_EQ(Decode(text), raw) << text;
  }
}

// Padding is optional, a lone last character gives nothing, only trailing padding counts
// ("====" is two zero characters), bytes outside the alphabet are zero bits.
TEST(Base64Test, DecodeTrustsItsInput) {
  const std::pair<std::string, std::string> decoded[] = {
      {"Zm8", "fo"},
      {"Zm9vYg", "foob"},
      {"Zm9vY", "foo"},
      {"====", std::string(1, '\0')},
      {"Zm9v\n", Decode("Zm9vA")},
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
      {"====", 0},
      {"Zg-v", 2},
      {std::string("Zg\0v", 4), 2},
  };
  for (const auto& [text, position] : cases) EXPECT_EQ(Validate(text), position) << text;
}

}  // namespace
