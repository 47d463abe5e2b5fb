// The IL opcodes: one table gives each opcode's value, printed name, printed
// operand width, encoding form, and what it does to the evaluation stack and
// to control. Decoding, encoding, the listings and the verifier read it.
#pragma once

#include <cstdint>

// How the operand of an opcode is encoded behind the opcode bytes.
enum class OperandForm : unsigned char {
    None,
    Byte,         // one byte: short local/argument index, ldc_i4_s, unaligned, no
    Variable,     // two bytes: local or argument index of the long forms, as read
    Word,         // four bytes: token, int32, float32, switch count
    DoubleWord,   // eight bytes: int64, float64
    ShortBranch,  // signed byte distance
    LongBranch,   // signed 32-bit distance
    Case,         // pseudo-opcode: one 32-bit switch entry
    Label,        // pseudo-opcode: a label, no bytes
    Unsupported,  // listed for the dumps, never read nor made (arglist)
};

// Where control goes after an opcode. A call's stack effect comes from its
// callee's signature, a ret's from the method's.
enum class ControlFlow : unsigned char { Next, Branch, Conditional, Stop, Leave, Return, Call };

// What an opcode leaves on the stack when that does not depend on its operand:
// a reference, surely no reference (a number, a value type, an address), or
// either.
enum class PushedKind : unsigned char { Unknown, Object, Value };

// X(enumerator, printed name, value, printed operand size, form, values
//   popped, values pushed, control flow, pushed kind)
#define TARN_IL_OPCODES(X)                                                      \
    X(nop, "nop", 0x00, 0, None, 0, 0, Next, Unknown)                           \
    X(break_, "break", 0x01, 0, None, 0, 0, Next, Unknown)                      \
    X(ldarg_0, "ldarg_0", 0x02, 0, None, 0, 1, Next, Unknown)                   \
    X(ldarg_1, "ldarg_1", 0x03, 0, None, 0, 1, Next, Unknown)                   \
    X(ldarg_2, "ldarg_2", 0x04, 0, None, 0, 1, Next, Unknown)                   \
    X(ldarg_3, "ldarg_3", 0x05, 0, None, 0, 1, Next, Unknown)                   \
    X(ldloc_0, "ldloc_0", 0x06, 0, None, 0, 1, Next, Unknown)                   \
    X(ldloc_1, "ldloc_1", 0x07, 0, None, 0, 1, Next, Unknown)                   \
    X(ldloc_2, "ldloc_2", 0x08, 0, None, 0, 1, Next, Unknown)                   \
    X(ldloc_3, "ldloc_3", 0x09, 0, None, 0, 1, Next, Unknown)                   \
    X(stloc_0, "stloc_0", 0x0A, 0, None, 1, 0, Next, Unknown)                   \
    X(stloc_1, "stloc_1", 0x0B, 0, None, 1, 0, Next, Unknown)                   \
    X(stloc_2, "stloc_2", 0x0C, 0, None, 1, 0, Next, Unknown)                   \
    X(stloc_3, "stloc_3", 0x0D, 0, None, 1, 0, Next, Unknown)                   \
    X(ldarg_s, "ldarg_s", 0x0E, 1, Byte, 0, 1, Next, Unknown)                   \
    X(ldarga_s, "ldarga_s", 0x0F, 1, Byte, 0, 1, Next, Value)                   \
    X(starg_s, "starg_s", 0x10, 1, Byte, 1, 0, Next, Unknown)                   \
    X(ldloc_s, "ldloc_s", 0x11, 1, Byte, 0, 1, Next, Unknown)                   \
    X(ldloca_s, "ldloca_s", 0x12, 1, Byte, 0, 1, Next, Value)                   \
    X(stloc_s, "stloc_s", 0x13, 1, Byte, 1, 0, Next, Unknown)                   \
    X(ldnull, "ldnull", 0x14, 0, None, 0, 1, Next, Object)                      \
    X(ldc_i4_m1, "ldc_i4_m1", 0x15, 0, None, 0, 1, Next, Value)                 \
    X(ldc_i4_0, "ldc_i4_0", 0x16, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_1, "ldc_i4_1", 0x17, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_2, "ldc_i4_2", 0x18, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_3, "ldc_i4_3", 0x19, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_4, "ldc_i4_4", 0x1A, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_5, "ldc_i4_5", 0x1B, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_6, "ldc_i4_6", 0x1C, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_7, "ldc_i4_7", 0x1D, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_8, "ldc_i4_8", 0x1E, 0, None, 0, 1, Next, Value)                   \
    X(ldc_i4_s, "ldc_i4_s", 0x1F, 1, Byte, 0, 1, Next, Value)                   \
    X(ldc_i4, "ldc_i4", 0x20, 4, Word, 0, 1, Next, Value)                       \
    X(ldc_i8, "ldc_i8", 0x21, 8, DoubleWord, 0, 1, Next, Value)                 \
    X(ldc_r4, "ldc_r4", 0x22, 4, Word, 0, 1, Next, Value)                       \
    X(ldc_r8, "ldc_r8", 0x23, 8, DoubleWord, 0, 1, Next, Value)                 \
    X(dup, "dup", 0x25, 0, None, 1, 2, Next, Unknown)                           \
    X(pop, "pop", 0x26, 0, None, 1, 0, Next, Unknown)                           \
    X(jmp, "jmp", 0x27, 4, Word, 0, 0, Stop, Unknown)                           \
    X(call, "call", 0x28, 4, Word, 0, 0, Call, Unknown)                         \
    X(calli, "calli", 0x29, 4, Word, 0, 0, Call, Unknown)                       \
    X(ret, "ret", 0x2A, 0, None, 0, 0, Return, Unknown)                         \
    X(br_s, "br_s", 0x2B, 1, ShortBranch, 0, 0, Branch, Unknown)                \
    X(brfalse_s, "brfalse_s", 0x2C, 1, ShortBranch, 1, 0, Conditional, Unknown) \
    X(brtrue_s, "brtrue_s", 0x2D, 1, ShortBranch, 1, 0, Conditional, Unknown)   \
    X(beq_s, "beq_s", 0x2E, 1, ShortBranch, 2, 0, Conditional, Unknown)         \
    X(bge_s, "bge_s", 0x2F, 1, ShortBranch, 2, 0, Conditional, Unknown)         \
    X(bgt_s, "bgt_s", 0x30, 1, ShortBranch, 2, 0, Conditional, Unknown)         \
    X(ble_s, "ble_s", 0x31, 1, ShortBranch, 2, 0, Conditional, Unknown)         \
    X(blt_s, "blt_s", 0x32, 1, ShortBranch, 2, 0, Conditional, Unknown)         \
    X(bne_un_s, "bne_un_s", 0x33, 1, ShortBranch, 2, 0, Conditional, Unknown)   \
    X(bge_un_s, "bge_un_s", 0x34, 1, ShortBranch, 2, 0, Conditional, Unknown)   \
    X(bgt_un_s, "bgt_un_s", 0x35, 1, ShortBranch, 2, 0, Conditional, Unknown)   \
    X(ble_un_s, "ble_un_s", 0x36, 1, ShortBranch, 2, 0, Conditional, Unknown)   \
    X(blt_un_s, "blt_un_s", 0x37, 1, ShortBranch, 2, 0, Conditional, Unknown)   \
    X(br, "br", 0x38, 4, LongBranch, 0, 0, Branch, Unknown)                     \
    X(brfalse, "brfalse", 0x39, 4, LongBranch, 1, 0, Conditional, Unknown)      \
    X(brtrue, "brtrue", 0x3A, 4, LongBranch, 1, 0, Conditional, Unknown)        \
    X(beq, "beq", 0x3B, 4, LongBranch, 2, 0, Conditional, Unknown)              \
    X(bge, "bge", 0x3C, 4, LongBranch, 2, 0, Conditional, Unknown)              \
    X(bgt, "bgt", 0x3D, 4, LongBranch, 2, 0, Conditional, Unknown)              \
    X(ble, "ble", 0x3E, 4, LongBranch, 2, 0, Conditional, Unknown)              \
    X(blt, "blt", 0x3F, 4, LongBranch, 2, 0, Conditional, Unknown)              \
    X(bne_un, "bne_un", 0x40, 4, LongBranch, 2, 0, Conditional, Unknown)        \
    X(bge_un, "bge_un", 0x41, 4, LongBranch, 2, 0, Conditional, Unknown)        \
    X(bgt_un, "bgt_un", 0x42, 4, LongBranch, 2, 0, Conditional, Unknown)        \
    X(ble_un, "ble_un", 0x43, 4, LongBranch, 2, 0, Conditional, Unknown)        \
    X(blt_un, "blt_un", 0x44, 4, LongBranch, 2, 0, Conditional, Unknown)        \
    X(switch_, "switch", 0x45, 4, Word, 1, 0, Conditional, Unknown)             \
    X(ldind_i1, "ldind_i1", 0x46, 0, None, 1, 1, Next, Value)                   \
    X(ldind_u1, "ldind_u1", 0x47, 0, None, 1, 1, Next, Value)                   \
    X(ldind_i2, "ldind_i2", 0x48, 0, None, 1, 1, Next, Value)                   \
    X(ldind_u2, "ldind_u2", 0x49, 0, None, 1, 1, Next, Value)                   \
    X(ldind_i4, "ldind_i4", 0x4A, 0, None, 1, 1, Next, Value)                   \
    X(ldind_u4, "ldind_u4", 0x4B, 0, None, 1, 1, Next, Value)                   \
    X(ldind_i8, "ldind_i8", 0x4C, 0, None, 1, 1, Next, Value)                   \
    X(ldind_i, "ldind_i", 0x4D, 0, None, 1, 1, Next, Value)                     \
    X(ldind_r4, "ldind_r4", 0x4E, 0, None, 1, 1, Next, Value)                   \
    X(ldind_r8, "ldind_r8", 0x4F, 0, None, 1, 1, Next, Value)                   \
    X(ldind_ref, "ldind_ref", 0x50, 0, None, 1, 1, Next, Unknown)               \
    X(stind_ref, "stind_ref", 0x51, 0, None, 2, 0, Next, Unknown)               \
    X(stind_i1, "stind_i1", 0x52, 0, None, 2, 0, Next, Unknown)                 \
    X(stind_i2, "stind_i2", 0x53, 0, None, 2, 0, Next, Unknown)                 \
    X(stind_i4, "stind_i4", 0x54, 0, None, 2, 0, Next, Unknown)                 \
    X(stind_i8, "stind_i8", 0x55, 0, None, 2, 0, Next, Unknown)                 \
    X(stind_r4, "stind_r4", 0x56, 0, None, 2, 0, Next, Unknown)                 \
    X(stind_r8, "stind_r8", 0x57, 0, None, 2, 0, Next, Unknown)                 \
    X(add, "add", 0x58, 0, None, 2, 1, Next, Value)                             \
    X(sub, "sub", 0x59, 0, None, 2, 1, Next, Value)                             \
    X(mul, "mul", 0x5A, 0, None, 2, 1, Next, Value)                             \
    X(div, "div", 0x5B, 0, None, 2, 1, Next, Value)                             \
    X(div_un, "div_un", 0x5C, 0, None, 2, 1, Next, Value)                       \
    X(rem, "rem", 0x5D, 0, None, 2, 1, Next, Value)                             \
    X(rem_un, "rem_un", 0x5E, 0, None, 2, 1, Next, Value)                       \
    X(and_, "and", 0x5F, 0, None, 2, 1, Next, Value)                            \
    X(or_, "or", 0x60, 0, None, 2, 1, Next, Value)                              \
    X(xor_, "xor", 0x61, 0, None, 2, 1, Next, Value)                            \
    X(shl, "shl", 0x62, 0, None, 2, 1, Next, Value)                             \
    X(shr, "shr", 0x63, 0, None, 2, 1, Next, Value)                             \
    X(shr_un, "shr_un", 0x64, 0, None, 2, 1, Next, Value)                       \
    X(neg, "neg", 0x65, 0, None, 1, 1, Next, Value)                             \
    X(not_, "not", 0x66, 0, None, 1, 1, Next, Value)                            \
    X(conv_i1, "conv_i1", 0x67, 0, None, 1, 1, Next, Value)                     \
    X(conv_i2, "conv_i2", 0x68, 0, None, 1, 1, Next, Value)                     \
    X(conv_i4, "conv_i4", 0x69, 0, None, 1, 1, Next, Value)                     \
    X(conv_i8, "conv_i8", 0x6A, 0, None, 1, 1, Next, Value)                     \
    X(conv_r4, "conv_r4", 0x6B, 0, None, 1, 1, Next, Value)                     \
    X(conv_r8, "conv_r8", 0x6C, 0, None, 1, 1, Next, Value)                     \
    X(conv_u4, "conv_u4", 0x6D, 0, None, 1, 1, Next, Value)                     \
    X(conv_u8, "conv_u8", 0x6E, 0, None, 1, 1, Next, Value)                     \
    X(callvirt, "callvirt", 0x6F, 4, Word, 0, 0, Call, Unknown)                 \
    X(cpobj, "cpobj", 0x70, 4, Word, 2, 0, Next, Unknown)                       \
    X(ldobj, "ldobj", 0x71, 4, Word, 1, 1, Next, Unknown)                       \
    X(ldstr, "ldstr", 0x72, 4, Word, 0, 1, Next, Object)                        \
    X(newobj, "newobj", 0x73, 4, Word, 0, 0, Call, Unknown)                     \
    X(castclass, "castclass", 0x74, 4, Word, 1, 1, Next, Unknown)               \
    X(isinst, "isinst", 0x75, 4, Word, 1, 1, Next, Unknown)                     \
    X(conv_r_un, "conv_r_un", 0x76, 0, None, 1, 1, Next, Value)                 \
    X(unbox, "unbox", 0x79, 4, Word, 1, 1, Next, Value)                         \
    X(throw_, "throw", 0x7A, 0, None, 1, 0, Stop, Unknown)                      \
    X(ldfld, "ldfld", 0x7B, 4, Word, 1, 1, Next, Unknown)                       \
    X(ldflda, "ldflda", 0x7C, 4, Word, 1, 1, Next, Value)                       \
    X(stfld, "stfld", 0x7D, 4, Word, 2, 0, Next, Unknown)                       \
    X(ldsfld, "ldsfld", 0x7E, 4, Word, 0, 1, Next, Unknown)                     \
    X(ldsflda, "ldsflda", 0x7F, 4, Word, 0, 1, Next, Value)                     \
    X(stsfld, "stsfld", 0x80, 4, Word, 1, 0, Next, Unknown)                     \
    X(stobj, "stobj", 0x81, 4, Word, 2, 0, Next, Unknown)                       \
    X(conv_ovf_i1_un, "conv_ovf_i1_un", 0x82, 0, None, 1, 1, Next, Value)       \
    X(conv_ovf_i2_un, "conv_ovf_i2_un", 0x83, 0, None, 1, 1, Next, Value)       \
    X(conv_ovf_i4_un, "conv_ovf_i4_un", 0x84, 0, None, 1, 1, Next, Value)       \
    X(conv_ovf_i8_un, "conv_ovf_i8_un", 0x85, 0, None, 1, 1, Next, Value)       \
    X(conv_ovf_u1_un, "conv_ovf_u1_un", 0x86, 0, None, 1, 1, Next, Value)       \
    X(conv_ovf_u2_un, "conv_ovf_u2_un", 0x87, 0, None, 1, 1, Next, Value)       \
    X(conv_ovf_u4_un, "conv_ovf_u4_un", 0x88, 0, None, 1, 1, Next, Value)       \
    X(conv_ovf_u8_un, "conv_ovf_u8_un", 0x89, 0, None, 1, 1, Next, Value)       \
    X(conv_ovf_i_un, "conv_ovf_i_un", 0x8A, 0, None, 1, 1, Next, Value)         \
    X(conv_ovf_u_un, "conv_ovf_u_un", 0x8B, 0, None, 1, 1, Next, Value)         \
    X(box, "box", 0x8C, 4, Word, 1, 1, Next, Object)                            \
    X(newarr, "newarr", 0x8D, 4, Word, 1, 1, Next, Object)                      \
    X(ldlen, "ldlen", 0x8E, 0, None, 1, 1, Next, Value)                         \
    X(ldelema, "ldelema", 0x8F, 4, Word, 2, 1, Next, Value)                     \
    X(ldelem_i1, "ldelem_i1", 0x90, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_u1, "ldelem_u1", 0x91, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_i2, "ldelem_i2", 0x92, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_u2, "ldelem_u2", 0x93, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_i4, "ldelem_i4", 0x94, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_u4, "ldelem_u4", 0x95, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_i8, "ldelem_i8", 0x96, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_i, "ldelem_i", 0x97, 0, None, 2, 1, Next, Value)                   \
    X(ldelem_r4, "ldelem_r4", 0x98, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_r8, "ldelem_r8", 0x99, 0, None, 2, 1, Next, Value)                 \
    X(ldelem_ref, "ldelem_ref", 0x9A, 0, None, 2, 1, Next, Unknown)             \
    X(stelem_i, "stelem_i", 0x9B, 0, None, 3, 0, Next, Unknown)                 \
    X(stelem_i1, "stelem_i1", 0x9C, 0, None, 3, 0, Next, Unknown)               \
    X(stelem_i2, "stelem_i2", 0x9D, 0, None, 3, 0, Next, Unknown)               \
    X(stelem_i4, "stelem_i4", 0x9E, 0, None, 3, 0, Next, Unknown)               \
    X(stelem_i8, "stelem_i8", 0x9F, 0, None, 3, 0, Next, Unknown)               \
    X(stelem_r4, "stelem_r4", 0xA0, 0, None, 3, 0, Next, Unknown)               \
    X(stelem_r8, "stelem_r8", 0xA1, 0, None, 3, 0, Next, Unknown)               \
    X(stelem_ref, "stelem_ref", 0xA2, 0, None, 3, 0, Next, Unknown)             \
    X(ldelem, "ldelem", 0xA3, 4, Word, 2, 1, Next, Unknown)                     \
    X(stelem, "stelem", 0xA4, 4, Word, 3, 0, Next, Unknown)                     \
    X(unbox_any, "unbox_any", 0xA5, 4, Word, 1, 1, Next, Unknown)               \
    X(conv_ovf_i1, "conv_ovf_i1", 0xB3, 0, None, 1, 1, Next, Value)             \
    X(conv_ovf_u1, "conv_ovf_u1", 0xB4, 0, None, 1, 1, Next, Value)             \
    X(conv_ovf_i2, "conv_ovf_i2", 0xB5, 0, None, 1, 1, Next, Value)             \
    X(conv_ovf_u2, "conv_ovf_u2", 0xB6, 0, None, 1, 1, Next, Value)             \
    X(conv_ovf_i4, "conv_ovf_i4", 0xB7, 0, None, 1, 1, Next, Value)             \
    X(conv_ovf_u4, "conv_ovf_u4", 0xB8, 0, None, 1, 1, Next, Value)             \
    X(conv_ovf_i8, "conv_ovf_i8", 0xB9, 0, None, 1, 1, Next, Value)             \
    X(conv_ovf_u8, "conv_ovf_u8", 0xBA, 0, None, 1, 1, Next, Value)             \
    X(refanyval, "refanyval", 0xC2, 4, Word, 1, 1, Next, Value)                 \
    X(ckfinite, "ckfinite", 0xC3, 0, None, 1, 1, Next, Value)                   \
    X(mkrefany, "mkrefany", 0xC6, 4, Word, 1, 1, Next, Value)                   \
    X(ldtoken, "ldtoken", 0xD0, 4, Word, 0, 1, Next, Value)                     \
    X(conv_u2, "conv_u2", 0xD1, 0, None, 1, 1, Next, Value)                     \
    X(conv_u1, "conv_u1", 0xD2, 0, None, 1, 1, Next, Value)                     \
    X(conv_i, "conv_i", 0xD3, 0, None, 1, 1, Next, Value)                       \
    X(conv_ovf_i, "conv_ovf_i", 0xD4, 0, None, 1, 1, Next, Value)               \
    X(conv_ovf_u, "conv_ovf_u", 0xD5, 0, None, 1, 1, Next, Value)               \
    X(add_ovf, "add_ovf", 0xD6, 0, None, 2, 1, Next, Value)                     \
    X(add_ovf_un, "add_ovf_un", 0xD7, 0, None, 2, 1, Next, Value)               \
    X(mul_ovf, "mul_ovf", 0xD8, 0, None, 2, 1, Next, Value)                     \
    X(mul_ovf_un, "mul_ovf_un", 0xD9, 0, None, 2, 1, Next, Value)               \
    X(sub_ovf, "sub_ovf", 0xDA, 0, None, 2, 1, Next, Value)                     \
    X(sub_ovf_un, "sub_ovf_un", 0xDB, 0, None, 2, 1, Next, Value)               \
    X(endfinally, "endfinally", 0xDC, 0, None, 0, 0, Stop, Unknown)             \
    X(leave, "leave", 0xDD, 4, LongBranch, 0, 0, Leave, Unknown)                \
    X(leave_s, "leave_s", 0xDE, 1, ShortBranch, 0, 0, Leave, Unknown)           \
    X(stind_i, "stind_i", 0xDF, 0, None, 2, 0, Next, Unknown)                   \
    X(conv_u, "conv_u", 0xE0, 0, None, 1, 1, Next, Value)                       \
    X(arglist, "arglist", 0x00FE, 0, Unsupported, 0, 1, Next, Value)            \
    X(ceq, "ceq", 0x01FE, 0, None, 2, 1, Next, Value)                           \
    X(cgt, "cgt", 0x02FE, 0, None, 2, 1, Next, Value)                           \
    X(cgt_un, "cgt_un", 0x03FE, 0, None, 2, 1, Next, Value)                     \
    X(clt, "clt", 0x04FE, 0, None, 2, 1, Next, Value)                           \
    X(clt_un, "clt_un", 0x05FE, 0, None, 2, 1, Next, Value)                     \
    X(ldftn, "ldftn", 0x06FE, 4, Word, 0, 1, Next, Value)                       \
    X(ldvirtftn, "ldvirtftn", 0x07FE, 4, Word, 1, 1, Next, Value)               \
    X(ldarg, "ldarg", 0x09FE, 4, Variable, 0, 1, Next, Unknown)                 \
    X(ldarga, "ldarga", 0x0AFE, 4, Variable, 0, 1, Next, Value)                 \
    X(starg, "starg", 0x0BFE, 4, Variable, 1, 0, Next, Unknown)                 \
    X(ldloc, "ldloc", 0x0CFE, 4, Variable, 0, 1, Next, Unknown)                 \
    X(ldloca, "ldloca", 0x0DFE, 4, Variable, 0, 1, Next, Value)                 \
    X(stloc, "stloc", 0x0EFE, 4, Variable, 1, 0, Next, Unknown)                 \
    X(localloc, "localloc", 0x0FFE, 0, None, 1, 1, Next, Value)                 \
    X(endfilter, "endfilter", 0x11FE, 0, None, 1, 0, Stop, Unknown)             \
    X(unaligned, "unaligned", 0x12FE, 1, Byte, 0, 0, Next, Unknown)             \
    X(volatile_, "volatile", 0x13FE, 0, None, 0, 0, Next, Unknown)              \
    X(tail, "tail", 0x14FE, 0, None, 0, 0, Next, Unknown)                       \
    X(initobj, "initobj", 0x15FE, 4, Word, 1, 0, Next, Unknown)                 \
    X(constrained, "constrained", 0x16FE, 4, Word, 0, 0, Next, Unknown)         \
    X(cpblk, "cpblk", 0x17FE, 0, None, 3, 0, Next, Unknown)                     \
    X(initblk, "initblk", 0x18FE, 0, None, 3, 0, Next, Unknown)                 \
    X(no, "no", 0x19FE, 1, Byte, 0, 0, Next, Unknown)                           \
    X(rethrow, "rethrow", 0x1AFE, 0, None, 0, 0, Stop, Unknown)                 \
    X(sizeof_, "sizeof", 0x1CFE, 4, Word, 0, 1, Next, Value)                    \
    X(refanytype, "refanytype", 0x1DFE, 0, None, 1, 1, Next, Value)             \
    X(readonly, "readonly", 0x1EFE, 0, None, 0, 0, Next, Unknown)

// A one-byte opcode is its byte; a two-byte opcode is its two bytes read as a
// little-endian number (0xFE in the low byte). Names that are C++ keywords carry
// a trailing underscore.
enum class Opcode : unsigned int {
#define TARN_OPCODE_ENUMERATOR(id, text, value, size, form, pop, push, flow, kind) id = value,
    TARN_IL_OPCODES(TARN_OPCODE_ENUMERATOR)
#undef TARN_OPCODE_ENUMERATOR
        OPCODE_CASE = 0x8001,
    OPCODE_LABEL = 0x8002,
};

struct OpcodeInfo {
    Opcode opcode;
    const char* name;
    unsigned int operandSize;  // as printed: 0, 1, 4 or 8
    OperandForm form;
    signed char pop;
    signed char push;
    ControlFlow flow;
    PushedKind pushed;
};

// The records by slot: "case" and "label", then every opcode of the table.
constexpr unsigned int kOpcodeSlots = 0x202;

// The slot of an opcode, or kOpcodeSlots for a value that is no opcode at all.
constexpr unsigned int opcodeSlot(unsigned int value) {
    if (value < 0x100) return value;
    if ((value & 0xFF) == 0xFE && value <= 0xFFFF) return 0x100 + (value >> 8);
    if (value == static_cast<unsigned int>(Opcode::OPCODE_CASE)) return 0x200;
    if (value == static_cast<unsigned int>(Opcode::OPCODE_LABEL)) return 0x201;
    return kOpcodeSlots;
}

namespace opcode_table {

inline constexpr OpcodeInfo kRecords[] = {
    {Opcode::OPCODE_CASE, "case", 4, OperandForm::Case, 0, 0, ControlFlow::Branch, PushedKind::Unknown},
    {Opcode::OPCODE_LABEL, "label", 4, OperandForm::Label, 0, 0, ControlFlow::Next, PushedKind::Unknown},
#define TARN_OPCODE_RECORD(id, text, value, size, form, pop, push, flow, kind) \
    {Opcode::id, text, size, OperandForm::form, pop, push, ControlFlow::flow, PushedKind::kind},
    TARN_IL_OPCODES(TARN_OPCODE_RECORD)
#undef TARN_OPCODE_RECORD
};

// Made when the library is compiled: nothing to fill at run time.
struct BySlot {
    const OpcodeInfo* records[kOpcodeSlots];
};
inline constexpr BySlot kBySlot = [] {
    BySlot table{};
    for (const OpcodeInfo& record : kRecords)
        table.records[opcodeSlot(static_cast<unsigned int>(record.opcode))] = &record;
    return table;
}();

}  // namespace opcode_table

// The record of an opcode, or null for a value that is not in the table.
constexpr const OpcodeInfo* findOpcode(Opcode opcode) {
    const unsigned int slot = opcodeSlot(static_cast<unsigned int>(opcode));
    return slot < kOpcodeSlots ? opcode_table::kBySlot.records[slot] : nullptr;
}

// Branch family as the builder sees it: the opcodes with a branch distance
// (br_s to blt_un, leave, leave_s) and the switch entries; switch itself is
// not in it.
constexpr bool isBranchOpcode(Opcode opcode) {
    const OpcodeInfo* info = findOpcode(opcode);
    return info != nullptr && (info->form == OperandForm::ShortBranch || info->form == OperandForm::LongBranch ||
                               info->form == OperandForm::Case);
}

// Branch opcodes whose distance is a signed byte.
constexpr bool isShortBranchOpcode(Opcode opcode) {
    const OpcodeInfo* info = findOpcode(opcode);
    return info != nullptr && info->form == OperandForm::ShortBranch;
}
