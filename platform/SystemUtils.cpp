#include "platform/SystemUtils.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/File16.h"
#include "platform/FileSystem.h"
#include "platform/FormattedOutput.h"
#include "platform/Text16.h"

namespace {

constexpr int kCommandLineBytes = 4096;
constexpr int kArgumentUnits = 2048;
constexpr int kMapsLineUnits = 512;

// The path of a maps line is what follows its last blank, without the line feed.
template <typename Char>
std::basic_string<Char> pathOfMapsLine(const std::basic_string<Char>& line) {
    std::basic_string<Char> path = line;
    const size_t lineFeed = path.rfind(Char('\n'));
    if (lineFeed != std::basic_string<Char>::npos) {
        path.erase(lineFeed);
    }
    const size_t blank = path.rfind(Char(' '));
    return blank == std::basic_string<Char>::npos ? path : path.substr(blank + 1);
}

}  // namespace

int SystemUtils::GetPid() {
    return getpid();
}

// One read as fgets would make it: up to a line feed or 4095 bytes. The walk
// stays within what was read, whatever the arguments hold.
void SystemUtils::GetProgramArguments(std::vector<std::basic_string<char16_t>>& args) {
    FILE* file = fopen("/proc/self/cmdline", "r");
    if (file == nullptr) {
        return;
    }
    char buffer[kCommandLineBytes] = {};
    size_t count = 0;
    for (int c = 0; count + 1 < sizeof(buffer) && (c = getc(file)) != EOF;) {
        buffer[count++] = static_cast<char>(c);
        if (c == '\n') {
            break;
        }
    }
    fclose(file);
    for (const char* argument = buffer; argument < buffer + count && *argument != 0; argument += strlen(argument) + 1) {
        char16_t wide[kArgumentUnits];
        snprintf_u16(wide, kArgumentUnits, u"%S", argument);
        args.emplace_back(wide);
    }
}

std::string SystemUtils::PathOfStream(FILE* stream) {
    const int descriptor = stream != nullptr ? fileno(stream) : -1;
    if (descriptor == STDOUT_FILENO) {
        return "/dev/stdout";
    }
    if (descriptor == STDERR_FILENO) {
        return "/dev/stderr";
    }
    if (descriptor < 0) {
        return "";
    }
    char target[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = readlink(link.c_str(), target, sizeof(target) - 1);
    if (length <= 0 || target[0] != '/') {
        return "";
    }
    fflush(stream);
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || fcntl(descriptor, F_SETFL, flags | O_APPEND) < 0) {
        return "";
    }
    return std::string(target, static_cast<size_t>(length));
}

bool SystemUtils::GetFullModulePath(const char16_t* name, std::basic_string<char16_t>& path) {
    FILE* maps = fopen("/proc/self/maps", "r");
    if (maps == nullptr) {
        return false;
    }
    bool found = false;
    char16_t line[kMapsLineUnits];
    while (!found && fgets_u16(line, kMapsLineUnits, maps) != nullptr) {
        if (strstr_u16(line, name) != nullptr) {
            path = pathOfMapsLine(std::basic_string<char16_t>(line));
            found = true;
        }
    }
    fclose(maps);
    return found;
}

bool SystemUtils::GetFullModulePathA(const char* name, std::string& path) {
    FILE* maps = fopen("/proc/self/maps", "r");
    if (maps == nullptr) {
        return false;
    }
    bool found = false;
    char line[kMapsLineUnits];
    while (!found && fgets(line, kMapsLineUnits, maps) != nullptr) {
        if (strstr(line, name) != nullptr) {
            path = pathOfMapsLine(std::string(line));
            found = true;
        }
    }
    fclose(maps);
    return found;
}

bool SystemUtils::TryToCreateFullPath(const std::basic_string<char16_t>& path) {
    // The search starts at index 1, which passes over a leading root.
    for (size_t separator = path.find_first_of(u"\\/", 1); separator != std::basic_string<char16_t>::npos;
         separator = path.find_first_of(u"\\/", separator + 1)) {
        const std::basic_string<char16_t> prefix = path.substr(0, separator);
        if (prefix.back() == u':') {
            continue;
        }
        if (access_u16(prefix.c_str(), 0) != 0) {
            // CreateDirectoryW judges by errno, which the failed access has
            // just set: clear it so that a successful mkdir reads as one.
            errno = 0;
            if (!CreateDirectoryW(prefix.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
                return false;
            }
        }
    }
    return true;
}

void* SystemUtils::LookupProcAddress(const char* module, const char* procedure) {
    // Without a mapping the empty path would open the main program instead.
    std::string path;
    if (!GetFullModulePathA(module, path)) {
        return nullptr;
    }
    void* address = nullptr;
    void* library = dlopen(path.c_str(), RTLD_NOW);
    if (library != nullptr) {
        address = dlsym(library, procedure);
        // The library was mapped before and stays mapped: this only drops our
        // extra reference.
        dlclose(library);
    }
    return address;
}
