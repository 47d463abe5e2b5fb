#include "PolicyFixture.h"

#include "runtime/CorErrors.h"

void PolicyFixture::forEachMethod(ModuleID where, const std::function<void(IMetaDataContext*)>& visit) {
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

std::string PolicyFixture::contents(FILE* stream) {
    fflush(stream);
    rewind(stream);
    std::string text;
    char buffer[4096];
    size_t read = 0;
    while ((read = fread(buffer, 1, sizeof buffer, stream)) > 0) {
        text.append(buffer, read);
    }
    return text;
}
