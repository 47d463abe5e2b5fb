// The checks every rewritten body must pass, independent of the builder:
// one ret behind the shared exit,
// the added clause outermost and last, the header, and the local signature
// extended at its end only.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "RewriteFixture.h"
#include "rewrite/CorSig.h"

// The count of a local signature and the bytes behind it; none for token 0.
inline std::pair<uint32_t, std::vector<unsigned char>> localSignature(IMetaDataImport* import, uint32_t token) {
    if (token == 0) return {};
    PCCOR_SIGNATURE bytes = nullptr;
    ULONG length = 0, count = 0;
    EXPECT_EQ(import->GetSigFromToken(token, &bytes, &length), S_OK);
    EXPECT_EQ(bytes[0], 0x07);
    const unsigned char* types = bytes + 1 + CorSigUncompressData(bytes + 1, length - 1, &count);
    return {count, std::vector<unsigned char>(types, bytes + length)};
}

// Returns the decoded body for further checks by the caller.
inline DecodedBody checkRewritten(ProfilerInfoDouble& info, Profiler& profiler, ModuleID module, mdMethodDef method,
                                  const unsigned char* body) {
    IMetaDataImport* import = info.importOf(module);
    DecodedBody verified = DecodedBody::read(body);
    EXPECT_TRUE(verified.ok()) << std::hex << method << " " << verified.error;
    EXPECT_FALSE(verified.clauses.empty());
    if (!verified.ok() || verified.clauses.empty()) return verified;

    EXPECT_TRUE(verified.fat);
    EXPECT_NE(verified.flags & 0x8, 0u);
    EXPECT_EQ(verified.count(0x2A), 1u) << "one ret";
    EXPECT_GE(verified.count(0xFE11), 1u) << "endfilter of the added filter";

    // The added clause: last, a filter right behind the protected block that
    // tests for System.Exception, around all others.
    const DecodedBody::Clause& added = verified.clauses.back();
    EXPECT_EQ(added.flags, 1u);
    EXPECT_EQ(added.handlerOffset + added.handlerLength, verified.codeSize);
    auto isinst = std::find_if(verified.instructions.begin(), verified.instructions.end(),
                               [&](const auto& i) { return i.offset >= added.classOrFilter && i.opcode == 0x75; });
    EXPECT_TRUE(isinst != verified.instructions.end() &&
                isinst->operand == profiler.getTraceToken(Profiler::kExceptionToken));
    uint32_t tryEnd = added.tryOffset + added.tryLength;
    for (size_t i = 0; i + 1 < verified.clauses.size(); ++i) {
        const DecodedBody::Clause& inner = verified.clauses[i];
        uint32_t innerBegin = (inner.flags & 1) != 0 ? std::min(inner.classOrFilter, inner.tryOffset) : inner.tryOffset;
        EXPECT_GE(innerBegin, added.tryOffset);
        EXPECT_LE(inner.handlerOffset + inner.handlerLength, tryEnd);
    }
    for (const DecodedBody::Instruction& instruction : verified.instructions) {
        if (instruction.opcode != 0x2A) continue;
        EXPECT_GE(instruction.offset, tryEnd) << "the ret stands behind the protected block";
        EXPECT_LT(instruction.offset, added.classOrFilter);
    }

    // Header: MaxStack of the incoming body plus 2, at least 3.
    LPCBYTE original = nullptr;
    ULONG size = 0;
    EXPECT_EQ(info.GetILFunctionBody(module, method, &original, &size), S_OK);
    bool tiny = (original[0] & 3) == 2;
    uint32_t incomingStack = tiny ? 8 : static_cast<uint16_t>(original[2] | original[3] << 8);
    EXPECT_EQ(verified.maxStack, std::max<uint32_t>(static_cast<uint16_t>(incomingStack + 2), 3));
    uint32_t incomingFlags = tiny ? 0x3 : static_cast<uint32_t>((original[0] | original[1] << 8) & 0xFFF);
    EXPECT_EQ(verified.flags, incomingFlags | 0x8);

    // Locals: the incoming ones unchanged, then the result and the trace local.
    uint32_t incomingToken = tiny ? 0 : static_cast<uint32_t>(original[8] | original[9] << 8 | original[10] << 16 |
                                                              static_cast<uint32_t>(original[11]) << 24);
    const auto [countBefore, before] = localSignature(import, incomingToken);
    const auto [countAfter, after] = localSignature(import, verified.localSigToken);
    const bool returnsValue = returnType(RealAssemblies::signatureOf(import, method)) != ELEMENT_TYPE_VOID;
    EXPECT_EQ(countAfter, countBefore + (returnsValue ? 2 : 1));
    EXPECT_EQ(countAfter, profiler.getLocalCount());
    EXPECT_GE(after.size(), before.size() + 1);
    if (after.size() > before.size()) {
        EXPECT_TRUE(std::equal(before.begin(), before.end(), after.begin()));
        EXPECT_EQ(after.back(), 0x08) << "trace local int32";
    }
    return verified;
}
