// Every method, local and type signature of a few framework assemblies reads
// with the stream classes and copies back to the same bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <vector>

#include "rewrite/IBlobInputStream.h"
#include "rewrite/IBlobOutputStream.h"
#include "rewrite/IMethodBlobInputStream.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "support/AssemblyBodies.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct Totals {
    unsigned long methods = 0, locals = 0, modifiers = 0;
    std::map<unsigned char, unsigned long> parameterTypes;
};

// Whether the blob may hold an element that the streams read by their own rule
// rather than the published grammar: the VOID of a void* stays unread, and a
// general array's element type is read as a token. A byte scan that errs on the
// side of yes; such blobs are read but not compared.
bool mayHoldVoidPointer(const AssemblyBodies::Blob& blob) {
    return std::any_of(blob.data, blob.data + blob.length - 1,
                       [](unsigned char b) { return b == ELEMENT_TYPE_PTR || b == ELEMENT_TYPE_ARRAY; });
}

bool modifierFollows(IBlobInputStream& in) {
    unsigned char next = 0;
    return SUCCEEDED(in.peekByte(&next)) && (next == ELEMENT_TYPE_CMOD_OPT || next == ELEMENT_TYPE_CMOD_REQD);
}

Bytes copyOf(IBlobOutputStream& output) {
    return Bytes(output.getBytes(), output.getBytes() + output.getLength());
}

void checkMethodSignature(const AssemblyBodies::Blob& blob, Totals& totals) {
    std::unique_ptr<IMethodBlobInputStream> method(IMethodBlobInputStream::newInstance(blob.data, blob.length));
    ASSERT_NE(method, nullptr);
    // The noted places against a walk of our own: each shift lands where the walk stands.
    auto landsHere = [&](void (IMethodBlobInputStream::*shift)()) {
        const unsigned int here = method->getIndex();
        (method.get()->*shift)();
        return method->getIndex() == here;
    };
    unsigned char flags = 0;
    unsigned int count = 0;
    method->shiftToFlags();
    ASSERT_EQ(method->getIndex(), 0u);
    ASSERT_EQ(method->readByte(&flags), S_OK);
    if (flags & IMAGE_CEE_CS_CALLCONV_GENERIC) {
        ASSERT_EQ(method->readNumber(nullptr), S_OK);
    }
    ASSERT_TRUE(landsHere(&IMethodBlobInputStream::shiftToParamCount));
    ASSERT_EQ(method->readNumber(&count), S_OK);
    ASSERT_TRUE(landsHere(&IMethodBlobInputStream::shiftToRetType));
    totals.modifiers += modifierFollows(*method);
    ASSERT_EQ(method->readRetType(nullptr, nullptr), S_OK);
    ASSERT_TRUE(landsHere(&IMethodBlobInputStream::shiftToFirstParam));

    bool voidPointer = mayHoldVoidPointer(blob);
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int start = method->getIndex();
        totals.modifiers += modifierFollows(*method);
        unsigned char type = 0;
        ASSERT_EQ(method->readParam(&type, nullptr), S_OK) << "parameter " << i;
        ++totals.parameterTypes[type];
        if (voidPointer) continue;
        // Each parameter copies on its own to the bytes it was read from.
        unsigned int length = 0;
        std::unique_ptr<unsigned char[]> read(method->copyLastSignature(start, &length));
        std::unique_ptr<IBlobInputStream> again(IBlobInputStream::newInstance(blob.data, blob.length));
        again->setIndex(start);
        output->reset();
        ASSERT_EQ(output->writeParam(again.get()), S_OK);
        ASSERT_EQ(copyOf(*output), Bytes(read.get(), read.get() + length));
    }
    if (voidPointer) return;
    ASSERT_EQ(method->getIndex(), blob.length);
    std::unique_ptr<IBlobInputStream> whole(IBlobInputStream::newInstance(blob.data, blob.length));
    output->reset();
    ASSERT_EQ(output->writeMethod(whole.get()), S_OK);
    ASSERT_EQ(copyOf(*output), Bytes(blob.data, blob.data + blob.length));
}

void checkLocalSignature(const AssemblyBodies::Blob& blob, Totals& totals) {
    std::unique_ptr<IBlobInputStream> in(IBlobInputStream::newInstance(blob.data, blob.length));
    unsigned char kind = 0, type = 0;
    unsigned int count = 0, reads = 0, pinned = 0;
    ASSERT_EQ(in->readByte(&kind), S_OK);
    ASSERT_EQ(in->readNumber(&count), S_OK);
    // Read to the end of the blob: a pinned local reads as PINNED and then its type.
    while (SUCCEEDED(in->readParam(&type, nullptr))) {
        ++reads;
        pinned += type == ELEMENT_TYPE_PINNED;
    }
    if (mayHoldVoidPointer(blob)) return;
    ASSERT_EQ(in->getIndex(), blob.length);
    ASSERT_EQ(reads, count + pinned);

    std::unique_ptr<IBlobInputStream> copyFrom(IBlobInputStream::newInstance(blob.data, blob.length));
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    ASSERT_EQ(output->writeByte(copyFrom.get(), nullptr), S_OK);
    ASSERT_EQ(output->writeNumber(copyFrom.get(), nullptr), S_OK);
    while (SUCCEEDED(output->writeParam(copyFrom.get()))) continue;
    ASSERT_EQ(copyOf(*output), Bytes(blob.data, blob.data + blob.length));
    ++totals.locals;
}

void checkTypeSpec(const AssemblyBodies::Blob& blob, Totals& totals) {
    std::unique_ptr<IBlobInputStream> in(IBlobInputStream::newInstance(blob.data, blob.length));
    // A TypeSpec blob may begin with custom modifiers, which readParam takes first.
    unsigned char type = 0;
    totals.modifiers += modifierFollows(*in);
    ASSERT_EQ(in->readParam(&type, nullptr), S_OK);
    ++totals.parameterTypes[type];
    if (mayHoldVoidPointer(blob)) return;
    ASSERT_EQ(in->getIndex(), blob.length);
    in->reset();
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    ASSERT_EQ(output->writeParam(in.get()), S_OK);
    ASSERT_EQ(copyOf(*output), Bytes(blob.data, blob.data + blob.length));
}

void checkAssembly(const std::string& path, Totals& totals) {
    AssemblyBodies assembly;
    ASSERT_TRUE(assembly.load(path)) << path;
    for (CorTokenType table : {mdtMethodDef, mdtSignature, mdtTypeSpec}) {
        uint32_t row = 0;
        for (const AssemblyBodies::Blob& blob : assembly.signatures(table)) {
            ++row;
            SCOPED_TRACE(path + " table 0x" + std::to_string(table >> 24) + " row " + std::to_string(row) + " " +
                         (table == mdtMethodDef ? assembly.methodName(row) : ""));
            ASSERT_NE(blob.data, nullptr);
            ASSERT_GT(blob.length, 0u);
            if (table == mdtTypeSpec) {
                checkTypeSpec(blob, totals);
            } else if (blob.data[0] == IMAGE_CEE_CS_CALLCONV_LOCAL_SIG) {
                checkLocalSignature(blob, totals);
            } else {
                checkMethodSignature(blob, totals);
                ++totals.methods;
            }
            if (::testing::Test::HasFatalFailure()) return;
        }
    }
}

}  // namespace

TEST(RealSignatures, EveryFrameworkSignatureReadsAndCopiesBack) {
    Totals totals;
    for (const std::string& path : AssemblyBodies::frameworkAssemblies()) {
        checkAssembly(path, totals);
        if (HasFatalFailure()) return;
    }
    std::cout << "[ signatures ] " << totals.methods << " method and " << totals.locals << " local signatures\n";
    EXPECT_GT(totals.methods, 50000u);
    EXPECT_GT(totals.locals, 5000u);
    EXPECT_GT(totals.modifiers, 0u);
    for (unsigned char type : {ELEMENT_TYPE_GENERICINST, ELEMENT_TYPE_SZARRAY, ELEMENT_TYPE_BYREF, ELEMENT_TYPE_FNPTR,
                               ELEMENT_TYPE_VAR, ELEMENT_TYPE_MVAR, ELEMENT_TYPE_VALUETYPE, ELEMENT_TYPE_CLASS,
                               ELEMENT_TYPE_PTR, ELEMENT_TYPE_ARRAY}) {
        EXPECT_GT(totals.parameterTypes[type], 0u) << "element type " << int(type);
    }
}
