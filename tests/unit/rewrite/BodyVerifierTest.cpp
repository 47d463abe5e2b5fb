// The verifier that stands between a rewritten body and the runtime: it must
// name each fault the runtime would refuse in a body made to break one rule.
#include <string>
#include <vector>

#include "RewriteFixture.h"
#include "rewrite/BodyVerifier.h"
#include "rewrite/CorSig.h"

namespace {

using Bytes = std::vector<unsigned char>;

void put32(Bytes& out, unsigned int value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

using Changes = std::initializer_list<std::pair<unsigned int, unsigned char>>;

Bytes patched(Bytes code, Changes changes) {
    for (auto [at, value] : changes) code[at] = value;
    return code;
}

// A fat body with one clause: a catch, or a filter starting at filterOffset.
Bytes fatBody(const Bytes& code, unsigned short maxStack, unsigned int tryOffset, unsigned int tryLength,
              unsigned int handlerOffset, unsigned int handlerLength, unsigned int filterOffset = 0) {
    Bytes body = {0x1B, 0x30, static_cast<unsigned char>(maxStack), static_cast<unsigned char>(maxStack >> 8)};
    put32(body, static_cast<unsigned int>(code.size()));
    put32(body, 0);
    body.insert(body.end(), code.begin(), code.end());
    while (body.size() % 4 != 0) body.push_back(0);
    body.insert(body.end(), {0x41, 28, 0, 0});
    const unsigned int flags = filterOffset != 0 ? 1u : 0u;
    const unsigned int classOrFilter = filterOffset != 0 ? filterOffset : 0x01000001u;
    for (unsigned int value : {flags, tryOffset, tryLength, handlerOffset, handlerLength, classOrFilter}) {
        put32(body, value);
    }
    return body;
}

// static int32 (int32), with one int32 local.
const unsigned char kSignature[4] = {0x00, 0x01, 0x08, 0x08};
const unsigned char kLocals[3] = {0x07, 0x01, 0x08};

class BodyVerifierTest : public RewriteFixture {
protected:
    std::string verify(const Bytes& body, VerifiedCallees* callees = nullptr) {
        const auto size = static_cast<unsigned int>(body.size());
        VerifiedMethod method{body.data(), size, 1, 1, true, kSignature, 4, kLocals, 3, info->importOf(shapes),
                              callees};
        char16_t reason[160] = {};
        return BodyVerifier::verify(method, reason, 160) == S_OK ? "ok" : RealAssemblies::narrow(reason);
    }
};

TEST_F(BodyVerifierTest, EachBrokenRuleIsNamed) {
    // nop nop | try: nop nop leave.s L | handler: pop leave.s L | nop | L: ldc.i4.0 ret
    const Bytes code = {0x00, 0x00, 0x00, 0x00, 0xDE, 0x04, 0x26, 0xDE, 0x01, 0x00, 0x16, 0x2A};
    auto body = [&](Changes changes, unsigned short maxStack = 2) {
        return fatBody(patched(code, changes), maxStack, 2, 4, 6, 3);
    };
    EXPECT_EQ(verify(body({})), "ok");
    // The handler may leave for any place of its own try block (VB's resume), not branch there.
    EXPECT_EQ(verify(body({{8, 0xFA}})), "ok");
    struct Case {
        Bytes body;
        const char* fault;
    } cases[] = {
        {body({{0, 0x2B}, {1, 0x03}}), "Branch at 0x0 aims inside an instruction."},
        {body({{0, 0x2B}, {1, 0x01}}), "Branch at 0x0 enters a block at 0x3."},
        {body({{7, 0x2B}, {8, 0xFA}}), "Branch at 0x7 enters a block at 0x3."},
        {body({{4, 0x2B}}), "Branch at 0x4 leaves a block without leave."},
        {body({{4, 0x00}, {5, 0x00}}), "Code falls out of a block at 0x5."},
        {body({{1, 0x16}}), "Stack not empty (1) at the try at 0x2."},
        {body({{3, 0x2A}}), "ret at 0x3 inside a block."},
        {body({{10, 0x00}}), "ret at 0xB with 0 values on the stack."},
        {body({}, 0), "Stack depth 1 above MaxStack 0 at 0xA."},
        {body({{0, 0x26}}), "Stack underflow at 0x0."},
        {body({{3, 0x09}}), "Local 3 at 0x3 is out of range."},
        {body({{3, 0x03}}), "Argument 1 at 0x3 is out of range."},
        {body({{2, 0xFE}, {3, 0x14}}), "tail. at 0x2 is not followed by a call and ret."},
        {body({{5, 0x03}, {9, 0x16}}), "Stack depth 1 meets depth 0 at 0xA (next)."},
        {Bytes{0x1B, 0x30, 8, 0, 0xFF, 0, 0, 0}, "Bad header."},
    };
    for (const Case& c : cases) EXPECT_EQ(verify(c.body), c.fault);

    // nop nop | try: nop nop leave.s L | filter: pop ldc.i4.0 endfilter | handler: pop leave.s L | L: ldc.i4.0 ret
    const Bytes filtered = {0x00, 0x00, 0x00, 0x00, 0xDE, 0x07, 0x26, 0x16, 0xFE, 0x11, 0x26, 0xDE, 0x00, 0x16, 0x2A};
    auto withFilter = [&](Changes changes) { return fatBody(patched(filtered, changes), 2, 2, 4, 10, 3, 6); };
    EXPECT_EQ(verify(withFilter({})), "ok");
    const Case filterCases[] = {
        {withFilter({{6, 0x00}}), "endfilter at 0x8 without exactly one number on the stack."},
        {withFilter({{8, 0x00}, {9, 0x00}}), "The filter at 0x6 does not end with endfilter."},
        {withFilter({{6, 0x2B}, {7, 0x02}}), "Branch at 0x6 leaves a filter."},
        {withFilter({{6, 0xFE}, {7, 0x1A}}), "rethrow at 0x6 inside a filter."},
        {withFilter({{11, 0xFE}, {12, 0x11}}), "endfilter at 0xB outside a filter."},
    };
    for (const Case& c : filterCases) EXPECT_EQ(verify(c.body), c.fault);

    // An int where pushTrace(int32, object) takes its object: the runtime's
    // InvalidProgramException; null is an object. The callees, kept from one
    // body to the next or read at each call, answer as their own signatures
    // do, each by its token.
    ASSERT_EQ(rewrite(u"RewriteShapes.Shapes", u"ManyReturns").hr, S_OK);
    // Tiny bodies: ldc.i4.1, ldc.i4.1 or ldnull, the call, ldc.i4.0 or pop, ret.
    auto call = [&](auto callee, unsigned char second, unsigned char beforeRet) {
        Bytes body = {(9 << 2) | 2, 0x17, second, 0x28};
        put32(body, profiler->getTraceToken(callee));
        body.insert(body.end(), {beforeRet, 0x2A});
        return body;
    };
    const Bytes push = call(Profiler::kPushToken, 0x17, 0x16), init = call(Profiler::kInitToken, 0x17, 0x26);
    // ldnull, catchTrace(object), ldc.i4.1, initTrace(int32), pop, ldc.i4.0, ret.
    Bytes nullThenInit = {(15 << 2) | 2, 0x14, 0x28};
    put32(nullThenInit, profiler->getTraceToken(Profiler::kCatchToken));
    nullThenInit.insert(nullThenInit.end(), {0x17, 0x28});
    put32(nullThenInit, profiler->getTraceToken(Profiler::kInitToken));
    nullThenInit.insert(nullThenInit.end(), {0x26, 0x16, 0x2A});
    VerifiedCallees kept;
    for (VerifiedCallees* callees : {static_cast<VerifiedCallees*>(nullptr), &kept, &kept}) {
        EXPECT_EQ(verify(push, callees), "A value where an object is expected: argument 1 of the call at 0x2.");
        EXPECT_EQ(verify(init, callees), "ok");
        EXPECT_EQ(verify(nullThenInit, callees), "ok");
    }
    EXPECT_EQ(kept.size(), 3u);
}

// A module's table of callees holds thousands: each token finds its own
// callee through every growth of the table, and no other token finds one.
TEST(VerifiedCalleesTest, EachTokenFindsItsOwnCallee) {
    VerifiedCallees callees;
    for (unsigned int rid = 1; rid <= 1000; ++rid) {
        for (unsigned int table : {0x06000000u, 0x0A000000u}) callees.add(table | rid, {.parameters = table + rid});
    }
    EXPECT_EQ(callees.size(), 2000u);
    for (unsigned int rid = 1; rid <= 1000; ++rid) {
        for (unsigned int table : {0x06000000u, 0x0A000000u}) {
            const VerifiedCallee* found = callees.find(table | rid);
            ASSERT_NE(found, nullptr);
            EXPECT_EQ(found->parameters, table + rid);
        }
    }
    for (unsigned int absent : {0u, 0x06000000u, 0x060003E9u, 0x2B000001u}) EXPECT_EQ(callees.find(absent), nullptr);
}

}  // namespace
