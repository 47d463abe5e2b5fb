#include "MetadataText.h"

#include <cstdio>
#include <cstring>

#include "runtime/CorErrors.h"
#include "support/RealAssemblies.h"

namespace {

std::string hex(unsigned int value, int width) {
    char text[16];
    std::snprintf(text, sizeof(text), "%0*x", width, value);
    return text;
}

// The compressed token at bytes[at], advancing at; 0 if malformed.
mdToken readToken(const COR_SIGNATURE* bytes, ULONG length, ULONG& at) {
    if (at >= length) return 0;
    unsigned int value = 0;
    if ((bytes[at] & 0x80) == 0) {
        value = bytes[at++];
    } else if ((bytes[at] & 0xC0) == 0x80 && at + 1 < length) {
        value = (bytes[at] & 0x3F) << 8 | bytes[at + 1];
        at += 2;
    } else if (at + 3 < length) {
        value = (bytes[at] & 0x1F) << 24 | bytes[at + 1] << 16 | bytes[at + 2] << 8 | bytes[at + 3];
        at += 4;
    } else {
        return 0;
    }
    static const mdToken tables[] = {0x02000000, 0x01000000, 0x1B000000, 0};
    return tables[value & 3] | (value >> 2);
}

struct OpcodeName {
    unsigned int value;
    const char* name;
    bool token;
    unsigned int skipped = 0;  // bytes of an operand that is no token, not printed
};

// What the shim emits; 0xFE06 is the two-byte ldftn.
constexpr OpcodeName kOpcodes[] = {
    {0x02, "ldarg.0", false},    {0x03, "ldarg.1", false},    {0x06, "ldloc.0", false},
    {0x0A, "stloc.0", false},    {0x14, "ldnull", false},     {0x16, "ldc.i4.0", false},
    {0x17, "ldc.i4.1", false},   {0x18, "ldc.i4.2", false},   {0x25, "dup", false},
    {0x2A, "ret", false},        {0xA2, "stelem.ref", false}, {0x28, "call", true},
    {0x6F, "callvirt", true},    {0x72, "ldstr", true},       {0x73, "newobj", true},
    {0x74, "castclass", true},   {0x7E, "ldsfld", true},      {0x80, "stsfld", true},
    {0x8D, "newarr", true},      {0xD0, "ldtoken", true},     {0xFE06, "ldftn", true},
    {0x07, "ldloc.1", false},    {0x0B, "stloc.1", false},    {0x26, "pop", false},
    {0xDE, "leave.s", false, 1}, {0xDD, "leave", false, 4},
};

// The name a getter wrote into name, or a placeholder for the token if it failed.
std::string nameOr(HRESULT hr, const char16_t* name, const char* kind, mdToken token) {
    return SUCCEEDED(hr) ? RealAssemblies::narrow(name) : std::string("<") + kind + " 0x" + hex(token, 8) + ">";
}

}  // namespace

std::string MetadataText::typeName(mdTypeDef type) const {
    char16_t name[1024];
    ULONG length = 0;
    return nameOr(import->GetTypeDefProps(type, name, 1024, &length, nullptr, nullptr), name, "type", type);
}

std::string MetadataText::fieldName(mdFieldDef field) const {
    char16_t name[1024];
    ULONG length = 0;
    HRESULT hr = import->GetFieldProps(field, nullptr, name, 1024, &length, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr);
    return nameOr(hr, name, "field", field);
}

std::string MetadataText::methodName(mdMethodDef method) const {
    char16_t name[1024];
    ULONG length = 0;
    HRESULT hr = import->GetMethodProps(method, nullptr, name, 1024, &length, nullptr, nullptr, nullptr, nullptr,
                                        nullptr);
    return nameOr(hr, name, "method", method);
}

std::string MetadataText::member(mdToken token) const {
    switch (TypeFromToken(token)) {
    case mdtTypeDef:
        return typeName(token);
    case mdtFieldDef:
        return fieldName(token);
    case mdtMethodDef: {
        mdTypeDef owner = 0;
        PCCOR_SIGNATURE bytes = nullptr;
        ULONG length = 0;
        import->GetMethodProps(token, &owner, nullptr, 0, nullptr, nullptr, &bytes, &length, nullptr, nullptr);
        return typeName(owner) + "::" + methodName(token) + " (" + signature(bytes, length) + ")";
    }
    case mdtString: {
        char16_t text[1024] = {};
        ULONG length = 0;
        if (FAILED(import->GetUserString(token, text, 1023, &length))) {
            return "<string 0x" + hex(token, 8) + ">";
        }
        text[length < 1024 ? length : 1023] = 0;
        return "\"" + RealAssemblies::narrow(text) + "\"";
    }
    default:
        return "<token 0x" + hex(token, 8) + ">";
    }
}

std::string MetadataText::signature(const COR_SIGNATURE* bytes, ULONG length) const {
    std::string text;
    for (ULONG at = 0; at < length;) {
        if (!text.empty()) text += ' ';
        COR_SIGNATURE value = bytes[at++];
        if (value == ELEMENT_TYPE_CLASS || value == ELEMENT_TYPE_VALUETYPE) {
            text += value == ELEMENT_TYPE_CLASS ? "class " : "valuetype ";
            text += typeName(readToken(bytes, length, at));
        } else {
            text += hex(value, 2);
        }
    }
    return text;
}

MethodBody MetadataText::body(const BYTE* header) const {
    MethodBody result;
    const BYTE* code = nullptr;
    unsigned int codeSize = 0;
    if ((header[0] & 3) == 2) {
        codeSize = header[0] >> 2;
        code = header + 1;
    } else {
        result.fat = (header[0] & 3) == 3 && (header[1] >> 4) == 3;
        std::memcpy(&result.maxStack, header + 2, 2);
        result.maxStack &= 0xFFFF;
        std::memcpy(&codeSize, header + 4, 4);
        std::memcpy(&result.localsToken, header + 8, 4);
        code = header + 12;
    }
    for (unsigned int at = 0; at < codeSize;) {
        unsigned int value = code[at++];
        if (value == 0xFE && at < codeSize) {
            value = 0xFE00 | code[at++];
        }
        const OpcodeName* found = nullptr;
        for (const OpcodeName& opcode : kOpcodes) {
            if (opcode.value == value) found = &opcode;
        }
        if (found == nullptr) {
            result.code.push_back("<opcode 0x" + hex(value, 2) + ">");
            break;
        }
        std::string line = found->name;
        at += found->skipped;
        if (found->token) {
            mdToken token = 0;
            if (at + 4 > codeSize) {
                result.code.push_back(line + " <truncated>");
                break;
            }
            std::memcpy(&token, code + at, 4);
            at += 4;
            line += " " + member(token);
        }
        result.code.push_back(line);
    }
    return result;
}
