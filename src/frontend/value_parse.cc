#include "frontend/value_parse.h"

#include <cstdlib>
#include <cstring>

#include "support/ascii.h"
#include "support/encoders.h"
#include "support/value_codec.h"

namespace {

struct TypeName {
  std::string_view keyword;
  SetType code;
};

const TypeName kTypeNames[] = {
    {"i32", kSetI32}, {"i64", kSetI64}, {"str", kSetStr},   {"bin", kSetBin},
    {"b16", kSetB16}, {"b64", kSetB64}, {"fstr", kSetFstr}, {"fbin", kSetFbin},
};

// Longest accepted number text, after trimming and the minus sign.
constexpr size_t kMaxNumberLength = 23;

// strtoull in base 0 as the newer C library has it, with 0b/0B for binary.
// The installed library may predate that prefix, so a binary number is
// converted here, behind the same blanks and sign that strtoull skips.
uint64_t ConvertBase0(const char* text, const char** end) {
  const char* p = text;
  while (IsBlank(*p)) ++p;
  bool minus = false;
  if (*p == '+' || *p == '-') minus = *p++ == '-';
  if (p[0] == '0' && (p[1] == 'b' || p[1] == 'B') && (p[2] == '0' || p[2] == '1')) {
    p += 2;
    uint64_t value = 0;
    bool overflow = false;
    for (; *p == '0' || *p == '1'; ++p) {
      if (value >> 63) overflow = true;
      value = value << 1 | static_cast<uint64_t>(*p - '0');
    }
    *end = p;
    if (overflow) return UINT64_MAX;
    return minus ? 0 - value : value;
  }
  char* stop = nullptr;
  uint64_t value = std::strtoull(text, &stop, 0);
  *end = stop;
  return value;
}

// The number as its 4 or 8 stored bytes; the failure names the width.
template <typename Number>
bool DecodeNumber(bool (*parse)(std::string_view, Number&), std::string_view text,
                  std::unique_ptr<char[]>& data, uint64_t& size,
                  const std::function<std::ostream&()>& failure) {
  Number number = 0;
  if (!parse(text, number)) {
    failure() << "can not parse '" << text << "' as a " << 8 * sizeof number
              << "-bit integer\n";
    return false;
  }
  data = std::make_unique<char[]>(sizeof number + 1);
  std::memcpy(data.get(), &number, sizeof number);
  size = sizeof number;
  return true;
}

bool DecodeBase64(std::string_view text, std::unique_ptr<char[]>& data, uint64_t& size,
                  const std::function<std::ostream&()>& failure) {
  size_t error_position = 0;
  if (!Base64Validate(text.data(), text.size(), error_position)) {
    failure() << "base64 decode failed: invalid character '" << text[error_position]
              << "' in position " << error_position << '\n';
    return false;
  }
  size_t decoded_size = Base64DecodedSize(text.data(), text.size());
  auto decoded = std::make_unique<char[]>(decoded_size + 1);
  if (!Base64Decode(text.data(), text.size(), decoded.get(), decoded_size)) {
    failure() << "base64 decode failed\n";
    return false;
  }
  data = std::move(decoded);
  size = decoded_size;
  return true;
}

}  // namespace

uint32_t ParseSetType(std::string_view text) {
  for (const TypeName& type : kTypeNames) {
    if (text == type.keyword) return type.code;
  }
  return kSetUnknown;
}

regkey::ValueType SetTypeToValueType(uint32_t code) {
  switch (code) {
    case kSetI32:
      return regkey::kTypeI32;
    case kSetI64:
      return regkey::kTypeI64;
    case kSetStr:
    case kSetFstr:
      return regkey::kTypeStr;
    default:
      return regkey::kTypeBin;
  }
}

bool CsvTypeToValueType(uint32_t code, regkey::ValueType& type) {
  switch (code) {
    case kSetI32:
    case kSetI64:
    case kSetStr:
    case kSetBin:
    case kSetB64:
      type = SetTypeToValueType(code);
      return true;
    default:
      return false;
  }
}

bool ParseInteger(std::string_view text, uint64_t& magnitude, bool& negative) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  magnitude = 0;
  negative = false;
  if (text.empty()) return true;
  if (text.front() == '-') {
    negative = true;
    text.remove_prefix(1);
    if (text.empty()) return true;
  }
  if (text.size() > kMaxNumberLength) return false;
  char buffer[kMaxNumberLength + 1];
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
  const char* end = nullptr;
  magnitude = ConvertBase0(buffer, &end);
  // The conversion must take the whole text: a NUL byte inside it also
  // stops the conversion, but short of the end.
  return end == buffer + text.size();
}

bool ParseInt32(std::string_view text, uint32_t& result) {
  uint64_t magnitude = 0;
  bool negative = false;
  if (!ParseInteger(text, magnitude, negative) || magnitude > 4294967295u) return false;
  if (negative) {
    if (magnitude > 2147483648u) return false;
    result = 0u - static_cast<uint32_t>(magnitude);
  } else {
    result = static_cast<uint32_t>(magnitude);
  }
  return true;
}

bool ParseInt64(std::string_view text, uint64_t& result) {
  uint64_t magnitude = 0;
  bool negative = false;
  if (!ParseInteger(text, magnitude, negative)) return false;
  if (negative) {
    if (magnitude > 9223372036854775808u) return false;
    result = 0 - magnitude;
  } else {
    result = magnitude;
  }
  return true;
}

bool DecodeValueText(uint32_t type, std::string_view text, std::unique_ptr<char[]>& data,
                     uint64_t& size, const std::function<std::ostream&()>& failure) {
  switch (type) {
    case kSetI32:
      return DecodeNumber(ParseInt32, text, data, size, failure);
    case kSetI64:
      return DecodeNumber(ParseInt64, text, data, size, failure);
    case kSetB16: {
      auto decoded = std::make_unique<char[]>(text.size() / 2 + 1);
      if (!Base16Decode(text.data(), text.size(),
                        reinterpret_cast<unsigned char*>(decoded.get()), failure)) {
        return false;
      }
      data = std::move(decoded);
      size = text.size() / 2;
      return true;
    }
    case kSetB64:
      return DecodeBase64(text, data, size, failure);
    default:  // str, bin: the text itself
      data = std::make_unique<char[]>(text.size() + 1);
      std::memcpy(data.get(), text.data(), text.size());
      data[text.size()] = '\0';
      size = text.size();
      return true;
  }
}
