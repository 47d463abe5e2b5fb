#include "PolicyFixture.h"

#include <memory>

#include "runtime/CorErrors.h"

void PolicyFixture::forEachMethod(ModuleID where, const std::function<void(IMetaDataContext*)>& visit,
                                  bool withClassIds) {
    IMetaDataImport* import = info->importOf(where);
    ASSERT_NE(import, nullptr);
    ASSERT_EQ(context->setModuleID(where), S_OK);
    ASSERT_EQ(context->setImport(import), S_OK);
    context->classID = 0;
    HCORENUM types = nullptr;
    mdTypeDef type = 0;
    ULONG count = 0;
    while (import->EnumTypeDefs(&types, &type, 1, &count) == S_OK && count == 1) {
        DWORD flags = 0;
        mdToken extends = 0;
        ASSERT_EQ(import->GetTypeDefProps(type, nullptr, 0, nullptr, &flags, &extends), S_OK);
        ASSERT_EQ(context->setTypeDef(type), S_OK);
        ASSERT_EQ(context->setSuperToken(extends), S_OK);
        context->classID = withClassIds ? where + type : 0;
        HCORENUM methods = nullptr;
        mdMethodDef method = 0;
        while (import->EnumMethods(&methods, type, &method, 1, &count) == S_OK && count == 1) {
            ASSERT_EQ(context->setMethodDef(method), S_OK);
            visit(context.get());
        }
        import->CloseEnum(methods);
    }
    import->CloseEnum(types);
}

std::unique_ptr<IDirectiveController> PolicyFixture::directives(const std::string& text, HRESULT* status,
                                                                FILE* log) {
    std::unique_ptr<IDirectiveController> controller(IDirectiveController::newInstance(log));
    FILE* file = tmpfile();
    EXPECT_NE(file, nullptr);
    fwrite(text.data(), 1, text.size(), file);
    rewind(file);
    HRESULT result = controller->readDirectives(file);
    fclose(file);
    if (status != nullptr) {
        *status = result;
    }
    return controller;
}

namespace {

std::vector<std::string> names(int count, IDirectiveGroup* (IDirectiveMatchResult::*group)(int),
                               IDirectiveMatchResult& result) {
    std::vector<std::string> all;
    for (int i = 0; i < count; ++i) {
        all.push_back(RealAssemblies::narrow((result.*group)(i)->getName()));
    }
    return all;
}

}  // namespace

PolicyFixture::Account PolicyFixture::account(IDirectiveController& controller, IMetaDataContext* method) {
    std::unique_ptr<IDirectiveMatchResult> result(controller.shouldMonitorResult(method));
    Account account;
    account.skippedGlobally = result->isSkippedGlobally();
    account.skipped = names(result->getSkippedCount(), &IDirectiveMatchResult::getSkippedGroup, *result);
    account.matched = names(result->getMatchedCount(), &IDirectiveMatchResult::getMatchedGroup, *result);
    account.unmatched = names(result->getUnmatchedCount(), &IDirectiveMatchResult::getUnmatchedGroup, *result);
    return account;
}

bool PolicyFixture::selects(IDirectiveController& controller, IMetaDataContext* method) {
    auto* steered = static_cast<SteeredContext*>(method);
    ClassID classID = steered->classID;
    steered->classID = 0;
    bool answer = controller.shouldMonitor(method);
    steered->classID = classID;
    return answer;
}

HRESULT PolicyFixture::line(IDirectiveController& controller, const std::string& text) {
    std::u16string wide = RealAssemblies::widen(text);
    return controller.readDirective(wide.data());
}
