#include "rewrite/BodyVerifier.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <new>
#include <vector>

#include "rewrite/BlobInputStream.h"
#include "rewrite/Opcode.h"
#include "runtime/CorILMethod.h"

namespace {

// Calls with more arguments than this are checked for depth only.
constexpr unsigned int kCheckedArguments = VerifiedCallee::kArguments;

// The operand's bytes by its form; kNoOperand for the forms that code never
// holds.
constexpr unsigned char kNoOperand = 0xFF;
constexpr unsigned char kOperandBytes[] = {0, 1, 2, 4, 8, 1, 4, kNoOperand, kNoOperand, kNoOperand};
static_assert(std::size(kOperandBytes) == static_cast<size_t>(OperandForm::Unsupported) + 1);

// The same by opcode slot, the last slot for no opcode at all: the decoder's
// step to the next instruction waits on one load, not on the opcode's record
// and then its form. Made from the records themselves: a sanitizer's build
// cannot compare the slot table's pointers with null at compile time.
constexpr auto kOperandBytesBySlot = [] {
    std::array<unsigned char, kOpcodeSlots + 1> sizes{};
    sizes.fill(kNoOperand);
    for (const OpcodeInfo& record : opcode_table::kRecords) {
        sizes[opcodeSlot(static_cast<unsigned int>(record.opcode))] = kOperandBytes[static_cast<size_t>(record.form)];
    }
    return sizes;
}();

// A path's stack has room for two kinds past the limit it is checked
// against: no opcode pushes more than dup's two.
static_assert([] {
    for (const OpcodeInfo& record : opcode_table::kRecords) {
        if (record.push > 2) return false;
    }
    return true;
}());

// Where a block's edge lies, as the first clause with an edge there has it:
// falling through to it leaves a block, or enters a handler.
enum Edge : unsigned char { kNoEdge, kBlockEnd, kHandlerStart };

// What the verifier knows of a stack slot.
using Kind = CalleeSignatures::Kind;
using enum CalleeSignatures::Kind;

constexpr unsigned int op(Opcode opcode) {
    return static_cast<unsigned int>(opcode);
}

// Whether a value lies between two opcodes of one family, by value.
constexpr bool within(unsigned int value, Opcode first, Opcode last) {
    return value >= op(first) && value <= op(last);
}

Kind producedKind(const OpcodeInfo& effect) {
    switch (effect.pushed) {
    case PushedKind::Object:
        return kObject;
    case PushedKind::Value:
        return kValue;
    default:
        return kUnknown;
    }
}

unsigned int read32(const unsigned char* p) {
    return p[0] | p[1] << 8 | p[2] << 16 | static_cast<unsigned int>(p[3]) << 24;
}

// Small, as every pass walks an array of them.
struct Decoded {
    unsigned int offset;
    unsigned int operand = 0;
    unsigned int next;  // offset of the following instruction
    unsigned int firstTarget;
    unsigned int targetCount = 0;
    unsigned short value;  // one byte, or 0xFE | second byte << 8
    // Where the opcode table says what the opcode does to the stack and to
    // control: the decoder lets only the table's opcodes through.
    unsigned short slot;
    ControlFlow flow;  // the effect's, at hand for the passes that need no more
    // A try block begins here: the stack must be empty.
    bool tryStart = false;

    const OpcodeInfo& effect() const { return *opcode_table::kBySlot.records[slot]; }
};

// The kinds on the stack of a path, bottom first, in room the check sized
// for the method: at most MaxStack, or one exception, plus what the one
// instruction that then breaks the limit pushes.
struct Stack {
    unsigned char* kinds;
    unsigned int depth = 0;

    void push(unsigned char kind) { kinds[depth++] = kind; }
    unsigned char top() const { return depth != 0 ? kinds[depth - 1] : static_cast<unsigned char>(kUnknown); }
};

struct Region {
    unsigned int begin;
    unsigned int end;
    bool isTry;
    bool contains(unsigned int offset) const { return begin <= offset && offset < end; }
};

// The lists a check fills, kept by each compiling thread from one method to
// the next: a check then allocates nothing once the thread has seen a method
// of the size.
struct Scratch {
    std::vector<Decoded> instructions;
    std::vector<unsigned int> targets;
    std::vector<int> indexAt;
    std::vector<IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT> clauses;
    std::vector<Region> regions;
    std::vector<Region> filterBlocks;
    std::vector<unsigned char> edges;
    std::vector<unsigned char> joins;
    std::vector<unsigned char> argumentKinds;
    std::vector<unsigned char> localKinds;
    std::vector<int> depthAt;
    std::vector<unsigned int> kindsAt;
    std::vector<unsigned char> pool;
    std::vector<unsigned int> work;
    std::vector<unsigned char> stack;

    void clear() {
        instructions.clear();
        targets.clear();
        clauses.clear();
        regions.clear();
        filterBlocks.clear();
        pool.clear();
        work.clear();
    }
    // Every compiling thread keeps its lists: a method far above the usual
    // size leaves none of its size behind.
    void trim() {
        if (instructions.capacity() > kKept || indexAt.capacity() > 4 * kKept || pool.capacity() > 4 * kKept ||
            stack.capacity() > 4 * kKept) {
            *this = Scratch();
        }
    }

    static constexpr size_t kKept = 1024;
};

class Check {
public:
    Check(const VerifiedMethod& method, char16_t* reason, unsigned int reasonSize, Scratch& scratch)
        : method(method),
          reason(reason),
          reasonSize(reasonSize),
          instructions(scratch.instructions),
          targets(scratch.targets),
          indexAt(scratch.indexAt),
          clauses(scratch.clauses),
          regions(scratch.regions),
          filterBlocks(scratch.filterBlocks),
          edges(scratch.edges),
          joins(scratch.joins),
          argumentKinds(scratch.argumentKinds),
          localKinds(scratch.localKinds),
          depthAt(scratch.depthAt),
          kindsAt(scratch.kindsAt),
          pool(scratch.pool),
          work(scratch.work),
          stackRoom(scratch.stack) {
        scratch.clear();
    }

    HRESULT run() {
        if (!readHeader() || !decode() || !readClauses() || !checkClauses() || !checkInstructions() ||
            !readSlotKinds()) {
            return E_FAIL;
        }
        return simulate() ? S_OK : E_FAIL;
    }

private:
    bool fail(const char* format, ...) const __attribute__((format(printf, 2, 3))) {
        char text[256];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(text, sizeof(text), format, arguments);
        va_end(arguments);
        unsigned int i = 0;
        for (; reasonSize != 0 && i + 1 < reasonSize && text[i] != 0; ++i) reason[i] = static_cast<char16_t>(text[i]);
        if (reasonSize != 0) reason[i] = 0;
        return false;
    }

    bool readHeader() {
        const unsigned char* body = method.body;
        if (method.size == 0) return fail("Empty body.");
        if ((body[0] & 3) == CorILMethod_TinyFormat) {
            codeSize = body[0] >> 2;
            maxStack = kTinyMaxStack;
            code = body + 1;
            if (codeSize == 0) return fail("No code.");
            if (1 + codeSize > method.size) return fail("Code runs past the body.");
            return true;
        }
        if ((body[0] & 3) != CorILMethod_FatFormat || method.size < kFatHeaderSize) return fail("Bad header.");
        flags = static_cast<unsigned int>(body[0] | (body[1] & 0x0F) << 8);
        if ((body[1] >> 4) != 3) return fail("Bad header size.");
        maxStack = static_cast<unsigned int>(body[2] | body[3] << 8);
        codeSize = read32(body + 4);
        code = body + kFatHeaderSize;
        if (codeSize == 0 || codeSize > method.size - kFatHeaderSize) return fail("Code runs past the body.");
        return true;
    }

    bool decode() {
        indexAt.assign(codeSize, -1);
        unsigned int offset = 0;
        while (offset < codeSize) {
            unsigned int value = code[offset];
            unsigned int length = 1;
            if (value == 0xFE) {
                if (offset + 1 >= codeSize) return fail("Opcode cut at 0x%X.", offset);
                value = 0xFE | static_cast<unsigned int>(code[offset + 1]) << 8;
                length = 2;
            }
            const unsigned int slot = opcodeSlot(value);
            const unsigned int operandSize = kOperandBytesBySlot[slot];
            if (operandSize == kNoOperand) return fail("No opcode 0x%X at 0x%X.", value, offset);
            const OpcodeInfo* info = opcode_table::kBySlot.records[slot];
            unsigned int start = offset + length;
            if (operandSize > codeSize - start) return fail("Operand cut at 0x%X.", offset);
            // Built in its place: a copy of the whole record per instruction
            // stalled on the pieces just written.
            indexAt[offset] = static_cast<int>(instructions.size());
            Decoded& instruction =
                instructions.emplace_back(Decoded{.offset = offset,
                                                  .next = start + operandSize,
                                                  .firstTarget = static_cast<unsigned int>(targets.size()),
                                                  .value = static_cast<unsigned short>(value),
                                                  .slot = static_cast<unsigned short>(slot),
                                                  .flow = info->flow});
            const unsigned char* operand = code + start;
            if (operandSize == 1) instruction.operand = operand[0];
            if (operandSize == 2) instruction.operand = static_cast<unsigned int>(operand[0] | operand[1] << 8);
            if (operandSize >= 4) instruction.operand = read32(operand);
            if (info->form == OperandForm::ShortBranch) {
                targets.push_back(instruction.next + static_cast<unsigned int>(static_cast<signed char>(operand[0])));
            } else if (info->form == OperandForm::LongBranch) {
                targets.push_back(instruction.next + instruction.operand);
            } else if (value == op(Opcode::switch_)) {
                unsigned int count = instruction.operand;
                if (count > (codeSize - instruction.next) / 4) return fail("Switch cut at 0x%X.", offset);
                unsigned int end = instruction.next + 4 * count;
                for (unsigned int i = 0; i < count; ++i)
                    targets.push_back(end + read32(code + instruction.next + 4 * i));
                instruction.next = end;
            }
            instruction.targetCount = static_cast<unsigned int>(targets.size()) - instruction.firstTarget;
            offset = instruction.next;
        }
        return true;
    }

    bool isStart(unsigned int offset) const { return offset < codeSize && indexAt[offset] >= 0; }
    bool isBoundary(unsigned int offset) const { return offset == codeSize || isStart(offset); }

    bool readClauses() {
        if ((flags & CorILMethod_MoreSects) == 0) return true;
        unsigned int position = (kFatHeaderSize + codeSize + 3) & ~3u;
        if (position + 4 > method.size) return fail("Clauses run past the body.");
        const unsigned char* section = method.body + position;
        if ((section[0] & CorILMethod_Sect_KindMask) != CorILMethod_Sect_EHTable) return fail("No clause table.");
        bool fat = (section[0] & CorILMethod_Sect_FatFormat) != 0;
        unsigned int size =
            fat ? static_cast<unsigned int>(section[1] | section[2] << 8 | section[3] << 16) : section[1];
        unsigned int clauseSize = fat ? 24 : 12;
        if (size < 4 || (size - 4) % clauseSize != 0 || size > method.size - position) {
            return fail("Bad clause table size %u.", size);
        }
        for (unsigned int i = 0; i < (size - 4) / clauseSize; ++i) {
            const unsigned char* c = section + 4 + i * clauseSize;
            IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT clause{};
            if (fat) {
                clause.Flags = static_cast<CorExceptionFlag>(read32(c));
                clause.TryOffset = read32(c + 4);
                clause.TryLength = read32(c + 8);
                clause.HandlerOffset = read32(c + 12);
                clause.HandlerLength = read32(c + 16);
                clause.ClassToken = read32(c + 20);
            } else {
                clause.Flags = static_cast<CorExceptionFlag>(c[0] | c[1] << 8);
                clause.TryOffset = static_cast<unsigned int>(c[2] | c[3] << 8);
                clause.TryLength = c[4];
                clause.HandlerOffset = static_cast<unsigned int>(c[5] | c[6] << 8);
                clause.HandlerLength = c[7];
                clause.ClassToken = read32(c + 8);
            }
            clauses.push_back(clause);
        }
        return true;
    }

    static bool isFilter(const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& clause) {
        return (clause.Flags & COR_ILEXCEPTION_CLAUSE_FILTER) != 0;
    }

    // A catch handler may leave for any place of its own try block: that is
    // how VB's "On Error" resumes, and the runtime lets it.
    bool resumesTry(unsigned int clause, const Decoded& instruction) const {
        const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& owner = clauses[clause];
        const bool catches = (owner.Flags & (COR_ILEXCEPTION_CLAUSE_FINALLY | COR_ILEXCEPTION_CLAUSE_FAULT)) == 0;
        return catches && instruction.flow == ControlFlow::Leave && owner.HandlerOffset <= instruction.offset &&
               instruction.offset - owner.HandlerOffset < owner.HandlerLength;
    }

    // Each clause on instruction boundaries; blocks disjoint or nested, a
    // clause before any clause whose blocks hold it; each filter block ending
    // with endfilter. Builds the regions, the filter blocks and the edges the
    // walk over the instructions checks against.
    bool checkClauses() {
        for (unsigned int i = 0; i < clauses.size(); ++i) {
            const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& clause = clauses[i];
            unsigned long tryEnd = static_cast<unsigned long>(clause.TryOffset) + clause.TryLength;
            unsigned long handlerEnd = static_cast<unsigned long>(clause.HandlerOffset) + clause.HandlerLength;
            if (clause.TryLength == 0 || clause.HandlerLength == 0 || tryEnd > codeSize || handlerEnd > codeSize ||
                !isStart(clause.TryOffset) || !isBoundary(static_cast<unsigned int>(tryEnd)) ||
                !isStart(clause.HandlerOffset) || !isBoundary(static_cast<unsigned int>(handlerEnd)) ||
                (isFilter(clause) && (!isStart(clause.FilterOffset) || clause.FilterOffset >= clause.HandlerOffset))) {
                return fail("Clause %u is not on instruction boundaries.", i);
            }
            regions.push_back({clause.TryOffset, static_cast<unsigned int>(tryEnd), true});
            instructions[static_cast<unsigned int>(indexAt[clause.TryOffset])].tryStart = true;
            unsigned int handlerBegin = isFilter(clause) ? clause.FilterOffset : clause.HandlerOffset;
            regions.push_back({handlerBegin, static_cast<unsigned int>(handlerEnd), false});
            if (isFilter(clause)) filterBlocks.push_back({clause.FilterOffset, clause.HandlerOffset, false});
        }
        for (unsigned int i = 0; i < regions.size(); ++i) {
            const Region& a = regions[i];
            if (i % 2 == 0 && a.end > regions[i + 1].begin && regions[i + 1].end > a.begin) {
                return fail("Clause %u overlaps its own handler.", i / 2);
            }
            for (unsigned int j = i + 1; j < regions.size(); ++j) {
                const Region& b = regions[j];
                bool disjoint = a.end <= b.begin || b.end <= a.begin;
                bool aInB = b.begin <= a.begin && a.end <= b.end;
                bool bInA = a.begin <= b.begin && b.end <= a.end;
                if (!disjoint && !aInB && !bInA) return fail("Clauses %u and %u overlap.", i / 2, j / 2);
                if (j / 2 != i / 2 && bInA && !aInB)
                    return fail("Clause %u holds clause %u that comes after it.", i / 2, j / 2);
            }
        }
        for (const Region& block : filterBlocks) {
            int last = indexAt[block.begin];
            while (static_cast<unsigned int>(last) + 1 < instructions.size() &&
                   instructions[static_cast<unsigned int>(last) + 1].offset < block.end) {
                ++last;
            }
            if (instructions[static_cast<unsigned int>(last)].value != kEndFilter) {
                return fail("The filter at 0x%X does not end with endfilter.", block.begin);
            }
        }
        // An instruction that falls through to a block's end was the block's
        // last: the edge alone tells.
        edges.assign(codeSize + 1, kNoEdge);
        for (const Region& region : regions) {
            if (edges[region.end] == kNoEdge) edges[region.end] = kBlockEnd;
            if (!region.isTry && edges[region.begin] == kNoEdge) edges[region.begin] = kHandlerStart;
        }
        return true;
    }

    const Region* filterBlockOf(unsigned int offset) const {
        for (const Region& block : filterBlocks) {
            if (block.contains(offset)) return &block;
        }
        return nullptr;
    }

    // One walk over the instructions for the rules each keeps on its own.
    bool checkInstructions() {
        for (unsigned int i = 0; i < instructions.size(); ++i) {
            const Decoded& instruction = instructions[i];
            if (!checkTargets(instruction) || !checkFlow(instruction) || !checkOperands(i)) return false;
        }
        return true;
    }

    // Control crosses block edges only where it may: into a try at its start
    // (or back from its catch handler), out of a block by leave. A filter
    // block is entered only by the runtime and left only by its last
    // instruction, endfilter: no leave, no rethrow, no branch out of it or
    // into the handler behind it, no endfilter anywhere else.
    bool checkTargets(const Decoded& instruction) const {
        const ControlFlow flow = instruction.flow;
        const Region* block = filterBlocks.empty() ? nullptr : filterBlockOf(instruction.offset);
        if (instruction.value == kEndFilter && block == nullptr) {
            return fail("endfilter at 0x%X outside a filter.", instruction.offset);
        }
        if (block != nullptr && flow == ControlFlow::Leave) {
            return fail("leave at 0x%X inside a filter.", instruction.offset);
        }
        if (block != nullptr && instruction.value == kRethrow) {
            return fail("rethrow at 0x%X inside a filter.", instruction.offset);
        }
        for (unsigned int t = 0; t < instruction.targetCount; ++t) {
            unsigned int target = targets[instruction.firstTarget + t];
            if (!isStart(target)) return fail("Branch at 0x%X aims inside an instruction.", instruction.offset);
            for (unsigned int r = 0; r < regions.size(); ++r) {
                const Region& region = regions[r];
                bool from = region.contains(instruction.offset);
                bool to = region.contains(target);
                if (!from && to && !(region.isTry && (target == region.begin || resumesTry(r / 2, instruction)))) {
                    return fail("Branch at 0x%X enters a block at 0x%X.", instruction.offset, target);
                }
                if (from && !to && flow != ControlFlow::Leave) {
                    return fail("Branch at 0x%X leaves a block without leave.", instruction.offset);
                }
            }
            if (filterBlocks.empty()) continue;
            if (block == nullptr && filterBlockOf(target) != nullptr) {
                return fail("Branch at 0x%X enters a filter.", instruction.offset);
            }
            if (block != nullptr && !block->contains(target)) {
                return fail("Branch at 0x%X leaves a filter.", instruction.offset);
            }
        }
        return true;
    }

    // Code that runs on runs into an instruction of its own block; ret only
    // outside every block.
    bool checkFlow(const Decoded& instruction) const {
        const ControlFlow flow = instruction.flow;
        if (flow == ControlFlow::Return) {
            for (const Region& region : regions) {
                if (region.contains(instruction.offset)) return fail("ret at 0x%X inside a block.", instruction.offset);
            }
        }
        bool fallsThrough = flow == ControlFlow::Next || flow == ControlFlow::Conditional || flow == ControlFlow::Call;
        if (!fallsThrough) return true;
        if (instruction.next >= codeSize) return fail("Code falls off its end at 0x%X.", instruction.offset);
        if (edges[instruction.next] == kBlockEnd) return fail("Code falls out of a block at 0x%X.", instruction.offset);
        if (edges[instruction.next] == kHandlerStart) {
            return fail("Code falls into a handler at 0x%X.", instruction.next);
        }
        return true;
    }

    // Argument and local numbers in range; tail. followed by a call and ret.
    bool checkOperands(unsigned int i) const {
        const Decoded& instruction = instructions[i];
        unsigned int value = instruction.value;
        unsigned int argument = kNone;
        unsigned int local = kNone;
        if (within(value, Opcode::ldarg_0, Opcode::ldarg_3)) argument = value - op(Opcode::ldarg_0);
        if (within(value, Opcode::ldloc_0, Opcode::ldloc_3)) local = value - op(Opcode::ldloc_0);
        if (within(value, Opcode::stloc_0, Opcode::stloc_3)) local = value - op(Opcode::stloc_0);
        if (within(value, Opcode::ldarg_s, Opcode::starg_s) || within(value, Opcode::ldarg, Opcode::starg)) {
            argument = instruction.operand;
        }
        if (within(value, Opcode::ldloc_s, Opcode::stloc_s) || within(value, Opcode::ldloc, Opcode::stloc)) {
            local = instruction.operand;
        }
        if (argument != kNone && argument >= method.argumentCount) {
            return fail("Argument %u at 0x%X is out of range.", argument, instruction.offset);
        }
        if (local != kNone && local >= method.localCount) {
            return fail("Local %u at 0x%X is out of range.", local, instruction.offset);
        }
        if (value == op(Opcode::tail)) {
            bool call = i + 1 < instructions.size() && (instructions[i + 1].value == op(Opcode::call) ||
                                                        instructions[i + 1].value == op(Opcode::calli) ||
                                                        instructions[i + 1].value == op(Opcode::callvirt));
            if (!call || i + 2 >= instructions.size() || instructions[i + 2].value != op(Opcode::ret)) {
                return fail("tail. at 0x%X is not followed by a call and ret.", instruction.offset);
            }
        }
        return true;
    }

    bool readSlotKinds() {
        VerifiedCallee own;
        if (FAILED(CalleeSignatures::read(method.signature, method.signatureLength, &own)))
            return fail("Unreadable signature.");
        unsigned int first = own.hasThis ? 1 : 0;
        argumentKinds.assign(method.argumentCount, kUnknown);
        for (unsigned int i = first; i < method.argumentCount && i - first < kCheckedArguments; ++i) {
            argumentKinds[i] = CalleeSignatures::kindOf(own, i - first);
        }
        localKinds.assign(method.localCount, kUnknown);
        if (method.localSignature == nullptr) return true;
        BlobInputStream locals(method.localSignature, method.localSignatureLength);
        unsigned int count = 0;
        HRESULT hr = locals.readByte(nullptr);
        if (SUCCEEDED(hr)) hr = locals.readNumber(&count);
        for (unsigned int i = 0; i < count && i < method.localCount && SUCCEEDED(hr); ++i) {
            Kind kind = kUnknown;
            hr = CalleeSignatures::readKind(locals, &kind);
            localKinds[i] = kind;
        }
        return SUCCEEDED(hr) ? true : fail("Unreadable local signature.");
    }

    // Merges a path's stack into what is known at a join; a change sends the
    // instruction back to the work list.
    bool reach(unsigned int offset, const Stack& stack, const char* how) {
        if (!isStart(offset)) return fail("No instruction at 0x%X (%s).", offset, how);
        int index = indexAt[offset];
        unsigned int depth = stack.depth;
        if (instructions[static_cast<unsigned int>(index)].tryStart && depth != 0) {
            return fail("Stack not empty (%u) at the try at 0x%X.", depth, offset);
        }
        if (depthAt[index] < 0) {
            depthAt[index] = static_cast<int>(depth);
            kindsAt[index] = static_cast<unsigned int>(pool.size());
            pool.insert(pool.end(), stack.kinds, stack.kinds + depth);
            work.push_back(static_cast<unsigned int>(index));
            return true;
        }
        if (static_cast<unsigned int>(depthAt[index]) != depth) {
            return fail("Stack depth %u meets depth %d at 0x%X (%s).", depth, depthAt[index], offset, how);
        }
        bool changed = false;
        for (unsigned int i = 0; i < depth; ++i) {
            unsigned char& known = pool[kindsAt[index] + i];
            if (known != stack.kinds[i] && known != kUnknown) {
                known = kUnknown;
                changed = true;
            }
        }
        if (changed) work.push_back(static_cast<unsigned int>(index));
        return true;
    }

    // Paths meet only where a branch, a clause or the entry leads; a try's
    // start is checked as such too. Any other instruction is reached from the
    // one before alone, and runs on with its stack, nothing kept.
    void markJoins() {
        joins.assign(instructions.size(), 0);
        joins[0] = 1;
        for (unsigned int target : targets) joins[static_cast<unsigned int>(indexAt[target])] = 1;
        for (const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& clause : clauses) {
            joins[static_cast<unsigned int>(indexAt[clause.TryOffset])] = 1;
            joins[static_cast<unsigned int>(indexAt[clause.HandlerOffset])] = 1;
            if (isFilter(clause)) joins[static_cast<unsigned int>(indexAt[clause.FilterOffset])] = 1;
        }
    }

    bool simulate() {
        depthAt.assign(instructions.size(), -1);
        kindsAt.assign(instructions.size(), 0);
        markJoins();
        stackRoom.resize(static_cast<size_t>(maxStack) + 3);
        Stack stack{stackRoom.data()};
        if (!reach(0, stack, "entry")) return false;
        for (const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& clause : clauses) {
            bool exception = (clause.Flags & (COR_ILEXCEPTION_CLAUSE_FINALLY | COR_ILEXCEPTION_CLAUSE_FAULT)) == 0;
            stack.depth = 0;
            if (exception) stack.push(kObject);
            if (!reach(clause.HandlerOffset, stack, "handler")) return false;
            if (isFilter(clause) && !reach(clause.FilterOffset, stack, "filter")) return false;
        }
        while (!work.empty()) {
            unsigned int index = work.back();
            work.pop_back();
            stack.depth = static_cast<unsigned int>(depthAt[index]);
            std::copy_n(pool.begin() + kindsAt[index], stack.depth, stack.kinds);
            do {
                if (!step(instructions[index], stack, &index)) return false;
            } while (index != kNone);
        }
        return true;
    }

    // Applies the instruction to the stack and passes the stack on to where
    // control goes: the joins through the work list; next is the instruction
    // that runs on with it, or kNone.
    bool step(const Decoded& instruction, Stack& stack, unsigned int* next) {
        *next = kNone;
        const OpcodeInfo& effect = instruction.effect();
        unsigned int depth = stack.depth;
        Kind pushed = producedKind(effect);
        if (effect.flow == ControlFlow::Call) {
            if (!applyCall(instruction, stack)) return false;
        } else if (instruction.value == kEndFilter) {
            // The filter's answer: one number, nothing else.
            if (depth != 1 || stack.kinds[0] == kObject) {
                return fail("endfilter at 0x%X without exactly one number on the stack.", instruction.offset);
            }
            return true;
        } else if (effect.flow == ControlFlow::Return) {
            unsigned int expected = method.returnsValue ? 1 : 0;
            if (depth != expected) return fail("ret at 0x%X with %u values on the stack.", instruction.offset, depth);
            return true;
        } else {
            if (depth < static_cast<unsigned int>(effect.pop))
                return fail("Stack underflow at 0x%X.", instruction.offset);
            unsigned char top = stack.top();
            stack.depth = depth - effect.pop;
            // dup pushes what it took, twice.
            const unsigned char kind = instruction.value == op(Opcode::dup) ? top : slotKind(instruction, pushed);
            for (signed char i = 0; i < effect.push; ++i) stack.push(kind);
        }
        if (stack.depth > maxStack)
            return fail("Stack depth %u above MaxStack %u at 0x%X.", stack.depth, maxStack, instruction.offset);
        if (effect.flow == ControlFlow::Leave) stack.depth = 0;
        for (unsigned int t = 0; t < instruction.targetCount; ++t) {
            if (!reach(targets[instruction.firstTarget + t], stack, "branch")) return false;
        }
        bool fallsThrough = effect.flow == ControlFlow::Next || effect.flow == ControlFlow::Conditional ||
                            effect.flow == ControlFlow::Call;
        if (!fallsThrough) return true;
        if (!isStart(instruction.next) || joins[static_cast<unsigned int>(indexAt[instruction.next])] != 0) {
            return reach(instruction.next, stack, "next");
        }
        *next = static_cast<unsigned int>(indexAt[instruction.next]);
        return true;
    }

    unsigned char slotKind(const Decoded& instruction, Kind pushed) const {
        unsigned int value = instruction.value;
        if (within(value, Opcode::ldarg_0, Opcode::ldarg_3)) return argumentKinds[value - op(Opcode::ldarg_0)];
        if (value == op(Opcode::ldarg_s) || value == op(Opcode::ldarg)) return argumentKinds[instruction.operand];
        if (within(value, Opcode::ldloc_0, Opcode::ldloc_3)) return localKinds[value - op(Opcode::ldloc_0)];
        if (value == op(Opcode::ldloc_s) || value == op(Opcode::ldloc)) return localKinds[instruction.operand];
        return pushed;
    }

    // The callee of a call, read or kept; null if its signature cannot be read.
    const VerifiedCallee* calleeAt(unsigned int token) {
        // The nil token names no callee the table could keep.
        if (method.callees == nullptr || token == 0) {
            return SUCCEEDED(CalleeSignatures::ofToken(method.import, token, &unkept)) ? &unkept : nullptr;
        }
        if (const VerifiedCallee* known = method.callees->find(token)) return known;
        VerifiedCallee read;
        if (FAILED(CalleeSignatures::ofToken(method.import, token, &read))) return nullptr;
        return method.callees->add(token, read);
    }

    bool applyCall(const Decoded& instruction, Stack& stack) {
        const VerifiedCallee* found = calleeAt(instruction.operand);
        if (found == nullptr) return fail("No signature for the call at 0x%X.", instruction.offset);
        const VerifiedCallee& callee = *found;
        bool construct = instruction.value == op(Opcode::newobj);
        unsigned int receiver = callee.hasThis && !callee.explicitThis && !construct ? 1 : 0;
        unsigned int pointer = instruction.value == op(Opcode::calli) ? 1 : 0;
        unsigned int pop = callee.parameters + receiver + pointer;
        unsigned int depth = stack.depth;
        if (depth < pop) return fail("Stack underflow at the call at 0x%X.", instruction.offset);
        unsigned int firstArgument = depth - pop + receiver;
        for (unsigned int i = 0; i < callee.parameters && i < kCheckedArguments; ++i) {
            if ((callee.objects >> i & 1) != 0 && stack.kinds[firstArgument + i] == kValue) {
                return fail("A value where an object is expected: argument %u of the call at 0x%X.", i,
                            instruction.offset);
            }
        }
        stack.depth = depth - pop;
        if (construct) {
            stack.push(kUnknown);
        } else if (callee.returns) {
            stack.push(callee.result);
        }
        return true;
    }

    static constexpr unsigned int kNone = ~0u;
    static constexpr unsigned int kEndFilter = 0x11FE;
    static constexpr unsigned int kRethrow = 0x1AFE;

    const VerifiedMethod& method;
    char16_t* reason;
    unsigned int reasonSize;
    const unsigned char* code = nullptr;
    unsigned int codeSize = 0;
    unsigned int maxStack = 0;
    unsigned int flags = 0;
    std::vector<Decoded>& instructions;
    std::vector<unsigned int>& targets;
    std::vector<int>& indexAt;
    std::vector<IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT>& clauses;
    std::vector<Region>& regions;       // per clause: its try block, then its handler (with its filter)
    std::vector<Region>& filterBlocks;  // from a filter's start to its handler's
    std::vector<unsigned char>& edges;  // by offset, up to the code's end
    std::vector<unsigned char>& joins;  // by instruction: paths may meet there
    std::vector<unsigned char>& argumentKinds;
    std::vector<unsigned char>& localKinds;
    std::vector<int>& depthAt;
    std::vector<unsigned int>& kindsAt;
    std::vector<unsigned char>& pool;
    std::vector<unsigned int>& work;
    std::vector<unsigned char>& stackRoom;
    VerifiedCallee unkept;
};

}  // namespace

HRESULT BodyVerifier::verify(const VerifiedMethod& method, char16_t* reason, unsigned int reasonSize) {
    if (reasonSize != 0) reason[0] = 0;
    thread_local Scratch kept;
    thread_local bool inUse = false;
    // A check within a check, were the runtime ever to compile while one
    // runs on this thread, takes lists of its own.
    Scratch own;
    Scratch& scratch = inUse ? own : kept;
    const bool outer = !inUse;
    inUse = true;
    HRESULT hr = E_OUTOFMEMORY;
    try {
        hr = Check(method, reason, reasonSize, scratch).run();
    } catch (const std::bad_alloc&) {
        scratch = Scratch();
    }
    scratch.trim();
    if (outer) inUse = false;
    return hr;
}
