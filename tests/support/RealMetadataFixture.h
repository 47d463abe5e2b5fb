// The base of the suites that read real assemblies: the hosted runtime's
// metadata served through a profiler info double, and lookups of the types
// and methods a test names.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "offline/HostedRuntime.h"
#include "support/ProfilerInfoDouble.h"
#include "support/RealAssemblies.h"

class RealMetadataFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(HostedRuntime::instance().ready()) << HostedRuntime::instance().error();
        info = ProfilerInfoDouble::newInstance();
    }

    // The assembly at path as a module of its own, or a writable copy of it.
    ModuleID module(const std::string& path, bool writable = false) {
        const ModuleID id = writable ? info->addWritableModule(path) : info->addModule(path);
        EXPECT_NE(id, 0u) << "cannot open " << path;
        return id;
    }

    // A type by the path of nested names, from the top-level type in; 0 if absent.
    mdTypeDef typeIn(ModuleID where, std::initializer_list<const char16_t*> path) {
        return RealAssemblies::findNestedType(info->importOf(where), path);
    }

    mdMethodDef methodIn(ModuleID where, std::initializer_list<const char16_t*> path, const char16_t* method) {
        return RealAssemblies::findMethod(info->importOf(where), typeIn(where, path), method);
    }

    AutoCOMPointer<ProfilerInfoDouble> info;
};
