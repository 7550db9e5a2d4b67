// Base64 with the standard alphabet (RFC 4648 4).
#pragma once

// Writes the encoding of `inSize` bytes and a NUL; returns `out`. Null, and nothing written, when `outSize` is
// below (inSize + 2) / 3 * 4 + 1 or `inSize` is out of range.
char* av_base64_encode(char* out, int outSize, const unsigned char* in, int inSize);

// Decodes up to a NUL or the first `=`; at most `outSize` bytes are written, further ones dropped. Returns the
// bytes written, -1 at a character outside the alphabet (what was decoded before it stays in `out`).
int av_base64_decode(unsigned char* out, const char* in, int outSize);
