#include "support/encoders.h"

#include <array>
#include <cstdint>
#include <string>

namespace {

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Six-bit value of every byte; bytes outside the alphabet count as zero.
constexpr std::array<uint8_t, 256> MakeDecodeTable() {
  std::array<uint8_t, 256> table{};
  for (uint8_t value = 0; value < 64; ++value) {
    table[static_cast<unsigned char>(kBase64Alphabet[value])] = value;
  }
  return table;
}

constexpr std::array<bool, 256> MakeAlphabetTable() {
  std::array<bool, 256> table{};
  for (int value = 0; value < 64; ++value) {
    table[static_cast<unsigned char>(kBase64Alphabet[value])] = true;
  }
  return table;
}

// Value of a hexadecimal digit, or -1.
constexpr std::array<int8_t, 256> MakeHexTable() {
  std::array<int8_t, 256> table{};
  for (auto& entry : table) entry = -1;
  for (int digit = 0; digit < 10; ++digit) table['0' + digit] = digit;
  for (int digit = 0; digit < 6; ++digit) {
    table['a' + digit] = 10 + digit;
    table['A' + digit] = 10 + digit;
  }
  return table;
}

constexpr std::array<uint8_t, 256> kDecodeTable = MakeDecodeTable();
constexpr std::array<bool, 256> kInAlphabet = MakeAlphabetTable();
constexpr std::array<int8_t, 256> kHexValue = MakeHexTable();

inline uint32_t SixBits(const char* in, size_t index) {
  return kDecodeTable[static_cast<unsigned char>(in[index])];
}

}  // namespace

bool Base64Encode(const void* in, size_t in_size, char* out, size_t& out_size) {
  const size_t capacity = out_size;
  out_size = (in_size + 2) / 3 * 4;
  if (out == nullptr || capacity < out_size) return false;

  const auto* bytes = static_cast<const unsigned char*>(in);
  size_t i = 0;
  char* put = out;
  for (; i + 3 <= in_size; i += 3) {
    const uint32_t group = (uint32_t{bytes[i]} << 16) |
                           (uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    *put++ = kBase64Alphabet[(group >> 18) & 0x3F];
    *put++ = kBase64Alphabet[(group >> 12) & 0x3F];
    *put++ = kBase64Alphabet[(group >> 6) & 0x3F];
    *put++ = kBase64Alphabet[group & 0x3F];
  }
  const size_t rest = in_size - i;
  if (rest == 1) {
    const uint32_t group = uint32_t{bytes[i]} << 16;
    *put++ = kBase64Alphabet[(group >> 18) & 0x3F];
    *put++ = kBase64Alphabet[(group >> 12) & 0x3F];
    *put++ = '=';
    *put++ = '=';
  } else if (rest == 2) {
    const uint32_t group = (uint32_t{bytes[i]} << 16) | (uint32_t{bytes[i + 1]} << 8);
    *put++ = kBase64Alphabet[(group >> 18) & 0x3F];
    *put++ = kBase64Alphabet[(group >> 12) & 0x3F];
    *put++ = kBase64Alphabet[(group >> 6) & 0x3F];
    *put++ = '=';
  }
  return true;
}

bool Base64Decode(const char* in, size_t in_size, void* out, size_t& out_size) {
  const size_t capacity = out_size;
  if (in_size == 0 || (in_size == 1 && in[0] == '=')) {
    out_size = 0;
    return out != nullptr;
  }
  // Only the padding at the very end is looked at; the rest is trusted.
  size_t n = in_size;
  if (in[n - 1] == '=') {
    --n;
    if (in[n - 1] == '=') --n;
  }
  out_size = n * 3 / 4;
  if (out == nullptr || capacity < out_size) return false;

  auto* put = static_cast<unsigned char*>(out);
  size_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const uint32_t group = (SixBits(in, i) << 18) | (SixBits(in, i + 1) << 12) |
                           (SixBits(in, i + 2) << 6) | SixBits(in, i + 3);
    *put++ = static_cast<unsigned char>(group >> 16);
    *put++ = static_cast<unsigned char>(group >> 8);
    *put++ = static_cast<unsigned char>(group);
  }
  const size_t rest = n - i;
  if (rest == 2) {
    const uint32_t group = (SixBits(in, i) << 18) | (SixBits(in, i + 1) << 12);
    *put++ = static_cast<unsigned char>(group >> 16);
  } else if (rest == 3) {
    const uint32_t group = (SixBits(in, i) << 18) | (SixBits(in, i + 1) << 12) |
                           (SixBits(in, i + 2) << 6);
    *put++ = static_cast<unsigned char>(group >> 16);
    *put++ = static_cast<unsigned char>(group >> 8);
  }
  return true;
}

bool Base64Validate(const char* in, size_t in_size, size_t& error_position) {
  size_t n = 0;
  while (n < in_size && kInAlphabet[static_cast<unsigned char>(in[n])]) ++n;

  // Up to this many "=" may follow the alphabet run, which is optional padding.
  size_t padding = 0;
  switch (n % 4) {
    case 0:
      break;
    case 1:
      error_position = n - 1;
      return false;
    case 2:
      if ((SixBits(in, n - 1) & 0x0F) != 0) {
        error_position = n - 1;
        return false;
      }
      padding = 2;
      break;
    case 3:
      if ((SixBits(in, n - 1) & 0x03) != 0) {
        error_position = n - 1;
        return false;
      }
      padding = 1;
      break;
  }
  for (; padding > 0 && n < in_size; --padding, ++n) {
    if (in[n] != '=') {
      error_position = n;
      return false;
    }
  }
  if (n != in_size) {
    error_position = n;
    return false;
  }
  return true;
}

bool Base16Decode(const char* in, size_t in_size, unsigned char* out,
                  const std::function<std::ostream&()>& failure) {
  if (in_size % 2 != 0) {
    failure() << "base16 decode failed: odd number of octets\n";
    return false;
  }
  for (size_t i = 0; i < in_size; i += 2) {
    const int high = kHexValue[static_cast<unsigned char>(in[i])];
    const int low = kHexValue[static_cast<unsigned char>(in[i + 1])];
    if (high < 0 || low < 0) {
      const size_t position = high < 0 ? i : i + 1;
      failure() << "base16 decode failed: non-hex character '" << in[position]
                << "' in position " << std::to_string(position) << "\n";
      return false;
    }
    out[i / 2] = static_cast<unsigned char>((high << 4) | low);
  }
  return true;
}
