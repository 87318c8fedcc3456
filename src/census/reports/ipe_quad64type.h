// IPE_Quad64Type: four unsigned counters that a dictionary can hold, so that a report counts by key with one
// look-up a row. Scripts never see it.
#pragma once

#include <cstdint>

#include "ipe/object/ipe_type.h"

class IPE_Quad64Type final : public IPE_Type {
  public:
    static const char TypeName[];  // "Quad64"
    IPE_Quad64Type() : IPE_Type(TypeName) {}
    uint64_t counters[4] = {};
};
