// Every method, local and type signature of a few framework assemblies reads
// with the stream classes and copies back to the same bytes.
#include <gtest/gtest.h>

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
    unsigned long methods = 0;
    unsigned long locals = 0;
    unsigned long typeSpecs = 0;
    unsigned long parameters = 0;
    unsigned long voidPointers = 0;  // read by the streams' own rule, not compared
    std::map<unsigned char, unsigned long> parameterTypes;
    unsigned long modifiers = 0;
};

// Whether the blob may hold an element that the streams read by their own rule
// rather than the published grammar: the VOID of a void* stays unread, and a
// general array's element type is read as a token. A byte scan that errs on the
// side of yes; such blobs are read but not compared.
bool mayHoldVoidPointer(const AssemblyBodies::Blob& blob) {
    for (uint32_t i = 0; i + 1 < blob.length; ++i) {
        if (blob.data[i] == ELEMENT_TYPE_PTR || blob.data[i] == ELEMENT_TYPE_ARRAY) return true;
    }
    return false;
}

bool modifierFollows(IBlobInputStream& in) {
    unsigned char next = 0;
    return SUCCEEDED(in.peekByte(&next)) && (next == ELEMENT_TYPE_CMOD_OPT || next == ELEMENT_TYPE_CMOD_REQD);
}

Bytes copyOf(const IBlobOutputStream& output) {
    auto& stream = const_cast<IBlobOutputStream&>(output);
    return Bytes(stream.getBytes(), stream.getBytes() + stream.getLength());
}

void checkMethodSignature(const AssemblyBodies::Blob& blob, Totals& totals) {
    std::unique_ptr<IMethodBlobInputStream> method(IMethodBlobInputStream::newInstance(blob.data, blob.length));
    ASSERT_NE(method, nullptr);
    // The noted places against a walk of our own.
    unsigned char flags = 0;
    unsigned int count = 0;
    method->shiftToFlags();
    ASSERT_EQ(method->getIndex(), 0u);
    ASSERT_EQ(method->readByte(&flags), S_OK);
    if (flags & IMAGE_CEE_CS_CALLCONV_GENERIC) {
        ASSERT_EQ(method->readNumber(nullptr), S_OK);
    }
    unsigned int paramCountAt = method->getIndex();
    method->shiftToParamCount();
    ASSERT_EQ(method->getIndex(), paramCountAt);
    ASSERT_EQ(method->readNumber(&count), S_OK);
    unsigned int retTypeAt = method->getIndex();
    method->shiftToRetType();
    ASSERT_EQ(method->getIndex(), retTypeAt);
    totals.modifiers += modifierFollows(*method);
    ASSERT_EQ(method->readRetType(nullptr, nullptr), S_OK);
    unsigned int firstParamAt = method->getIndex();
    method->shiftToFirstParam();
    ASSERT_EQ(method->getIndex(), firstParamAt);

    bool voidPointer = mayHoldVoidPointer(blob);
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int start = method->getIndex();
        totals.modifiers += modifierFollows(*method);
        unsigned char type = 0;
        ASSERT_EQ(method->readParam(&type, nullptr), S_OK) << "parameter " << i;
        ++totals.parameters;
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
    if (voidPointer) {
        ++totals.voidPointers;
        return;
    }
    ASSERT_EQ(method->getIndex(), blob.length);
    std::unique_ptr<IBlobInputStream> whole(IBlobInputStream::newInstance(blob.data, blob.length));
    output->reset();
    ASSERT_EQ(output->writeMethod(whole.get()), S_OK);
    ASSERT_EQ(copyOf(*output), Bytes(blob.data, blob.data + blob.length));
}

void checkLocalSignature(const AssemblyBodies::Blob& blob, Totals& totals) {
    std::unique_ptr<IBlobInputStream> in(IBlobInputStream::newInstance(blob.data, blob.length));
    unsigned char kind = 0;
    unsigned int count = 0;
    ASSERT_EQ(in->readByte(&kind), S_OK);
    ASSERT_EQ(in->readNumber(&count), S_OK);
    // Read to the end of the blob: a pinned local reads as PINNED and then its type.
    unsigned int reads = 0;
    unsigned int pinned = 0;
    unsigned char type = 0;
    while (SUCCEEDED(in->readParam(&type, nullptr))) {
        ++reads;
        pinned += type == ELEMENT_TYPE_PINNED;
    }
    if (mayHoldVoidPointer(blob)) {
        ++totals.voidPointers;
        return;
    }
    ASSERT_EQ(in->getIndex(), blob.length);
    ASSERT_EQ(reads, count + pinned);

    std::unique_ptr<IBlobInputStream> copyFrom(IBlobInputStream::newInstance(blob.data, blob.length));
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    ASSERT_EQ(output->writeByte(copyFrom.get(), nullptr), S_OK);
    ASSERT_EQ(output->writeNumber(copyFrom.get(), nullptr), S_OK);
    while (SUCCEEDED(output->writeParam(copyFrom.get()))) {
    }
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
    if (mayHoldVoidPointer(blob)) {
        ++totals.voidPointers;
        return;
    }
    ASSERT_EQ(in->getIndex(), blob.length);
    in->reset();
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    ASSERT_EQ(output->writeParam(in.get()), S_OK);
    ASSERT_EQ(copyOf(*output), Bytes(blob.data, blob.data + blob.length));
    ++totals.typeSpecs;
}

void checkAssembly(const std::string& path, Totals& totals) {
    AssemblyBodies assembly;
    ASSERT_TRUE(assembly.load(path)) << path;
    uint32_t row = 0;
    for (const AssemblyBodies::Blob& blob : assembly.signatures(mdtMethodDef)) {
        SCOPED_TRACE(path + " method " + assembly.methodName(++row));
        ASSERT_NE(blob.data, nullptr);
        checkMethodSignature(blob, totals);
        if (::testing::Test::HasFatalFailure()) return;
        ++totals.methods;
    }
    row = 0;
    for (const AssemblyBodies::Blob& blob : assembly.signatures(mdtSignature)) {
        SCOPED_TRACE(path + " standalone signature " + std::to_string(++row));
        ASSERT_NE(blob.data, nullptr);
        ASSERT_GT(blob.length, 0u);
        if (blob.data[0] == IMAGE_CEE_CS_CALLCONV_LOCAL_SIG) {
            checkLocalSignature(blob, totals);
        } else {
            checkMethodSignature(blob, totals);
            ++totals.methods;
        }
        if (::testing::Test::HasFatalFailure()) return;
    }
    row = 0;
    for (const AssemblyBodies::Blob& blob : assembly.signatures(mdtTypeSpec)) {
        SCOPED_TRACE(path + " TypeSpec " + std::to_string(++row));
        ASSERT_NE(blob.data, nullptr);
        checkTypeSpec(blob, totals);
        if (::testing::Test::HasFatalFailure()) return;
    }
}

}  // namespace

TEST(RealSignatures, EveryFrameworkSignatureReadsAndCopiesBack) {
    Totals totals;
    for (const std::string& path : AssemblyBodies::frameworkAssemblies()) {
        checkAssembly(path, totals);
        if (HasFatalFailure()) return;
    }
    std::cout << "[ signatures ] " << totals.methods << " method signatures (" << totals.parameters
              << " parameters), " << totals.locals << " local signatures, " << totals.typeSpecs
              << " TypeSpecs copied to the same bytes; " << totals.voidPointers
              << " with a pointer or general array read but not compared\n";
    EXPECT_GT(totals.methods, 50000u);
    EXPECT_GT(totals.locals, 5000u);
    EXPECT_GT(totals.modifiers, 0u);
    for (unsigned char type : {ELEMENT_TYPE_GENERICINST, ELEMENT_TYPE_SZARRAY, ELEMENT_TYPE_BYREF, ELEMENT_TYPE_FNPTR,
                               ELEMENT_TYPE_VAR, ELEMENT_TYPE_MVAR, ELEMENT_TYPE_VALUETYPE, ELEMENT_TYPE_CLASS,
                               ELEMENT_TYPE_PTR, ELEMENT_TYPE_ARRAY}) {
        EXPECT_GT(totals.parameterTypes[type], 0u) << "element type " << int(type);
    }
}
