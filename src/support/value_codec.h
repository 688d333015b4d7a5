// Values to and from bytes and text, in one place for every command and
// backend: the integers of a stored value (native byte order) read as
// unsigned numbers, numbers written as plain decimal text, and the base64
// converters' two-call size protocol.
#ifndef HIVECTL_SUPPORT_VALUE_CODEC_H_
#define HIVECTL_SUPPORT_VALUE_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>

// The 4 or 8 bytes at `bytes` as an unsigned number: a stored -1 reads as
// 4294967295 or 18446744073709551615.
inline uint32_t DecodeFixed32(const void* bytes) {
  uint32_t number;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}
inline uint64_t DecodeFixed64(const void* bytes) {
  uint64_t number;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

// Plain decimal digits, a minus sign before a negative number, whatever the
// stream's flags.
void WriteDecimal(std::ostream& out, uint64_t number);
// The same as a string, as "%i" and "%li" render a number.
std::string DecimalText(int64_t number);

// Base64 of `size` bytes into `text`, which is resized to fit. False if the
// encoder refuses.
bool Base64EncodeTo(const void* in, size_t size, std::string& text);
// The size that Base64Decode gives for `in`: the first of its two calls.
size_t Base64DecodedSize(const char* in, size_t size);

#endif  // HIVECTL_SUPPORT_VALUE_CODEC_H_
