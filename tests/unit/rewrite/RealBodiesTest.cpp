// Every IL body of a few framework assemblies goes through the buffer, the
// builder and back out; the result must decode to the same program, its
// clauses at the same places.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <vector>

#include "rewrite/IMethodBuffer.h"
#include "rewrite/IMethodBuilder.h"
#include "rewrite/InstructionFactory.h"
#include "support/AssemblyBodies.h"
#include "support/DecodedBody.h"

namespace {

// The program of a body with offsets replaced by instruction ordinals, and the
// branch forms made long, so that two encodings of one program compare equal.
struct Shape {
    struct Entry {
        unsigned int opcode;
        unsigned long operand;  // or the target's ordinal for branches
        bool operator==(const Entry&) const = default;
    };
    struct Clause {
        unsigned int flags;
        unsigned long tryStart, tryEnd, handlerStart, handlerEnd, classOrFilter;
        bool operator==(const Clause&) const = default;
    };
    std::vector<Entry> entries;
    std::vector<Clause> clauses;
    bool valid = false;
};

unsigned int longForm(Opcode opcode) {
    unsigned int value = static_cast<unsigned int>(opcode);
    if (opcode == Opcode::leave_s) return static_cast<unsigned int>(Opcode::leave);
    if (isShortBranchOpcode(opcode)) return value + 13;
    return value;
}

Shape shapeOf(IMethodBuffer& buffer) {
    Shape shape;
    const unsigned char* code = buffer.getCode();
    unsigned int size = buffer.getCodeSize();
    std::vector<long> ordinalAt(size + 1, -1);
    std::vector<std::pair<size_t, long>> pending;  // the entry of a branch, its target offset
    unsigned int offset = 0;
    unsigned long ordinal = 0;
    while (offset < size) {
        const std::optional<Instruction> instruction = readInstruction(code + offset, size - offset);
        if (!instruction) return shape;
        ordinalAt[offset] = static_cast<long>(ordinal++);
        offset += instruction->size();
        Opcode opcode = instruction->opcode();
        if (isBranchOpcode(opcode)) {
            long distance = isShortBranchOpcode(opcode) ? static_cast<signed char>(instruction->operand())
                                                        : static_cast<int>(instruction->operand());
            pending.push_back({shape.entries.size(), offset + distance});
        }
        shape.entries.push_back({longForm(opcode), instruction->operand()});
        if (opcode != Opcode::switch_) continue;
        unsigned long count = instruction->operand();
        if (count > (size - offset) / 4) return shape;
        unsigned int tableEnd = offset + static_cast<unsigned int>(count) * 4;
        for (unsigned long i = 0; i < count; ++i, offset += 4) {
            int distance = static_cast<int>(getLittleEndian<unsigned int>(code + offset));
            pending.push_back({shape.entries.size(), static_cast<long>(tableEnd) + distance});
            shape.entries.push_back({static_cast<unsigned int>(Opcode::OPCODE_CASE), 0});
        }
    }
    ordinalAt[size] = static_cast<long>(ordinal);
    for (const auto& [entry, target] : pending) {
        if (target < 0 || target > static_cast<long>(size) || ordinalAt[target] < 0) return shape;
        shape.entries[entry].operand = static_cast<unsigned long>(ordinalAt[target]);
    }
    auto at = [&](unsigned long position) -> unsigned long {
        return position <= size && ordinalAt[position] >= 0 ? ordinalAt[position] : ~0ul;
    };
    for (const DecodedBody::Clause& c : DecodedBody::clausesOf(buffer)) {
        bool filter = (c.flags & COR_ILEXCEPTION_CLAUSE_FILTER) != 0;
        shape.clauses.push_back({c.flags, at(c.tryOffset), at(static_cast<unsigned long>(c.tryOffset) + c.tryLength),
                                 at(c.handlerOffset), at(static_cast<unsigned long>(c.handlerOffset) + c.handlerLength),
                                 filter ? at(c.classOrFilter) : c.classOrFilter});
    }
    shape.valid = true;
    return shape;
}

struct Totals {
    unsigned long methods = 0, clauses = 0, switches = 0;
};

void roundTripAssembly(const std::string& path, Totals& totals) {
    AssemblyBodies assembly;
    ASSERT_TRUE(assembly.load(path)) << path;
    unsigned int outOfBounds = 0;
    std::vector<AssemblyBodies::Body> bodies = assembly.bodies(&outOfBounds);
    EXPECT_EQ(outOfBounds, 0u) << path;
    EXPECT_GT(bodies.size(), 100u) << path;

    for (const AssemblyBodies::Body& body : bodies) {
        SCOPED_TRACE(path + " " + assembly.methodName(body.methodRow));
        std::unique_ptr<IMethodBuffer> source(IMethodBuffer::newInstance(body.bytes));
        ASSERT_EQ(source->getTotalSize(), body.size);
        Shape before = shapeOf(*source);
        ASSERT_TRUE(before.valid);

        // Every other body has its clauses' edges labelled while decoding, as
        // the rewrite does; the others find them afterwards.
        std::vector<unsigned long> places;
        for (const DecodedBody::Clause& c : DecodedBody::clausesOf(*source)) {
            if (body.methodRow % 2 != 0) continue;
            places.insert(places.end(),
                          {c.tryOffset, static_cast<unsigned long>(c.tryOffset) + c.tryLength, c.handlerOffset,
                           static_cast<unsigned long>(c.handlerOffset) + c.handlerLength});
            if ((c.flags & COR_ILEXCEPTION_CLAUSE_FILTER) != 0) places.push_back(c.classOrFilter);
        }
        std::unique_ptr<IMethodBuilder> builder(IMethodBuilder::newInstance());
        builder->copyHeader(source->getHeader());
        ASSERT_EQ(builder->decodeIL(source->getCode(), source->getCodeSize(), places), S_OK);
        IMAGE_COR_ILMETHOD_SECT_EH* eh = source->getEH();
        for (unsigned int i = 0; i < source->getEHClauses(); ++i) {
            ASSERT_EQ(source->isSmallEH() ? builder->insertEHClause(&eh->Small.Clauses[i])
                                          : builder->insertEHClause(&eh->Fat.Clauses[i]),
                      S_OK);
        }
        std::vector<unsigned char> out(builder->getTotalSize());
        ASSERT_EQ(builder->writeToBuffer(out.data()), S_OK);

        std::unique_ptr<IMethodBuffer> result(IMethodBuffer::newInstance(out.data()));
        ASSERT_FALSE(result->isTinyHeader());
        ASSERT_EQ(result->getTotalSize(), out.size());
        ASSERT_EQ(result->getEHClauses(), source->getEHClauses());
        Shape after = shapeOf(*result);
        ASSERT_TRUE(after.valid);
        ASSERT_EQ(after.entries, before.entries);
        ASSERT_EQ(after.clauses, before.clauses);

        // A tiny header comes out fat with its implied MaxStack and no locals.
        const bool tiny = source->isTinyHeader();
        const IMAGE_COR_ILMETHOD_FAT &in = source->getHeader()->Fat, &header = result->getHeader()->Fat;
        EXPECT_EQ(header.MaxStack, tiny ? 8u : in.MaxStack);
        EXPECT_EQ(header.LocalVarSigTok, tiny ? 0u : in.LocalVarSigTok);
        EXPECT_TRUE(tiny || header.Flags == in.Flags);

        ++totals.methods;
        totals.clauses += source->getEHClauses();
        totals.switches += std::count_if(before.entries.begin(), before.entries.end(), [](const Shape::Entry& e) {
            return e.opcode == static_cast<unsigned int>(Opcode::switch_);
        });
    }
}

}  // namespace

TEST(RealBodies, EveryFrameworkBodyRoundTripsToTheSameProgram) {
    Totals totals;
    for (const std::string& path : AssemblyBodies::frameworkAssemblies()) {
        roundTripAssembly(path, totals);
        if (HasFatalFailure()) return;
    }
    std::cout << "[ round trip ] " << totals.methods << " methods, " << totals.clauses << " clauses, "
              << totals.switches << " switches\n";
    EXPECT_GT(totals.methods, 30000u);
    EXPECT_GT(totals.clauses, 1000u);
    EXPECT_GT(totals.switches, 100u);
}
