// Every method of the rewrite shapes and of framework assemblies rewritten
// against real metadata opened for writing, each installed body checked by
// the independent verifier.
#include <algorithm>
#include <string>
#include <vector>

#include "RewriteChecks.h"
#include "rewrite/TraceLabels.h"
#include "support/AssemblyBodies.h"

namespace {

constexpr uint32_t kCall = 0x28;
constexpr uint32_t kBox = 0x8C;
constexpr uint32_t kLdobj = 0x71;

// Calls of one token in order.
unsigned int callsOf(const ILVerifier::Result& verified, uint32_t token) {
    unsigned int n = 0;
    for (const ILVerifier::Instruction& instruction : verified.instructions) {
        n += instruction.opcode == kCall && instruction.operand == token ? 1 : 0;
    }
    return n;
}

std::string nameOf(IMetaDataImport* import, mdToken token) {
    char16_t name[512] = {};
    ULONG length = 0;
    if ((token & 0xFF000000) == mdtMemberRef) {
        import->GetMemberRefProps(token, nullptr, name, 512, &length, nullptr, nullptr);
    } else {
        import->GetMethodProps(token, nullptr, name, 512, &length, nullptr, nullptr, nullptr, nullptr, nullptr);
    }
    return RealAssemblies::narrow(name);
}

// The method's signature has a native integer where the engine refuses one.
bool hasNativeInteger(IMetaDataImport* import, mdMethodDef method) {
    PCCOR_SIGNATURE signature = nullptr;
    ULONG length = 0;
    import->GetMethodProps(method, nullptr, nullptr, 0, nullptr, nullptr, &signature, &length, nullptr, nullptr);
    return std::any_of(signature, signature + length, [](unsigned char b) { return b == 0x18 || b == 0x19; });
}

// A ref return of a generic parameter: the parameter's number is read from
// the byte behind the byref marker, which is the marker of the parameter kind,
// so the number is out of range and the method is left as it is.
bool returnsRefToGenericParameter(IMetaDataImport* import, mdMethodDef method) {
    PCCOR_SIGNATURE signature = nullptr;
    ULONG length = 0;
    import->GetMethodProps(method, nullptr, nullptr, 0, nullptr, nullptr, &signature, &length, nullptr, nullptr);
    const unsigned char* p = signature + 1;
    if ((signature[0] & 0x10) != 0) rewrite_checks::compressed(p);
    rewrite_checks::compressed(p);
    while (*p == 0x1F || *p == 0x20) {
        ++p;
        rewrite_checks::compressed(p);
    }
    return p[0] == 0x10 && (p[1] == 0x13 || p[1] == 0x1E);
}

}  // namespace

class TraceInjection : public RewriteFixture {};

TEST_F(TraceInjection, EveryShapeIsRewrittenOrRefusedAtItsStage) {
    const AssemblyBodies& bodies = info->bodiesOf(shapes);
    IMetaDataImport* import = info->importOf(shapes);
    unsigned int rewritten = 0;
    unsigned int refused = 0;
    for (const AssemblyBodies::Body& body : bodies.bodies()) {
        mdMethodDef token = TokenFromRid(body.methodRow, mdtMethodDef);
        std::string name = bodies.methodName(body.methodRow);
        Rewrite outcome = rewrite(shapes, token);
        SCOPED_TRACE(name);
        if (name == "NativeReturn") {
            EXPECT_EQ(outcome.hr, E_FAIL);
            EXPECT_EQ(outcome.step, 2u);
            EXPECT_EQ(std::u16string(profiler->getLastError()), u"Native integer types are not supported.");
        } else if (name == "NativeParam") {
            EXPECT_EQ(outcome.hr, E_NOTIMPL);
            EXPECT_EQ(outcome.step, 7u);
            EXPECT_EQ(std::u16string(profiler->getLastError()), u"Native integer types are not supported.");
        } else if (name == "Take") {
            // A parameter of type !10: beyond the generic parameters the
            // rewrite can box.
            EXPECT_EQ(outcome.hr, E_FAIL);
            EXPECT_EQ(outcome.step, 7u);
        } else {
            ASSERT_EQ(outcome.hr, S_OK) << "stage " << outcome.step;
            EXPECT_EQ(outcome.step, 12u);
            EXPECT_EQ(profiler->getLastError(), nullptr);
            ASSERT_NE(outcome.body, nullptr);
            EXPECT_EQ(info->lastAllocation(), profiler->getBuilder()->getTotalSize());
            checkRewritten(*info, *profiler, shapes, token, outcome.body, returnsValue(shapes, token));
            ++rewritten;
        }
        if (FAILED(outcome.hr)) {
            ++refused;
            EXPECT_EQ(outcome.body, nullptr) << "a failed method keeps its own body";
        }
    }
    EXPECT_EQ(refused, 3u);
    EXPECT_EQ(rewritten + refused, bodies.bodies().size());

    // The trace functions are real references in the module's own scope.
    const char* expected[] = {"initTrace", "loadTrace", "pushTrace", "startTrace"};
    for (unsigned int i = 0; i < 4; ++i) {
        mdToken token = profiler->getTraceToken(static_cast<Profiler::TraceToken>(i));
        EXPECT_EQ(TypeFromToken(token), mdtMemberRef);
        EXPECT_TRUE(import->IsValidToken(token));
        EXPECT_EQ(nameOf(import, token), expected[i]);
        mdToken parent = 0;
        import->GetMemberRefProps(token, &parent, nullptr, 0, nullptr, nullptr, nullptr);
        char16_t className[256] = {};
        mdToken scope = 0;
        ASSERT_EQ(import->GetTypeRefProps(parent, &scope, className, 256, nullptr), S_OK);
        EXPECT_EQ(std::u16string(className), u"com.tarn.harrowlite.fieldmark.dotnet.SyntheticAgentShim");
        EXPECT_EQ(TypeFromToken(scope), mdtAssemblyRef);
    }
}

TEST_F(TraceInjection, StaticVoidMethodReadsAsInitStartBodyExitFinishRetHandler) {
    Rewrite outcome = rewrite(u"RewriteShapes.Shapes", u"Empty");
    ASSERT_EQ(outcome.hr, S_OK);
    IMethodBuilder* builder = profiler->getBuilder();
    std::vector<unsigned int> labels;
    std::vector<Opcode> opcodes;
    for (unsigned int i = 0; i < builder->getILCount(); ++i) {
        IILInstruction* instruction = builder->getIL(i);
        if (instruction->opcode() == Opcode::OPCODE_LABEL) {
            if (instruction->operand() >= 0x80000000) labels.push_back(static_cast<unsigned int>(instruction->operand()));
        } else {
            opcodes.push_back(instruction->opcode());
        }
    }
    std::vector<unsigned int> expectedLabels = {LABEL_INIT_TRACE,      LABEL_INIT_TRACE_END, LABEL_START_TRACE,
                                                LABEL_START_TRACE_END, LABEL_METHOD_BODY,    LABEL_EXIT,
                                                LABEL_TRY_END,         LABEL_FINISH_TRACE,   LABEL_FINISH_TRACE_END,
                                                LABEL_CATCH_TRACE,     LABEL_CATCH_TRACE_END};
    EXPECT_EQ(labels, expectedLabels);
    // The method id is small enough here for the short form.
    ASSERT_LE(context->getMethodID(), 127u);
    std::vector<Opcode> expectedCode = {
        Opcode::ldc_i4_s, Opcode::call,    Opcode::stloc_s, Opcode::ldloc_s, Opcode::brfalse_s, Opcode::call,
        Opcode::call,    Opcode::leave_s, Opcode::ldloc_s, Opcode::brfalse_s, Opcode::call,    Opcode::ret,
        Opcode::ldloc_s, Opcode::brfalse_s, Opcode::dup,   Opcode::call,    Opcode::rethrow};
    EXPECT_EQ(opcodes, expectedCode);

    ILVerifier::Result verified =
        checkRewritten(*info, *profiler, shapes, outcome.method, outcome.body, false);
    // A tiny body: fat header, MaxStack 8 + 2, flags 0x3 | 0x8, trace local 0
    // in the signature 07 01 08.
    EXPECT_EQ(verified.maxStack, 10u);
    EXPECT_EQ(verified.flags, 0xBu);
    PCCOR_SIGNATURE locals = nullptr;
    ULONG length = 0;
    ASSERT_EQ(info->importOf(shapes)->GetSigFromToken(verified.localSigToken, &locals, &length), S_OK);
    EXPECT_EQ(std::vector<unsigned char>(locals, locals + length), (std::vector<unsigned char>{0x07, 0x01, 0x08}));
    EXPECT_EQ(profiler->getTraceLocal(), 0u);
    // The static form of loadTrace and the void form of finishTrace.
    EXPECT_EQ(callsOf(verified, profiler->getTraceToken(Profiler::kLoadToken)), 1u);
    PCCOR_SIGNATURE signature = nullptr;
    info->importOf(shapes)->GetMemberRefProps(profiler->getTraceToken(Profiler::kLoadToken), nullptr, nullptr, 0,
                                              nullptr, &signature, &length);
    EXPECT_EQ(std::vector<unsigned char>(signature, signature + length), (std::vector<unsigned char>{0, 0, 1}));
}

TEST_F(TraceInjection, ExitsMeetAtOneRetAndThrowingMethodsGetOne) {
    // Several rets: all but the last become branches to the shared exit.
    Rewrite many = rewrite(u"RewriteShapes.Shapes", u"ManyReturns");
    ASSERT_EQ(many.hr, S_OK);
    LPCBYTE original = nullptr;
    ULONG size = 0;
    info->GetILFunctionBody(shapes, many.method, &original, &size);
    ILVerifier::Result incoming = ILVerifier::verify(original, info->importOf(shapes), true);
    ASSERT_TRUE(incoming.ok()) << incoming.describe();
    EXPECT_GE(incoming.count(0x2A), 2u) << "the test needs a body with several rets";
    ILVerifier::Result verified = checkRewritten(*info, *profiler, shapes, many.method, many.body, true);
    EXPECT_EQ(verified.count(0x2A), 1u);

    // A body that ends in throw gets a ret that only the exit branches reach.
    Rewrite throws = rewrite(u"RewriteShapes.Shapes", u"Throws");
    ASSERT_EQ(throws.hr, S_OK);
    checkRewritten(*info, *profiler, shapes, throws.method, throws.body, false);
    Rewrite loop = rewrite(u"RewriteShapes.Shapes", u"LoopForever");
    ASSERT_EQ(loop.hr, S_OK);
    checkRewritten(*info, *profiler, shapes, loop.method, loop.body, false);

    // A switch whose cases return keeps its table aimed at instructions.
    Rewrite table = rewrite(u"RewriteShapes.Shapes", u"Switch");
    ASSERT_EQ(table.hr, S_OK);
    ILVerifier::Result switched = checkRewritten(*info, *profiler, shapes, table.method, table.body, true);
    EXPECT_EQ(switched.count(0x45), 1u);

    // Nested try, catch with filter and finally stay ahead of the added clause.
    Rewrite nested = rewrite(u"RewriteShapes.Shapes", u"Nested");
    ASSERT_EQ(nested.hr, S_OK);
    ILVerifier::Result clauses = checkRewritten(*info, *profiler, shapes, nested.method, nested.body, true);
    ASSERT_EQ(clauses.clauses.size(), 4u);
    EXPECT_EQ(clauses.clauses[0].flags, 1u) << "the filter clause";
    EXPECT_EQ(clauses.clauses[1].flags, 2u) << "the finally clause";
}

TEST_F(TraceInjection, ConstructorsTraceBehindTheBaseCallAndStructsBoxCopiesOfThis) {
    // With a base call: the code up to and including it stays outside the
    // protected block.
    Rewrite derived = rewrite(u"RewriteShapes.Derived", u".ctor", 0);
    ASSERT_EQ(derived.hr, S_OK);
    ILVerifier::Result withBase = checkRewritten(*info, *profiler, shapes, derived.method, derived.body, false);
    auto call = std::find_if(withBase.instructions.begin(), withBase.instructions.end(),
                             [](const ILVerifier::Instruction& i) { return i.opcode == kCall; });
    ASSERT_NE(call, withBase.instructions.end());
    const ILVerifier::Instruction& baseCall = *call;
    EXPECT_EQ(nameOf(info->importOf(shapes), static_cast<mdToken>(baseCall.operand)), ".ctor");
    EXPECT_EQ(withBase.clauses.back().tryOffset, baseCall.offset + 5);
    EXPECT_EQ((call + 1)->operand, context->getMethodID()) << "the method id for initTrace right behind the base call";
    EXPECT_EQ((call + 2)->operand, profiler->getTraceToken(Profiler::kInitToken));
    EXPECT_EQ(profiler->getTraceToken(Profiler::kLoadToken) != 0, true);
    // A chained constructor: this() counts as the base call too.
    Rewrite chained = rewrite(u"RewriteShapes.Derived", u".ctor", 1);
    ASSERT_EQ(chained.hr, S_OK);
    checkRewritten(*info, *profiler, shapes, chained.method, chained.body, false);
    // A class constructor is an ordinary static method.
    Rewrite cctor = rewrite(u"RewriteShapes.Derived", u".cctor");
    ASSERT_EQ(cctor.hr, S_OK);
    EXPECT_EQ(checkRewritten(*info, *profiler, shapes, cctor.method, cctor.body, false).clauses.back().tryOffset,
              profiler->getBuilder()->getILByteIndex(profiler->getBuilder()->findLabel(LABEL_METHOD_BODY)));

    // A struct constructor calls no .ctor: the entry code opens the block.
    Rewrite point = rewrite(u"RewriteShapes.Point", u".ctor");
    ASSERT_EQ(point.hr, S_OK);
    ILVerifier::Result noBase = checkRewritten(*info, *profiler, shapes, point.method, point.body, false);
    EXPECT_EQ(noBase.clauses.back().tryOffset, 0u);
    EXPECT_TRUE(profiler->isValueTypeMethod());
    EXPECT_NE(logText().find("Parent Class is ValueType @ ["), std::string::npos);

    // A struct method: a boxed copy of this at the entry and after the body.
    Rewrite sum = rewrite(u"RewriteShapes.Point", u"Sum");
    ASSERT_EQ(sum.hr, S_OK);
    ILVerifier::Result boxed = checkRewritten(*info, *profiler, shapes, sum.method, sum.body, true);
    mdTypeDef point_ = type(u"RewriteShapes.Point");
    unsigned int copies = 0;
    for (size_t i = 0; i + 2 < boxed.instructions.size(); ++i) {
        if (boxed.instructions[i].opcode == 0x02 && boxed.instructions[i + 1].opcode == kLdobj &&
            boxed.instructions[i + 1].operand == point_ && boxed.instructions[i + 2].opcode == kBox) {
            ++copies;
        }
    }
    EXPECT_EQ(copies, 2u);
    EXPECT_EQ(callsOf(boxed, profiler->getTraceToken(Profiler::kFinishValueTypeToken)), 1u);
    EXPECT_EQ(nameOf(info->importOf(shapes), profiler->getTraceToken(Profiler::kFinishValueTypeToken)),
              "finishValueTypeTrace");

    // A generic struct names itself through a TypeSpec over its own parameters.
    Rewrite pair = rewrite(u"RewriteShapes.Pair`2", u"GetFirst");
    ASSERT_EQ(pair.hr, S_OK);
    ILVerifier::Result generic = checkRewritten(*info, *profiler, shapes, pair.method, pair.body, true);
    bool namedBySpec = std::any_of(generic.instructions.begin(), generic.instructions.end(), [](const auto& i) {
        return i.opcode == kLdobj && TypeFromToken(static_cast<mdToken>(i.operand)) == mdtTypeSpec;
    });
    EXPECT_TRUE(namedBySpec);
}

TEST_F(TraceInjection, ParametersArePushedByPositionAndSkippedWhenTheyCannotBeBoxed) {
    auto pushes = [&](const Rewrite& outcome) {
        ILVerifier::Result verified =
            checkRewritten(*info, *profiler, shapes, outcome.method, outcome.body, returnsValue(shapes, outcome.method));
        return callsOf(verified, profiler->getTraceToken(Profiler::kPushToken));
    };
    // An instance method: argument i is pushed as position i - 1.
    Rewrite instance = rewrite(u"RewriteShapes.Derived", u"Instance");
    ASSERT_EQ(instance.hr, S_OK);
    EXPECT_EQ(pushes(instance), 2u);
    IMethodBuilder* builder = profiler->getBuilder();
    int push = builder->findLabel(LABEL_PUSH_TRACE);
    ASSERT_GE(push, 0);
    std::vector<std::pair<Opcode, unsigned long>> sequence;
    for (unsigned int i = push + 4; builder->getIL(i)->opcode() != Opcode::OPCODE_LABEL; ++i) {
        sequence.emplace_back(builder->getIL(i)->opcode(), builder->getIL(i)->operand());
    }
    ASSERT_EQ(sequence.size(), 7u);
    EXPECT_EQ(sequence[0], std::make_pair(Opcode::ldc_i4_s, 0ul));
    EXPECT_EQ(sequence[1], std::make_pair(Opcode::ldarg_s, 1ul));
    EXPECT_EQ(sequence[2].first, Opcode::box);
    EXPECT_EQ(sequence[4], std::make_pair(Opcode::ldc_i4_s, 1ul));
    EXPECT_EQ(sequence[5], std::make_pair(Opcode::ldarg_s, 2ul)) << "a string needs no box";

    // ref, out and in: nothing pushed, the block stays with its guard.
    Rewrite move = rewrite(u"RewriteShapes.Point", u"Move");
    ASSERT_EQ(move.hr, S_OK);
    EXPECT_EQ(pushes(move), 0u);
    EXPECT_GE(profiler->getBuilder()->findLabel(LABEL_PUSH_TRACE_END), 0);
    // Ref structs and read-only structs are left out, the int beside them is not.
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Shapes", u"StackOnly")), 1u);
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Shapes", u"ReadOnlyParam")), 1u);
    // Every primitive, typedref, pointers and mixed references.
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Shapes", u"AllPrimitives")), 12u);
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Shapes", u"TypedRef")), 1u);
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Shapes", u"Pointer")), 1u);
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Shapes", u"Mixed")), 7u);
    // Generic parameters: !0 and !!0 are boxed through TypeSpecs.
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Generic`1", u"Echo")), 1u);
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Generic`1", u"Pick")), 3u);
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Generic`1", u"Self")), 1u);
    // More than 255 arguments and locals.
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Wide", u"ManyArgs")), 260u);
    EXPECT_EQ(pushes(rewrite(u"RewriteShapes.Wide", u"ManyLocals")), 1u);
    EXPECT_GT(profiler->getTraceLocal(), 255u);
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

    // A failure is stored as well.
    Rewrite native = rewrite(u"RewriteShapes.Shapes", u"NativeParam");
    EXPECT_EQ(native.step, 7u);
    EXPECT_EQ(profiler->instrumentMethod(context.get(), &step), E_NOTIMPL);
    EXPECT_EQ(step, 0u);
    EXPECT_EQ(profiler->getLastError(), nullptr) << "cleared at each call";

    // Cleared, the method is rewritten again, with the same references.
    context->setFunction(info->addFunction(shapes, first.method));
    unsigned int init = profiler->getTraceToken(Profiler::kInitToken);
    profiler->clearHistoryForFunction(context.get());
    EXPECT_EQ(profiler->instrumentMethod(context.get(), &step), S_OK);
    EXPECT_EQ(step, 12u);
    EXPECT_EQ(info->calls("SetILFunctionBody"), installs + 1);
    EXPECT_EQ(profiler->getTraceToken(Profiler::kInitToken), init);
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
    ModuleID module = info->addModule(RealAssemblies::frameworkAssembly(GetParam().first));
    ASSERT_NE(module, 0u);
    IMetaDataImport* import = info->importOf(module);
    unsigned int rewritten = 0;
    unsigned int refused = 0;
    std::vector<AssemblyBodies::Body> bodies = info->bodiesOf(module).bodies();
    if (bodies.size() > GetParam().second) bodies.resize(GetParam().second);
    for (const AssemblyBodies::Body& body : bodies) {
        mdMethodDef token = TokenFromRid(body.methodRow, mdtMethodDef);
        Rewrite outcome = rewrite(module, token);
        if (outcome.hr == S_OK) {
            ++rewritten;
            ILVerifier::Result verified =
                checkRewritten(*info, *profiler, module, token, outcome.body, returnsValue(module, token));
            if (!verified.ok() || HasFailure()) {
                ADD_FAILURE() << info->bodiesOf(module).methodName(body.methodRow);
                return;
            }
            continue;
        }
        ++refused;
        EXPECT_EQ(outcome.body, nullptr);
        bool nativeResult = outcome.hr == E_FAIL && outcome.step == 2 && hasNativeInteger(import, token);
        bool nativeParameter = outcome.hr == E_NOTIMPL && outcome.step == 7 && hasNativeInteger(import, token);
        bool refGeneric = outcome.hr == E_FAIL && outcome.step == 2 && returnsRefToGenericParameter(import, token);
        ASSERT_TRUE(nativeResult || nativeParameter || refGeneric)
            << info->bodiesOf(module).methodName(body.methodRow) << " 0x" << std::hex << outcome.hr << " stage "
            << std::dec << outcome.step;
    }
    EXPECT_GT(rewritten, bodies.size() / 2);
    std::string assembly = GetParam().first;
    if (assembly == "System.Private.CoreLib.dll") {
        EXPECT_TRUE(profiler->isCoreLibraryMethod());
        EXPECT_EQ(nameOf(import, profiler->getTraceToken(Profiler::kInitToken)), "corInitTrace");
    }
    RecordProperty("rewritten", static_cast<int>(rewritten));
    RecordProperty("refused", static_cast<int>(refused));
}

INSTANTIATE_TEST_SUITE_P(Assemblies, FrameworkRewrite,
                         ::testing::Values(std::make_pair("System.Linq.dll", 100000u),
                                           std::make_pair("System.Collections.dll", 100000u),
                                           std::make_pair("System.Private.CoreLib.dll", 4000u)));
