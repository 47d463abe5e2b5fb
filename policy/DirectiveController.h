// The directive controller.
#pragma once

#include "platform/AutoPointer.h"
#include "policy/ClassMethodFilter.h"
#include "policy/DirectiveMatchingCache.h"
#include "policy/IDirectiveController.h"
#include "policy/MatchContext.h"

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
    DirectiveGroupMap& getGroups() { return groups; }
    FILE* getLog() const { return log; }
    DirectiveMatchingCache& getCache() { return *cache; }

private:
    // The scan of one type definition: each live group whose class test passes
    // adds the methods it selects, named in log if it is not null. Returns the
    // running status.
    [[nodiscard]] HRESULT scanType(IMetaDataContext* context, MatchContext& match, mdTypeDef type, FILE* log,
                                   bool logClasses, std::set<mdMethodDef>& methods, unsigned int& methodCount);
    // The groups whose class test passes for the type; none for an interface
    // or a skipped class. The class is named in log when logClasses is set.
    [[nodiscard]] HRESULT matchClass(IMetaDataContext* context, MatchContext& match, mdTypeDef type, FILE* log,
                                     bool logClasses, std::vector<IDirectiveGroup*>& matched);
    // The same selection as the scan by type, found by walking the method
    // table: a method whose name no group can take is passed over before its
    // class is looked at.
    [[nodiscard]] HRESULT scanMethodNames(IMetaDataContext* context, MatchContext& match, MethodNameRows& rows,
                                          std::set<mdMethodDef>& methods, unsigned int& methodCount);

    FILE* log;
    ClassMethodFilter skips;
    ClassMethodFilter dynamicInstrumentationSkips;
    DirectiveGroupMap groups;
    int anonymousCount = 0;
    AutoPointer<DirectiveMatchingCache> cache;
};
