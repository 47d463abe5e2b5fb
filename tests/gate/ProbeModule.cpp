// Stands in for the profiler library in the probe's address space, so that
// the gate can find its agent home from the mappings of the process.
extern "C" __attribute__((visibility("default"))) int tarnGateProbeModule() { return 0; }
