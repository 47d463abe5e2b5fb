// Owner of the temporary 8-bit strings of one formatted-output call.
#pragma once

#include <string>
#include <vector>

class CharPointers {
public:
    CharPointers() = default;
    CharPointers(const CharPointers&) = delete;
    CharPointers& operator=(const CharPointers&) = delete;
    ~CharPointers();

    // Copies text with its terminator into a new array that lives as long as
    // this object, and returns it.
    char* Add(const std::string& text);

private:
    std::vector<char*> pointers;
};
