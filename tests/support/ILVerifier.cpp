#include "ILVerifier.h"

#include <cstring>
#include <map>
#include <set>
#include <sstream>

#include "platform/AutoPointer.h"
#include "runtime/Guids.h"

namespace {

enum class Operand { None, Byte, Word16, Word32, Word64, ShortBranch, LongBranch, Switch, Invalid };
enum class Flow { Next, Branch, Conditional, Stop, Leave };
enum class Effect { Fixed, Call, CallIndirect, NewObject, Return };

struct Behaviour {
    Operand operand = Operand::Invalid;
    int pop = 0;
    int push = 0;
    Flow flow = Flow::Next;
    Effect effect = Effect::Fixed;
};

Behaviour fixed(Operand operand, int pop, int push, Flow flow = Flow::Next) {
    return Behaviour{operand, pop, push, flow, Effect::Fixed};
}

// The ECMA-335 table, partition III, by value.
Behaviour behaviourOf(uint32_t op) {
    if (op >= 0xFE00) {
        switch (op & 0xFF) {
        case 0x00: return fixed(Operand::None, 0, 1);
        case 0x01: case 0x02: case 0x03: case 0x04: case 0x05: return fixed(Operand::None, 2, 1);
        case 0x06: return fixed(Operand::Word32, 0, 1);
        case 0x07: return fixed(Operand::Word32, 1, 1);
        case 0x09: case 0x0A: case 0x0C: case 0x0D: return fixed(Operand::Word16, 0, 1);
        case 0x0B: case 0x0E: return fixed(Operand::Word16, 1, 0);
        case 0x0F: return fixed(Operand::None, 1, 1);
        case 0x11: return fixed(Operand::None, 1, 0, Flow::Stop);
        case 0x12: case 0x19: return fixed(Operand::Byte, 0, 0);
        case 0x13: case 0x14: case 0x1E: return fixed(Operand::None, 0, 0);
        case 0x15: return fixed(Operand::Word32, 1, 0);
        case 0x16: return fixed(Operand::Word32, 0, 0);
        case 0x17: case 0x18: return fixed(Operand::None, 3, 0);
        case 0x1A: return fixed(Operand::None, 0, 0, Flow::Stop);
        case 0x1C: return fixed(Operand::Word32, 0, 1);
        case 0x1D: return fixed(Operand::None, 1, 1);
        default: return Behaviour{};
        }
    }
    if (op <= 0x01) return fixed(Operand::None, 0, 0);
    if (op <= 0x09) return fixed(Operand::None, 0, 1);
    if (op <= 0x0D) return fixed(Operand::None, 1, 0);
    switch (op) {
    case 0x0E: case 0x0F: case 0x11: case 0x12: return fixed(Operand::Byte, 0, 1);
    case 0x10: case 0x13: return fixed(Operand::Byte, 1, 0);
    case 0x1F: return fixed(Operand::Byte, 0, 1);
    case 0x20: case 0x22: return fixed(Operand::Word32, 0, 1);
    case 0x21: case 0x23: return fixed(Operand::Word64, 0, 1);
    case 0x25: return fixed(Operand::None, 1, 2);
    case 0x26: return fixed(Operand::None, 1, 0);
    case 0x27: return fixed(Operand::Word32, 0, 0, Flow::Stop);
    case 0x28: case 0x6F: return Behaviour{Operand::Word32, 0, 0, Flow::Next, Effect::Call};
    case 0x29: return Behaviour{Operand::Word32, 0, 0, Flow::Next, Effect::CallIndirect};
    case 0x2A: return Behaviour{Operand::None, 0, 0, Flow::Stop, Effect::Return};
    case 0x2B: return fixed(Operand::ShortBranch, 0, 0, Flow::Branch);
    case 0x2C: case 0x2D: return fixed(Operand::ShortBranch, 1, 0, Flow::Conditional);
    case 0x38: return fixed(Operand::LongBranch, 0, 0, Flow::Branch);
    case 0x39: case 0x3A: return fixed(Operand::LongBranch, 1, 0, Flow::Conditional);
    case 0x45: return fixed(Operand::Switch, 1, 0, Flow::Conditional);
    case 0x70: case 0x81: return fixed(Operand::Word32, 2, 0);
    case 0x71: case 0x74: case 0x75: case 0x79: case 0x7B: case 0x7C: case 0x8C: case 0x8D: case 0xA5: case 0xC2:
    case 0xC6:
        return fixed(Operand::Word32, 1, 1);
    case 0x72: case 0x7E: case 0x7F: case 0xD0: return fixed(Operand::Word32, 0, 1);
    case 0x73: return Behaviour{Operand::Word32, 0, 1, Flow::Next, Effect::NewObject};
    case 0x7A: return fixed(Operand::None, 1, 0, Flow::Stop);
    case 0x7D: return fixed(Operand::Word32, 2, 0);
    case 0x80: return fixed(Operand::Word32, 1, 0);
    case 0x8E: return fixed(Operand::None, 1, 1);
    case 0x8F: case 0xA3: return fixed(Operand::Word32, 2, 1);
    case 0xA4: return fixed(Operand::Word32, 3, 0);
    case 0xDC: return fixed(Operand::None, 0, 0, Flow::Stop);
    case 0xDD: return fixed(Operand::LongBranch, 0, 0, Flow::Leave);
    case 0xDE: return fixed(Operand::ShortBranch, 0, 0, Flow::Leave);
    case 0xDF: return fixed(Operand::None, 2, 0);
    default: break;
    }
    if (op >= 0x14 && op <= 0x1E) return fixed(Operand::None, 0, 1);
    if (op >= 0x2E && op <= 0x37) return fixed(Operand::ShortBranch, 2, 0, Flow::Conditional);
    if (op >= 0x3B && op <= 0x44) return fixed(Operand::LongBranch, 2, 0, Flow::Conditional);
    if (op >= 0x46 && op <= 0x50) return fixed(Operand::None, 1, 1);
    if (op >= 0x51 && op <= 0x57) return fixed(Operand::None, 2, 0);
    if (op >= 0x58 && op <= 0x64) return fixed(Operand::None, 2, 1);
    if (op >= 0x65 && op <= 0x6E) return fixed(Operand::None, 1, 1);
    if (op == 0x76 || (op >= 0x82 && op <= 0x8B) || (op >= 0xB3 && op <= 0xBA) || op == 0xC3 ||
        (op >= 0xD1 && op <= 0xD5) || op == 0xE0) {
        return fixed(Operand::None, 1, 1);
    }
    if (op >= 0x90 && op <= 0x9A) return fixed(Operand::None, 2, 1);
    if (op >= 0x9B && op <= 0xA2) return fixed(Operand::None, 3, 0);
    if (op >= 0xD6 && op <= 0xDB) return fixed(Operand::None, 2, 1);
    return Behaviour{};
}

uint32_t read32(const unsigned char* p) { return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24; }

bool readCompressed(const unsigned char*& p, const unsigned char* end, uint32_t* value) {
    if (p >= end) return false;
    if ((p[0] & 0x80) == 0) {
        *value = *p++;
    } else if ((p[0] & 0xC0) == 0x80 && end - p >= 2) {
        *value = (p[0] & 0x3Fu) << 8 | p[1];
        p += 2;
    } else if ((p[0] & 0xE0) == 0xC0 && end - p >= 4) {
        *value = (p[0] & 0x1Fu) << 24 | p[1] << 16 | p[2] << 8 | p[3];
        p += 4;
    } else {
        return false;
    }
    return true;
}

struct CallShape {
    uint32_t parameters = 0;
    bool hasThis = false;
    bool explicitThis = false;
    bool returns = false;
};

bool shapeOf(const unsigned char* signature, uint32_t length, CallShape* shape) {
    const unsigned char* p = signature;
    const unsigned char* end = signature + length;
    if (p >= end) return false;
    unsigned char convention = *p++;
    shape->hasThis = (convention & 0x20) != 0;
    shape->explicitThis = (convention & 0x40) != 0;
    uint32_t value = 0;
    if ((convention & 0x10) != 0 && !readCompressed(p, end, &value)) return false;
    if (!readCompressed(p, end, &shape->parameters)) return false;
    // Custom modifiers ahead of the return type carry a token each.
    while (p < end && (*p == 0x1F || *p == 0x20)) {
        ++p;
        if (!readCompressed(p, end, &value)) return false;
    }
    if (p >= end) return false;
    shape->returns = *p != 0x01;
    return true;
}

bool callShape(IMetaDataImport* import, uint32_t token, CallShape* shape) {
    PCCOR_SIGNATURE signature = nullptr;
    ULONG length = 0;
    HRESULT hr = E_FAIL;
    switch (token & 0xFF000000) {
    case 0x06000000:
        hr = import->GetMethodProps(token, nullptr, nullptr, 0, nullptr, nullptr, &signature, &length, nullptr,
                                    nullptr);
        break;
    case 0x0A000000:
        hr = import->GetMemberRefProps(token, nullptr, nullptr, 0, nullptr, &signature, &length);
        break;
    case 0x11000000:
        hr = import->GetSigFromToken(token, &signature, &length);
        break;
    case 0x2B000000: {
        AutoCOMPointer<IMetaDataImport2> import2;
        mdToken parent = 0;
        hr = import->QueryInterface(IID_IMetaDataImport2, reinterpret_cast<void**>(&import2));
        if (SUCCEEDED(hr)) hr = import2->GetMethodSpecProps(token, &parent, nullptr, nullptr);
        return SUCCEEDED(hr) && callShape(import, parent, shape);
    }
    default:
        return false;
    }
    return SUCCEEDED(hr) && shapeOf(signature, length, shape);
}

std::string hex(uint32_t value) {
    std::ostringstream out;
    out << "0x" << std::hex << value;
    return out.str();
}

class Checker {
public:
    Checker(const unsigned char* body, IMetaDataImport* import, bool returnsValue)
        : body(body), import(import), returnsValue(returnsValue) {}

    ILVerifier::Result run() {
        if (readHeader() && decode() && readClauses()) {
            checkTargets();
            checkNesting();
            simulate();
        }
        return std::move(result);
    }

private:
    void error(const std::string& text) { result.errors.push_back(text); }

    bool readHeader() {
        if ((body[0] & 3) == 2) {
            result.codeSize = body[0] >> 2;
            result.maxStack = 8;
            code = body + 1;
            return true;
        }
        if ((body[0] & 3) != 3) {
            error("neither a tiny nor a fat header");
            return false;
        }
        result.fat = true;
        uint16_t word = static_cast<uint16_t>(body[0] | body[1] << 8);
        result.flags = word & 0xFFF;
        if ((word >> 12) != 3) error("fat header size is not 3 words");
        result.maxStack = static_cast<uint16_t>(body[2] | body[3] << 8);
        result.codeSize = read32(body + 4);
        result.localSigToken = read32(body + 8);
        code = body + 12;
        return true;
    }

    bool decode() {
        uint32_t offset = 0;
        while (offset < result.codeSize) {
            ILVerifier::Instruction instruction{offset, code[offset], 0, {}};
            uint32_t next = offset + 1;
            if (code[offset] == 0xFE) {
                if (next >= result.codeSize) return fail("two-byte opcode cut at " + hex(offset));
                instruction.opcode = 0xFE00 | code[next++];
            }
            Behaviour behaviour = behaviourOf(instruction.opcode);
            auto need = [&](uint32_t bytes) { return next + bytes <= result.codeSize; };
            switch (behaviour.operand) {
            case Operand::None: break;
            case Operand::Byte:
            case Operand::ShortBranch:
                if (!need(1)) return fail("operand cut at " + hex(offset));
                instruction.operand = code[next];
                next += 1;
                break;
            case Operand::Word16:
                if (!need(2)) return fail("operand cut at " + hex(offset));
                instruction.operand = code[next] | code[next + 1] << 8;
                next += 2;
                break;
            case Operand::Word32:
            case Operand::LongBranch:
                if (!need(4)) return fail("operand cut at " + hex(offset));
                instruction.operand = read32(code + next);
                next += 4;
                break;
            case Operand::Word64:
                if (!need(8)) return fail("operand cut at " + hex(offset));
                instruction.operand = read32(code + next) | static_cast<uint64_t>(read32(code + next + 4)) << 32;
                next += 8;
                break;
            case Operand::Switch: {
                if (!need(4)) return fail("switch cut at " + hex(offset));
                uint32_t count = read32(code + next);
                next += 4;
                if (count > (result.codeSize - next) / 4) return fail("switch table cut at " + hex(offset));
                uint32_t end = next + 4 * count;
                for (uint32_t i = 0; i < count; ++i) {
                    instruction.targets.push_back(end + static_cast<int32_t>(read32(code + next + 4 * i)));
                }
                instruction.operand = count;
                next = end;
                break;
            }
            case Operand::Invalid:
                return fail("no opcode " + hex(instruction.opcode) + " at " + hex(offset));
            }
            if (behaviour.operand == Operand::ShortBranch) {
                instruction.targets.push_back(next + static_cast<int8_t>(instruction.operand));
            } else if (behaviour.operand == Operand::LongBranch) {
                instruction.targets.push_back(next + static_cast<int32_t>(instruction.operand));
            }
            starts[offset] = result.instructions.size();
            result.instructions.push_back(instruction);
            offset = next;
        }
        return true;
    }

    bool readClauses() {
        if ((result.flags & 0x8) == 0) return true;
        uint32_t position = (12 + result.codeSize + 3) & ~3u;
        const unsigned char* section = body + position;
        bool fatSection = (section[0] & 0x40) != 0;
        if ((section[0] & 0x3F) != 1) return fail("the section after the code is no clause table");
        if ((section[0] & 0x80) != 0) error("more than one section");
        uint32_t size = fatSection ? (section[1] | section[2] << 8 | section[3] << 16) : section[1];
        uint32_t clauseSize = fatSection ? 24 : 12;
        if (size < 4 || (size - 4) % clauseSize != 0) return fail("clause table size " + hex(size));
        for (uint32_t i = 0; i < (size - 4) / clauseSize; ++i) {
            const unsigned char* c = section + 4 + i * clauseSize;
            ILVerifier::Clause clause{};
            if (fatSection) {
                clause = {read32(c), read32(c + 4), read32(c + 8), read32(c + 12), read32(c + 16), read32(c + 20)};
            } else {
                clause = {static_cast<uint32_t>(c[0] | c[1] << 8), static_cast<uint32_t>(c[2] | c[3] << 8), c[4],
                          static_cast<uint32_t>(c[5] | c[6] << 8), c[7], read32(c + 8)};
            }
            result.clauses.push_back(clause);
        }
        return true;
    }

    bool isStart(uint32_t offset) const { return starts.count(offset) != 0; }
    bool isBoundary(uint32_t offset) const { return offset == result.codeSize || isStart(offset); }

    void checkTargets() {
        for (const ILVerifier::Instruction& instruction : result.instructions) {
            for (uint32_t target : instruction.targets) {
                if (!isStart(target)) error("target " + hex(target) + " of " + hex(instruction.offset) + " is no instruction");
            }
        }
        for (const ILVerifier::Clause& clause : result.clauses) {
            uint32_t places[] = {clause.tryOffset, clause.tryOffset + clause.tryLength, clause.handlerOffset,
                                 clause.handlerOffset + clause.handlerLength};
            for (uint32_t place : places) {
                if (!isBoundary(place)) error("clause boundary " + hex(place) + " is no instruction start");
            }
            if ((clause.flags & 1) != 0 && !isStart(clause.classOrFilter)) error("filter start is no instruction");
            if (clause.tryLength == 0 || clause.handlerLength == 0) error("empty clause range");
        }
    }

    struct Range {
        uint32_t begin, end;
        bool contains(const Range& other) const { return begin <= other.begin && other.end <= end; }
        bool disjoint(const Range& other) const { return end <= other.begin || other.end <= begin; }
    };

    std::vector<Range> rangesOf(const ILVerifier::Clause& clause) const {
        std::vector<Range> ranges = {{clause.tryOffset, clause.tryOffset + clause.tryLength}};
        uint32_t handlerBegin = (clause.flags & 1) != 0 ? clause.classOrFilter : clause.handlerOffset;
        ranges.push_back({handlerBegin, clause.handlerOffset + clause.handlerLength});
        return ranges;
    }

    // Every two blocks are disjoint or one holds the other, and a clause that
    // holds another comes after it.
    void checkNesting() {
        for (size_t i = 0; i < result.clauses.size(); ++i) {
            std::vector<Range> first = rangesOf(result.clauses[i]);
            if (!first[0].disjoint(first[1])) error("clause " + std::to_string(i) + " overlaps its own handler");
            for (size_t j = i + 1; j < result.clauses.size(); ++j) {
                std::vector<Range> second = rangesOf(result.clauses[j]);
                for (const Range& a : first) {
                    for (const Range& b : second) {
                        bool aInB = b.contains(a);
                        bool bInA = a.contains(b);
                        if (!a.disjoint(b) && !aInB && !bInA) {
                            error("clauses " + std::to_string(i) + " and " + std::to_string(j) + " overlap");
                        }
                        if (bInA && !aInB) {
                            error("clause " + std::to_string(j) + " lies inside clause " + std::to_string(i) +
                                  " but comes after it");
                        }
                    }
                }
            }
        }
    }

    void enter(uint32_t offset, int depth, std::vector<uint32_t>& work) {
        auto found = depthAt.find(offset);
        if (found == depthAt.end()) {
            depthAt[offset] = depth;
            work.push_back(offset);
        } else if (found->second != depth) {
            error("depth " + std::to_string(depth) + " meets depth " + std::to_string(found->second) + " at " +
                  hex(offset));
        }
    }

    void simulate() {
        std::vector<uint32_t> work;
        enter(0, 0, work);
        for (const ILVerifier::Clause& clause : result.clauses) {
            bool handlerGetsException = (clause.flags & (2 | 4)) == 0;
            enter(clause.handlerOffset, handlerGetsException ? 1 : 0, work);
            if ((clause.flags & 1) != 0) enter(clause.classOrFilter, 1, work);
        }
        while (!work.empty() && result.errors.size() < 20) {
            uint32_t offset = work.back();
            work.pop_back();
            int depth = depthAt[offset];
            for (const ILVerifier::Clause& clause : result.clauses) {
                if (clause.tryOffset == offset && depth != 0) error("stack not empty entering a try at " + hex(offset));
            }
            const ILVerifier::Instruction& instruction = result.instructions[starts.at(offset)];
            Behaviour behaviour = behaviourOf(instruction.opcode);
            int pop = behaviour.pop;
            int push = behaviour.push;
            if (behaviour.effect == Effect::Call || behaviour.effect == Effect::CallIndirect ||
                behaviour.effect == Effect::NewObject) {
                CallShape shape;
                if (!callShape(import, static_cast<uint32_t>(instruction.operand), &shape)) {
                    error("no signature for token " + hex(static_cast<uint32_t>(instruction.operand)));
                    continue;
                }
                pop = static_cast<int>(shape.parameters);
                if (behaviour.effect == Effect::NewObject) {
                    push = 1;
                } else {
                    if (shape.hasThis && !shape.explicitThis) ++pop;
                    if (behaviour.effect == Effect::CallIndirect) ++pop;
                    push = shape.returns ? 1 : 0;
                }
            } else if (behaviour.effect == Effect::Return) {
                pop = returnsValue ? 1 : 0;
                if (depth != pop) error("ret with depth " + std::to_string(depth) + " at " + hex(offset));
            }
            if (depth < pop) {
                error("stack underflow at " + hex(offset));
                continue;
            }
            depth = depth - pop + push;
            if (static_cast<uint32_t>(depth) > result.deepest) result.deepest = static_cast<uint32_t>(depth);
            uint32_t next = offset;
            size_t index = starts.at(offset);
            next = index + 1 < result.instructions.size() ? result.instructions[index + 1].offset : result.codeSize;
            switch (behaviour.flow) {
            case Flow::Next:
            case Flow::Conditional:
                if (next >= result.codeSize) {
                    error("falls off the end at " + hex(offset));
                    break;
                }
                enter(next, depth, work);
                for (uint32_t target : instruction.targets) {
                    if (isStart(target)) enter(target, depth, work);
                }
                break;
            case Flow::Branch:
                for (uint32_t target : instruction.targets) {
                    if (isStart(target)) enter(target, depth, work);
                }
                break;
            case Flow::Leave:
                if (depth != 0) error("leave with depth " + std::to_string(depth) + " at " + hex(offset));
                for (uint32_t target : instruction.targets) {
                    if (isStart(target)) enter(target, 0, work);
                }
                break;
            case Flow::Stop:
                break;
            }
        }
        if (result.deepest > result.maxStack) {
            error("MaxStack " + std::to_string(result.maxStack) + " below depth " + std::to_string(result.deepest));
        }
    }

    bool fail(const std::string& text) {
        error(text);
        return false;
    }

    const unsigned char* body;
    IMetaDataImport* import;
    bool returnsValue;
    const unsigned char* code = nullptr;
    ILVerifier::Result result;
    std::map<uint32_t, size_t> starts;
    std::map<uint32_t, int> depthAt;
};

}  // namespace

ILVerifier::Result ILVerifier::verify(const unsigned char* body, IMetaDataImport* import, bool returnsValue) {
    return Checker(body, import, returnsValue).run();
}

bool ILVerifier::returnsValue(const unsigned char* signature, uint32_t length) {
    CallShape shape;
    return shapeOf(signature, length, &shape) && shape.returns;
}

std::string ILVerifier::Result::describe() const {
    std::ostringstream out;
    for (const std::string& text : errors) out << text << "\n";
    out << "code " << codeSize << " bytes, MaxStack " << maxStack << ", " << clauses.size() << " clauses\n";
    for (const Instruction& instruction : instructions) {
        out << std::hex << "  " << instruction.offset << ": " << instruction.opcode << " " << instruction.operand;
        for (uint32_t target : instruction.targets) out << " ->" << target;
        out << std::dec << "\n";
    }
    for (const Clause& clause : clauses) {
        out << std::hex << "  clause " << clause.flags << " try " << clause.tryOffset << "+" << clause.tryLength
            << " handler " << clause.handlerOffset << "+" << clause.handlerLength << " " << clause.classOrFilter
            << std::dec << "\n";
    }
    return out.str();
}

unsigned int ILVerifier::Result::count(uint32_t opcode) const {
    unsigned int n = 0;
    for (const Instruction& instruction : instructions) n += instruction.opcode == opcode ? 1 : 0;
    return n;
}
