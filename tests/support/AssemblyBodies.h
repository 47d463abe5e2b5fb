// The IL bodies and signature blobs of an assembly file: its metadata read
// through the hosted runtime's dispenser, its bodies straight from the file's
// sections at the addresses the metadata gives. Test-only.
#pragma once

#include <string>
#include <vector>

#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class AssemblyBodies {
public:
    struct Body {
        uint32_t methodRow;
        const unsigned char* bytes;
        uint32_t size;  // header, code and exception section, checked against the file
    };
    struct Blob {
        const unsigned char* data;
        uint32_t length;
    };

    // The framework assemblies the IL tests walk, core library first.
    static std::vector<std::string> frameworkAssemblies();

    bool load(const std::string& path);

    // Every method that has an IL body, in table order. Bodies whose declared
    // sizes run past their section are counted in `outOfBounds` instead.
    std::vector<Body> bodies(unsigned int* outOfBounds = nullptr) const;
    std::string methodName(uint32_t methodRow) const;
    // The blobs of every row of a table of signatures: method definitions,
    // stand-alone signatures or TypeSpecs.
    std::vector<Blob> signatures(CorTokenType table) const;

private:
    struct Section {
        uint32_t virtualAddress, size, rawPointer;
    };
    // Bytes at an RVA and how many follow it in its section; null outside them.
    const unsigned char* at(uint32_t rva, uint32_t* available) const;

    std::vector<unsigned char> file;
    std::vector<Section> sections;
    AutoCOMPointer<IMetaDataImport> import;
};
