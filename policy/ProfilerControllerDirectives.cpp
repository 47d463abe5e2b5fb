// Which directive files are read, and in which order.

#include <memory>
#include <set>
#include <span>
#include <vector>

#include "platform/ProcessFacts.h"
#include "platform/File16.h"
#include "platform/FileSystem.h"
#include "platform/FormattedOutput.h"
#include "platform/StringUtils.h"
#include "platform/Text16.h"
#include "policy/ProfilerController.h"
#include "runtime/CorErrors.h"

namespace {

using Text = ProfilerController::Text;

constexpr char16_t kDirectivesFileKey[] = u"harrowlite.nativeprofiler.directivesFile";
constexpr char16_t kFieldMarkDirectivesFileKey[] = u"harrowlite.fieldmark.directivesFile";
constexpr char16_t kBundlesKey[] = u"harrowlite.agent.extensions.bundles.load";
constexpr char16_t kExtensionsDirectoryKey[] = u"harrowlite.agent.extensions.directory";
constexpr char16_t kFrameworkIgnoreKey[] = u"harrowlite.fieldmark.dotnetframework.ignoreDirectivesFile";
constexpr char16_t kCoreIgnoreKey[] = u"harrowlite.fieldmark.dotnetcore.ignoreDirectivesFile";
constexpr char16_t kIisGroup[] = u"__TraceIIS__Hidden__DoNotUseExplicitly__";
constexpr char16_t kMainGroup[] = u"__TraceMain__Hidden__DoNotUseExplicitly__";
constexpr char16_t kWordSeparators[] = u"\r\n\t ";
constexpr int kLineUnits = 2048;
// What loading a file that cannot be read answers.
constexpr int kUnreadable = E_INVALIDARG;
// Generated directive files run to megabytes; beyond this one would hold the
// program's start for minutes.
constexpr unsigned int kDirectiveFileMegabytes = 64;

// Paths are built with '\' in places (bundle folders); the directory search
// reads it as '/', and so must the open. A file that cannot be read is named
// in the log, with the reason.
FILE* openForReading(const Text& path, FILE* log, std::span<char> buffer = {}) {
    Text local = path;
    for (char16_t& unit : local) {
        if (unit == u'\\') {
            unit = u'/';
        }
    }
    const char* refusal = nullptr;
    FILE* stream = fopenText_u16(local.c_str(), &refusal, buffer, kDirectiveFileMegabytes);
    if (stream == nullptr) {
        fprintf_8(log, "Cannot read %S: %s\n", path.c_str(), refusal);
    } else {
        warnIfWorldWritable(log, local.c_str());
    }
    return stream;
}

bool isWordSeparator(char16_t unit) {
    return unit != 0 && strchr_u16(kWordSeparators, unit) != nullptr;
}

// The first word of a list-file line. Its length is the index of the separator
// behind it, not its distance from the word's start: with leading blanks the
// word runs on past its end, so entries belong at the start of the line.
Text firstWord(const char16_t* line) {
    size_t start = 0;
    while (isWordSeparator(line[start])) {
        ++start;
    }
    const size_t length = strlen_u16(line);
    size_t end = start;
    while (end < length && !isWordSeparator(line[end])) {
        ++end;
    }
    if (end == length) {
        return Text(line + start);
    }
    return Text(line + start, std::min(end, length - start));
}

}  // namespace

int ProfilerController::initializeDirectives() {
    if (directives != nullptr) {
        return S_OK;
    }
    directives = IDirectiveController::newInstance(getNativeLog());
    if (directives == nullptr) {
        return E_OUTOFMEMORY;
    }
    directives->setCacheSize(cacheSize);
    addHiddenDirectives();

    // A configured file replaces every other source.
    if (const char16_t* file = findProperty(kDirectivesFileKey)) {
        return addDirectives(file);
    }
    int status = S_OK;
    if (const char16_t* file = findProperty(kFieldMarkDirectivesFileKey)) {
        status = addDirectives(file);
    }
    if (status >= 0 && ProcessFacts::isAzure()) {
        std::map<Text, Text> bundles;
        collectExtensions(bundles, true);
        // One bad bundle does not keep the others out.
        for (const auto& [name, path] : bundles) {
            fprintf_8(nativeLog, "Loading %S\n", name.c_str());
            fflush(nativeLog);
            addDirectives((path + u"\\directives").c_str());
        }
    }
    Text found;
    if (status >= 0 && shouldEnableDynamicInstrumentation() == S_OK && findFile(u"dynamic", found, nullptr)) {
        status = addDirectives(u"dynamic");
    }
    if (status >= 0 && findFile(u"persistedprobes", found, nullptr)) {
        status = addDirectives(u"persistedprobes");
    }
    return status;
}

int ProfilerController::reloadDirectives() {
    // The memo stays: a reload decides only what has not been decided yet.
    directives = nullptr;
    return initializeDirectives();
}

int ProfilerController::addDynamicDirective(char16_t* line) {
    if (directives == nullptr) {
        return E_UNEXPECTED;
    }
    // A line that cannot be read is logged by the reader and changes nothing.
    (void)directives->readDirective(line);
    // A new rule can change the answer for a class already in the cache.
    directives->clearCache();
    return S_OK;
}

int ProfilerController::addHiddenDirectives() {
    initializeProcessName();
    const bool iis = IsCurrentProcessIIS();
    IDirectiveGroup* group = directives->addDirectiveGroup(iis ? kIisGroup : kMainGroup);
    if (group == nullptr) {
        return E_FAIL;
    }
    IClassMatcher* classes = group->getClassMatcher();
    IMethodMatcher* methods = group->getMethodMatcher();
    if (iis) {
        classes->addParentClassRule(u"[System.Web]System.Web.IHttpHandler");
        methods->addMethodRule(u"ProcessRequest");
        classes->addParentClassRule(u"[System.Web]System.Web.IHttpAsyncHandler");
        methods->addMethodRule(u"System.Web.IHttpAsyncHandler.BeginProcessRequest");
        if (clrVersion == 2 || clrVersion == 4) {
            classes->addClassRule(u"[System.Web]System.Web.HttpRuntime");
            methods->addMethodRule(u"FirstRequestInit");
        }
    } else {
        classes->addAllClassesRule();
        methods->addMethodRule(u"Main");
        methods->addMethodRule(u"main");
    }
    group->setActive(true);
    group->setCreated();
    return S_OK;
}

int ProfilerController::addDirectives(const char16_t* list) {
    Text copy(list);
    char16_t* buffer = copy.data();
    int status = S_OK;
    char16_t* context = buffer;
    for (char16_t* entry = StringUtils::strtok_u16(buffer, u",", &context); entry != nullptr && status >= 0;
         entry = context != nullptr ? StringUtils::strtok_u16(context, u",", &context) : nullptr) {
        status = loadDirectives(StringUtils::wcstrim(entry));
    }
    return status;
}

int ProfilerController::loadDirectives(const Text& name) {
    Text path;
    WIN32_FIND_DATAW data{};
    if (!findFile(name, path, &data)) {
        fprintf_8(getNativeLog(), "Invalid file %S\n", name.c_str());
        return E_FAIL;
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        int status = S_OK;
        WIN32_FIND_DATAW entry{};
        HANDLE search = FindFirstFileW((path + u"\\*.fmd").c_str(), &entry);
        if (search == INVALID_HANDLE_VALUE) {
            return status;
        }
        // A file of the folder that cannot be read is passed over.
        do {
            status = loadFMDFile(path + u"/" + entry.cFileName);
            if (status == kUnreadable) {
                status = S_OK;
            }
        } while (status >= 0 && FindNextFileW(search, &entry));
        FindClose(search);
        return status;
    }
    const size_t dot = path.rfind(u'.');
    const Text extension = dot == Text::npos ? Text() : path.substr(dot);
    if (extension == u".fmd") {
        return loadFMDFile(path);
    }
    if (extension == u".fml") {
        return loadFMLFile(path);
    }
    fprintf_8(getNativeLog(), "Invalid entry %S\n", name.c_str());
    return E_FAIL;
}

bool ProfilerController::findFile(const Text& name, Text& foundPath, WIN32_FIND_DATAW* data) {
    WIN32_FIND_DATAW local{};
    WIN32_FIND_DATAW* target = data != nullptr ? data : &local;
    for (const Text& candidate : {agentDirectory + u"/" + name, name}) {
        foundPath = candidate;
        if (foundPath.empty() || foundPath.size() >= kPathUnitLimit) {
            continue;
        }
        HANDLE search = FindFirstFileW(foundPath.c_str(), target);
        if (search != INVALID_HANDLE_VALUE) {
            FindClose(search);
            return true;
        }
    }
    return false;
}

int ProfilerController::loadFMDFile(const Text& path) {
    if (shouldIgnoreDirectives(path.c_str())) {
        return S_OK;
    }
    FILE* log = getNativeLog();
    if (!isDotnetCore && path.find(u".netcore.fmd") != Text::npos) {
        fprintf_8(log, "Skipping .NET Core FMD %S\n", path.c_str());
        return S_OK;
    }
    // Read in large pieces: a generated file of megabytes would otherwise take
    // a read call every 4 KB. The buffer outlives the stream.
    constexpr size_t kReadBuffer = size_t{64} << 10;
    const auto buffer = std::make_unique_for_overwrite<char[]>(kReadBuffer);
    FILE* stream = openForReading(path, log, {buffer.get(), kReadBuffer});
    if (stream == nullptr) {
        return kUnreadable;
    }
    fprintf_8(log, "Started loading %S\n", path.c_str());
    const int status = directives->readDirectives(stream);
    fclose(stream);
    fprintf_8(log, status < 0 ? "Failed to load %S\n" : "Loaded %S\n", path.c_str());
    return status;
}

bool ProfilerController::shouldIgnoreDirectives(const char16_t* path) {
    const char16_t* ignored = findProperty(isDotnetCore ? kCoreIgnoreKey : kFrameworkIgnoreKey);
    if (ignored == nullptr) {
        return false;
    }
    Text copy(ignored);
    char16_t* buffer = copy.data();
    char16_t* context = buffer;
    // Entries are not trimmed: a blank belongs to the text searched for.
    for (char16_t* entry = StringUtils::strtok_u16(buffer, u",", &context); entry != nullptr;
         entry = context != nullptr ? StringUtils::strtok_u16(context, u",", &context) : nullptr) {
        if (strstr_u16(path, entry) != nullptr) {
            fprintf_8(getNativeLog(), "Skipping %S\n", path);
            return true;
        }
    }
    return false;
}

int ProfilerController::loadFMLFile(const Text& path) {
    FILE* log = getNativeLog();
    FILE* stream = openForReading(path, log);
    if (stream == nullptr) {
        return kUnreadable;
    }
    fprintf_8(log, "Started loading %S\n", path.c_str());
    int status = S_OK;
    char16_t line[kLineUnits];
    while (status >= 0 && fgets_u16(line, kLineUnits, stream) != nullptr) {
        const Text word = firstWord(line);
        if (word.empty() || word[0] == u'#' || word == u"Title:" || word == u"Description:") {
            continue;
        }
        // Lists do not nest: whatever the entry's extension, it is read as directives.
        Text full;
        if (findFile(word, full, nullptr)) {
            status = loadFMDFile(full);
        }
    }
    fclose(stream);
    fprintf_8(log, status < 0 ? "Failed to load %S\n" : "Loaded %S\n", path.c_str());
    return status;
}

int ProfilerController::collectExtensions(std::map<Text, Text>& bundles, bool useConfiguredBundles) {
    const char16_t* configured = useConfiguredBundles ? findProperty(kBundlesKey) : nullptr;
    Text list = configured != nullptr ? Text(configured) : Text(u"*");
    std::set<Text> wanted;
    for (size_t start = 0; start <= list.size();) {
        size_t comma = list.find(u',', start);
        comma = comma == Text::npos ? list.size() : comma;
        wanted.insert(list.substr(start, comma - start));
        start = comma + 1;
    }
    const bool allBundles = wanted.count(u"*") != 0;

    const Text base = agentDirectory + u"\\..\\..";
    const char16_t* configuredDirectory = findProperty(kExtensionsDirectoryKey);
    const Text directory = configuredDirectory != nullptr ? Text(configuredDirectory) : Text(u"extensions");
    std::vector<char16_t> fullPath(kPathUnitLimit);
    const bool absolute = GetFullPathNameW(directory.c_str(), kPathUnitLimit, fullPath.data(), nullptr) != 0 &&
                          directory == fullPath.data();

    FILE* log = getNativeLog();
    WIN32_FIND_DATAW agent{};
    HANDLE agents = FindFirstFileW(absolute ? directory.c_str() : (base + u"\\*").c_str(), &agent);
    if (agents == INVALID_HANDLE_VALUE) {
        fprintf_8(log, "Failed with invalid handle\n");
        fflush(log);
        return S_OK;
    }
    do {
        const Text entry = agent.cFileName;
        if (entry == u"." || entry == u"..") {
            continue;
        }
        const Text folder = absolute ? directory : base + u"\\" + entry + u"\\tarn\\" + directory;
        WIN32_FIND_DATAW bundle{};
        HANDLE found = FindFirstFileW((folder + u"\\*").c_str(), &bundle);
        if (found == INVALID_HANDLE_VALUE) {
            continue;
        }
        do {
            const Text name = bundle.cFileName;
            if (name != u"." && name != u".." && (allBundles || wanted.count(name) != 0)) {
                bundles[name] = folder + u"\\" + name;
            }
        } while (FindNextFileW(found, &bundle));
        FindClose(found);
    } while (FindNextFileW(agents, &agent));
    FindClose(agents);
    return S_OK;
}
