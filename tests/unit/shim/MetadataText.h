// Readable text of what a test finds in a metadata scope: type, field and
// method names, signatures with their type tokens spelled out, and method
// bodies as instruction listings with symbolic operands. Decoding is the
// test's own, independent of the library's signature and IL readers; it
// knows only what the synthetic shim emits and marks anything else.
#pragma once

#include <string>
#include <vector>

#include "runtime/MetaDataInterfaces.h"

struct MethodBody {
    bool fat = false;
    unsigned int maxStack = 0;
    mdSignature localsToken = 0;
    std::vector<std::string> code;
};

class MetadataText {
public:
    explicit MetadataText(IMetaDataImport* import) : import(import) {}

    // "N.C" for a top-level type, the bare name for a nested one.
    std::string typeName(mdTypeDef type) const;
    std::string fieldName(mdFieldDef field) const;
    std::string methodName(mdMethodDef method) const;
    // "Owner::name" for a method, the name for a field, the type name for a
    // type, the quoted text for a user string.
    std::string member(mdToken token) const;
    // Bytes in lower-case hex separated by spaces; "class X" or "valuetype X"
    // for a type behind 0x12 or 0x11.
    std::string signature(const COR_SIGNATURE* bytes, ULONG length) const;
    // Parses a fat or tiny header and the code behind it.
    MethodBody body(const BYTE* header) const;

private:
    IMetaDataImport* import;
};
