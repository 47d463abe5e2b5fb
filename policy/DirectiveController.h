// The directive controller.
#pragma once

#include <map>
#include <string_view>

#include "platform/AutoPointer.h"
#include "policy/ClassLineGroups.h"
#include "policy/ClassMethodFilter.h"
#include "policy/DirectiveGroupIndex.h"
#include "policy/DirectiveKeywords.h"
#include "policy/DirectiveMatchingCache.h"
#include "policy/IDirectiveController.h"
#include "policy/MatchContext.h"
#include "policy/MatchingDirectiveGroup.h"
#include "policy/TextArena.h"

class MethodNameRows;

class DirectiveController : public IDirectiveController {
public:
    // Classes remembered by the match cache unless configured otherwise.
    static constexpr int kDefaultCacheSize = 5000;

    explicit DirectiveController(FILE* log);
    DirectiveController(const DirectiveController&) = delete;
    DirectiveController& operator=(const DirectiveController&) = delete;
    ~DirectiveController() override;

    IClassMethodFilter* getSkips() override { return &skips; }
    ClassMethodFilter& getSkipFilter() { return skips; }
    IDirectiveGroup* getDirectiveGroup(const char16_t* name) override;
    IDirectiveGroup* addDirectiveGroup(const char16_t* name) override;
    IDirectiveMatchResult* shouldMonitorResult(IMetaDataContext* context) override;
    bool shouldMonitor(IMetaDataContext* context) override;
    void getMonitoredMethodsForModule(IProfilerController* controller, ICorProfilerInfo* info, ModuleID module,
                                      std::set<mdMethodDef>& methods, bool logged) override;
    HRESULT readDirectives(FILE* stream) override;
    HRESULT readDirective(char16_t* line) override;
    void setCacheSize(int size) override { cache->setCacheSize(size); }
    void clearCache() override { cache->clear(); }
    IClassMethodFilter* getDynamicInstrumentationSkips() override { return &dynamicInstrumentationSkips; }

    // A new group "Anonymous_<n>", active and created; null if it cannot be had.
    IDirectiveGroup* addAnonymousDirectiveGroup();
    // The same as a compact group with a rule for the class and one for the
    // method (empty: all methods), as a line that names both makes it; null
    // where the group must be a full one: its name is taken, or the class blank
    // or very long.
    ClassLineGroup* addClassLineGroup(std::u16string_view className, std::u16string_view method);
    // Every group, in the order in which they are asked.
    const DirectiveGroupIndex::Candidates& allGroups() { return groupIndex().all(); }
    // The index of the groups as they are now.
    const DirectiveGroupIndex& groupIndex();
    // The groups that can meet the class in hand, with their places, in the
    // order of their names; one-line groups of a name's run come as the run.
    void candidateRunsFor(IMetaDataContext* context, std::vector<DirectiveGroupIndex::Placed>& groups,
                          std::vector<const DirectiveGroupIndex::NameRun*>& runs);
    FILE* getLog() const { return log; }
    DirectiveMatchingCache& getCache() { return *cache; }

private:
    // What a line taken apart says, done; E_FAIL where memory ran out.
    HRESULT applyDirective(const DirectiveLine& parsed);
    // The groups a module scan meets a class with: the general groups the
    // scan selected, the groups filed under the class's names, or both.
    enum class Meeting { General, Filed, All };

    // The named groups and the class-line groups, merged in the order of names.
    DirectiveGroupIndex::Candidates groupsInOrder();
    // The class's base class and declared interfaces, as a class test reads
    // them, where the index files groups by parent names.
    static DirectiveGroupIndex::Parents parentsOf(IMetaDataContext* context, const DirectiveGroupIndex& index);

    // The module scan (DirectiveControllerScan.cpp).
    // The groups, met as said, whose class test passes for the type; none for
    // an interface or a skipped class. The class is named in log when
    // logClasses is set. With runs, filed groups of runs come as the runs
    // that pass, each tested once.
    [[nodiscard]] HRESULT matchClass(IMetaDataContext* context, MatchContext& match, mdTypeDef type, Meeting meeting,
                                     FILE* log, bool logClasses, std::vector<IDirectiveGroup*>& matched,
                                     std::vector<const DirectiveGroupIndex::NameRun*>* runs = nullptr);
    // Every type definition of the module, each adding what the groups that
    // meet it select, named in log if it is not null.
    [[nodiscard]] HRESULT scanTypes(IMetaDataContext* context, MatchContext& match, Meeting meeting, FILE* log,
                                    bool logClasses, std::set<mdMethodDef>& methods, unsigned int& typeCount,
                                    unsigned int& methodCount);
    [[nodiscard]] HRESULT scanType(IMetaDataContext* context, MatchContext& match, mdTypeDef type, Meeting meeting,
                                   FILE* log, bool logClasses, std::set<mdMethodDef>& methods,
                                   unsigned int& methodCount);
    // The groups that select one method by name and the runs' methods, as
    // their distinct names, and the other groups.
    static void splitBySoleMethod(const std::vector<IDirectiveGroup*>& groups,
                                  const std::vector<const DirectiveGroupIndex::NameRun*>& runs,
                                  std::vector<IDirectiveGroup*>& others, std::vector<const char16_t*>& soleNames);
    // The type's methods that have a body, and how many it has in all.
    [[nodiscard]] static HRESULT listConcreteMethods(IMetaDataImport* import, mdTypeDef type,
                                                     std::vector<mdMethodDef>& concrete, ULONG& listed);
    // What the general groups select, found by walking the method table: a
    // method whose name no group can take is passed over before its class is
    // looked at.
    [[nodiscard]] HRESULT scanMethodNames(IMetaDataContext* context, MatchContext& match, MethodNameRows& rows,
                                          std::set<mdMethodDef>& methods, unsigned int& methodCount);

    FILE* log;
    ClassMethodFilter skips;
    ClassMethodFilter dynamicInstrumentationSkips;
    // Groups by name, in ascending order of code units: the order in which
    // they are asked. Each lives in its map entry, its name in the arena: a
    // generated file makes them by the hundred thousand, most files a few.
    std::map<std::u16string_view, MatchingDirectiveGroup, CodeUnitOrder> groups;
    TextArena groupNames{512};
    // Kept apart from the map, but for a name that the map already holds.
    ClassLineGroups lineGroups;
    int anonymousCount = 0;
    // Whether a named group has a name of the anonymous groups' form.
    bool anonymousNamesTaken = false;
    // The keyword of the last line read, with its number of arguments, and
    // the entry that they found.
    struct {
        std::u16string text;
        int count = -1;
        const DirectiveKeywords::Keyword* found = nullptr;
    } lastKeyword;
    AutoPointer<DirectiveMatchingCache> cache;
    DirectiveGroupIndex index;
    bool indexStale = true;
    // One context serves the module scans one after another, as they run
    // under the caller's serialisation: a context is large (its name
    // buffers), and one made and freed at every module load faults its pages
    // in again each time.
    AutoPointer<IMetaDataContext> scanContext;
};
