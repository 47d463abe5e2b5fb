// The failure cascade: after a failed step the later steps are skipped, the
// later failure lines are still logged, and nothing is applied.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ShimFixture.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80131130);

using SyntheticAgentShimFailureTest = ShimFixture;

// The heading of the methods dumped for a type when a lookup in it fails.
std::string dumpHeading(mdTypeDef type, const char* name) {
    char text[128];
    snprintf(text, sizeof(text), "Dumping methods for type: 0x%x with name: %s", type, name);
    return text;
}

TEST_F(SyntheticAgentShimFailureTest, MetadataThatCannotBeOpenedLogsTheWholeCascade) {
    info->metaDataResult = E_FAIL;
    EXPECT_EQ(define(true, false), E_FAIL);

    EXPECT_EQ(logText, "Failed to allocate COM ptrs\nFailed to find corlib types\nFailed to create delegate fields\n");
    EXPECT_EQ(info->calls("GetModuleMetaData"), 1);
    EXPECT_EQ(info->calls("SetILFunctionBody"), 0);
    EXPECT_EQ(info->calls("ApplyMetaData"), 0);
    EXPECT_TRUE(info->queried().empty());
    EXPECT_EQ(shimType(), 0u);
}

TEST_F(SyntheticAgentShimFailureTest, MissingIsVolatileFailsTheCorlibLookupBeforeAnythingIsDefined) {
    faults->failFindTypeDefByName(u"System.Runtime.CompilerServices.IsVolatile", kNotFound);
    EXPECT_EQ(define(true, false), kNotFound);

    // Missing from the core library, as trimming leaves it: the log says so.
    EXPECT_EQ(logText,
              "Failed to find corlib types\nFailed to create delegate fields\nThe core library lacks a type or "
              "member that the shim calls, as that of an application published trimmed may: no method is "
              "traced through this shim\n");
    // The lookup stops at the first type that is missing.
    EXPECT_EQ(faults->typeNamesSought().size(), 6u);
    EXPECT_EQ(shimType(), 0u);
    EXPECT_EQ(info->calls("ApplyMetaData"), 0);
}

TEST_F(SyntheticAgentShimFailureTest, GetTypeNotFoundLogsEveryLaterStepAndAppliesNothing) {
    faults->failMethodLookup(u"GetType", kNotFound);
    EXPECT_EQ(define(true, false), kNotFound);

    EXPECT_THAT(logLines("Failed"),
                ElementsAre("Failed to locate GetType 0x80131130", "Failed to locate GetMethod 0x80131130",
                            "Failed to find GetTypeFromHandle", "Failed to find CreateDelegate",
                            "Failed to GetTokenFromSig", "Failed to create method body"));
    EXPECT_THAT(logLines("Dumping"),
                ElementsAre(dumpHeading(corlibType(u"System.Reflection.Assembly"), "GetType"),
                            StartsWith(dumpHeading(corlibType(u"System.Type"), "GetMethod"))));
    // The real Assembly.GetType overloads are listed with their signatures.
    EXPECT_THAT(logText, HasSubstr("Method GetType sig: 0x20 0x1 0x12 "));
    EXPECT_EQ(logLines()[0], "Looking for agent at /opt/tarn/bin/netcore/tarn.Agent.dll");

    mdTypeDef shim = shimType();
    ASSERT_NE(shim, 0u);
    EXPECT_EQ(info->calls("ApplyMetaData"), 0);
    EXPECT_TRUE(info->queried().empty());
    // The trace methods and stubs were in before the loader failed; the loader
    // and the class constructor get no body.
    EXPECT_EQ(info->installedBodies(coreLib).size(), 14u);
    EXPECT_EQ(info->installedBodies(coreLib).count(methodNamed(shim, u"loadInitTrace")), 0u);
    EXPECT_EQ(methodNamed(shim, u".cctor"), 0u);
}

TEST_F(SyntheticAgentShimFailureTest, NoAgentLocationAtAllFailsTheLoaderInsteadOfCrashing) {
    environment.set("com.tarn.harrowlite.agentProfile", nullptr);
    EXPECT_EQ(define(true, false), E_INVALIDARG);

    EXPECT_THAT(logLines("Failed"), ElementsAre("Failed to locate AssemblyLoadContext.get_Default",
                                                "Failed to locate LoadFromAssemblyPath",
                                                "Failed to locate GetType 0x80070057",
                                                "Failed to locate GetMethod 0x80070057",
                                                "Failed to find GetTypeFromHandle", "Failed to find CreateDelegate",
                                                "Failed to GetTokenFromSig", "Failed to create method body"));
    EXPECT_EQ(info->calls("ApplyMetaData"), 0);
}

}  // namespace
