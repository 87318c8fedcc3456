// The built-in function `fs`. Its commands stand on this floor, above the other built-ins, so its row does
// too.
#include "ipe/language/ipe_moduleshared.h"
#include "ipe/nt/ipe_fs.h"

namespace {

const IPE_Builtin Rows[] = {{"fs", "s|", IPE_Fs}};
const IPE_BuiltinTable registered(Rows);

}  // namespace
