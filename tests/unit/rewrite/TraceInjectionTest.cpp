// Every method of the rewrite shapes and of framework assemblies rewritten
// against real metadata opened for writing, each installed body checked.
#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "RewriteChecks.h"
#include "rewrite/TraceLabels.h"
#include "support/AssemblyBodies.h"

namespace {

constexpr uint32_t kCall = 0x28;
constexpr uint32_t kBox = 0x8C;
constexpr uint32_t kLdobj = 0x71;

class TraceInjection : public RewriteFixture {
protected:
    // The checks of a rewritten shape; a refused one fails the test.
    DecodedBody verified(const Rewrite& outcome) {
        EXPECT_EQ(outcome.hr, S_OK) << "stage " << outcome.step;
        if (FAILED(outcome.hr)) return DecodedBody{.error = "not rewritten", .instructions = {}, .clauses = {}};
        return checkRewritten(*info, *profiler, shapes, outcome.method, outcome.body);
    }
};

TEST_F(TraceInjection, EveryShapeIsRewrittenOrRefusedAtItsStage) {
    // The result, the stage and the reason of each refusal.
    const std::map<std::string, std::tuple<HRESULT, unsigned int, const char16_t*>> refusals = {
        {"NativeReturn", {E_FAIL, 2, u"Native integer types are not supported."}},
        {"RefReturn", {E_FAIL, 2, u"ByRef and TypedReference return types are not supported."}},
        {"NativeParam", {E_NOTIMPL, 7, u"Native integer types are not supported."}},
        // A parameter of type !10: beyond the generic parameters the rewrite can box.
        {"Take", {E_FAIL, 7, u"Values typed with a generic parameter numbered 10 or more are not traced."}},
    };
    const AssemblyBodies& bodies = info->bodiesOf(shapes);
    unsigned int refused = 0;
    for (const AssemblyBodies::Body& body : bodies.bodies()) {
        mdMethodDef token = TokenFromRid(body.methodRow, mdtMethodDef);
        Rewrite outcome = rewrite(shapes, token);
        SCOPED_TRACE(bodies.methodName(body.methodRow));
        auto refusal = refusals.find(bodies.methodName(body.methodRow));
        if (refusal == refusals.end()) {
            ASSERT_EQ(outcome.hr, S_OK) << "stage " << outcome.step;
            EXPECT_EQ(outcome.step, 12u);
            EXPECT_EQ(profiler->getLastError(), nullptr);
            ASSERT_NE(outcome.body, nullptr);
            EXPECT_EQ(info->lastAllocation(), profiler->getBuilder()->getTotalSize());
            checkRewritten(*info, *profiler, shapes, token, outcome.body);
            continue;
        }
        ++refused;
        const auto [hr, step, message] = refusal->second;
        EXPECT_EQ(outcome.hr, hr);
        EXPECT_EQ(outcome.step, step);
        EXPECT_EQ(std::u16string(profiler->getLastError()), message);
        EXPECT_EQ(outcome.body, nullptr) << "a failed method keeps its own body";
    }
    EXPECT_EQ(refused, refusals.size());
}

TEST_F(TraceInjection, ExitsMeetAtOneRetAndClausesStayInside) {
    // Several rets: all but the last become branches to the shared exit
    // (Throws and LoopForever, which have none, get one in the shapes loop).
    Rewrite many = rewrite(u"RewriteShapes.Shapes", u"ManyReturns");
    LPCBYTE original = nullptr;
    ULONG size = 0;
    info->GetILFunctionBody(shapes, many.method, &original, &size);
    EXPECT_GE(DecodedBody::read(original).count(0x2A), 2u) << "needs several rets";
    EXPECT_EQ(verified(many).count(0x2A), 1u);
    // A switch whose cases return keeps its table aimed at instructions.
    EXPECT_EQ(verified(rewrite(u"RewriteShapes.Shapes", u"Switch")).count(0x45), 1u);
    // Nested try, catch with filter and finally stay ahead of the added clause.
    DecodedBody nested = verified(rewrite(u"RewriteShapes.Shapes", u"Nested"));
    ASSERT_EQ(nested.clauses.size(), 4u);
    EXPECT_EQ(nested.clauses[0].flags, 1u) << "the filter clause";
    EXPECT_EQ(nested.clauses[1].flags, 2u) << "the finally clause";
}

TEST_F(TraceInjection, ConstructorsTraceBehindTheBaseCallAndStructsBoxCopiesOfThis) {
    // With a base call: the code up to and including it stays outside the
    // protected block.
    DecodedBody withBase = verified(rewrite(u"RewriteShapes.Derived", u".ctor", 0));
    auto call = std::find_if(withBase.instructions.begin(), withBase.instructions.end(),
                             [](const DecodedBody::Instruction& i) { return i.opcode == kCall; });
    ASSERT_NE(call, withBase.instructions.end());
    EXPECT_EQ(RealAssemblies::nameOf(info->importOf(shapes), static_cast<mdToken>(call->operand)), ".ctor");
    EXPECT_EQ(withBase.clauses.back().tryOffset, call->offset + 5);
    EXPECT_EQ((call + 1)->operand, context->getMethodID()) << "the method id for initTrace right behind the base call";
    EXPECT_EQ((call + 2)->operand, profiler->getTraceToken(Profiler::kInitToken));
    EXPECT_NE(profiler->getTraceToken(Profiler::kLoadToken), 0u);
    // A class constructor is an ordinary static method.
    uint32_t cctorTry = verified(rewrite(u"RewriteShapes.Derived", u".cctor")).clauses.back().tryOffset;
    EXPECT_EQ(cctorTry, profiler->getBuilder()->getILByteIndex(profiler->getBuilder()->findLabel(LABEL_METHOD_BODY)));

    // A struct constructor calls no .ctor: the entry code opens the block.
    EXPECT_EQ(verified(rewrite(u"RewriteShapes.Point", u".ctor")).clauses.back().tryOffset, 0u);
    EXPECT_TRUE(profiler->isValueTypeMethod());
    EXPECT_NE(log.text().find("Parent Class is ValueType @ ["), std::string::npos);

    // A struct method: a boxed copy of this at the entry and after the body.
    DecodedBody boxed = verified(rewrite(u"RewriteShapes.Point", u"Sum"));
    mdTypeDef point = typeIn(shapes, {u"RewriteShapes.Point"});
    unsigned int copies = 0;
    for (size_t i = 0; i + 2 < boxed.instructions.size(); ++i) {
        copies += boxed.instructions[i].opcode == 0x02 && boxed.instructions[i + 1].opcode == kLdobj &&
                  boxed.instructions[i + 1].operand == point && boxed.instructions[i + 2].opcode == kBox;
    }
    EXPECT_EQ(copies, 2u);
    EXPECT_EQ(boxed.count(kCall, profiler->getTraceToken(Profiler::kFinishValueTypeToken)), 1u);
    EXPECT_EQ(RealAssemblies::nameOf(info->importOf(shapes), profiler->getTraceToken(Profiler::kFinishValueTypeToken)),
              "finishValueTypeTrace");

    // A generic struct names itself through a TypeSpec over its own parameters.
    DecodedBody generic = verified(rewrite(u"RewriteShapes.Pair`2", u"GetFirst"));
    EXPECT_TRUE(std::any_of(generic.instructions.begin(), generic.instructions.end(), [](const auto& i) {
        return i.opcode == kLdobj && TypeFromToken(static_cast<mdToken>(i.operand)) == mdtTypeSpec;
    }));

    // System.Enum extends System.ValueType yet is a class: its this is a
    // reference, handed over as it is, never copied out of it.
    const ModuleID core = module(RealAssemblies::frameworkAssembly("System.Private.CoreLib.dll"), true);
    ASSERT_EQ(rewrite(core, methodIn(core, {u"System.Enum"}, u"HasFlag")).hr, S_OK);
    EXPECT_FALSE(profiler->isValueTypeMethod());
}

TEST_F(TraceInjection, SecondCallReturnsTheStoredResultUntilTheHistoryIsCleared) {
    Rewrite first = rewrite(u"RewriteShapes.Derived", u"Add");
    ASSERT_EQ(first.hr, S_OK);
    ASSERT_EQ(first.step, 12u);
    int installs = info->calls("SetILFunctionBody");
    int bodies = info->calls("GetILFunctionBody");
    unsigned int step = 99;
    EXPECT_EQ(profiler->instrumentMethod(context.get(), &step), S_OK);
    EXPECT_EQ(step, 0u);
    EXPECT_EQ(info->calls("SetILFunctionBody"), installs);
    EXPECT_EQ(info->calls("GetILFunctionBody"), bodies);

    // A failure is stored as well, with its first reason.
    EXPECT_EQ(rewrite(u"RewriteShapes.Shapes", u"NativeParam").step, 7u);
    const std::u16string reason = profiler->getLastError();
    EXPECT_EQ(profiler->instrumentMethod(context.get(), &step), E_NOTIMPL);
    EXPECT_EQ(step, 0u);
    EXPECT_EQ(profiler->getLastError(), reason);

    // Cleared, the method is rewritten again, with the same references.
    context->setFunction(info->addFunction(shapes, first.method));
    unsigned int init = profiler->getTraceToken(Profiler::kInitToken);
    profiler->clearHistoryForFunction(context.get());
    EXPECT_EQ(profiler->instrumentMethod(context.get(), &step), S_OK);
    EXPECT_EQ(step, 12u);
    EXPECT_EQ(info->calls("SetILFunctionBody"), installs + 1);
    EXPECT_EQ(profiler->getTraceToken(Profiler::kInitToken), init);

    // An unloaded module is forgotten whole: its identifier may come again.
    profiler->forgetModule(shapes);
    EXPECT_EQ(profiler->instrumentMethod(context.get(), &step), S_OK);
    EXPECT_EQ(step, 12u);
}

TEST_F(TraceInjection, AllocatorFailureStopsAtStageTen) {
    info->failNextAlloc(reinterpret_cast<void*>(static_cast<uintptr_t>(0x8007000E)));
    Rewrite failed = rewrite(u"RewriteShapes.Derived", u"Add");
    EXPECT_EQ(failed.hr, E_OUTOFMEMORY);
    EXPECT_EQ(failed.step, 10u);
    EXPECT_EQ(failed.body, nullptr);
    info->failNextAlloc(nullptr);
    Rewrite empty = rewrite(u"RewriteShapes.Shapes", u"Empty");
    EXPECT_EQ(empty.hr, E_OUTOFMEMORY);
    EXPECT_EQ(empty.step, 10u);
}

// Framework code: every body of an assembly rewritten, in the assembly's own
// scope; the core library takes the core-library path (corInitTrace).
class FrameworkRewrite : public RewriteFixture,
                         public ::testing::WithParamInterface<std::pair<const char*, unsigned int>> {};

TEST_P(FrameworkRewrite, EveryBodyVerifiesOrIsRefusedForNativeIntegers) {
    const ModuleID module = this->module(RealAssemblies::frameworkAssembly(GetParam().first), true);
    ASSERT_NE(module, 0u);
    IMetaDataImport* import = info->importOf(module);
    unsigned int rewritten = 0;
    std::vector<AssemblyBodies::Body> bodies = info->bodiesOf(module).bodies();
    if (bodies.size() > GetParam().second) bodies.resize(GetParam().second);
    for (const AssemblyBodies::Body& body : bodies) {
        mdMethodDef token = TokenFromRid(body.methodRow, mdtMethodDef);
        Rewrite outcome = rewrite(module, token);
        const std::string name = info->bodiesOf(module).methodName(body.methodRow);
        if (outcome.hr == S_OK) {
            ++rewritten;
            ASSERT_TRUE(checkRewritten(*info, *profiler, module, token, outcome.body).ok() && !HasFailure()) << name;
            continue;
        }
        EXPECT_EQ(outcome.body, nullptr);
        // The refusals the engine may make: native integers in the signature
        // (result at stage 2, parameter at stage 7), a ref or typed-reference
        // result, this of a byref-like type, and the code the trace calls run through.
        const auto signature = RealAssemblies::signatureOf(import, token);
        const bool nativeInteger =
            std::any_of(signature.begin(), signature.end(), [](unsigned char b) { return b == 0x18 || b == 0x19; });
        const unsigned char result = returnType(signature);
        const std::u16string_view reason = profiler->getLastError() != nullptr ? profiler->getLastError() : u"";
        const bool known = (outcome.hr == E_FAIL && outcome.step == 2 &&
                            (nativeInteger || result == ELEMENT_TYPE_BYREF || result == ELEMENT_TYPE_TYPEDBYREF ||
                             reason == u"Methods of byref-like types are not traced.")) ||
                           (outcome.hr == E_NOTIMPL && outcome.step == 7 && nativeInteger) ||
                           (outcome.hr == E_FAIL && outcome.step == 1 &&
                            reason == u"Code that the trace calls run through is not traced.");
        ASSERT_TRUE(known) << name << " 0x" << std::hex << outcome.hr << " stage " << std::dec << outcome.step;
    }
    EXPECT_GT(rewritten, bodies.size() / 2);
    if (std::string(GetParam().first) == "System.Private.CoreLib.dll") {
        EXPECT_TRUE(profiler->isCoreLibraryMethod());
        EXPECT_EQ(RealAssemblies::nameOf(import, profiler->getTraceToken(Profiler::kInitToken)), "corInitTrace");
    }
}

INSTANTIATE_TEST_SUITE_P(Assemblies, FrameworkRewrite,
                         ::testing::Values(std::make_pair("System.Linq.dll", 100000u),
                                           std::make_pair("System.Collections.dll", 100000u),
                                           std::make_pair("System.Private.CoreLib.dll", 4000u)));

}  // namespace
