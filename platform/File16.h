// File access with 16-bit names; the names are narrowed unit for byte.
#pragma once

#include <cstdio>

// Reads one line (newline kept) of at most n-1 bytes and widens it into buf.
// Null, with buf untouched, at end of file or on error.
char16_t* fgets_u16(char16_t* buf, int n, FILE* stream);
FILE* fopen_u16(const char16_t* path, const char16_t* mode);
// Opens one of the agent's text files for reading: never a device, pipe or
// socket (such a read may never end), and positioned behind a UTF-8 byte
// order mark if the file starts with one. Null, and why in *refusal, otherwise.
FILE* fopenText_u16(const char16_t* path, const char** refusal);
int access_u16(const char16_t* path, int mode);
