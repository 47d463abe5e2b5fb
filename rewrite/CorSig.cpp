#include "rewrite/CorSig.h"

#include "runtime/CorMetadataEnums.h"

ULONG CorSigCompressData(ULONG data, void* out) {
    auto* bytes = static_cast<BYTE*>(out);
    if (data < 0x80) {
        bytes[0] = static_cast<BYTE>(data);
        return 1;
    }
    if (data < 0x4000) {
        bytes[0] = static_cast<BYTE>(0x80 | data >> 8);
        bytes[1] = static_cast<BYTE>(data);
        return 2;
    }
    if (data < 0x20000000) {
        bytes[0] = static_cast<BYTE>(0xC0 | data >> 24);
        bytes[1] = static_cast<BYTE>(data >> 16);
        bytes[2] = static_cast<BYTE>(data >> 8);
        bytes[3] = static_cast<BYTE>(data);
        return 4;
    }
    return kCorSigNoEncoding;
}

ULONG CorSigCompressToken(mdToken token, void* out) {
    ULONG row = RidFromToken(token);
    switch (TypeFromToken(token)) {
    case mdtTypeDef:
        return CorSigCompressData(row << 2, out);
    case mdtTypeRef:
        return CorSigCompressData(row << 2 | 1, out);
    case mdtTypeSpec:
        return CorSigCompressData(row << 2 | 2, out);
    default:
        return kCorSigNoEncoding;
    }
}

ULONG CorSigUncompressData(PCCOR_SIGNATURE data, ULONG available, ULONG* value) {
    if (available == 0) {
        return 0;
    }
    BYTE first = data[0];
    if ((first & 0x80) == 0) {
        *value = first;
        return 1;
    }
    if ((first & 0xC0) == 0x80) {
        if (available < 2) {
            return 0;
        }
        *value = (static_cast<ULONG>(first & 0x3F) << 8) | data[1];
        return 2;
    }
    if ((first & 0xE0) == 0xC0) {
        if (available < 4) {
            return 0;
        }
        *value = (static_cast<ULONG>(first & 0x1F) << 24) | (static_cast<ULONG>(data[1]) << 16) |
                 (static_cast<ULONG>(data[2]) << 8) | data[3];
        return 4;
    }
    return 0;
}

ULONG CorSigUncompressToken(PCCOR_SIGNATURE data, ULONG available, mdToken* token) {
    ULONG coded = 0;
    ULONG length = CorSigUncompressData(data, available, &coded);
    if (length == 0) {
        return 0;
    }
    static constexpr uint32_t kTables[] = {mdtTypeDef, mdtTypeRef, mdtTypeSpec};
    ULONG tag = coded & 3;
    if (tag == 3) {
        return 0;
    }
    *token = TokenFromRid(coded >> 2, kTables[tag]);
    return length;
}
