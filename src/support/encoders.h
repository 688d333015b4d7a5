// Base64 (RFC 4648 standard alphabet, "=" padding, no line breaks) and a
// base16 decoder.
//
// Base64Encode and Base64Decode share a two-call protocol: on entry
// `out_size` is the capacity of `out`; on return it is the exact size of the
// result in every case. With a null `out` or too small a capacity nothing is
// written and the result is false. Neither writes a terminating NUL.
#ifndef HIVECTL_SUPPORT_ENCODERS_H_
#define HIVECTL_SUPPORT_ENCODERS_H_

#include <cstddef>
#include <functional>
#include <ostream>

bool Base64Encode(const void* in, size_t in_size, char* out, size_t& out_size);
// Trusts its input: a byte outside the alphabet counts as six zero bits.
bool Base64Decode(const char* in, size_t in_size, void* out, size_t& out_size);
// False with the offset of the first byte that makes the text unusable.
bool Base64Validate(const char* in, size_t in_size, size_t& error_position);

// Decodes pairs of hexadecimal digits into `out` (in_size / 2 bytes). On
// failure writes its own message ("base16 decode failed: ...\n") to the
// stream that `failure` returns, which is asked for only then.
bool Base16Decode(const char* in, size_t in_size, unsigned char* out,
                  const std::function<std::ostream&()>& failure);

#endif  // HIVECTL_SUPPORT_ENCODERS_H_
