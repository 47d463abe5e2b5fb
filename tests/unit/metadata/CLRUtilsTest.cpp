#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>

#include "metadata/CLRUtils.h"
#include "runtime/CorErrors.h"
#include "offline/HostedRuntime.h"
#include "support/ProfilerInfoDouble.h"
#include "support/RealAssemblies.h"

namespace {

using Text = std::basic_string<char16_t>;

class CLRUtilsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(HostedRuntime::instance().ready()) << HostedRuntime::instance().error();
        info = ProfilerInfoDouble::newInstance();
    }

    std::string managedPath(std::initializer_list<const char*> args, bool& found) {
        std::vector<Text> wide;
        for (const char* arg : args) {
            wide.push_back(RealAssemblies::widen(arg));
        }
        Text path = u"untouched";
        found = CLRUtils::GetManagedModulePath(info, wide, path);
        return RealAssemblies::narrow(path.c_str());
    }

    // Name and owner of a method, straight from the metadata.
    std::pair<std::string, std::string> describe(IMetaDataImport* import, mdMethodDef method) {
        char16_t name[1024] = {0};
        char16_t owner[1024] = {0};
        mdTypeDef type = 0;
        ULONG length = 0;
        EXPECT_EQ(import->GetMethodProps(method, &type, name, 1024, &length, nullptr, nullptr, nullptr, nullptr,
                                         nullptr),
                  S_OK);
        EXPECT_EQ(import->GetTypeDefProps(type, owner, 1024, &length, nullptr, nullptr), S_OK);
        return {RealAssemblies::narrow(owner), RealAssemblies::narrow(name)};
    }

    // Non-abstract methods of exactly that name in the type.
    unsigned int overloads(IMetaDataImport* import, const char16_t* type, const char16_t* method) {
        mdTypeDef typeDef = RealAssemblies::findType(import, type);
        HCORENUM enumerator = nullptr;
        mdMethodDef methods[64];
        ULONG count = 0;
        unsigned int concrete = 0;
        import->EnumMethodsWithName(&enumerator, typeDef, method, methods, 64, &count);
        import->CloseEnum(enumerator);
        for (ULONG i = 0; i < count; ++i) {
            DWORD attributes = 0;
            import->GetMethodProps(methods[i], nullptr, nullptr, 0, nullptr, &attributes, nullptr, nullptr, nullptr,
                                   nullptr);
            concrete += (attributes & mdAbstract) == 0 ? 1 : 0;
        }
        return concrete;
    }

    AutoCOMPointer<ProfilerInfoDouble> info;
};

}  // namespace

TEST_F(CLRUtilsTest, RuntimeKindAndVersionOfThisInstallation) {
    EXPECT_TRUE(CLRUtils::IsDotnetCore(info));
    info->setRuntimeType(COR_PRF_DESKTOP_CLR);
    EXPECT_FALSE(CLRUtils::IsDotnetCore(info));

    // The hosted runtime's library is mapped into this process.
    int expected[3] = {-1, -1, -1};
    std::string folder = std::filesystem::path(HostedRuntime::instance().frameworkDir()).parent_path().filename();
    ASSERT_EQ(sscanf(folder.c_str(), "%d.%d.%d", &expected[0], &expected[1], &expected[2]), 3) << folder;
    int major = -1, minor = -1, patch = -1;
    ASSERT_TRUE(CLRUtils::GetCoreCLRVersion(major, minor, patch));
    EXPECT_EQ(major, expected[0]);
    EXPECT_EQ(minor, expected[1]);
    EXPECT_EQ(patch, expected[2]);

    // Versions read from a path: -1 where none is found, and nothing written then.
    const std::pair<Text, int> paths[] = {
        {u"/opt/dotnet/6.0.1/libcoreclr.so", 60001}, {u"/d/5.0.0-preview.1/libcoreclr.so", 50000},
        {u"/opt/master/libcoreclr.so", -1},          {u"/opt/6.0/libcoreclr.so", -1},
        {u"/libcoreclr.so", -1},                     {u"libcoreclr.so", -1},
        {u"/x/" + Text(200, u'9') + u"/libcoreclr.so", -1},
    };
    for (const auto& [path, version] : paths) {
        major = minor = patch = -1;
        EXPECT_EQ(CLRUtils::GetCoreCLRVersionFromPath(path, major, minor, patch), version >= 0)
            << RealAssemblies::narrow(path.c_str());
        EXPECT_EQ(version >= 0 ? major * 10000 + minor * 100 + patch : major, version)
            << RealAssemblies::narrow(path.c_str());
    }
}

TEST_F(CLRUtilsTest, ManagedProgramFromTheCommandLine) {
    struct Case {
        std::initializer_list<const char*> args;
        const char* path;
    };
    const Case cases[] = {
        {{"/usr/bin/dotnet", "app.dll", "arg"}, "app.dll"},
        {{"dotnet", "exec", "foo.dll"}, "foo.dll"},
        {{"dotnet", "run"}, "run"},
        {{"dotnet", "build", "x.dll.txt"}, nullptr},
        {{"/x/not-mapped-anywhere"}, nullptr},
    };
    bool found = false;
    for (const Case& c : cases) {
        EXPECT_EQ(managedPath(c.args, found), c.path != nullptr ? c.path : "untouched") << *c.args.begin();
        EXPECT_EQ(found, c.path != nullptr) << *c.args.begin();
    }

    // An application host: this test program plays it, being mapped.
    std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string name = std::filesystem::path(self).filename().string();
    EXPECT_EQ(managedPath({("/elsewhere/" + name).c_str(), "arg"}, found), self + ".dll");
    EXPECT_TRUE(found);
    Text real;
    ASSERT_TRUE(CLRUtils::GetManagedModulePath(info, real));
    EXPECT_EQ(RealAssemblies::narrow(real.c_str()), self + ".dll");

    // Not CoreCLR: the host's own mapping.
    info->setRuntimeType(COR_PRF_DESKTOP_CLR);
    EXPECT_EQ(managedPath({name.c_str()}, found), self);
    EXPECT_TRUE(found);
}

TEST_F(CLRUtilsTest, NamespaceReferencesOfAssemblyFiles) {
    auto references = [&](const std::string& path, const char16_t* nameSpace) {
        return CLRUtils::AssemblyReferencesNamespace(info, RealAssemblies::widen(path), nameSpace);
    };
    std::string mvc = RealAssemblies::aspNetCoreAssembly("Microsoft.AspNetCore.Mvc.Core.dll");
    std::string console = RealAssemblies::testAsset("ConsoleHello");
    ASSERT_TRUE(std::filesystem::exists(mvc)) << mvc;
    EXPECT_TRUE(references(mvc, u"Microsoft.AspNetCore.Http"));
    EXPECT_FALSE(references(console, u"Microsoft.AspNetCore"));
    // A prefix test: "System.Consol" is found in "System.Console".
    EXPECT_TRUE(references(console, u"System.Consol"));
    EXPECT_TRUE(references(console, u"System.Console"));
    EXPECT_FALSE(references(console + ".missing", u"System"));
}

TEST_F(CLRUtilsTest, MethodTokensOfTheCoreLibrary) {
    ModuleID coreLib = info->addModule(RealAssemblies::coreLibPath());
    ASSERT_NE(coreLib, 0u);
    IMetaDataImport* import = info->importOf(coreLib);

    mdMethodDef invoke = CLRUtils::GetMethodDefTokenFromModule(info, coreLib, u"System.Threading.Tasks.Task",
                                                               u"InnerInvoke");
    ASSERT_NE(invoke, 0u);
    EXPECT_EQ(describe(import, invoke), std::make_pair(std::string("System.Threading.Tasks.Task"),
                                                       std::string("InnerInvoke")));

    struct Search {
        const char16_t* type;
        const char16_t* method;
    };
    for (Search search : {Search{u"System.Threading.Monitor", u"Enter"}, Search{u"System.Threading.Thread", u"Sleep"}}) {
        unsigned int tokens[8];
        std::fill(std::begin(tokens), std::end(tokens), 0xFFFFFFFFu);
        unsigned int count = CLRUtils::GetMethodDefTokensFromModule(info, coreLib, search.type, search.method, tokens, 8);
        unsigned int expected = overloads(import, search.type, search.method);
        ASSERT_GT(expected, 1u) << RealAssemblies::narrow(search.method);
        EXPECT_EQ(count, expected);
        std::set<unsigned int> distinct;
        for (unsigned int i = 0; i < count; ++i) {
            EXPECT_EQ(describe(import, tokens[i]).second, RealAssemblies::narrow(search.method));
            EXPECT_EQ(describe(import, tokens[i]).first, RealAssemblies::narrow(search.type));
            distinct.insert(tokens[i]);
        }
        EXPECT_EQ(distinct.size(), count);
        for (unsigned int i = count; i < 8; ++i) {
            EXPECT_EQ(tokens[i], 0u);
        }
        // A short list stops at its limit.
        EXPECT_EQ(CLRUtils::GetMethodDefTokensFromModule(info, coreLib, search.type, search.method, tokens, 1), 1u);
        EXPECT_EQ(tokens[0], CLRUtils::GetMethodDefTokenFromModule(info, coreLib, search.type, search.method));
    }
    EXPECT_EQ(CLRUtils::GetMethodDefTokenFromModule(info, coreLib, u"System.Threading.Monitor", u"NoSuchMethod"), 0u);
}
