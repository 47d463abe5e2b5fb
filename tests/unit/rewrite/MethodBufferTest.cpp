#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "rewrite/IMethodBuffer.h"
#include "rewrite/IMethodBuilder.h"
#include "rewrite/MethodBufferTransform.h"
#include "support/CapturedStream.h"

namespace {

using Bytes = std::vector<unsigned char>;

std::unique_ptr<IMethodBuffer> view(const Bytes& body) {
    return std::unique_ptr<IMethodBuffer>(IMethodBuffer::newInstance(body.data()));
}

// Fat header with flags, code, and a small section of one catch clause.
Bytes fatWithSmallClause() {
    return Bytes{0x1B, 0x30, 0x02, 0x00, 0x05, 0, 0, 0, 0x01, 0, 0, 0x11,  // header, 5 bytes of code
                 0x00, 0xDE, 0x02, 0x26, 0x2A,                             // nop; leave_s +2; pop; ret
                 0x00, 0x00, 0x00,                                         // padding
                 0x01, 0x10, 0x00, 0x00,                                   // small EH section, 16 bytes
                 0x00, 0x00, 0x00, 0x00, 0x03, 0x03, 0x00, 0x01, 0x01, 0x00, 0x00, 0x01};
}

}  // namespace

TEST(MethodBuffer, TinyBodyHasOneByteHeaderAndNoSection) {
    Bytes body = {0x06, 0x2A};
    auto buffer = view(body);
    EXPECT_TRUE(buffer->isTinyHeader());
    EXPECT_EQ(buffer->getHeaderSize(), 1u);
    EXPECT_EQ(buffer->getCodeSize(), 1u);
    EXPECT_EQ(buffer->getRealCodeSize(), 1u);
    EXPECT_EQ(buffer->getTotalSize(), 2u);
    EXPECT_FALSE(buffer->hasEH());
    EXPECT_EQ(buffer->getEH(), nullptr);
    EXPECT_EQ(buffer->getEHClauses(), 0u);
    EXPECT_EQ(buffer->getCode(), body.data() + 1);
    EXPECT_EQ(buffer->getCodeAt(0), 0x2A);
    EXPECT_TRUE(buffer->isEndWithRet());
    EXPECT_TRUE(buffer->isEmptyMethod());
    EXPECT_EQ(buffer->getBuffer(), body.data());
}

TEST(MethodBuffer, FatBodyLocatesItsSmallSection) {
    Bytes body = fatWithSmallClause();
    auto buffer = view(body);
    EXPECT_FALSE(buffer->isTinyHeader());
    EXPECT_TRUE(buffer->hasEH());
    EXPECT_TRUE(buffer->isSmallEH());
    EXPECT_EQ(reinterpret_cast<unsigned char*>(buffer->getEH()), body.data() + 20);
    EXPECT_EQ(buffer->getRealCodeSize(), 8u);
    EXPECT_EQ(buffer->getEHSize(), 16u);
    EXPECT_EQ(buffer->getEHClauses(), 1u);
    EXPECT_EQ(buffer->getTotalSize(), 12u + 8u + 16u);
    EXPECT_FALSE(buffer->isEmptyMethod());

    // Without flag 0x8 there is no section, and the code size stays as it is.
    body[0] = 0x13;
    auto plain = view(body);
    EXPECT_FALSE(plain->hasEH());
    EXPECT_EQ(plain->getEH(), nullptr);
    EXPECT_EQ(plain->getEHClauses(), 0u);
    EXPECT_EQ(plain->getRealCodeSize(), 5u);
}

TEST(MethodBuffer, FatSectionSizesAndEmptiness) {
    Bytes body = {0x0B, 0x30, 0x08, 0x00, 0x04, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x00, 0x00, 0x2A,
                  0x41, 52, 0, 0};
    body.resize(body.size() + 48, 0);
    auto buffer = view(body);
    EXPECT_FALSE(buffer->isSmallEH());
    EXPECT_EQ(buffer->getEHSize(), 52u);
    EXPECT_EQ(buffer->getEHClauses(), 2u);
    EXPECT_TRUE(buffer->isEmptyMethod());  // three nops and a ret

    EXPECT_FALSE(view({0x0A, 0x16, 0x2A})->isEmptyMethod());  // ldc_i4_0, ret
    EXPECT_TRUE(view({0x02})->isEmptyMethod());               // no code at all
    EXPECT_FALSE(view({0x02})->isEndWithRet());
    EXPECT_TRUE(view({0x0A, 0x1F, 0x2A})->isEndWithRet());    // the byte is an operand
}

TEST(MethodBuffer, OwnedBuffersAreZeroedAndSized) {
    std::unique_ptr<IMethodBuffer> withSection(IMethodBuffer::newInstance(12, 5, 28));
    ASSERT_NE(withSection, nullptr);
    EXPECT_EQ(withSection->getCode(), withSection->getBuffer() + 12);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(withSection->getEH()), withSection->getBuffer() + 20);
    EXPECT_EQ(withSection->getEHSize(), 28u);
    for (unsigned int i = 0; i < 12 + 8 + 28; ++i) EXPECT_EQ(withSection->getBuffer()[i], 0);
    std::unique_ptr<IMethodBuffer> tooSmall(IMethodBuffer::newInstance(12, 5, 16));
    EXPECT_EQ(tooSmall->getEH(), nullptr);
}

TEST(MethodBuffer, TransformsWidenTinyHeadersAndSmallSections) {
    Bytes tiny = {0x16, 0x00, 0x00, 0x00, 0x00, 0x2A};
    IMAGE_COR_ILMETHOD_FAT* header = MethodBufferTransform::transformHeader(view(tiny).get());
    EXPECT_EQ(header->Flags, 2u);
    EXPECT_EQ(header->Size, 1u);
    EXPECT_EQ(header->MaxStack, 8u);
    EXPECT_EQ(header->CodeSize, 5u);
    EXPECT_EQ(header->LocalVarSigTok, 0u);
    std::free(header);
    EXPECT_EQ(MethodBufferTransform::transformEH(view(tiny).get()), nullptr);

    Bytes body = fatWithSmallClause();
    header = MethodBufferTransform::transformHeader(view(body).get());
    EXPECT_EQ(header->LocalVarSigTok, 0x11000001u);
    EXPECT_EQ(header->MaxStack, 2u);
    std::free(header);

    IMAGE_COR_ILMETHOD_SECT_EH_FAT* eh = MethodBufferTransform::transformEH(view(body).get());
    ASSERT_NE(eh, nullptr);
    EXPECT_EQ(eh->SectFat.Kind, 0x01u);
    EXPECT_EQ(eh->SectFat.DataSize, 28u);
    EXPECT_EQ(eh->Clauses[0].TryOffset, 0u);
    EXPECT_EQ(eh->Clauses[0].TryLength, 3u);
    EXPECT_EQ(eh->Clauses[0].HandlerLength, 1u);
    EXPECT_EQ(eh->Clauses[0].HandlerOffset, 1u);  // the length's value, on purpose
    EXPECT_EQ(eh->Clauses[0].ClassToken, 0x01000001u);
    std::free(eh);
}

TEST(Listings, MethodBufferPrintsHeaderCodeAndClauses) {
    Bytes body = fatWithSmallClause();
    CapturedStream fat;
    view(body)->print(fat.get());
    std::string expected =
        "FAT HEADER\n"
        "          Flags 0x0000001B\n"
        "           Size          3\n"
        "       MaxStack          2\n"
        "       CodeSize          5\n"
        " LocalVarSigTok 0x11000001\n"
        "\nCODE\n"
        "    OFF  OPCODE          OPERAND        \n"
        "      0  nop             \n"
        "      1  leave_s         0x0002 [0x5] \n"
        "      3  pop             \n"
        "      4  ret             \n"
        "\nSMALL EXCEPTION HEADER\n"
        "           Kind 0x00000001\n"
        "       DataSize         16\n"
        "\nSMALL EXCEPTION CLAUSES\n"
        "          Flags 0x00000000\n"
        "      TryOffset 0x00000000\n"
        "      TryLength 0x00000003 [0x00000003]\n"
        "  HandlerOffset 0x00000003\n"
        "  HandlerLength 0x00000001 [0x00000004]\n"
        "     ClassToken 0x01000001\n"
        "\n";
    EXPECT_EQ(fat.text(), expected);

    CapturedStream tiny;
    view({0x0E, 0x1F, 0xFB, 0x2A})->print(tiny.get());
    EXPECT_EQ(tiny.text(),
              "TINY HEADER\n"
              "          Flags 0x00000002\n"
              "           Size          1\n"
              "       MaxStack          8\n"
              "       CodeSize          3\n"
              " LocalVarSigTok 0x00000000\n"
              "\nCODE\n"
              "    OFF  OPCODE          OPERAND        \n"
              "      0  ldc_i4_s        0x00FB \n"
              "      2  ret             \n");
}

TEST(Listings, MethodBuilderPrintsOffsetsFromTheOrigin) {
    Bytes body = fatWithSmallClause();
    auto source = view(body);
    std::unique_ptr<IMethodBuilder> builder(IMethodBuilder::newInstance());
    builder->copyHeader(source->getHeader());
    ASSERT_EQ(builder->insertIL(0, source->getCode(), source->getCodeSize()), S_OK);
    ASSERT_EQ(builder->insertEHClause(&source->getEH()->Small.Clauses[0]), S_OK);
    ASSERT_EQ(builder->insertIL(0, Opcode::ldc_i8, 1, 0), S_OK);
    std::vector<unsigned char> out(builder->getTotalSize());
    ASSERT_EQ(builder->writeToBuffer(out.data()), S_OK);

    CapturedStream listing;
    builder->print(listing.get(), 9);
    std::string expected =
        "HEADER\n"
        "          Flags 0x0000001B\n"
        "           Size          3\n"
        "       MaxStack          2\n"
        "       CodeSize         14\n"
        " LocalVarSigTok 0x11000001\n"
        "\nCODE\n"
        "    OFF    OFF*  OPCODE          OPERAND        \n"
        "      0          ldc_i8          <bigint>   \n"
        "      9       0  label           0x00000002 \n"
        "      9       0  nop             \n"
        "      A       1  leave_s         0x0002 [0xE] \n"
        "      C       3  label           0x00000003 \n"
        "      C       3  pop             \n"
        "      D       4  label           0x00000004 \n"
        "      D       4  ret             \n"
        "      E       5  label           0x00000001 \n"
        "\nEXCEPTION HEADER\n"
        "           Kind 0x00000041\n"
        "       DataSize         28\n"
        "\nEXCEPTION CLAUSES\n"
        "          Flags 0x00000000\n"
        "      TryOffset 0x00000009\n"
        "      TryLength 0x00000003 [0x0000000C]\n"
        "  HandlerOffset 0x0000000C\n"
        "  HandlerLength 0x00000001 [0x0000000D]\n"
        "     ClassToken 0x01000001\n"
        "\n";
    EXPECT_EQ(listing.text(), expected);
}
