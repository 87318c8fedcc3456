// FSI_Quad64: four counters of one group of rows.
#pragma once

#include <cstdint>

struct FSI_Quad64 {
    uint64_t counters[4] = {};
};
