// Marks a symbol that the process loading the library may see. The library is
// built with hidden visibility, and the export map keeps only these names.
#pragma once

#define TARN_EXPORT extern "C" __attribute__((visibility("default")))
// The same for a symbol that keeps its C++ decorated name, which carries the
// argument types: the agent's P/Invoke names that form.
#define TARN_EXPORT_DECORATED __attribute__((visibility("default")))
