// Reading a stored value as any of the four value types. The two backends
// keep values in different forms (the database as text, memory natively) and
// their conversions differ in a few deliberate cells.
//
// Both converters share the handling of `out`: a non-null *out receives the
// result; a null *out gets a fresh malloc'ed block of exactly the result's
// size. The limit is tested first: when the result does not fit, nothing is
// allocated or written and the answer is minus the needed size.
#ifndef HIVECTL_REGISTRY_CONVERSIONS_H_
#define HIVECTL_REGISTRY_CONVERSIONS_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "registry/key.h"

namespace regkey {

class StoredValue;

// Wire type codes of the database functions.
enum WireCode : int {
  kWireStr = 1,
  kWireBin = 2,
  kWireI32 = 3,
  kWireI64 = 4,
};

// Text to number for reading a stored value as a number: decimal digits
// after leading white space, or the words true/yes/false/no in any case.
bool TextToInt32(const char* text, int32_t& out);
bool TextToInt64(const char* text, int64_t& out);

// A read of a database value: `code` is the wire code, `text` its text.
int64_t ConvertStoredText(int code, const std::string& text, ValueType wanted,
                          void** out, size_t limit);

// A read of an in-memory value.
int64_t ConvertMemoryValue(const StoredValue& value, ValueType wanted, void** out,
                           size_t limit);

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_CONVERSIONS_H_
