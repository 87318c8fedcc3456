// The format and the dollar language over any template. The first byte chooses the parameter; every failure
// must be a named exception.
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/xpk_threadstate.h"

namespace {

// A text with every kind of mark.
constexpr char Marked[] =
    "a<&>\"\xEF\x80\xA2.\xF4\x8F\xBF\xB0"
    "2C3\xF4\x8F\xBF\xB2"
    "Cx\xF4\x8F\xBF\xB3"
    "C\xF4\x8F\xBF\xB0";

IPE_Object parameter(uint8_t choice) {
    IPE_Object dict = IPE_NewDict();
    IPE_Dict_Set(dict, "a", IPE_String(Marked));
    IPE_Dict_Set(dict, "b", IPE_Int(-1234567));
    IPE_Dict_Set(dict, "c", IPE_Float(1234.5));
    switch (choice % 4) {
        case 0: return dict;
        case 1: return IPE_ListOf({IPE_String(Marked), IPE_Int(-1), IPE_Float(1e300), dict});
        case 2: return IPE_TupleOf({IPE_Int(1709210096), IPE_None(), IPE_String("20240229")});
        default: return IPE_String(Marked);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    XPK_ThreadScope scope(true);
    if (size < 1 || size > 512) return 0;
    IPE_Object control = IPE_String({reinterpret_cast<const char*>(data) + 1, size - 1});
    IPE_Object value = parameter(data[0]);
    try {
        IPE_ExpandFormat(control, value);
    } catch (const XPK_Exception&) {
    }
    try {
        IPE_ExpandDollar(control, value, data[0] & 4);
    } catch (const XPK_Exception&) {
    }
    return 0;
}
