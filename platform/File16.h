// File access with 16-bit names; the names are narrowed unit for byte.
#pragma once

#include <cstdio>
#include <span>
#include <string>

// Reads one line (newline kept) of at most n-1 bytes and widens it into buf.
// Null, with buf untouched, at end of file or on error.
char16_t* fgets_u16(char16_t* buf, int n, FILE* stream);
// Opens one of the agent's text files for reading: a regular file only (a
// pipe, device, socket or folder is refused without waiting for a writer),
// close-on-exec, and positioned behind a UTF-8 byte order mark if the file
// starts with one; one that starts with a UTF-16 mark, or that is larger than
// limitMegabytes, is refused: reading it would hold the program's start-up.
// Null, and why in *refusal (until the thread's next call), otherwise. With a
// buffer, which must outlive the stream, the stream reads through it: a large
// file then takes few read calls.
inline constexpr unsigned int kTextFileMegabytes = 1;  // a profile, a list: far beyond any real one
FILE* fopenText_u16(const char16_t* path, const char** refusal, std::span<char> buffer = {},
                    unsigned int limitMegabytes = kTextFileMegabytes);
// A process running as root that reads a file anyone can write is told so in
// its log: the file is still used (refusing it would break running set-ups).
void warnIfWorldWritable(FILE* log, const char16_t* path);

// Opens one of our logs for writing, truncated: never through a symbolic link,
// only a regular file of this process's user, created with mode 0640,
// close-on-exec, and locked for the life of the process. A log that another
// live process holds is left as it is: this process writes the same name with
// the first free number from 2 to kOwnLogNumbers before the extension, which
// path then holds, and *held says so. A number is free again once its process
// has ended, so that processes coming and going (a worker restarted in a
// loop) leave as many files as ever ran at once, not one each. Null, and why
// in *refusal, if no log could be opened. The log takes at most
// CappedLog::kLimit bytes of formatted lines.
inline constexpr int kOwnLogNumbers = 64;
FILE* fopenOwnLog_u16(std::u16string& path, bool* held, const char** refusal);
int access_u16(const char16_t* path, int mode);
