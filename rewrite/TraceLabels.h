// The labels that the trace injection places in a method's instruction list.
// They lie above the builder's own numbering, which counts up from 1, so a
// stage finds what an earlier one placed by number alone.
#pragma once

enum TraceLabel : unsigned int {
    LABEL_COR_TRACE = 0x80000000,
    LABEL_COR_TRACE_READY = 0x80000001,
    LABEL_INIT_TRACE = 0x80000002,
    LABEL_INIT_TRACE_END = 0x80000003,
    LABEL_START_TRACE = 0x80000004,
    LABEL_START_TRACE_END = 0x80000005,
    LABEL_PUSH_TRACE = 0x80000006,
    LABEL_PUSH_TRACE_END = 0x80000007,
    // Where the incoming body starts in the rewritten code.
    LABEL_METHOD_BODY = 0x80000008,
    LABEL_EXIT = 0x80000009,
    LABEL_TRY_END = 0x8000000A,
    LABEL_FINISH_TRACE = 0x8000000B,
    LABEL_FINISH_TRACE_END = 0x8000000C,
    LABEL_CATCH_TRACE = 0x8000000D,
    LABEL_CATCH_TRACE_END = 0x8000000E,
    LABEL_CTOR_BODY = 0x8000000F,
    // The handler block of the added filter clause, which is never entered.
    LABEL_FILTER_HANDLER = 0x80000010,
};
