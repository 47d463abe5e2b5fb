// A fresh directory under /tmp for one test, removed with everything in it
// when the object goes.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

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
        const std::string full = path(relative);
        std::filesystem::create_directories(std::filesystem::path(full).parent_path());
        std::ofstream(full, std::ios::binary) << bytes;
        return full;
    }
    // What a file holds; empty if it is not there.
    std::string read(const std::string& relative) const {
        std::ifstream stream(path(relative), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    // The lines of a file anywhere, without their line ends; none if it is not there.
    static std::vector<std::string> linesOf(const std::string& fullPath) {
        std::vector<std::string> lines;
        std::ifstream stream(fullPath);
        for (std::string line; std::getline(stream, line);) lines.push_back(line);
        return lines;
    }

private:
    std::string root;
};
