// Marks a symbol that the process loading the library may see. The library is
// built with hidden visibility, and the export map keeps only these names.
#pragma once

#define TARN_EXPORT extern "C" __attribute__((visibility("default")))
