// The IL bodies and signature blobs of an assembly file, read without a runtime
// through PeImage and MetadataTables. Test-only.
#pragma once

#include <string>
#include <vector>

#include "MetadataTables.h"
#include "PeImage.h"

class AssemblyBodies {
public:
    struct Body {
        uint32_t methodRow;
        const unsigned char* bytes;
        uint32_t size;  // header, code and exception section, checked against the file
    };

    // The framework assemblies the IL tests walk, core library first.
    static std::vector<std::string> frameworkAssemblies();

    bool load(const std::string& path);
    const MetadataTables& metadata() const { return tables; }

    // Every method that has an IL body, in table order. Bodies whose declared
    // sizes run past their section are counted in `outOfBounds` instead.
    std::vector<Body> bodies(unsigned int* outOfBounds = nullptr) const;
    std::string methodName(uint32_t methodRow) const;

    // The size that a body's headers declare, if it fits in `available`; 0 if not.
    static uint32_t declaredSize(const unsigned char* body, uint32_t available);

private:
    PeImage image;
    MetadataTables tables;
};
