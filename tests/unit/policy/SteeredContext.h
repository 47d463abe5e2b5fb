// A real metadata context whose ClassID the test steers: the profiler info
// double gives each method a class of its own, and 0 keeps a decision away
// from the match cache.
#pragma once

#include "metadata/MetaDataContext.h"

class SteeredContext : public MetaDataContext {
public:
    using MetaDataContext::MetaDataContext;

    ClassID classID = 0;
    ClassID getClassID() override { return classID; }
};
