// The order in which reports write the rows of a group report.
#pragma once

#include <cstdint>
#include <vector>

#include "runtime/ipe_object.h"

// The order in which a script dictionary goes over `keys`, all different, that were entered one after the
// other: positions in `keys`.
std::vector<uint32_t> FSI_DictOrder(const std::vector<IPE_Object>& keys);
