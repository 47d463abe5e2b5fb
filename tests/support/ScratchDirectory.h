// A fresh directory under /tmp for one test, removed with everything in it
// when the object goes.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include "TextFiles.h"

class ScratchDirectory {
public:
    ScratchDirectory() {
        char templ[] = "/tmp/tarn-test-XXXXXX";
        const char* made = mkdtemp(templ);
        root = made != nullptr ? made : "";
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const { return root; }
    std::string path(const std::string& relative) const { return root + "/" + relative; }

    // Writes bytes as given (no line end added), making directories on the way.
    std::string write(const std::string& relative, const std::string& bytes) const {
        return writeFile(path(relative), bytes);
    }
    // What a file holds; empty if it is not there.
    std::string read(const std::string& relative) const { return readFile(path(relative)); }

private:
    std::string root;
};
