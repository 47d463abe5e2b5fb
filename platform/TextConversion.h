// Conversions between 8-bit and 16-bit text, unit for byte. Narrowing keeps the
// low 8 bits of each unit; widening sign-extends each byte (0xE9 becomes
// 0xFFE9). There is no transcoding. A null source throws std::logic_error.
#pragma once

#include <string>

void FromChar16(const char16_t* src, std::string& out);
void FromChar8(const char* src, std::basic_string<char16_t>& out);

// Copy at most n-1 units (bytes) and always terminate; n of 0 writes nothing.
void CopyChar8To16(const char* src, char16_t* dst, unsigned long n);
void CopyChar16To8(const char16_t* src, char* dst, unsigned long n);
