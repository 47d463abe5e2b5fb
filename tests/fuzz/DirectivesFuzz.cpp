// A directive file of any content, read, filed and asked about methods whose
// names come from the file's own words, so that its lines can match them.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "metadata/IMetaDataContext.h"
#include "policy/IDirectiveController.h"

namespace {

// A method of a class of an assembly, by name alone: no parents, interfaces
// or attributes.
class NamedMethod final : public IMetaDataContext {
public:
    std::u16string assembly, className, method;
    ClassID classId = 0;

    HRESULT setFunction(FunctionID) override { return E_NOTIMPL; }
    HRESULT setModuleMethod(ModuleID, mdMethodDef) override { return E_NOTIMPL; }
    IMetaDataImport* getImport() override { return nullptr; }
    ICorProfilerInfo* getInfo() override { return nullptr; }
    FunctionID getFunctionID() override { return 0; }
    unsigned int getMethodID() override { return 0; }
    ModuleID getModuleID() override { return 1; }
    ClassID getClassID() override { return classId; }
    mdTypeDef getTypeDef() override { return 0x02000002; }
    mdMethodDef getMethodDef() override { return 0x06000001; }
    mdToken getSuperToken() override { return 0; }
    bool isInstanceTypeInitializer() override { return false; }
    HRESULT setImport(IMetaDataImport*) override { return E_NOTIMPL; }
    HRESULT setModuleID(ModuleID) override { return E_NOTIMPL; }
    HRESULT setMethodDef(mdMethodDef) override { return E_NOTIMPL; }
    HRESULT setMethod(mdMethodDef, const char16_t*) override { return E_NOTIMPL; }
    HRESULT setTypeDef(mdTypeDef) override { return E_NOTIMPL; }
    HRESULT setSuperToken(mdToken) override { return E_NOTIMPL; }
    void forgetModule(ModuleID) override {}
    HRESULT getAssemblyName(char16_t** name) override { return give(assembly, name); }
    HRESULT getClassName(char16_t** inAssembly, char16_t** name) override {
        if (inAssembly != nullptr) *inAssembly = assembly.data();
        return give(className, name);
    }
    HRESULT getMethodName(char16_t** name) override { return give(method, name); }
    HRESULT getParentName(char16_t**, char16_t**) override { return E_FAIL; }
    HRESULT getInterfaces(char16_t***, char16_t***, unsigned int* count) override { return none(count); }
    HRESULT getMethodAttributes(char16_t***, char16_t***, unsigned int* count) override { return none(count); }
    HRESULT getClassAttributes(char16_t***, char16_t***, unsigned int* count) override { return none(count); }
    HRESULT getClassName(unsigned int, char16_t*, char16_t*, unsigned int) override { return E_FAIL; }

private:
    static HRESULT give(std::u16string& text, char16_t** name) {
        *name = text.data();
        return S_OK;
    }
    static HRESULT none(unsigned int* count) {
        *count = 0;
        return S_OK;
    }
};

// Eight of the file's words, spread over it, bytes widened to code units.
std::vector<std::u16string> wordsOf(const uint8_t* data, size_t size) {
    std::vector<std::u16string> all(1);
    for (size_t at = 0; at < size; ++at) {
        const char byte = static_cast<char>(data[at]);
        if (byte != ' ' && byte != ':' && byte != '\n' && byte != '\r' && byte != '\t') {
            all.back() += static_cast<char16_t>(data[at]);
        } else if (!all.back().empty()) {
            all.emplace_back();
        }
    }
    std::vector<std::u16string> words;
    for (size_t each = 0; each < 8 && each < all.size(); ++each) words.push_back(all[each * all.size() / 8]);
    return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static FILE* log = fopen("/dev/null", "w");
    FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (stream == nullptr) return 0;
    std::unique_ptr<IDirectiveController> directives(IDirectiveController::newInstance(log));
    if (directives != nullptr) {
        // What a refused line left stands, and is asked too. Each class twice
        // with its own id (the second answer comes from the match cache) and
        // once without one, as shared generic code is asked.
        (void)directives->readDirectives(stream);
        const std::vector<std::u16string> words = wordsOf(data, size);
        NamedMethod method;
        for (size_t each = 0; each < words.size() * words.size(); ++each) {
            method.className = words[each % words.size()];
            method.method = words[each / words.size()];
            method.assembly = words[(each + 1) % words.size()];
            for (const ClassID id : {ClassID{each % words.size() + 1}, ClassID{each % words.size() + 1}, ClassID{0}}) {
                method.classId = id;
                (void)directives->shouldMonitor(&method);
            }
        }
    }
    fclose(stream);
    return 0;
}
