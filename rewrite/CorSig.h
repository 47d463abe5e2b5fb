// Compressed numbers and type tokens of signature blobs: 1, 2 or 4 bytes, big
// endian, with the length in the top bits of the first byte. A type token is
// compressed as row << 2 | table tag (TypeDef 0, TypeRef 1, TypeSpec 2).
#pragma once

#include "runtime/CorTypes.h"

// What the compressors return for a value that has no encoding.
constexpr ULONG kCorSigNoEncoding = static_cast<ULONG>(-1);

// Writes `data` into `out` (room for 4 bytes) and returns the bytes written, or
// kCorSigNoEncoding for a value of 0x20000000 and above.
ULONG CorSigCompressData(ULONG data, void* out);

// Writes a TypeDef, TypeRef or TypeSpec token into `out` (room for 4 bytes) and
// returns the bytes written, or kCorSigNoEncoding for another table.
ULONG CorSigCompressToken(mdToken token, void* out);

// Reads a compressed value from `data`, which holds `available` bytes; returns the
// bytes read, or 0 if the encoding is invalid or runs past the end.
ULONG CorSigUncompressData(PCCOR_SIGNATURE data, ULONG available, ULONG* value);

// Reads a compressed type token; returns the bytes read, or 0 as above (a tag of 3
// is no token).
ULONG CorSigUncompressToken(PCCOR_SIGNATURE data, ULONG available, mdToken* token);
