#include "platform/SystemUtils.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>

#include "platform/File16.h"
#include "platform/FileSystem.h"
#include "platform/FormattedOutput.h"
#include "platform/Text16.h"

namespace {

constexpr int kCommandLineBytes = 4096;
constexpr int kMapsLineUnits = 512;

// The path of a maps line is what follows its last blank, without the line feed.
template <typename Char>
std::basic_string<Char> pathOfMapsLine(const std::basic_string<Char>& line)
{
    std::basic_string<Char> path = line;
    const size_t lineFeed = path.rfind(Char('\n'));
    if (lineFeed != std::basic_string<Char>::npos) {
        path.erase(lineFeed);
    }
    const size_t blank = path.rfind(Char(' '));
    return blank == std::basic_string<Char>::npos ? path : path.substr(blank + 1);
}

} // namespace

int SystemUtils::GetPid() { return getpid(); }

// The whole of /proc/self/cmdline, whatever its length: arguments end in a
// zero byte each.
void SystemUtils::GetProgramArguments(std::vector<std::basic_string<char16_t>>& args)
{
    FILE* file = fopen("/proc/self/cmdline", "r");
    if (file == nullptr) {
        return;
    }
    std::string bytes;
    char chunk[kCommandLineBytes];
    size_t read = 0;
    while ((read = fread(chunk, 1, sizeof(chunk), file)) > 0) {
        bytes.append(chunk, read);
    }
    fclose(file);
    for (size_t start = 0; start < bytes.size();) {
        const size_t end = std::min(bytes.find('\0', start), bytes.size());
        // A UTF-16 text never has more units than its UTF-8 bytes.
        std::basic_string<char16_t> wide(end - start + 1, u'\0');
        snprintf_u16(wide.data(), wide.size(), u"%S", bytes.substr(start, end - start).c_str());
        wide.resize(strlen_u16(wide.c_str()));
        args.push_back(std::move(wide));
        start = end + 1;
    }
}

bool SystemUtils::GetFullModulePath(const char16_t* name, std::basic_string<char16_t>& path)
{
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

bool SystemUtils::GetFullModulePathA(const char* name, std::string& path)
{
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

bool SystemUtils::TryToCreateFullPath(const std::basic_string<char16_t>& path)
{
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

void* SystemUtils::LookupProcAddress(const char* module, const char* procedure)
{
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
