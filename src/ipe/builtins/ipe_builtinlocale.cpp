// The built-in function `localeinfo`: a locale item's text by its key.
//
// The numbers are the item ids of the Windows locale interface, which the platform floor answers from its own
// locale data.
#include <algorithm>

#include "ipe/builtins/ipe_builtinsupport.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_localeitems.h"
#include "runtime/epa_unicode.h"

namespace {

struct Item {
    std::string_view key;
    uint16_t number;
};

// clang-format off
constexpr Item Items[] = {
    {"ILANGUAGE", 0x0001}, {"SLANGUAGE", 0x0002}, {"SENGLANGUAGE", 0x1001}, {"SABBREVLANGNAME", 0x0003},
    {"SNATIVELANGNAME", 0x0004}, {"ICOUNTRY", 0x0005}, {"SCOUNTRY", 0x0006}, {"SENGCOUNTRY", 0x1002},
    {"SABBREVCTRYNAME", 0x0007}, {"SNATIVECTRYNAME", 0x0008}, {"IDEFAULTLANGUAGE", 0x0009},
    {"IDEFAULTCOUNTRY", 0x000A}, {"IDEFAULTCODEPAGE", 0x000B}, {"IDEFAULTANSICODEPAGE", 0x1004},
    {"IDEFAULTMACCODEPAGE", 0x1011}, {"IDEFAULTEBCDICCODEPAGE", 0x1012}, {"SLIST", 0x000C}, {"IMEASURE", 0x000D},
    {"IPAPERSIZE", 0x100A}, {"SDECIMAL", 0x000E}, {"STHOUSAND", 0x000F}, {"SGROUPING", 0x0010},
    {"IDIGITS", 0x0011}, {"ILZERO", 0x0012}, {"INEGNUMBER", 0x1010}, {"SNATIVEDIGITS", 0x0013},
    {"IDIGITSUBSTITUTION", 0x1014}, {"SCURRENCY", 0x0014}, {"SINTLSYMBOL", 0x0015}, {"SMONDECIMALSEP", 0x0016},
    {"SMONTHOUSANDSEP", 0x0017}, {"SMONGROUPING", 0x0018}, {"ICURRDIGITS", 0x0019}, {"IINTLCURRDIGITS", 0x001A},
    {"ICURRENCY", 0x001B}, {"INEGCURR", 0x001C}, {"SDATE", 0x001D}, {"STIME", 0x001E}, {"SSHORTDATE", 0x001F},
    {"SLONGDATE", 0x0020}, {"SYEARMONTH", 0x1006}, {"STIMEFORMAT", 0x1003}, {"IDATE", 0x0021}, {"ILDATE", 0x0022},
    {"ITIME", 0x0023}, {"ITIMEMARKPOSN", 0x1005}, {"ICENTURY", 0x0024}, {"ITLZERO", 0x0025}, {"IDAYLZERO", 0x0026},
    {"IMONLZERO", 0x0027}, {"S1159", 0x0028}, {"S2359", 0x0029}, {"ICALENDARTYPE", 0x1009},
    {"IOPTIONALCALENDAR", 0x100B}, {"IFIRSTDAYOFWEEK", 0x100C}, {"IFIRSTWEEKOFYEAR", 0x100D},
    {"SDAYNAME1", 0x002A}, {"SDAYNAME2", 0x002B}, {"SDAYNAME3", 0x002C}, {"SDAYNAME4", 0x002D},
    {"SDAYNAME5", 0x002E}, {"SDAYNAME6", 0x002F}, {"SDAYNAME7", 0x0030},
    {"SABBREVDAYNAME1", 0x0031}, {"SABBREVDAYNAME2", 0x0032}, {"SABBREVDAYNAME3", 0x0033},
    {"SABBREVDAYNAME4", 0x0034}, {"SABBREVDAYNAME5", 0x0035}, {"SABBREVDAYNAME6", 0x0036},
    {"SABBREVDAYNAME7", 0x0037},
    {"SMONTHNAME1", 0x0038}, {"SMONTHNAME2", 0x0039}, {"SMONTHNAME3", 0x003A}, {"SMONTHNAME4", 0x003B},
    {"SMONTHNAME5", 0x003C}, {"SMONTHNAME6", 0x003D}, {"SMONTHNAME7", 0x003E}, {"SMONTHNAME8", 0x003F},
    {"SMONTHNAME9", 0x0040}, {"SMONTHNAME10", 0x0041}, {"SMONTHNAME11", 0x0042}, {"SMONTHNAME12", 0x0043},
    {"SMONTHNAME13", 0x100E},
    {"SABBREVMONTHNAME1", 0x0044}, {"SABBREVMONTHNAME2", 0x0045}, {"SABBREVMONTHNAME3", 0x0046},
    {"SABBREVMONTHNAME4", 0x0047}, {"SABBREVMONTHNAME5", 0x0048}, {"SABBREVMONTHNAME6", 0x0049},
    {"SABBREVMONTHNAME7", 0x004A}, {"SABBREVMONTHNAME8", 0x004B}, {"SABBREVMONTHNAME9", 0x004C},
    {"SABBREVMONTHNAME10", 0x004D}, {"SABBREVMONTHNAME11", 0x004E}, {"SABBREVMONTHNAME12", 0x004F},
    {"SABBREVMONTHNAME13", 0x100F},
    {"SPOSITIVESIGN", 0x0050}, {"SNEGATIVESIGN", 0x0051}, {"IPOSSIGNPOSN", 0x0052}, {"INEGSIGNPOSN", 0x0053},
    {"IPOSSYMPRECEDES", 0x0054}, {"IPOSSEPBYSPACE", 0x0055}, {"INEGSYMPRECEDES", 0x0056},
    {"INEGSEPBYSPACE", 0x0057}, {"FONTSIGNATURE", 0x0058}, {"SISO639LANGNAME", 0x0059},
    {"SISO3166CTRYNAME", 0x005A}, {"SENGCURRNAME", 0x1007}, {"SNATIVECURRNAME", 0x1008}, {"SSORTNAME", 0x1013},
};
// clang-format on

constexpr size_t TextLimit = 255;  // UTF-16 units

IPE_Object builtinLocaleinfo(const IPE_Arguments& a) {
    const Item* item = std::find_if(std::begin(Items), std::end(Items),
                                    [key = a.text(0)](const Item& row) { return row.key == key; });
    if (item == std::end(Items)) XPK_Raise("KeyError", "$key").string("key", a.text(0)).raise();
    XPK_ThreadState* state = XPK_CurrentThread();
    std::u16string text;
    XPK_ThrowSystemError("GetLocaleInfo", platform::localeItem(state ? state->locale : 0, item->number, text));
    if (text.size() > TextLimit) text.resize(TextLimit);
    EPA_Unicode unicode;
    unicode.setUtf16(text.data(), text.size());
    unicode.sanitise();
    return IPE_String(unicode.toUtf8());
}

const IPE_Builtin Rows[] = {{"localeinfo", "s", builtinLocaleinfo}};
const IPE_BuiltinTable registered(Rows);

}  // namespace
