// The module's metadata read from its image: the same scope as the runtime's,
// for a precompiled and an IL-only assembly, laid out flat or mapped; the
// runtime's own interface only where the module has no image to read.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "metadata/ImageMetaData.h"
#include "runtime/Guids.h"
#include "support/RealMetadataFixture.h"

namespace {

class ImageMetaDataTest : public RealMetadataFixture {
protected:
    void TearDown() override {
        for (ModuleID module : opened) ImageMetaData::forget(module);
    }

    GUID versionOf(IMetaDataImport* import) {
        GUID version{};
        EXPECT_EQ(import->GetScopeProps(nullptr, 0, nullptr, &version), S_OK);
        return version;
    }

    std::vector<ModuleID> opened;
};

TEST_F(ImageMetaDataTest, ReadsTheScopeFromTheImageWithoutAskingTheRuntime) {
    for (const std::string& path : {RealAssemblies::coreLibPath(), RealAssemblies::testAsset("MetadataShapes")}) {
        for (bool flat : {true, false}) {
            const ModuleID id = module(path);
            opened.push_back(id);
            info->mapImage(id, path, flat);
            const GUID expected = versionOf(info->importOf(id));
            // The runtime would refuse now: the answer can only come from the image.
            info->metaDataResult = E_FAIL;
            AutoCOMPointer<IMetaDataImport> import;
            ASSERT_EQ(ImageMetaData::open(info.get(), id, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import)),
                      S_OK)
                << path << (flat ? " flat" : " mapped");
            const GUID found = versionOf(import);
            EXPECT_EQ(std::memcmp(&expected, &found, sizeof(GUID)), 0) << path;
            EXPECT_EQ(RealAssemblies::findType(import, u"System.Object") != 0, path == RealAssemblies::coreLibPath());
            AutoCOMPointer<IMetaDataAssemblyImport> assembly;
            EXPECT_EQ(ImageMetaData::open(info.get(), id, IID_IMetaDataAssemblyImport,
                                          reinterpret_cast<IUnknown**>(&assembly)),
                      S_OK);
            info->metaDataResult = S_OK;
        }
    }
}

TEST_F(ImageMetaDataTest, WithoutAnImageTheRuntimeAnswers) {
    const std::string path = RealAssemblies::testAsset("MetadataShapes");
    const ModuleID plain = module(path);
    const ModuleID broken = module(path);
    opened = {plain, broken};
    // Not an image at all.
    info->mapImage(broken, path.substr(0, path.size() - 4) + ".deps.json", true);
    info->metaDataResult = E_FAIL;
    for (ModuleID id : opened) {
        AutoCOMPointer<IMetaDataImport> import;
        EXPECT_EQ(ImageMetaData::open(info.get(), id, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import)),
                  E_FAIL);
    }
    EXPECT_EQ(info->calls("GetModuleMetaData"), 2);
    info->metaDataResult = S_OK;
    AutoCOMPointer<IMetaDataImport> import;
    EXPECT_EQ(ImageMetaData::open(info.get(), plain, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import)), S_OK);
}

}  // namespace
