// Real assemblies for the tests: the installed framework's and the ones built
// from tests/assets, opened through the hosted runtime's dispenser, with small
// lookups of tokens by name.
#pragma once

#include <initializer_list>
#include <span>
#include <string>

#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class RealAssemblies {
public:
    // Paths. A test asset <name> is tests/assets/<name> built to
    // test-assets/<name>/<name>.dll.
    static std::string coreLibPath();
    static std::string frameworkAssembly(const std::string& fileName);
    static std::string aspNetCoreAssembly(const std::string& fileName);
    static std::string testAsset(const std::string& name);

    // Opens a scope for reading; null if the runtime cannot.
    static AutoCOMPointer<IMetaDataImport> open(const std::string& path);

    // A type by its full metadata name ("N.C`1"), nested in enclosing if given;
    // 0 if absent.
    static mdTypeDef findType(IMetaDataImport* import, const char16_t* name, mdTypeDef enclosing = 0);
    // The type at the end of a path of nested names, from the top-level type in.
    static mdTypeDef findNestedType(IMetaDataImport* import, std::initializer_list<const char16_t*> path);
    // The first method of that name in the type, or the first with that many
    // parameters; 0 if there is none.
    static mdMethodDef findMethod(IMetaDataImport* import, mdTypeDef type, const char16_t* name, int parameters = -1);
    // The signature of a method definition; empty if it has none.
    static std::span<const unsigned char> signatureOf(IMetaDataImport* import, mdMethodDef method);
    // The name of a method definition or member reference.
    static std::string nameOf(IMetaDataImport* import, mdToken member);
    // A type reference by scope and name; 0 if absent.
    static mdTypeRef findTypeRef(IMetaDataImport* import, const char16_t* name);

    static std::u16string widen(const std::string& text);
    static std::string narrow(const char16_t* text);
};
