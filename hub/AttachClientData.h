// The client data of an attach: KEY=VALUE lines from the attaching tool, read
// as the runtime hands them over (bytes, not necessarily terminated).
#pragma once

#include <string>
#include <utility>
#include <vector>

class AttachClientData {
public:
    // At most the first 16,383 bytes are read. A key runs up to "=", its value
    // up to a line feed; runs of either delimiter ahead of a key or a value are
    // passed over, as the destructive tokenizer does, and the pairs end at the
    // first key or value that is missing.
    static std::vector<std::pair<std::string, std::string>> pairs(const void* data, unsigned int size);
    // The whole data as text, cut at a zero byte; empty for none.
    static std::string text(const void* data, unsigned int size);
};
