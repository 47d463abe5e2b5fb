// The engine's set-up: where the trace functions live, the extended local
// signature, and the tokens resolved per module.

#include "RewriteChecks.h"

class ProfilerSetup : public RewriteFixture {
protected:
    // Runs the set-up stages alone on a method of the shapes.
    HRESULT setUp(const char16_t* typeName, const char16_t* name) {
        EXPECT_EQ(context->setFunction(info->addFunction(shapes, method(typeName, name))), S_OK);
        HRESULT hr = profiler->updateContext(context.get());
        if (SUCCEEDED(hr)) hr = profiler->updateSignatures();
        return hr;
    }

    rewrite_checks::LocalSignature locals() {
        return rewrite_checks::localSignature(info->importOf(shapes), profiler->getLocalSigToken());
    }
};

TEST_F(ProfilerSetup, TheLocalSignatureGainsTheResultAndTraceLocalsAtItsEnd) {
    using Types = std::vector<unsigned char>;
    ASSERT_TRUE(SUCCEEDED(setUp(u"RewriteShapes.Shapes", u"Empty")));
    EXPECT_EQ(locals().count, 1u);
    EXPECT_EQ(locals().types, Types{0x08});
    EXPECT_EQ(profiler->getTraceLocal(), 0u);

    ASSERT_TRUE(SUCCEEDED(setUp(u"RewriteShapes.Derived", u"Add")));
    EXPECT_EQ(locals().types, (Types{0x08, 0x08}));
    EXPECT_EQ(profiler->getResultLocal(), 0u);
    EXPECT_EQ(profiler->getTraceLocal(), 1u);

    // A ref result cannot be parked and handed back: the method keeps its body.
    EXPECT_EQ(setUp(u"RewriteShapes.Shapes", u"RefReturn"), E_FAIL);
    EXPECT_EQ(std::u16string(profiler->getLastError()),
              u"ByRef and TypedReference return types are not supported.");

    // A string result behind incoming locals.
    ASSERT_TRUE(SUCCEEDED(setUp(u"RewriteShapes.Shapes", u"Switch")));
    Types types = locals().types;
    EXPECT_EQ(Types(types.end() - 2, types.end()), (Types{0x0E, 0x08}));
    EXPECT_EQ(profiler->getResultLocal(), profiler->getLocalCount() - 2);

    // A value-type result keeps its token.
    ASSERT_TRUE(SUCCEEDED(setUp(u"RewriteShapes.Shapes", u"ValueResult")));
    types = locals().types;
    EXPECT_EQ(types[types.size() - 3], 0x11);

    // 127 locals and no result: the count of 128 takes two bytes.
    ASSERT_TRUE(SUCCEEDED(setUp(u"RewriteShapes.Wide", u"Locals127")));
    EXPECT_EQ(locals().count, 128u);
    EXPECT_EQ(profiler->getLocalCount(), 128u);
    EXPECT_EQ(profiler->getTraceLocal(), 127u);

    // A native integer result stops the stage before any code is touched.
    EXPECT_EQ(setUp(u"RewriteShapes.Shapes", u"NativeReturn"), E_FAIL);
    EXPECT_EQ(std::u16string(profiler->getLastError()), u"Native integer types are not supported.");
}
