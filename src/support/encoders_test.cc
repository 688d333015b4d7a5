#include "support/encoders.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

// Two-call protocol: ask for the size, then convert into a buffer of it.
std::string Encode(const std::string& bytes) {
  size_t size = 0;
  Base64Encode(bytes.data(), bytes.size(), nullptr, size);
  std::string text(size, '\0');
  size_t capacity = size;
  EXPECT_TRUE(Base64Encode(bytes.data(), bytes.size(), text.data(), capacity));
  EXPECT_EQ(capacity, size);
  return text;
}

std::string Decode(const std::string& text) {
  size_t size = 0;
  Base64Decode(text.data(), text.size(), nullptr, size);
  std::string bytes(size, '\0');
  size_t capacity = size;
  EXPECT_TRUE(Base64Decode(text.data(), text.size(), bytes.data(), capacity));
  EXPECT_EQ(capacity, size);
  return bytes;
}

// Position of the first error, or -1 for valid text.
long Validate(const std::string& text) {
  size_t position = 12345;
  if (Base64Validate(text.data(), text.size(), position)) {
    EXPECT_EQ(position, 12345u) << "position written for valid text";
    return -1;
  }
  return static_cast<long>(position);
}

const std::vector<std::pair<std::string, std::string>> kRfcVectors = {
    {"", ""},         {"f", "Zg=="},     {"fo", "Zm8="},         {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
};

TEST(Base64Test, RfcVectorsAndAllBytesRoundTrip) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
  std::vector<std::pair<std::string, std::string>> cases = kRfcVectors;
  cases.emplace_back(bytes, Encode(bytes));
  cases.emplace_back("\xff", "/w==");
  cases.emplace_back("\xff\xff", "//8=");
  for (const auto& [raw, text] : cases) {
    const std::string encoded = Encode(raw);
    EXPECT_EQ(encoded, text);
    EXPECT_EQ(Validate(encoded), -1) << encoded;
    EXPECT_EQ(Decode(encoded), raw) << encoded;
  }
}

// Nothing is written without room, the size is told in every case, and no
// terminator is added.
TEST(Base64Test, SizeProtocol) {
  char buffer[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  size_t size = 0;
  EXPECT_FALSE(Base64Encode("", 0, nullptr, size));
  EXPECT_TRUE(Base64Encode("", 0, buffer, size));
  size = 3;
  EXPECT_FALSE(Base64Encode("foo", 3, buffer, size));
  EXPECT_EQ(size, 4u);
  size = 7;
  EXPECT_FALSE(Base64Decode("=", 1, nullptr, size));
  EXPECT_EQ(size, 0u);
  EXPECT_TRUE(Base64Decode("=", 1, buffer, size));
  size = 2;
  EXPECT_FALSE(Base64Decode("Zm9v", 4, buffer, size));
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(std::string(buffer, 8), "xxxxxxxx");
  size = sizeof buffer;
  EXPECT_TRUE(Base64Encode("foo", 3, buffer, size) && size == 4);
  size = sizeof buffer;
  EXPECT_TRUE(Base64Decode("Zm9v", 4, buffer + 4, size) && size == 3);
  EXPECT_EQ(std::string(buffer, 8), "Zm9vfoox");
}

TEST(Base64Test, DecodePaddingIsOptionalAndTrusted) {
  for (const char* text : {"Zm8", "Zg", "Zg=", "+/+/"}) EXPECT_EQ(Validate(text), -1) << text;
  EXPECT_EQ(Decode("Zm8"), "fo");
  EXPECT_EQ(Decode("Zm9vYg"), "foob");
  // One character left over gives nothing.
  EXPECT_EQ(Decode("Zm9vY"), "foo");
  // Only trailing padding counts: "====" is two characters of zero bits.
  EXPECT_EQ(Decode("===="), std::string(1, '\0'));
  // Bytes outside the alphabet count as zero bits, and are not checked.
  EXPECT_EQ(Decode("Zm9v\n"), Decode("Zm9vA"));
  EXPECT_EQ(Decode("*m9v"), Decode("Am9v"));
}

TEST(Base64Test, ValidateFindsFirstBadByte) {
  // Spare bits must be zero; padding only where a group is short; no
  // white space; no URL-safe alphabet.
  const std::pair<std::string, long> cases[] = {
      {"Zh", 1},    {"Zm9", 2},   {"Zg=x", 3},  {"Z", 0},        {"Zm9vY", 4},
      {"Zm9v=", 4}, {" Zm9v", 0}, {"Zm9v\r\n", 4}, {"Zg===", 4},  {"Zm8==", 4},
      {"====", 0},  {"Zg-v", 2},  {std::string("Zg\0v", 4), 2}};
  for (const auto& [text, position] : cases) EXPECT_EQ(Validate(text), position) << text;
}

}  // namespace
