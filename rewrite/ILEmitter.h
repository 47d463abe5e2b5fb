// Instructions inserted into a method builder one after another from a
// position, keeping the first failure: once an insertion, or a step run
// through then(), fails, nothing more is inserted nor run, and status() is
// that failure. An emitted sequence then reads as the list it is.
//
// The instructions wait in the emitter and go in as one run, so that the
// entries behind move once per run rather than once per instruction: before a
// step, a nested emission, a look at the status or position, and when the
// emitter ends. Between those, the builder is not the emitter's to look at.
#pragma once

#include "rewrite/IMethodBuilder.h"
#include "rewrite/InstructionFactory.h"
#include "runtime/CorErrors.h"

class ILEmitter {
public:
    // Starts at index, or, given a failure, does nothing at all.
    ILEmitter(IMethodBuilder* builder, unsigned int index, HRESULT status = S_OK)
        : builder(builder), index(index), result(status) {}
    ILEmitter(const ILEmitter&) = delete;
    ILEmitter& operator=(const ILEmitter&) = delete;
    ~ILEmitter() { flush(); }

    ILEmitter& op(Opcode opcode, unsigned long operand = 0) { return insert(opcode, operand, 0); }
    // A branch (or leave) to a label.
    ILEmitter& jump(Opcode opcode, unsigned int label) { return insert(opcode, 0, label); }
    ILEmitter& label(unsigned int label) { return insert(Opcode::OPCODE_LABEL, label, 0); }
    // Runs a step that answers an HRESULT, while nothing has failed.
    template <typename Step>
    ILEmitter& then(Step step) {
        flush();
        if (SUCCEEDED(result)) result = step();
        return *this;
    }

    // Runs an emission of its own from here, whose failure is not kept: what
    // it inserted stays, and this emitter goes on behind it.
    template <typename Emission>
    ILEmitter& optional(Emission emission) {
        flush();
        if (SUCCEEDED(result)) {
            ILEmitter own(builder, index);
            emission(own);
            own.flush();
            index = own.index;
        }
        return *this;
    }

    bool ok() {
        flush();
        return SUCCEEDED(result);
    }
    HRESULT status() {
        flush();
        return result;
    }
    // Where the next instruction goes.
    unsigned int position() {
        flush();
        return index;
    }

private:
    static constexpr unsigned int kRunLength = 16;

    ILEmitter& insert(Opcode opcode, unsigned long operand, unsigned int target) {
        if (FAILED(result)) return *this;
        std::optional<Instruction> made = newInstruction(opcode, operand, target);
        if (!made || (target == 0 && isBranchOpcode(opcode))) {
            // A branch without a label is tied to its place by the builder.
            flush();
            if (SUCCEEDED(result)) result = builder->insertIL(index, opcode, operand, target);
            if (SUCCEEDED(result)) ++index;
            return *this;
        }
        if (pending == kRunLength) flush();
        run.entries[pending++] = *made;
        ++index;
        return *this;
    }

    void flush() {
        if (pending == 0) return;
        const HRESULT inserted = builder->insertRun(index - pending, run.entries, pending);
        if (FAILED(inserted)) {
            index -= pending;
            result = inserted;
        }
        pending = 0;
    }

    IMethodBuilder* builder;
    unsigned int index;
    HRESULT result;
    // Room for the run, left unset until instructions are made into it.
    union Run {
        Run() {}
        Instruction entries[kRunLength];
    } run;
    unsigned int pending = 0;
};
