#include "platform/Glob.h"

#include <utility>
#include <vector>

Glob::Glob(const char16_t* pattern) : patternText(pattern) {
    init();
}

Glob::Glob(const std::basic_string<char16_t>& pattern) : patternText(pattern) {
    init();
}

Glob::Glob(const Glob& other) : patternText(other.patternText) {
    init();
}

Glob& Glob::operator=(const Glob& other) {
    if (this != &other) {
        clear();
        patternText = other.patternText;
        init();
    }
    return *this;
}

Glob::~Glob() {
    clear();
}

void Glob::clear() {
    for (int i = 0; i < pieceCount; ++i) {
        delete pieces[i];
    }
    delete[] pieces;
    pieces = nullptr;
    pieceCount = 0;
}

void Glob::init() {
    std::vector<std::basic_string<char16_t>> found;
    const size_t length = patternText.size();
    size_t position = 0;
    while (position < length) {
        size_t star = patternText.find(u'*', position);
        if (star == std::basic_string<char16_t>::npos) {
            star = length;
        }
        found.push_back(patternText.substr(position, star - position));
        position = star + 1;
    }
    // A trailing '*' leaves an empty last piece, which matches any ending.
    if (length > 0 && patternText[length - 1] == u'*') {
        found.emplace_back();
    }

    pieceCount = static_cast<int>(found.size());
    pieces = new std::basic_string<char16_t>*[found.size()];
    for (int i = 0; i < pieceCount; ++i) {
        pieces[i] = new std::basic_string<char16_t>(std::move(found[i]));
    }
}

bool Glob::match(std::u16string_view text) const {
    if (pieceCount == 0) {
        return text.empty();
    }
    if (!text.starts_with(*pieces[0])) {
        return false;
    }

    // The position starts at 0, not behind the first piece.
    size_t position = 0;
    for (int i = 1; i < pieceCount - 1; ++i) {
        const std::basic_string<char16_t>& piece = *pieces[i];
        if (piece.empty()) {
            continue;
        }
        const size_t found = text.find(piece, position);
        if (found == std::u16string_view::npos) {
            return false;
        }
        position = found + piece.size();
    }

    const std::basic_string<char16_t>& last = *pieces[pieceCount - 1];
    return last.empty() || text.ends_with(last);
}
