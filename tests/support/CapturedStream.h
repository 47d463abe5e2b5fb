// A FILE* in memory for code that writes to a stream: what was written can be
// read back as text at any time.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

class CapturedStream {
public:
    CapturedStream() : stream(open_memstream(&buffer, &size)) {}
    ~CapturedStream() {
        if (stream != nullptr) std::fclose(stream);
        std::free(buffer);
    }
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;

    FILE* get() const { return stream; }
    std::string text() {
        std::fflush(stream);
        return std::string(buffer, size);
    }

private:
    char* buffer = nullptr;
    size_t size = 0;
    FILE* stream;
};
