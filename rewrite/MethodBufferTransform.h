// Fat forms of a body's header and exception section, for callers that want to
// handle one form only. Both results are malloc'ed and freed by the caller.
#pragma once

#include "rewrite/IMethodBuffer.h"

class MethodBufferTransform {
public:
    // A 12-byte header; a tiny one is widened (flags keep the tiny format bits).
    static IMAGE_COR_ILMETHOD_FAT* transformHeader(IMethodBuffer* buffer);
    // A fat section, or null without clauses. A small section is widened clause
    // by clause; its Kind is kept without the fat bit, and HandlerOffset takes
    // the value of HandlerLength.
    static IMAGE_COR_ILMETHOD_SECT_EH_FAT* transformEH(IMethodBuffer* buffer);
};
