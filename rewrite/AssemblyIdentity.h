// The assemblies whose types and members injected code refers to by name:
// name, public key token and version, as an assembly reference carries them.
#pragma once

#include "platform/SharedNames.h"
#include "runtime/MetaDataStructs.h"

struct AssemblyIdentity {
    const char16_t* name;
    unsigned char token[8];
    unsigned short version[4];

    ASSEMBLYMETADATA metadata() const {
        ASSEMBLYMETADATA metadata{};
        metadata.usMajorVersion = version[0];
        metadata.usMinorVersion = version[1];
        metadata.usBuildNumber = version[2];
        metadata.usRevisionNumber = version[3];
        return metadata;
    }
};

namespace AssemblyIdentities {

inline constexpr AssemblyIdentity kAgent = {
    SharedNames::kAgentAssembly, {0x5c, 0x0e, 0x91, 0xa4, 0x7d, 0x23, 0xb6, 0xf8}, {26, 8, 1, 17}};
inline constexpr AssemblyIdentity kCoreCLRLibrary = {
    SharedNames::kCoreLibrary, {0x7c, 0xec, 0x85, 0xd7, 0xbe, 0xa7, 0x79, 0x8e}, {4, 0, 0, 0}};
inline constexpr AssemblyIdentity kDesktopLibrary = {
    SharedNames::kDesktopCoreLibrary, {0xb7, 0x7a, 0x5c, 0x56, 0x19, 0x34, 0xe0, 0x89}, {2, 0, 0, 0}};
inline constexpr AssemblyIdentity kSystemRuntime = {
    u"System.Runtime", {0xb0, 0x3f, 0x5f, 0x7f, 0x11, 0xd5, 0x0a, 0x3a}, {4, 0, 0, 0}};

}  // namespace AssemblyIdentities
