#include "support/value_codec.h"

#include <charconv>

#include "support/encoders.h"

void WriteDecimal(std::ostream& out, uint64_t number) {
  char digits[24];
  const char* end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  out.write(digits, end - digits);
}

std::string DecimalText(int64_t number) {
  char digits[24];
  const char* end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  return std::string(digits, static_cast<size_t>(end - digits));
}

bool Base64EncodeTo(const void* in, size_t size, std::string& text) {
  size_t encoded_size = 0;
  Base64Encode(in, size, nullptr, encoded_size);
  text.resize(encoded_size);
  return Base64Encode(in, size, text.data(), encoded_size);
}

size_t Base64DecodedSize(const char* in, size_t size) {
  size_t decoded_size = 0;
  Base64Decode(in, size, nullptr, decoded_size);
  return decoded_size;
}
