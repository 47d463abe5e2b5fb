// The verifier that stands between a rewritten body and the runtime: it must
// pass every body the framework ships, and name each fault the runtime would
// refuse in a body made to break one rule.
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "RewriteFixture.h"
#include "rewrite/BodyVerifier.h"
#include "rewrite/CorSig.h"
#include "support/AssemblyBodies.h"

namespace {

using Bytes = std::vector<unsigned char>;

std::string narrow(const char16_t* text) {
    std::string out;
    for (; *text != 0; ++text) out += static_cast<char>(*text);
    return out;
}

void put32(Bytes& out, unsigned int value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

// A fat body with one catch clause.
Bytes fatBody(const Bytes& code, unsigned short maxStack, unsigned int tryOffset, unsigned int tryLength,
              unsigned int handlerOffset, unsigned int handlerLength) {
    Bytes body = {0x1B, 0x30, static_cast<unsigned char>(maxStack), static_cast<unsigned char>(maxStack >> 8)};
    put32(body, static_cast<unsigned int>(code.size()));
    put32(body, 0);
    body.insert(body.end(), code.begin(), code.end());
    while (body.size() % 4 != 0) body.push_back(0);
    body.insert(body.end(), {0x41, 28, 0, 0});
    for (unsigned int value : {0u, tryOffset, tryLength, handlerOffset, handlerLength, 0x01000001u}) put32(body, value);
    return body;
}

// static int32 (int32), with one int32 local.
const Bytes kSignature = {0x00, 0x01, 0x08, 0x08};
const Bytes kLocals = {0x07, 0x01, 0x08};

class BodyVerifierTest : public RewriteFixture {
protected:
    std::string verify(const Bytes& body, IMetaDataImport* import = nullptr) {
        VerifiedMethod method{body.data(), static_cast<unsigned int>(body.size()), 1, 1, true,
                              kSignature.data(), static_cast<unsigned int>(kSignature.size()),
                              kLocals.data(), static_cast<unsigned int>(kLocals.size()),
                              import != nullptr ? import : info->importOf(shapes)};
        char16_t reason[160] = {};
        HRESULT hr = BodyVerifier::verify(method, reason, 160);
        return hr == S_OK ? "ok" : narrow(reason);
    }
};

TEST_F(BodyVerifierTest, EachBrokenRuleIsNamed) {
    // nop nop | try: nop nop leave.s L | handler: pop leave.s L | nop | L: ldc.i4.0 ret
    const Bytes code = {0x00, 0x00, 0x00, 0x00, 0xDE, 0x04, 0x26, 0xDE, 0x01, 0x00, 0x16, 0x2A};
    auto body = [&](std::initializer_list<std::pair<unsigned int, unsigned char>> changes, unsigned short maxStack = 2) {
        Bytes changed = code;
        for (auto [at, value] : changes) changed[at] = value;
        return fatBody(changed, maxStack, 2, 4, 6, 3);
    };
    EXPECT_EQ(verify(body({})), "ok");
    struct Case {
        Bytes body;
        const char* fault;
    } cases[] = {
        {body({{0, 0x2B}, {1, 0x03}}), "Branch at 0x0 aims inside an instruction."},
        {body({{0, 0x2B}, {1, 0x01}}), "Branch at 0x0 enters a block at 0x3."},
        {body({{4, 0x2B}}), "Branch at 0x4 leaves a block without leave."},
        {body({{4, 0x00}, {5, 0x00}}), "Code falls out of a block at 0x5."},
        {body({{1, 0x16}}), "Stack not empty (1) at the try at 0x2."},
        {body({{3, 0x2A}}), "ret at 0x3 inside a block."},
        {body({{10, 0x00}}), "ret at 0xB with 0 values on the stack."},
        {body({}, 0), "Stack depth 1 above MaxStack 0 at 0xA."},
        {body({{3, 0x09}}), "Local 3 at 0x3 is out of range."},
        {body({{3, 0x03}}), "Argument 1 at 0x3 is out of range."},
        {body({{2, 0xFE}, {3, 0x14}}), "tail. at 0x2 is not followed by a call and ret."},
        {body({{5, 0x03}, {9, 0x16}}), "Stack depth 1 meets depth 0 at 0xA (next)."},
        {Bytes{0x1B, 0x30, 8, 0, 0xFF, 0, 0, 0}, "Bad header."},
    };
    for (const Case& c : cases) EXPECT_EQ(verify(c.body), c.fault);

    // An int where pushTrace(int32, object) takes its object: the runtime's
    // InvalidProgramException; null is an object.
    ASSERT_EQ(rewrite(u"RewriteShapes.Shapes", u"ManyReturns").hr, S_OK);
    unsigned int push = profiler->getTraceToken(Profiler::kPushToken);
    Bytes call = {0x26, 0x17, 0x17, 0x28};
    call.insert(call.end(), {static_cast<unsigned char>(push), static_cast<unsigned char>(push >> 8),
                             static_cast<unsigned char>(push >> 16), static_cast<unsigned char>(push >> 24)});
    call.insert(call.end(), {0x16, 0x2A});
    call[0] = static_cast<unsigned char>((call.size() - 1) << 2 | 2);
    EXPECT_EQ(verify(call), "A value where an object is expected: argument 1 of the call at 0x2.");
    call[2] = 0x14;
    EXPECT_EQ(verify(call), "ok");
}

// No false alarm: every body of every assembly of the base and web frameworks,
// as shipped, passes.
TEST_F(BodyVerifierTest, EveryFrameworkBodyPasses) {
    unsigned int assemblies = 0;
    unsigned int checked = 0;
    std::string base = AssemblyBodies::frameworkDir();
    std::string web = base;
    web.replace(web.find("Microsoft.NETCore.App"), 21, "Microsoft.AspNetCore.App");
    std::vector<std::filesystem::directory_entry> entries;
    for (const std::string& folder : {base, web}) {
        if (!std::filesystem::is_directory(folder)) continue;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) entries.push_back(entry);
    }
    for (const auto& entry : entries) {
        std::string path = entry.path().string();
        if (entry.path().extension() != ".dll") continue;
        ModuleID module = info->addModule(path);
        if (module == 0) continue;  // a native library
        ++assemblies;
        IMetaDataImport* import = info->importOf(module);
        for (const AssemblyBodies::Body& body : info->bodiesOf(module).bodies()) {
            mdMethodDef token = TokenFromRid(body.methodRow, mdtMethodDef);
            PCCOR_SIGNATURE signature = nullptr;
            ULONG signatureLength = 0;
            ASSERT_EQ(import->GetMethodProps(token, nullptr, nullptr, 0, nullptr, nullptr, &signature, &signatureLength,
                                             nullptr, nullptr),
                      S_OK);
            ULONG generic = 0;
            ULONG parameters = 0;
            ULONG at = 1 + ((signature[0] & 0x10) != 0 ? CorSigUncompressData(signature + 1, signatureLength - 1, &generic) : 0);
            ASSERT_NE(CorSigUncompressData(signature + at, signatureLength - at, &parameters), 0u);
            PCCOR_SIGNATURE locals = nullptr;
            ULONG localsLength = 0;
            unsigned int localCount = 0;
            unsigned int localToken = (body.bytes[0] & 3) == 3 ? body.bytes[8] | body.bytes[9] << 8 |
                                                                     body.bytes[10] << 16 |
                                                                     static_cast<unsigned int>(body.bytes[11]) << 24
                                                               : 0;
            if (localToken != 0) {
                ASSERT_EQ(import->GetSigFromToken(localToken, &locals, &localsLength), S_OK);
                ULONG count = 0;
                ASSERT_NE(CorSigUncompressData(locals + 1, localsLength - 1, &count), 0u);
                localCount = count;
            }
            VerifiedMethod method{body.bytes, body.size, parameters + ((signature[0] & 0x20) != 0 ? 1u : 0u),
                                  localCount, returnsValue(module, token), signature, signatureLength,
                                  locals, localsLength, import};
            char16_t reason[160] = {};
            ASSERT_EQ(BodyVerifier::verify(method, reason, 160), S_OK)
                << path << " " << info->bodiesOf(module).methodName(body.methodRow) << ": " << narrow(reason);
            ++checked;
        }
    }
    std::cout << assemblies << " assemblies, " << checked << " bodies\n";
    EXPECT_GT(assemblies, 100u);
    EXPECT_GT(checked, 100000u);
}

}  // namespace
