#include "rewrite/Opcode.h"

const OpcodeInfo gOpcodeArray[] = {
    {Opcode::OPCODE_CASE, "case", 4, OperandForm::Case},
    {Opcode::OPCODE_LABEL, "label", 4, OperandForm::Label},
#define TARN_OPCODE_RECORD(id, text, value, size, form) {Opcode::id, text, size, OperandForm::form},
    TARN_IL_OPCODES(TARN_OPCODE_RECORD)
#undef TARN_OPCODE_RECORD
    {Opcode::nop, nullptr, 0, OperandForm::None},
};

// Zero-initialised: no constructor runs at load time.
const OpcodeInfo* gOpcodeMap[kOpcodeSlots];

static bool fillOpcodeMap() {
    for (const OpcodeInfo* info = gOpcodeArray; info->name != nullptr; ++info) {
        gOpcodeMap[opcodeSlot(static_cast<unsigned int>(info->opcode))] = info;
    }
    return true;
}

void initializeOpcodeMap() {
    // A function-local static makes the one fill safe when several threads
    // compile methods at once.
    static const bool filled = fillOpcodeMap();
    (void)filled;
}

const OpcodeInfo* findOpcode(Opcode opcode) {
    initializeOpcodeMap();
    unsigned int slot = opcodeSlot(static_cast<unsigned int>(opcode));
    return slot < kOpcodeSlots ? gOpcodeMap[slot] : nullptr;
}
