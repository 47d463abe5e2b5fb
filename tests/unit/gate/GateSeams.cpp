#include "GateSeams.h"

#include <cstdio>
#include <cstdlib>

#include "support/RefusingProfilerController.h"

namespace {

// The gate only makes and hands out the controller; any use of it here is a fault.
class UnusedController : public RefusingProfilerController {
protected:
    int refused(const char* operation) override {
        fprintf(stderr, "the gate called IProfilerController::%s\n", operation);
        abort();
    }
};

int calls = 0;
ControllerFactoryCall last {};

} // namespace

IProfilerController* IProfilerController::newInstance(ICorProfilerInfo* info, IProperties* properties) {
    ++calls;
    last = {info, properties, new UnusedController()};
    return last.made;
}

int controllerFactoryCalls() { return calls; }

const ControllerFactoryCall& lastControllerFactoryCall() { return last; }
