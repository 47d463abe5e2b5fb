// Instructions inserted into a method builder one after another from a
// position, keeping the first failure: once an insertion, or a step run
// through then(), fails, nothing more is inserted nor run, and status() is
// that failure. An emitted sequence then reads as the list it is.
#pragma once

#include "rewrite/IMethodBuilder.h"
#include "runtime/CorErrors.h"

class ILEmitter {
public:
    // Starts at index, or, given a failure, does nothing at all.
    ILEmitter(IMethodBuilder* builder, unsigned int index, HRESULT status = S_OK)
        : builder(builder), index(index), result(status) {}

    ILEmitter& op(Opcode opcode, unsigned long operand = 0) { return insert(opcode, operand, 0); }
    // A branch (or leave) to a label.
    ILEmitter& jump(Opcode opcode, unsigned int label) { return insert(opcode, 0, label); }
    ILEmitter& label(unsigned int label) { return insert(Opcode::OPCODE_LABEL, label, 0); }
    // Runs a step that answers an HRESULT, while nothing has failed.
    template <typename Step>
    ILEmitter& then(Step step) {
        if (SUCCEEDED(result)) result = step();
        return *this;
    }

    // Runs an emission of its own from here, whose failure is not kept: what
    // it inserted stays, and this emitter goes on behind it.
    template <typename Emission>
    ILEmitter& optional(Emission emission) {
        if (SUCCEEDED(result)) {
            ILEmitter own(builder, index);
            emission(own);
            index = own.index;
        }
        return *this;
    }

    bool ok() const { return SUCCEEDED(result); }
    HRESULT status() const { return result; }
    // Where the next instruction goes.
    unsigned int position() const { return index; }

private:
    ILEmitter& insert(Opcode opcode, unsigned long operand, unsigned int target) {
        if (SUCCEEDED(result)) {
            result = builder->insertIL(index, opcode, operand, target);
            if (SUCCEEDED(result)) ++index;
        }
        return *this;
    }

    IMethodBuilder* builder;
    unsigned int index;
    HRESULT result;
};
