#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "rewrite/IBlobInputStream.h"
#include "rewrite/IBlobOutputStream.h"
#include "rewrite/IMethodBlobInputStream.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A stream together with the bytes it reads, which it does not own.
struct OwnedInput {
    explicit OwnedInput(Bytes source)
        : bytes(std::move(source)),
          stream(IBlobInputStream::newInstance(bytes.data(), static_cast<unsigned int>(bytes.size()))) {}
    IBlobInputStream* get() const { return stream.get(); }

    Bytes bytes;
    std::unique_ptr<IBlobInputStream> stream;
};

std::unique_ptr<OwnedInput> input(const Bytes& bytes) { return std::make_unique<OwnedInput>(bytes); }

Bytes outputOf(IBlobOutputStream& output) {
    return Bytes(output.getBytes(), output.getBytes() + output.getLength());
}

}  // namespace

TEST(BlobStreams, NumbersRoundTripInCanonicalWidths) {
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    const unsigned int values[] = {0x7F, 0x80, 0x3FFF, 0x4000, 0x1FFFFFFF};
    const unsigned int widths[] = {1, 2, 2, 4, 4};
    for (int i = 0; i < 5; ++i) {
        output->reset();
        ASSERT_EQ(output->writeNumber(values[i]), S_OK);
        EXPECT_EQ(output->getLength(), widths[i]);
        Bytes bytes = outputOf(*output);
        auto in = input(bytes);
        unsigned int value = 0;
        EXPECT_EQ(in->stream->readNumber(&value), S_OK);
        EXPECT_EQ(value, values[i]);
        EXPECT_EQ(in->stream->getIndex(), widths[i]);
    }
    EXPECT_EQ(output->writeNumber(0x20000000), E_INVALIDARG);

    unsigned int value = 0;
    EXPECT_EQ(input({0x80})->stream->readNumber(&value), E_FAIL);              // cut short
    EXPECT_EQ(input({0xC0, 0x00, 0x01})->stream->readNumber(&value), E_FAIL);  // four bytes announced, three there
    EXPECT_EQ(input({0xE0, 0, 0, 1})->stream->readNumber(&value), E_FAIL);     // bit 0x20
    EXPECT_EQ(input({})->stream->readNumber(&value), E_FAIL);
    ASSERT_EQ(input({0xFF})->stream->readNumber(&value), S_OK);                // 0xFF stands alone
    EXPECT_EQ(value, 255u);
    auto partial = input({0x05, 0x80});
    EXPECT_EQ(partial->stream->readNumber(nullptr), S_OK);
    EXPECT_EQ(partial->stream->readNumber(&value), E_FAIL);
    EXPECT_EQ(partial->stream->getIndex(), 1u);
}

TEST(BlobStreams, TokensUseTheTypeDefOrRefOrSpecEncoding) {
    unsigned int token = 0;
    ASSERT_EQ(input({0x49})->stream->readToken(&token), S_OK);
    EXPECT_EQ(token, 0x01000012u);  // TypeRef row 18
    ASSERT_EQ(input({0x08})->stream->readToken(&token), S_OK);
    EXPECT_EQ(token, 0x02000002u);
    ASSERT_EQ(input({0x0A})->stream->readToken(&token), S_OK);
    EXPECT_EQ(token, 0x1B000002u);
    EXPECT_EQ(input({0x0B})->stream->readToken(&token), E_FAIL);

    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    EXPECT_EQ(output->writeToken(0x01000012), S_OK);
    EXPECT_EQ(output->writeToken(0x1B000100), S_OK);
    EXPECT_EQ(output->writeToken(0x0A000001), E_INVALIDARG);
    EXPECT_EQ(outputOf(*output), (Bytes{0x49, 0x84, 0x02}));
}

TEST(BlobStreams, ParamsAndReturnTypesFollowTheirOwnReadingRules) {
    // int32 (void*, int32): the VOID belongs to the pointer, the int32 follows.
    Bytes signature = {0x00, 0x02, 0x08, 0x0F, 0x01, 0x08};
    auto in = input(signature);
    in->stream->setIndex(3);
    unsigned char type = 0;
    unsigned int token = 1;
    ASSERT_EQ(in->stream->readParam(&type, &token), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_PTR);
    EXPECT_EQ(token, 0u);
    ASSERT_EQ(in->stream->readParam(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_I4);
    EXPECT_EQ(in->stream->getIndex(), 6u);

    // ref int: BYREF as a parameter, the type behind it as a return type.
    auto byref = input({0x10, 0x08});
    ASSERT_EQ(byref->stream->readParam(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_BYREF);
    byref->stream->reset();
    ASSERT_EQ(byref->stream->readRetType(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_I4);

    // ref class TypeRef 18 with a modifier ahead: the token of the type behind.
    auto modified = input({0x1F, 0x49, 0x10, 0x12, 0x49});
    ASSERT_EQ(modified->stream->readParam(&type, &token), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_BYREF);
    EXPECT_EQ(token, 0x01000012u);
    unsigned int length = 0;
    std::unique_ptr<unsigned char[]> copy(modified->stream->copyLastSignature(0, &length));
    EXPECT_EQ(Bytes(copy.get(), copy.get() + length), (Bytes{0x1F, 0x49, 0x10, 0x12, 0x49}));
    EXPECT_EQ(modified->stream->copyLastSignature(9, &length), nullptr);

    // A modifier check that fails leaves the position unchanged.
    auto notModifier = input({0x08});
    EXPECT_EQ(notModifier->stream->readCustomMod(&type, &token), E_FAIL);
    EXPECT_EQ(notModifier->stream->getIndex(), 0u);

    // void and typedbyref as return types.
    ASSERT_EQ(input({0x01})->stream->readRetType(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_VOID);
    ASSERT_EQ(input({0x16})->stream->readParam(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_TYPEDBYREF);
}

TEST(BlobStreams, TypesCoverGenericsArraysAndFunctionPointers) {
    unsigned char type = 0;
    unsigned int token = 0;
    // List<!0>: GENERICINST CLASS TypeRef 18, one argument VAR 0
    auto generic = input({0x15, 0x12, 0x49, 0x01, 0x13, 0x00});
    ASSERT_EQ(generic->stream->readType(&type, &token), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_GENERICINST);
    EXPECT_EQ(token, 0x01000012u);
    EXPECT_EQ(generic->stream->getIndex(), 6u);
    // int32[,] with sizes and lower bounds, and !0[] of rank 1: the element is a type.
    auto array = input({0x14, 0x08, 0x02, 0x01, 0x03, 0x02, 0x00, 0x00, 0x2A});
    ASSERT_EQ(array->stream->readType(&type, nullptr), S_OK);
    EXPECT_EQ(array->stream->getIndex(), 8u);
    auto ofVar = input({0x14, 0x13, 0x00, 0x01, 0x00, 0x00, 0x2A});
    ASSERT_EQ(ofVar->stream->readType(nullptr, nullptr), S_OK);
    EXPECT_EQ(ofVar->stream->getIndex(), 6u);
    // method *(int32, string) returning void
    auto pointer = input({0x1B, 0x00, 0x02, 0x01, 0x08, 0x0E, 0x2A});
    ASSERT_EQ(pointer->stream->readType(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_FNPTR);
    EXPECT_EQ(pointer->stream->getIndex(), 6u);
    // string[] with a modifier, !!1, and an unknown element that stands alone
    auto szarray = input({0x1D, 0x20, 0x49, 0x0E});
    ASSERT_EQ(szarray->stream->readType(&type, nullptr), S_OK);
    EXPECT_EQ(szarray->stream->getIndex(), 4u);
    auto mvar = input({0x1E, 0x01});
    ASSERT_EQ(mvar->stream->readType(&type, nullptr), S_OK);
    EXPECT_EQ(mvar->stream->getIndex(), 2u);
    auto other = input({0x45, 0x08});
    ASSERT_EQ(other->stream->readType(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_PINNED);
    EXPECT_EQ(other->stream->getIndex(), 1u);
}

TEST(BlobStreams, MalformedAndTruncatedSignaturesFail) {
    const std::vector<Bytes> bad = {
        {},
        {0x12},                    // class without token
        {0x12, 0x0B},              // token of the fourth table
        {0x15, 0x12, 0x49, 0x02, 0x08},  // two type arguments, one there
        {0x14, 0x08, 0x02, 0x01},  // array cut short
        {0x1B, 0x00, 0x01, 0x01},  // function pointer without its parameter
        {0x1D},                    // array of nothing
        {0x0F},                    // pointer at the end
        {0x13},                    // VAR without its number
        {0x1F, 0x49},              // a modifier and nothing behind it
    };
    for (const Bytes& bytes : bad) {
        auto in = input(bytes);
        EXPECT_EQ(in->stream->readParam(nullptr, nullptr), E_FAIL) << bytes.size();
        EXPECT_LE(in->stream->getIndex(), bytes.size());
        std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
        auto again = input(bytes);
        EXPECT_EQ(output->writeParam(again->get()), E_FAIL);
    }
    // Nesting deep enough to exhaust a stack is refused.
    Bytes deep(100000, 0x1D);
    deep.push_back(0x08);
    EXPECT_EQ(input(deep)->stream->readType(nullptr, nullptr), E_FAIL);
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    auto deepInput = input(deep);
    EXPECT_EQ(output->writeType(deepInput->get()), E_FAIL);

    EXPECT_EQ(IMethodBlobInputStream::newInstance(nullptr, 0), nullptr);
    const Bytes truncatedMethod = {0x20, 0x01};
    EXPECT_EQ(IMethodBlobInputStream::newInstance(truncatedMethod.data(), 2), nullptr);
}

TEST(BlobStreams, MethodStreamNotesWhereThePartsBegin) {
    // generic instance method <1> : void (!!0, int32)
    Bytes generic = {0x30, 0x01, 0x02, 0x01, 0x1E, 0x00, 0x08};
    std::unique_ptr<IMethodBlobInputStream> method(
        IMethodBlobInputStream::newInstance(generic.data(), static_cast<unsigned int>(generic.size())));
    ASSERT_NE(method, nullptr);
    EXPECT_EQ(method->getIndex(), 4u);  // at the first parameter
    method->shiftToParamCount();
    EXPECT_EQ(method->getIndex(), 2u);
    unsigned int count = 0;
    ASSERT_EQ(method->readNumber(&count), S_OK);
    EXPECT_EQ(count, 2u);
    method->shiftToRetType();
    EXPECT_EQ(method->getIndex(), 3u);
    method->shiftToFlags();
    EXPECT_EQ(method->getIndex(), 0u);
    method->shiftToFirstParam();
    unsigned char type = 0;
    ASSERT_EQ(method->readParam(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_MVAR);
    ASSERT_EQ(method->readParam(&type, nullptr), S_OK);
    EXPECT_EQ(type, ELEMENT_TYPE_I4);
    EXPECT_EQ(method->readParam(&type, nullptr), E_FAIL);

    auto plain = input({0x00, 0x00, 0x08});
    std::unique_ptr<IMethodBlobInputStream> fromInput(IMethodBlobInputStream::newInstance(plain->get()));
    ASSERT_NE(fromInput, nullptr);
    fromInput->shiftToParamCount();
    EXPECT_EQ(fromInput->getIndex(), 1u);
    EXPECT_EQ(fromInput->getLength(), 3u);
}

TEST(BlobStreams, CopiesMirrorTheReadingRules) {
    std::unique_ptr<IBlobOutputStream> output(IBlobOutputStream::newInstance());
    // A method with modifiers, a byref, a generic instance and an array.
    Bytes method = {0x20, 0x03, 0x1F, 0x49, 0x01, 0x10, 0x08, 0x15, 0x12, 0x49, 0x01, 0x0E,
                    0x14, 0x08, 0x02, 0x00, 0x00};
    auto in = input(method);
    ASSERT_EQ(output->writeMethod(in->get()), S_OK);
    EXPECT_EQ(outputOf(*output), method);
    EXPECT_EQ(in->stream->getIndex(), method.size());

    // The VOID behind a pointer is copied with it; a general array of a
    // generic parameter (!!0[,]) keeps its element type whole.
    output->reset();
    auto pointer = input({0x0F, 0x01, 0x08});
    ASSERT_EQ(output->writeParam(pointer->get()), S_OK);
    EXPECT_EQ(outputOf(*output), (Bytes{0x0F, 0x01}));
    EXPECT_EQ(pointer->stream->getIndex(), 2u);
    output->reset();
    Bytes array = {0x14, 0x1E, 0x00, 0x02, 0x00, 0x00, 0x08};
    auto general = input(array);
    ASSERT_EQ(output->writeParam(general->get()), S_OK);
    EXPECT_EQ(outputOf(*output), Bytes(array.begin(), array.end() - 1));
    EXPECT_EQ(general->stream->getIndex(), array.size() - 1);

    // Non-canonical numbers come out canonical; a copied byte stays as it is.
    output->reset();
    auto wide = input({0x80, 0x05, 0xC0, 0x00, 0x00, 0x49, 0xFF});
    unsigned int value = 0;
    ASSERT_EQ(output->writeNumber(wide->get(), &value), S_OK);
    EXPECT_EQ(value, 5u);
    ASSERT_EQ(output->writeToken(wide->get(), &value), S_OK);
    EXPECT_EQ(value, 0x01000012u);
    unsigned char byte = 0;
    ASSERT_EQ(output->writeByte(wide->get(), &byte), S_OK);
    EXPECT_EQ(outputOf(*output), (Bytes{0x05, 0x49, 0xFF}));
    EXPECT_EQ(output->writeByte(wide->get(), &byte), E_FAIL);

    // The buffer grows past its first 64 bytes and keeps what it held.
    output->reset();
    for (unsigned int i = 0; i < 200; ++i) ASSERT_EQ(output->writeByte(static_cast<unsigned char>(i)), S_OK);
    ASSERT_EQ(output->getLength(), 200u);
    EXPECT_EQ(output->getBytes()[0], 0);
    EXPECT_EQ(output->getBytes()[199], 199);
}
