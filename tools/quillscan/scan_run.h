// A whole scan: roots, walk, census, summary.
#pragma once

#include "scan_options.h"

namespace quillscan {

// The exit code: 0, or 3 when something could not be read and that was to be told. IOError for a root or an
// output that cannot be used, and for a disk that is full; then there is no census.
int run(const Options& options);

}  // namespace quillscan
