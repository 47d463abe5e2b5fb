// A method signature blob of any content: walked parameter by parameter as
// the trace injection reads it, and copied as the local signature is built.
#include <cstdint>
#include <memory>

#include "rewrite/IBlobInputStream.h"
#include "rewrite/IBlobOutputStream.h"
#include "rewrite/IMethodBlobInputStream.h"
#include "runtime/CorErrors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::unique_ptr<IMethodBlobInputStream> method(IMethodBlobInputStream::newInstance(data, static_cast<unsigned int>(size)));
    if (method != nullptr) {
        unsigned int count = 0;
        method->shiftToParamCount();
        if (SUCCEEDED(method->readNumber(&count))) {
            method->shiftToFirstParam();
            unsigned char type = 0;
            unsigned int token = 0;
            for (unsigned int i = 0; i < count && SUCCEEDED(method->readParam(&type, &token)); ++i) continue;
        }
        method->shiftToRetType();
        std::unique_ptr<IBlobOutputStream> copy(IBlobOutputStream::newInstance());
        if (copy != nullptr) (void)copy->writeType(method.get());
    }
    std::unique_ptr<IBlobInputStream> blob(IBlobInputStream::newInstance(data, static_cast<unsigned int>(size)));
    std::unique_ptr<IBlobOutputStream> out(IBlobOutputStream::newInstance());
    if (blob != nullptr && out != nullptr) (void)out->writeMethod(blob.get());
    return 0;
}
