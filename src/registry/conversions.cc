#include "registry/conversions.h"

#include <strings.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "registry/memory_tree.h"
#include "support/ascii.h"
#include "support/encoders.h"
#include "support/value_codec.h"

namespace regkey {

namespace {

const char* SkipBlanks(const char* text) {
  while (IsBlank(*text)) ++text;
  return text;
}

// The four words, compared with the whole rest of the text.
bool WordToNumber(const char* text, int& out) {
  if (strcasecmp(text, "true") == 0 || strcasecmp(text, "yes") == 0) {
    out = 1;
    return true;
  }
  if (strcasecmp(text, "false") == 0 || strcasecmp(text, "no") == 0) {
    out = 0;
    return true;
  }
  return false;
}

// Delivers `size` bytes from `data` by the out/limit protocol.
int64_t Deliver(const void* data, size_t size, void** out, size_t limit) {
  if (size > limit) return -static_cast<int64_t>(size);
  if (size == 0) return 0;
  if (*out == nullptr) {
    *out = std::malloc(size);
    if (*out == nullptr) throw std::bad_alloc();
  }
  std::memcpy(*out, data, size);
  return static_cast<int64_t>(size);
}

int64_t DeliverText(const std::string& text, void** out, size_t limit) {
  return Deliver(text.c_str(), text.size() + 1, out, limit);
}

// i32 wanted from text: the size test comes before the parse.
int64_t TextAsInt32(const char* text, void** out, size_t limit) {
  if (limit < sizeof(int32_t)) return -static_cast<int64_t>(sizeof(int32_t));
  int32_t number;
  if (!TextToInt32(text, number)) return 0;
  return Deliver(&number, sizeof number, out, limit);
}

int64_t TextAsInt64(const char* text, void** out, size_t limit) {
  if (limit < sizeof(int64_t)) return -static_cast<int64_t>(sizeof(int64_t));
  int64_t number;
  if (!TextToInt64(text, number)) return 0;
  return Deliver(&number, sizeof number, out, limit);
}

int64_t DecodeBase64(const std::string& text, void** out, size_t limit) {
  size_t size = Base64DecodedSize(text.data(), text.size());
  if (size == 0) return 0;
  if (size > limit) return -static_cast<int64_t>(size);
  void* block = *out != nullptr ? *out : std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  if (!Base64Decode(text.data(), text.size(), block, size)) {
    if (*out == nullptr) std::free(block);
    return 0;
  }
  *out = block;
  return static_cast<int64_t>(size);
}

// An i64 narrowed as TextToInt32 narrows the number it reads.
int32_t NarrowInt64(int64_t number) {
  if (number < INT32_MIN) return INT32_MIN;
  if (number > static_cast<int64_t>(UINT32_MAX)) return static_cast<int32_t>(UINT32_MAX);
  return static_cast<int32_t>(static_cast<uint32_t>(number));
}

// The number strtol and its kin read from `start` up to `end`, or, when they
// read nothing, the number of a word at `start`.
template <typename Int>
bool NumberOrWord(const char* start, const char* end, Int number, Int& out) {
  if (end != start) {
    out = number;
    return true;
  }
  int word;
  if (!WordToNumber(start, word)) return false;
  out = word;
  return true;
}

}  // namespace

bool TextToInt32(const char* text, int32_t& out) {
  const char* start = SkipBlanks(text);
  char* end = nullptr;
  int32_t number;
  if (*start == '-') {
    long value = std::strtol(start, &end, 10);
    if (value < INT32_MIN) value = INT32_MIN;
    if (value > INT32_MAX) value = INT32_MAX;
    number = static_cast<int32_t>(value);
  } else {
    unsigned long value = std::strtoul(start, &end, 10);
    if (value > UINT32_MAX) value = UINT32_MAX;
    number = static_cast<int32_t>(static_cast<uint32_t>(value));
  }
  return NumberOrWord(start, end, number, out);
}

bool TextToInt64(const char* text, int64_t& out) {
  const char* start = SkipBlanks(text);
  char* end = nullptr;
  int64_t number;
  if (*start == '-') {
    number = std::strtoll(start, &end, 10);
  } else {
    number = static_cast<int64_t>(std::strtoull(start, &end, 10));
  }
  return NumberOrWord(start, end, number, out);
}

int64_t ConvertStoredText(int code, const std::string& text, ValueType wanted, void** out,
                          size_t limit) {
  const bool textual = code == kWireStr || code == kWireI32 || code == kWireI64;
  if (!textual && code != kWireBin) return 0;
  switch (wanted) {
    case kTypeI32:
      return textual ? TextAsInt32(text.c_str(), out, limit) : 0;
    case kTypeI64:
      return textual ? TextAsInt64(text.c_str(), out, limit) : 0;
    case kTypeStr:
      return textual ? DeliverText(text, out, limit) : 0;
    case kTypeBin:
      if (textual) return Deliver(text.data(), text.size(), out, limit);
      return DecodeBase64(text, out, limit);
  }
  return 0;
}

int64_t ConvertMemoryValue(const StoredValue& value, ValueType wanted, void** out, size_t limit) {
  switch (value.tag()) {
    case StoredValue::kEmpty:
      return 0;
    case StoredValue::kInt32: {
      const int32_t number = value.int32();
      switch (wanted) {
        case kTypeI32:
        case kTypeBin:
          return Deliver(&number, sizeof number, out, limit);
        case kTypeI64: {
          const int64_t wide = number;
          return Deliver(&wide, sizeof wide, out, limit);
        }
        case kTypeStr: {
          const std::string text = DecimalText(number);
          return Deliver(text.c_str(), text.size() + 1, out, limit);
        }
      }
      return 0;
    }
    case StoredValue::kInt64: {
      const int64_t number = value.int64();
      switch (wanted) {
        case kTypeI32: {
          const int32_t narrow = NarrowInt64(number);
          return Deliver(&narrow, sizeof narrow, out, limit);
        }
        case kTypeI64:
        case kTypeBin:
          return Deliver(&number, sizeof number, out, limit);
        case kTypeStr: {
          const std::string text = DecimalText(number);
          return Deliver(text.c_str(), text.size() + 1, out, limit);
        }
      }
      return 0;
    }
    case StoredValue::kString:
      switch (wanted) {
        case kTypeI32:
          return TextAsInt32(value.text().c_str(), out, limit);
        case kTypeI64:
          return TextAsInt64(value.text().c_str(), out, limit);
        case kTypeStr:
        case kTypeBin:
          return DeliverText(value.text(), out, limit);
      }
      return 0;
    case StoredValue::kBinary: {
      if (wanted != kTypeBin) return 0;
      const StoredValue::Bytes& bytes = value.bytes();
      return Deliver(bytes.data(), bytes.size(), out, limit);
    }
  }
  return 0;
}

}  // namespace regkey
