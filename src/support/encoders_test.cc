#include "support/encoders.h"

#include <gtest/gtest.h>

#include <sstream>
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

TEST(Base64Test, RfcVectorsRoundTrip) {
  for (const auto& [bytes, text] : kRfcVectors) {
    EXPECT_EQ(Encode(bytes), text);
    EXPECT_EQ(Decode(text), bytes);
    EXPECT_EQ(Validate(text), -1) << text;
  }
}

TEST(Base64Test, AllByteValuesRoundTrip) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
  for (size_t length = 0; length <= bytes.size(); length += 37) {
    const std::string part = bytes.substr(bytes.size() - length);
    const std::string text = Encode(part);
    EXPECT_EQ(Validate(text), -1);
    EXPECT_EQ(Decode(text), part);
  }
}

TEST(Base64Test, EncodeSizeProtocol) {
  char buffer[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  size_t size = 0;
  EXPECT_FALSE(Base64Encode("", 0, nullptr, size));
  EXPECT_EQ(size, 0u);
  size = 0;
  EXPECT_TRUE(Base64Encode("", 0, buffer, size));
  EXPECT_EQ(size, 0u);

  size = 3;  // too small for "Zm9v": nothing written, size still told
  EXPECT_FALSE(Base64Encode("foo", 3, buffer, size));
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(std::string(buffer, 8), "xxxxxxxx");

  size = sizeof buffer;  // larger capacity: exact size back, no terminator
  EXPECT_TRUE(Base64Encode("foo", 3, buffer, size));
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(std::string(buffer, 8), "Zm9vxxxx");
}

TEST(Base64Test, DecodeSizeProtocol) {
  char buffer[4] = {'x', 'x', 'x', 'x'};
  size_t size = 0;
  EXPECT_FALSE(Base64Decode("", 0, nullptr, size));
  EXPECT_EQ(size, 0u);
  size = 0;
  EXPECT_TRUE(Base64Decode("", 0, buffer, size));
  EXPECT_EQ(size, 0u);
  size = 0;
  EXPECT_TRUE(Base64Decode("=", 1, buffer, size));
  EXPECT_EQ(size, 0u);
  size = 7;
  EXPECT_FALSE(Base64Decode("=", 1, nullptr, size));
  EXPECT_EQ(size, 0u);

  size = 2;
  EXPECT_FALSE(Base64Decode("Zm9v", 4, buffer, size));
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(std::string(buffer, 4), "xxxx");
  size = sizeof buffer;
  EXPECT_TRUE(Base64Decode("Zm9v", 4, buffer, size));
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(std::string(buffer, 4), "foox");
}

TEST(Base64Test, DecodePaddingIsOptionalAndTrusted) {
  for (const char* text : {"Zm8", "Zg", "Zg=", "+/+/"}) EXPECT_EQ(Validate(text), -1) << text;
  EXPECT_EQ(Decode("Zg"), "f");
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
  EXPECT_EQ(Validate("Zh"), 1);     // spare bits of h are not zero
  EXPECT_EQ(Validate("Zm9"), 2);    // spare bits of 9 are not zero
  EXPECT_EQ(Validate("Zg=x"), 3);
  EXPECT_EQ(Validate("Z"), 0);
  EXPECT_EQ(Validate("Zm9vY"), 4);
  EXPECT_EQ(Validate("Zm9v="), 4);  // padding after a complete group
  EXPECT_EQ(Validate("Zm9v\nZm9v"), 4);
  EXPECT_EQ(Validate(" Zm9v"), 0);
  EXPECT_EQ(Validate("Zm9v\r\n"), 4);
  EXPECT_EQ(Validate("Zg==="), 4);
  EXPECT_EQ(Validate("Zm8=="), 4);
  EXPECT_EQ(Validate("===="), 0);
  EXPECT_EQ(Validate("Zg-v"), 2);   // URL-safe alphabet is not accepted
  EXPECT_EQ(Validate(std::string("Zg\0v", 4)), 2);
}

struct Base16Result {
  bool ok;
  std::string bytes;
  std::string message;
  int failure_calls;
};

Base16Result Decode16(const std::string& text) {
  Base16Result result{false, std::string(text.size() / 2, '\x55'), "", 0};
  std::ostringstream stream;
  result.ok = Base16Decode(text.data(), text.size(),
                           reinterpret_cast<unsigned char*>(result.bytes.data()),
                           [&]() -> std::ostream& {
                             ++result.failure_calls;
                             return stream;
                           });
  result.message = stream.str();
  return result;
}

TEST(Base16Test, DecodesBothCasesAndRefusesOddLength) {
  const Base16Result result = Decode16("DeadBEEF0109aF");
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.bytes, "\xDE\xAD\xBE\xEF\x01\x09\xAF");
  EXPECT_EQ(result.failure_calls, 0);
  EXPECT_EQ(result.message, "");
  EXPECT_TRUE(Decode16("").ok);

  const Base16Result odd = Decode16("abc");  // odd length fails before any digit
  EXPECT_FALSE(odd.ok);
  EXPECT_EQ(odd.message, "base16 decode failed: odd number of octets\n");
  EXPECT_EQ(odd.failure_calls, 1);
  EXPECT_EQ(Decode16("x").message, "base16 decode failed: odd number of octets\n");
}

TEST(Base16Test, NonDigitNamesByteAndPosition) {
  EXPECT_EQ(Decode16("0g").message,
            "base16 decode failed: non-hex character 'g' in position 1\n");
  EXPECT_EQ(Decode16("00 1").message,
            "base16 decode failed: non-hex character ' ' in position 2\n");

  // Bytes before the bad pair are decoded; the rest is untouched.
  const Base16Result result = Decode16("abcdZZ0102030405060708");
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.failure_calls, 1);
  EXPECT_EQ(result.message,
            "base16 decode failed: non-hex character 'Z' in position 4\n");
  EXPECT_EQ(result.bytes.substr(0, 3), "\xAB\xCD\x55");
}

TEST(Base16Test, PositionIsDecimalWhateverTheStreamFlags) {
  std::ostringstream stream;
  stream << std::hex;
  const std::string text = "00000000000000000000000q";
  unsigned char out[12];
  EXPECT_FALSE(Base16Decode(text.data(), text.size(), out,
                            [&]() -> std::ostream& { return stream; }));
  EXPECT_EQ(stream.str(),
            "base16 decode failed: non-hex character 'q' in position 23\n");
}

}  // namespace
