// The module's metadata read from its image: the same scope as the runtime's,
// for a precompiled and an IL-only assembly, laid out flat or mapped; the
// runtime's own interface only where the module has no image to read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "metadata/ImageMetaData.h"
#include "runtime/Guids.h"
#include "support/RealMetadataFixture.h"

namespace {

class ImageMetaDataTest : public RealMetadataFixture {
protected:
    void TearDown() override { std::ranges::for_each(opened, ImageMetaData::forget); }

    std::vector<ModuleID> opened;
};

TEST_F(ImageMetaDataTest, ReadsTheScopeFromTheImageWithoutAskingTheRuntime) {
    for (const std::string& path : {RealAssemblies::coreLibPath(), RealAssemblies::testAsset("MetadataShapes")}) {
        for (bool flat : {true, false}) {
            const ModuleID id = opened.emplace_back(module(path));
            info->mapImage(id, path, flat);
            GUID expected{}, found{};
            ASSERT_EQ(info->importOf(id)->GetScopeProps(nullptr, 0, nullptr, &expected), S_OK);
            // The runtime would refuse now: the answer can only come from the image.
            info->metaDataResult = E_FAIL;
            AutoCOMPointer<IMetaDataImport> import;
            ASSERT_EQ(ImageMetaData::open(info.get(), id, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import)),
                      S_OK)
                << path << (flat ? " flat" : " mapped");
            ASSERT_EQ(import->GetScopeProps(nullptr, 0, nullptr, &found), S_OK);
            EXPECT_EQ(std::memcmp(&expected, &found, sizeof(GUID)), 0) << path;
            EXPECT_EQ(RealAssemblies::findType(import, u"System.Object") != 0, path == RealAssemblies::coreLibPath());
            info->metaDataResult = S_OK;
        }
    }
}

// A module without an image, and one whose image is no image at all.
TEST_F(ImageMetaDataTest, WithoutAnImageTheRuntimeAnswers) {
    const std::string path = RealAssemblies::testAsset("MetadataShapes");
    opened = {module(path), module(path)};
    info->mapImage(opened[1], path.substr(0, path.size() - 4) + ".deps.json", true);
    info->metaDataResult = E_FAIL;
    for (ModuleID id : opened) {
        AutoCOMPointer<IMetaDataImport> import;
        EXPECT_EQ(ImageMetaData::open(info.get(), id, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import)),
                  E_FAIL);
    }
    EXPECT_EQ(info->calls("GetModuleMetaData"), 2);
}

}  // namespace
