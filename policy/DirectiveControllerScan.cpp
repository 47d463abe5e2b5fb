// The module scan: every method of a module that the directives select.
#include "policy/DirectiveController.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <unordered_set>

#include "metadata/MethodNameRows.h"
#include "metadata/TypeNameRows.h"
#include "platform/FormattedOutput.h"
#include "platform/Performance.h"
#include "policy/FiledAnswers.h"
#include "policy/IProfilerController.h"
#include "policy/WCharSet.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

namespace {

// The controller's scan context, held for one scan and given back when the
// scan ends, however it ends, placed nowhere: without the module's metadata,
// and without names that a later scan could take for its own.
class BorrowedContext {
public:
    explicit BorrowedContext(AutoPointer<IMetaDataContext>& context) : context(context) {}
    BorrowedContext(const BorrowedContext&) = delete;
    BorrowedContext& operator=(const BorrowedContext&) = delete;
    ~BorrowedContext() {
        if (context.get() != nullptr) {
            context->setImport(nullptr);
            context->setModuleID(0);
            context->setTypeDef(0);
            context->setMethodDef(0);
            context->setSuperToken(0);
        }
    }

private:
    AutoPointer<IMetaDataContext>& context;
};

// Tokens asked for at once while a module is scanned.
constexpr ULONG kTypeBatch = 1024;
constexpr ULONG kMethodBatch = 512;
// How many rows ahead a scan of method names asks for a name.
constexpr ULONG kNamesAhead = 16;

// Every token that an enumeration of the import lists, batch by batch:
// enumerate fills a batch, and visit takes each token and gives the running
// status. listed counts the tokens of all batches.
template <ULONG Batch, typename Enumerate, typename Visit>
HRESULT forEachListed(IMetaDataImport* import, Enumerate enumerate, ULONG& listed, Visit visit) {
    HCORENUM handle = nullptr;
    mdToken tokens[Batch];
    ULONG count = Batch;
    HRESULT hr = S_OK;
    while (SUCCEEDED(hr) && count == Batch) {
        count = 0;
        hr = enumerate(&handle, tokens, Batch, &count);
        if (SUCCEEDED(hr)) listed += count;
        for (ULONG i = 0; SUCCEEDED(hr) && i < count; ++i) hr = visit(tokens[i]);
    }
    if (handle != nullptr) import->CloseEnum(handle);
    return hr;
}

}  // namespace

void DirectiveController::getMonitoredMethodsForModule(IProfilerController* controller, ICorProfilerInfo* info,
                                                       ModuleID module, std::set<mdMethodDef>& methods, bool logged) {
    FILE* log = logged ? this->log : nullptr;
    // Shared by every scan of the process, never reset.
    static uint64_t cumulativeMs = 0;
    static uint64_t cumulativeTypes = 0;
    static uint64_t cumulativeMethods = 0;
    static uint64_t cumulativeMatched = 0;

    const int64_t started = Performance::GetTimeInMillis();
    unsigned int typeCount = 0;
    unsigned int methodCount = 0;
    const BorrowedContext borrowed(scanContext);
    if (info != nullptr && scanContext.get() == nullptr) scanContext = IMetaDataContext::newInstance(info);
    IMetaDataContext* context = info != nullptr ? scanContext.get() : nullptr;
    HRESULT hr = context != nullptr ? context->setModuleID(module) : E_INVALIDARG;

    if (SUCCEEDED(hr) && !skips.skipAssembly(context)) {
        AutoCOMPointer<ICorProfilerInfo2> info2;
        hr = info->QueryInterface(IID_ICorProfilerInfo2, reinterpret_cast<void**>(&info2));
        MatchContext match(info, module);
        if (SUCCEEDED(hr)) {
            hr = match.getStatus();
        }
        if (SUCCEEDED(hr)) {
            hr = context->setImport(match.getImport());
        }
        char16_t* moduleAssembly = nullptr;
        if (SUCCEEDED(hr)) {
            hr = context->getAssemblyName(&moduleAssembly);
        }
        // A scan that logs names every class it visits, with every live group.
        // One that logs nothing passes over the groups that cannot select in
        // the assembly, and meets the general groups by method name where the
        // scope's table can be read.
        const DirectiveGroupIndex& index = groupIndex();
        if (SUCCEEDED(hr)) {
            match.selectGroups(index.general(), log == nullptr ? moduleAssembly : nullptr);
        }
        const bool logClasses = controller != nullptr && controller->shouldLogUninstrumentedMethods() == 0;
        MethodNameRows rows(log == nullptr ? match.getImport() : nullptr);
        if (SUCCEEDED(hr) && rows.usable()) {
            hr = scanMethodNames(context, match, rows, methods, methodCount);
        }
        // The groups filed under class names are met class by class.
        if (SUCCEEDED(hr) && (!rows.usable() || !index.empty())) {
            hr = scanTypes(context, match, rows.usable() ? Meeting::Filed : Meeting::All, log, logClasses, methods,
                           typeCount, methodCount);
        }
        cumulativeTypes += typeCount;
        cumulativeMethods += methodCount;
        cumulativeMatched += methods.size();
    }

    const int64_t elapsed = Performance::GetTimeInMillis() - started;
    cumulativeMs += static_cast<uint64_t>(elapsed);
    // Only a logged scan names its assembly.
    char16_t* assembly = nullptr;
    if (SUCCEEDED(hr) && log != nullptr && SUCCEEDED(context->getAssemblyName(&assembly))) {
        fprintf_u16(log, u"[%s] (%llu/%llu)ms to process (%u/%u) types and (%u/%u) methods. Matched: (%u/%u)\n",
                    assembly, static_cast<unsigned long long>(elapsed), static_cast<unsigned long long>(cumulativeMs),
                    typeCount, static_cast<unsigned int>(cumulativeTypes), methodCount,
                    static_cast<unsigned int>(cumulativeMethods), static_cast<unsigned int>(methods.size()),
                    static_cast<unsigned int>(cumulativeMatched));
        fflush(log);
    }
}

HRESULT DirectiveController::scanTypes(IMetaDataContext* context, MatchContext& match, Meeting meeting, FILE* log,
                                       bool logClasses, std::set<mdMethodDef>& methods, unsigned int& typeCount,
                                       unsigned int& methodCount) {
    IMetaDataImport* import = match.getImport();
    // A scan that meets only the groups filed under class names passes over
    // a class that none of their names may agree with, its name read straight
    // from the type table: most classes of a module. Parents filed by name
    // would need the class's parents.
    const DirectiveGroupIndex& index = groupIndex();
    char16_t* assembly = nullptr;
    const bool passOver = meeting == Meeting::Filed && log == nullptr && !index.filesParents() &&
                          SUCCEEDED(context->getAssemblyName(&assembly));
    const TypeNameRows rows(passOver ? import : nullptr);
    char16_t name[IMetaDataContext::kNameSize];
    ULONG listed = 0;
    const HRESULT hr = forEachListed<kTypeBatch>(
        import,
        [&](HCORENUM* handle, mdToken* types, ULONG size, ULONG* count) {
            return import->EnumTypeDefs(handle, types, size, count);
        },
        listed,
        [&](mdTypeDef type) {
            if (passOver && rows.plainName(type, name, IMetaDataContext::kNameSize) &&
                !index.mayFileClass(assembly, name)) {
                return S_OK;
            }
            return scanType(context, match, type, meeting, log, logClasses, methods, methodCount);
        });
    typeCount += listed;
    return hr;
}

HRESULT DirectiveController::matchClass(IMetaDataContext* context, MatchContext& match, mdTypeDef type, Meeting meeting,
                                        FILE* log, bool logClasses, std::vector<IDirectiveGroup*>& matched,
                                        std::vector<const DirectiveGroupIndex::NameRun*>* runs) {
    matched.clear();
    if (runs != nullptr) runs->clear();
    IMetaDataImport* import = match.getImport();
    DWORD flags = 0;
    mdToken extends = mdTokenNil;
    HRESULT hr = import->GetTypeDefProps(type, nullptr, 0, nullptr, &flags, &extends);
    if (FAILED(hr) || (flags & tdInterface) != 0) {
        return hr;
    }
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    hr = context->setTypeDef(type);
    if (SUCCEEDED(hr)) {
        hr = context->setSuperToken(extends);
    }
    if (SUCCEEDED(hr)) {
        hr = context->getClassName(&assembly, &className);
    }
    if (SUCCEEDED(hr) && logClasses && log != nullptr) {
        fprintf_u16(log, u"Processing class on load: [%s]%s typeDef:0x%x\n", assembly, className, type);
        fflush(log);
    }
    if (FAILED(hr) || skips.skipClass(context)) {
        return hr;
    }
    if (meeting == Meeting::General) {
        for (IDirectiveGroup* group : match.getGroups()) {
            if (group->matchClass(context)) {
                matched.push_back(group);
            }
        }
        return hr;
    }
    DirectiveGroupIndex::Candidates candidates;
    std::vector<const char16_t*> names;
    const DirectiveGroupIndex& index = groupIndex();
    index.candidates(assembly, className, parentsOf(context, index), candidates, meeting == Meeting::All, &names, runs);
    FiledAnswers answers;
    const auto takes = [&](IDirectiveGroup* group) { return match.accepts(group) && group->matchClass(context); };
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (answers.answer(candidates[i], names[i], takes)) {
            matched.push_back(candidates[i]);
        }
    }
    // A run's groups differ in their method alone.
    if (runs != nullptr) {
        std::erase_if(*runs, [&](const DirectiveGroupIndex::NameRun* run) { return !takes(run->sample); });
    }
    return hr;
}

HRESULT DirectiveController::scanType(IMetaDataContext* context, MatchContext& match, mdTypeDef type, Meeting meeting,
                                      FILE* log, bool logClasses, std::set<mdMethodDef>& methods,
                                      unsigned int& methodCount) {
    std::vector<IDirectiveGroup*> matched;
    // A logged scan names each group that selects a method.
    std::vector<const DirectiveGroupIndex::NameRun*> runs;
    HRESULT hr = matchClass(context, match, type, meeting, log, logClasses, matched, log == nullptr ? &runs : nullptr);
    std::vector<mdMethodDef> concrete;
    if (SUCCEEDED(hr) && (!matched.empty() || !runs.empty())) {
        ULONG listed = 0;
        hr = listConcreteMethods(match.getImport(), type, concrete, listed);
        // Counted as often as a group looks at them.
        size_t groups = matched.size();
        for (const DirectiveGroupIndex::NameRun* run : runs) groups += run->groups;
        methodCount += listed * static_cast<unsigned int>(groups);
    }
    if (log == nullptr) {
        // Each method is met by all the groups at once: its name is read once.
        // Groups that name one method each answer by that name alone, so a
        // class that thousands of one-method lines name is met by the few
        // names they have between them.
        std::vector<IDirectiveGroup*> others;
        std::vector<const char16_t*> soleNames;
        splitBySoleMethod(matched, runs, others, soleNames);
        for (auto method = concrete.begin(); SUCCEEDED(hr) && method != concrete.end(); ++method) {
            hr = context->setMethodDef(*method);
            bool selected = false;
            for (auto group = others.begin(); SUCCEEDED(hr) && !selected && group != others.end(); ++group) {
                selected = (*group)->matchMethod(context);
            }
            char16_t* name = nullptr;
            if (SUCCEEDED(hr) && !selected && !soleNames.empty() && SUCCEEDED(context->getMethodName(&name))) {
                selected = std::any_of(soleNames.begin(), soleNames.end(),
                                       [&](const char16_t* sole) { return WCharSet::agrees(sole, name); });
            }
            if (selected) methods.insert(*method);
        }
        return hr;
    }
    // A logged scan names what each group selects, group by group.
    for (auto group = matched.begin(); SUCCEEDED(hr) && group != matched.end(); ++group) {
        for (auto method = concrete.begin(); SUCCEEDED(hr) && method != concrete.end(); ++method) {
            hr = context->setMethodDef(*method);
            if (FAILED(hr) || !(*group)->matchMethod(context)) {
                continue;
            }
            methods.insert(*method);
            char16_t* assembly = nullptr;
            char16_t* className = nullptr;
            char16_t* name = nullptr;
            hr = context->getMethodName(&name);
            if (SUCCEEDED(hr)) {
                hr = context->getClassName(&assembly, &className);
            }
            if (SUCCEEDED(hr)) {
                fprintf_u16(log, u"Matched method [%s]%s::%s (%s) mdef:0x%x\n", assembly, className, name,
                            (*group)->getName(), *method);
                fflush(log);
            }
        }
    }
    return hr;
}

void DirectiveController::splitBySoleMethod(const std::vector<IDirectiveGroup*>& groups,
                                            const std::vector<const DirectiveGroupIndex::NameRun*>& runs,
                                            std::vector<IDirectiveGroup*>& others,
                                            std::vector<const char16_t*>& soleNames) {
    std::unordered_set<std::u16string_view> seen;
    const auto add = [&](const char16_t* sole) {
        if (seen.insert(sole).second) soleNames.push_back(sole);
    };
    for (IDirectiveGroup* group : groups) {
        if (const char16_t* sole = group->soleMethod()) {
            add(sole);
        } else {
            others.push_back(group);
        }
    }
    for (const DirectiveGroupIndex::NameRun* run : runs) {
        for (const DirectiveGroupIndex::MethodPlaces& method : std::span(run->methods, run->count)) add(method.name);
    }
}

HRESULT DirectiveController::listConcreteMethods(IMetaDataImport* import, mdTypeDef type,
                                                 std::vector<mdMethodDef>& concrete, ULONG& listed) {
    return forEachListed<kMethodBatch>(
        import,
        [&](HCORENUM* handle, mdToken* methods, ULONG size, ULONG* count) {
            return import->EnumMethods(handle, type, methods, size, count);
        },
        listed,
        [&](mdMethodDef method) {
            DWORD attributes = 0;
            const HRESULT hr = import->GetMethodProps(method, nullptr, nullptr, 0, nullptr, &attributes, nullptr,
                                                      nullptr, nullptr, nullptr);
            if (SUCCEEDED(hr) && (attributes & mdAbstract) == 0) {
                concrete.push_back(method);
            }
            return hr;
        });
}

HRESULT DirectiveController::scanMethodNames(IMetaDataContext* context, MatchContext& match, MethodNameRows& rows,
                                             std::set<mdMethodDef>& methods, unsigned int& methodCount) {
    char16_t name[IMetaDataContext::kNameSize];
    mdTypeDef visited = mdTypeDefNil;
    std::vector<IDirectiveGroup*> matched;
    HRESULT hr = S_OK;
    // A class's methods stand together in the table.
    for (ULONG row = 1; SUCCEEDED(hr) && row <= rows.count() && !match.getGroups().empty(); ++row) {
        rows.prefetchName(row + kNamesAhead);
        ++methodCount;
        const ULONG index = rows.nameIndex(row);
        const char* text = rows.text(index);
        if (text != nullptr && text[0] != 0 && !match.mayStartWith(static_cast<unsigned char>(text[0]))) {
            continue;
        }
        hr = rows.name(row, index, name, IMetaDataContext::kNameSize);
        if (FAILED(hr) || !match.mayMatchName(name)) {
            continue;
        }
        const mdMethodDef method = TokenFromRid(row, mdtMethodDef);
        mdTypeDef type = mdTypeDefNil;
        DWORD attributes = 0;
        hr = rows.ownerAndFlags(row, &type, &attributes);
        // The module's global functions belong to no class the scan by type
        // visits.
        if (FAILED(hr) || (attributes & mdAbstract) != 0 || RidFromToken(type) <= 1) {
            continue;
        }
        if (type != visited) {
            visited = type;
            hr = matchClass(context, match, type, Meeting::General, nullptr, false, matched);
        }
        if (SUCCEEDED(hr) && !matched.empty()) {
            hr = context->setMethod(method, name);
        }
        for (auto group = matched.begin(); SUCCEEDED(hr) && group != matched.end(); ++group) {
            if ((*group)->matchMethod(context)) {
                methods.insert(method);
                break;
            }
        }
    }
    return hr;
}
