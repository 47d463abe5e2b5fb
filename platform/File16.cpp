#include "platform/File16.h"

#include <alloca.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/CappedLog.h"
#include "platform/FormattedOutput.h"
#include "platform/TextConversion.h"

char16_t* fgets_u16(char16_t* buf, int n, FILE* stream) {
    if (n < 1) {
        return nullptr;
    }
    auto* line = static_cast<char*>(alloca(n));
    if (std::fgets(line, n, stream) == nullptr) {
        return nullptr;
    }
    CopyChar8To16(line, buf, n);
    return buf;
}


namespace {

std::string narrowed(const char16_t* path) {
    std::string narrow;
    FromChar16(path, narrow);
    return narrow;
}

// Blocking again, for the reads and writes that follow the open.
void makeBlocking(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags != -1) fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

// A lock of the open file itself, held until it is closed: neither the
// runtime's own file sharing (flock) nor another descriptor of this process
// closing the file lets it go.
bool lockForThisOpening(int descriptor) {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    return fcntl(descriptor, F_OFD_SETLK, &whole) == 0 || (errno != EAGAIN && errno != EACCES);
}

}  // namespace

FILE* fopenText_u16(const char16_t* path, const char** refusal, std::span<char> buffer, unsigned int limitMegabytes) {
    // Without O_NONBLOCK, opening a pipe waits for a writer that may never come.
    const int descriptor = open(narrowed(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor == -1) {
        *refusal = strerror(errno);
        return nullptr;
    }
    struct stat facts {};
    if (fstat(descriptor, &facts) != 0 || !S_ISREG(facts.st_mode)) {
        close(descriptor);
        *refusal = S_ISDIR(facts.st_mode) ? "a folder, not a file" : "a device, pipe or socket, not a file";
        return nullptr;
    }
    if (facts.st_size > static_cast<off_t>(limitMegabytes) << 20) {
        close(descriptor);
        thread_local char larger[32];
        snprintf(larger, sizeof(larger), "larger than %u MB", limitMegabytes);
        *refusal = larger;
        return nullptr;
    }
    makeBlocking(descriptor);
    FILE* stream = fdopen(descriptor, "r");
    if (stream == nullptr) {
        *refusal = strerror(errno);
        close(descriptor);
        return nullptr;
    }
    if (!buffer.empty()) {
        setvbuf(stream, buffer.data(), _IOFBF, buffer.size());
    }
    unsigned char mark[3] = {};
    const size_t marked = fread(mark, 1, sizeof(mark), stream);
    // UTF-16 text would be read byte for byte and cut at its zero bytes.
    if (marked >= 2 && ((mark[0] == 0xFF && mark[1] == 0xFE) || (mark[0] == 0xFE && mark[1] == 0xFF))) {
        fclose(stream);
        *refusal = "UTF-16 text, which is not read: save it as UTF-8";
        return nullptr;
    }
    if (marked != sizeof(mark) || mark[0] != 0xEF || mark[1] != 0xBB || mark[2] != 0xBF) {
        rewind(stream);
    }
    return stream;
}

void warnIfWorldWritable(FILE* log, const char16_t* path) {
    struct stat facts {};
    if (log != nullptr && geteuid() == 0 && stat(narrowed(path).c_str(), &facts) == 0 &&
        (facts.st_mode & S_IWOTH) != 0) {
        fprintf_8(log, "Warning: %S can be written by every user, and this process runs as root\n", path);
    }
}

namespace {

enum class LogOpening { kOpened, kHeldElsewhere, kRefused };

LogOpening openLog(const char16_t* path, FILE** log, const char** refusal) {
    *log = nullptr;
    const int descriptor =
        open(narrowed(path).c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0640);
    if (descriptor == -1) {
        *refusal = errno == ELOOP ? "a symbolic link" : errno == ENXIO ? "a pipe, not a file" : strerror(errno);
        return LogOpening::kRefused;
    }
    struct stat facts {};
    const char* fault = nullptr;
    if (fstat(descriptor, &facts) != 0 || !S_ISREG(facts.st_mode)) {
        fault = "a device, pipe, socket or folder, not a file";
    } else if (facts.st_uid != geteuid()) {
        fault = "a file of another user";
    } else if (!lockForThisOpening(descriptor)) {
        close(descriptor);
        return LogOpening::kHeldElsewhere;
    }
    if (fault == nullptr) {
        makeBlocking(descriptor);
        if (ftruncate(descriptor, 0) == 0) *log = fdopen(descriptor, "w");
        if (*log == nullptr) {
            fault = strerror(errno);
        } else {
            CappedLog::limit(*log);
        }
    }
    if (fault != nullptr) {
        close(descriptor);
        *refusal = fault;
        return LogOpening::kRefused;
    }
    return LogOpening::kOpened;
}

}  // namespace

FILE* fopenOwnLog_u16(std::u16string& path, bool* held, const char** refusal) {
    FILE* log = nullptr;
    *held = openLog(path.c_str(), &log, refusal) == LogOpening::kHeldElsewhere;
    if (!*held) return log;
    const size_t slash = path.rfind(u'/');
    const size_t dot = path.rfind(u'.');
    const size_t at = dot != std::u16string::npos && (slash == std::u16string::npos || dot > slash) ? dot : path.size();
    const std::u16string shared = path;
    bool refused = false;
    for (int number = 2; number <= kOwnLogNumbers; ++number) {
        std::u16string suffix;
        FromChar8(("_" + std::to_string(number)).c_str(), suffix);
        path = shared;
        path.insert(at, suffix);
        const LogOpening opening = openLog(path.c_str(), &log, refusal);
        if (opening == LogOpening::kOpened) return log;
        // A name that cannot be had (a planted link, another user's file) is
        // passed over: the next one may serve.
        refused = refused || opening == LogOpening::kRefused;
    }
    if (!refused) *refusal = "held by other processes";
    return nullptr;
}

int access_u16(const char16_t* path, int mode) {
    return access(narrowed(path).c_str(), mode);
}
