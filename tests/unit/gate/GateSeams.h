// What the gate needs from the callback hub and the policy, for tests that
// link the gate alone: the hub's lock, and a controller factory that records
// its calls and makes a controller that fails every call made to it.
#pragma once

#include "policy/IProfilerController.h"

struct ControllerFactoryCall {
    ICorProfilerInfo* info;
    IProperties* properties;
    IProfilerController* made;
};

// Calls of IProfilerController::newInstance so far; the last one is kept.
int controllerFactoryCalls();
const ControllerFactoryCall& lastControllerFactoryCall();
