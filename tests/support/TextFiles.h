// Whole files and the lines of a text, for the tests and their helpers.
#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

// What a file holds; empty if it is not there.
inline std::string readFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

// The files of a folder whose names begin with prefix, one after another
// (the native logs, which are named after their process).
inline std::string readFilesStartingWith(const std::string& folder, const std::string& prefix) {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().filename().string().starts_with(prefix)) text += readFile(entry.path());
    }
    return text;
}

// Writes bytes as given (no line end added), making directories on the way.
inline std::string writeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    return path;
}

// Everything written to a stream so far, read from its start.
inline std::string streamText(FILE* stream) {
    fflush(stream);
    rewind(stream);
    std::string text;
    char buffer[4096];
    for (size_t count; (count = fread(buffer, 1, sizeof(buffer), stream)) > 0;) text.append(buffer, count);
    return text;
}

// Lines of a text, without their line ends.
inline std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// Lines that begin with prefix.
inline std::vector<std::string> linesStartingWith(const std::vector<std::string>& lines, const std::string& prefix) {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        if (line.starts_with(prefix)) found.push_back(line);
    }
    return found;
}

// Lines joined, each with its line end.
inline std::string joinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}
