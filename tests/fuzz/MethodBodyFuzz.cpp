// A method body of any content: decoded into a builder as the rewrite does,
// with a clause, and checked by the verifier (without metadata, every call is
// refused).
#include <cstdint>
#include <memory>
#include <vector>

#include "rewrite/BodyVerifier.h"
#include "rewrite/IMethodBuilder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 1 << 16) return 0;
    // The first byte shapes the method: arguments, locals, a result.
    const unsigned char shape = data[0];
    const unsigned char signature[] = {0x00, 0x02, static_cast<unsigned char>((shape & 1) != 0 ? 0x08 : 0x01), 0x08,
                                       0x1C};
    const unsigned char locals[] = {0x07, 0x02, 0x08, 0x0E};
    VerifiedMethod method{data + 1, static_cast<unsigned int>(size - 1), 2u, (shape & 2) != 0 ? 2u : 0u,
                          (shape & 1) != 0, signature, sizeof(signature), locals, sizeof(locals), nullptr};
    char16_t reason[160];
    (void)BodyVerifier::verify(method, reason, 160);

    // A clause whose edges the next bytes name, some past the code or inside
    // an instruction: labelled while decoding, then added.
    const unsigned int length = static_cast<unsigned int>(size - 1);
    std::vector<unsigned long> edges;
    for (size_t i = 1; i < 5 && i < size; ++i) edges.push_back(data[i] % (length + 2));
    std::unique_ptr<IMethodBuilder> builder(IMethodBuilder::newInstance());
    if (builder != nullptr && SUCCEEDED(builder->decodeIL(data + 1, length, edges))) {
        if (edges.size() == 4 && edges[0] < edges[1] && edges[2] < edges[3]) {
            (void)builder->insertEHClause(0, COR_ILEXCEPTION_CLAUSE_NONE, edges[0], edges[1] - edges[0], edges[2],
                                          edges[3] - edges[2], 0);
        }
        std::unique_ptr<unsigned char[]> out(new unsigned char[builder->getTotalSize()]);
        (void)builder->writeToBuffer(out.get());
    }
    return 0;
}
