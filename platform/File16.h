// File access with 16-bit names; the names are narrowed unit for byte.
#pragma once

#include <cstdio>

// Reads one line (newline kept) of at most n-1 bytes and widens it into buf.
// Null, with buf untouched, at end of file or on error.
char16_t* fgets_u16(char16_t* buf, int n, FILE* stream);
FILE* fopen_u16(const char16_t* path, const char16_t* mode);
int access_u16(const char16_t* path, int mode);
