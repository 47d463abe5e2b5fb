// Conversions between 8-bit and 16-bit text, unit for byte. Narrowing keeps the
// low 8 bits of each unit; widening sign-extends each byte (0xE9 becomes
// 0xFFE9). A null source throws std::logic_error.
//
// UTF-8 is spoken only where names of the runtime's metadata, true UTF-16,
// meet files and people: directive lines are read as UTF-8, and text that is
// written out (logs, the directive tool) is written as UTF-8. A unit from
// 0xFF80 up stands there for the byte it was widened from, so that 8-bit text
// that went through the unit-for-byte widening is written as it came.
#pragma once

#include <cstddef>
#include <string>

void FromChar16(const char16_t* src, std::string& out);
void FromChar8(const char* src, std::basic_string<char16_t>& out);

// Copy at most n-1 units (bytes) and always terminate; n of 0 writes nothing.
void CopyChar8To16(const char* src, char16_t* dst, unsigned long n);
void CopyChar16To8(const char16_t* src, char* dst, unsigned long n);

// The UTF-8 of the code point at src (a surrogate pair, or one unit; a lone
// surrogate gives U+FFFD), appended to out; src moves past what it read.
void AppendUtf8(const char16_t*& src, std::string& out);
// Text to write out: ASCII and units from 0xFF80 up byte for byte, the rest
// as UTF-8.
void FromChar16Utf8(const char16_t* src, std::string& out);
// One line of length bytes read as UTF-8: each well-formed sequence becomes its
// UTF-16, any other byte widens as CopyChar8To16 widens it. dst has room for
// length + 1 units; returns the units written before the terminator.
size_t CopyUtf8To16(const char* src, size_t length, char16_t* dst);
// Text the runtime reads as UTF-16 (a path handed to managed code): bytes of
// UTF-8, or 16-bit text as FromChar16Utf8 takes it, decoded as CopyUtf8To16 does.
std::u16string Utf16FromUtf8(const std::string& bytes);
std::u16string Utf16FromUtf8(const char16_t* text);
