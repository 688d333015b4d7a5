// Text to type code and to numbers, shared by the set command and the CSV
// reader.
#ifndef HIVECTL_FRONTEND_VALUE_PARSE_H_
#define HIVECTL_FRONTEND_VALUE_PARSE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string_view>

#include "registry/key.h"

// TYPE keywords of set and of the CSV format; 0 for anything else.
enum SetType : uint32_t {
  kSetUnknown = 0,
  kSetI32 = 1,
  kSetI64 = 2,
  kSetStr = 3,
  kSetBin = 4,
  kSetB16 = 5,
  kSetB64 = 6,
  kSetFstr = 7,
  kSetFbin = 8,
};

uint32_t ParseSetType(std::string_view text);
// The stored value type of a TYPE code 1 to 8.
regkey::ValueType SetTypeToValueType(uint32_t code);
// The stored value type of the TYPE code of a CSV row (i32, i64, str, bin,
// b64); false for the codes the CSV reader lets no row through with.
bool CsvTypeToValueType(uint32_t code, regkey::ValueType& type);

// Blank-trimmed, optional minus sign, at most 23 bytes, then strtoull in
// base 0 (0x, 0b, leading 0 octal) to the very end; overflow not checked.
bool ParseInteger(std::string_view text, uint64_t& magnitude, bool& negative);
// Range -2^31 .. 2^32-1, result the 32-bit pattern.
bool ParseInt32(std::string_view text, uint32_t& result);
// Range -2^63 .. 2^64-1, result the 64-bit pattern.
bool ParseInt64(std::string_view text, uint64_t& result);

// The bytes to store for the VALUE text of an i32, i64, str, bin, b16 or b64
// value, followed by one NUL that `size` does not count. A text that does not
// parse writes its reason, ended by a line feed, to `failure()` and leaves
// `data` and `size` alone.
bool DecodeValueText(uint32_t type, std::string_view text, std::unique_ptr<char[]>& data,
                     uint64_t& size, const std::function<std::ostream&()>& failure);

#endif  // HIVECTL_FRONTEND_VALUE_PARSE_H_
