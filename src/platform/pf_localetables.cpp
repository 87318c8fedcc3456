// Tables by language and region. Dialling prefixes are those of ITU-T E.164; the code pages are those under
// which files and consoles of a language are commonly found.
#include "platform/pf_localetables.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace platform {

namespace {

struct RegionPrefix {
    char region[3];
    short prefix;
};

// Sorted by region.
constexpr RegionPrefix Prefixes[] = {
    {"AC", 247}, {"AD", 376}, {"AE", 971}, {"AF", 93},  {"AG", 1},   {"AI", 1},   {"AL", 355}, {"AM", 374},
    {"AO", 244}, {"AR", 54},  {"AS", 1},   {"AT", 43},  {"AU", 61},  {"AW", 297}, {"AX", 358}, {"AZ", 994},
    {"BA", 387}, {"BB", 1},   {"BD", 880}, {"BE", 32},  {"BF", 226}, {"BG", 359}, {"BH", 973}, {"BI", 257},
    {"BJ", 229}, {"BL", 590}, {"BM", 1},   {"BN", 673}, {"BO", 591}, {"BQ", 599}, {"BR", 55},  {"BS", 1},
    {"BT", 975}, {"BW", 267}, {"BY", 375}, {"BZ", 501}, {"CA", 1},   {"CC", 61},  {"CD", 243}, {"CF", 236},
    {"CG", 242}, {"CH", 41},  {"CI", 225}, {"CK", 682}, {"CL", 56},  {"CM", 237}, {"CN", 86},  {"CO", 57},
    {"CR", 506}, {"CU", 53},  {"CV", 238}, {"CW", 599}, {"CX", 61},  {"CY", 357}, {"CZ", 420}, {"DE", 49},
    {"DJ", 253}, {"DK", 45},  {"DM", 1},   {"DO", 1},   {"DZ", 213}, {"EC", 593}, {"EE", 372}, {"EG", 20},
    {"EH", 212}, {"ER", 291}, {"ES", 34},  {"ET", 251}, {"FI", 358}, {"FJ", 679}, {"FK", 500}, {"FM", 691},
    {"FO", 298}, {"FR", 33},  {"GA", 241}, {"GB", 44},  {"GD", 1},   {"GE", 995}, {"GF", 594}, {"GG", 44},
    {"GH", 233}, {"GI", 350}, {"GL", 299}, {"GM", 220}, {"GN", 224}, {"GP", 590}, {"GQ", 240}, {"GR", 30},
    {"GT", 502}, {"GU", 1},   {"GW", 245}, {"GY", 592}, {"HK", 852}, {"HN", 504}, {"HR", 385}, {"HT", 509},
    {"HU", 36},  {"ID", 62},  {"IE", 353}, {"IL", 972}, {"IM", 44},  {"IN", 91},  {"IO", 246}, {"IQ", 964},
    {"IR", 98},  {"IS", 354}, {"IT", 39},  {"JE", 44},  {"JM", 1},   {"JO", 962}, {"JP", 81},  {"KE", 254},
    {"KG", 996}, {"KH", 855}, {"KI", 686}, {"KM", 269}, {"KN", 1},   {"KP", 850}, {"KR", 82},  {"KW", 965},
    {"KY", 1},   {"KZ", 7},   {"LA", 856}, {"LB", 961}, {"LC", 1},   {"LI", 423}, {"LK", 94},  {"LR", 231},
    {"LS", 266}, {"LT", 370}, {"LU", 352}, {"LV", 371}, {"LY", 218}, {"MA", 212}, {"MC", 377}, {"MD", 373},
    {"ME", 382}, {"MF", 590}, {"MG", 261}, {"MH", 692}, {"MK", 389}, {"ML", 223}, {"MM", 95},  {"MN", 976},
    {"MO", 853}, {"MP", 1},   {"MQ", 596}, {"MR", 222}, {"MS", 1},   {"MT", 356}, {"MU", 230}, {"MV", 960},
    {"MW", 265}, {"MX", 52},  {"MY", 60},  {"MZ", 258}, {"NA", 264}, {"NC", 687}, {"NE", 227}, {"NF", 672},
    {"NG", 234}, {"NI", 505}, {"NL", 31},  {"NO", 47},  {"NP", 977}, {"NR", 674}, {"NU", 683}, {"NZ", 64},
    {"OM", 968}, {"PA", 507}, {"PE", 51},  {"PF", 689}, {"PG", 675}, {"PH", 63},  {"PK", 92},  {"PL", 48},
    {"PM", 508}, {"PR", 1},   {"PS", 970}, {"PT", 351}, {"PW", 680}, {"PY", 595}, {"QA", 974}, {"RE", 262},
    {"RO", 40},  {"RS", 381}, {"RU", 7},   {"RW", 250}, {"SA", 966}, {"SB", 677}, {"SC", 248}, {"SD", 249},
    {"SE", 46},  {"SG", 65},  {"SH", 290}, {"SI", 386}, {"SJ", 47},  {"SK", 421}, {"SL", 232}, {"SM", 378},
    {"SN", 221}, {"SO", 252}, {"SR", 597}, {"SS", 211}, {"ST", 239}, {"SV", 503}, {"SX", 1},   {"SY", 963},
    {"SZ", 268}, {"TA", 290}, {"TC", 1},   {"TD", 235}, {"TG", 228}, {"TH", 66},  {"TJ", 992}, {"TK", 690},
    {"TL", 670}, {"TM", 993}, {"TN", 216}, {"TO", 676}, {"TR", 90},  {"TT", 1},   {"TV", 688}, {"TW", 886},
    {"TZ", 255}, {"UA", 380}, {"UG", 256}, {"US", 1},   {"UY", 598}, {"UZ", 998}, {"VA", 39},  {"VC", 1},
    {"VE", 58},  {"VG", 1},   {"VI", 1},   {"VN", 84},  {"VU", 678}, {"WF", 681}, {"WS", 685}, {"XK", 383},
    {"YE", 967}, {"YT", 262}, {"ZA", 27},  {"ZM", 260}, {"ZW", 263},
};

// One row of a table by language; an empty script or region fits any, and the first row that fits counts.
struct LanguagePages {
    const char* language;
    const char* script;
    LanguageCodePages pages;
};

constexpr LanguagePages Pages[] = {
    {"en", "Latn", {1252, 850, 10000, 500}},   {"de", "Latn", {1252, 850, 10000, 20273}},
    {"fr", "Latn", {1252, 850, 10000, 20297}}, {"it", "Latn", {1252, 850, 10000, 20280}},
    {"es", "Latn", {1252, 850, 10000, 20284}}, {"da", "Latn", {1252, 850, 10000, 20277}},
    {"nb", "Latn", {1252, 850, 10000, 20277}}, {"nn", "Latn", {1252, 850, 10000, 20277}},
    {"no", "Latn", {1252, 850, 10000, 20277}}, {"fi", "Latn", {1252, 850, 10000, 20278}},
    {"sv", "Latn", {1252, 850, 10000, 20278}}, {"is", "Latn", {1252, 850, 10079, 20871}},
    {"cs", "Latn", {1250, 852, 10029, 870}},   {"sk", "Latn", {1250, 852, 10029, 870}},
    {"pl", "Latn", {1250, 852, 10029, 870}},   {"hu", "Latn", {1250, 852, 10029, 870}},
    {"ro", "Latn", {1250, 852, 10010, 870}},   {"hr", "Latn", {1250, 852, 10082, 870}},
    {"sl", "Latn", {1250, 852, 10029, 870}},   {"sq", "Latn", {1250, 852, 10029, 870}},
    {"bs", "Latn", {1250, 852, 10082, 870}},   {"sr", "Latn", {1250, 852, 10029, 870}},
    {"tk", "Latn", {1250, 852, 10029, 870}},   {"tr", "Latn", {1254, 857, 10081, 20905}},
    {"az", "Latn", {1254, 857, 10081, 20905}}, {"uz", "Latn", {1254, 857, 10029, 500}},
    {"et", "Latn", {1257, 775, 10029, 500}},   {"lv", "Latn", {1257, 775, 10029, 500}},
    {"lt", "Latn", {1257, 775, 10029, 500}},   {"vi", "Latn", {1258, 1258, 10000, 500}},
    {"uk", "Cyrl", {1251, 866, 10017, 500}},   {"bg", "Cyrl", {1251, 866, 10007, 21025}},
    {"sr", "Cyrl", {1251, 855, 10007, 21025}}, {"bs", "Cyrl", {1251, 855, 10007, 21025}},
    {"mk", "Cyrl", {1251, 866, 10007, 500}},   {"kk", "Cyrl", {0, 0, 0, 0}},
    {"", "Cyrl", {1251, 866, 10007, 20880}},   {"", "Grek", {1253, 737, 10006, 20273}},
    {"", "Hebr", {1255, 862, 10005, 500}},     {"", "Arab", {1256, 720, 10004, 20420}},
    {"", "Thai", {874, 874, 10021, 20838}},    {"", "Jpan", {932, 932, 10001, 20290}},
    {"", "Hans", {936, 936, 10008, 500}},      {"", "Kore", {949, 949, 10003, 20833}},
    {"", "Hant", {950, 950, 10002, 500}},      {"", "Latn", {1252, 850, 10000, 500}},
};

struct Abbreviation {
    const char* language;
    const char* script;
    const char* region;
    char text[4];
};

constexpr Abbreviation Abbreviations[] = {
    {"af", "", "", "AFK"},     {"ar", "", "AE", "ARU"},   {"ar", "", "BH", "ARH"},   {"ar", "", "DZ", "ARG"},
    {"ar", "", "EG", "ARE"},   {"ar", "", "IQ", "ARI"},   {"ar", "", "JO", "ARJ"},   {"ar", "", "KW", "ARK"},
    {"ar", "", "LB", "ARB"},   {"ar", "", "LY", "ARL"},   {"ar", "", "MA", "ARM"},   {"ar", "", "OM", "ARO"},
    {"ar", "", "QA", "ARQ"},   {"ar", "", "SY", "ARS"},   {"ar", "", "TN", "ART"},   {"ar", "", "YE", "ARY"},
    {"ar", "", "", "ARA"},     {"az", "Latn", "", "AZE"}, {"az", "Cyrl", "", "AZC"}, {"be", "", "", "BEL"},
    {"bg", "", "", "BGR"},     {"bs", "", "", "BSB"},     {"ca", "", "", "CAT"},     {"cs", "", "", "CSY"},
    {"cy", "", "", "CYM"},     {"da", "", "", "DAN"},     {"de", "", "AT", "DEA"},   {"de", "", "CH", "DES"},
    {"de", "", "LI", "DEC"},   {"de", "", "LU", "DEL"},   {"de", "", "", "DEU"},     {"el", "", "", "ELL"},
    {"en", "", "AU", "ENA"},   {"en", "", "BZ", "ENL"},   {"en", "", "CA", "ENC"},   {"en", "", "GB", "ENG"},
    {"en", "", "IE", "ENI"},   {"en", "", "IN", "ENN"},   {"en", "", "JM", "ENJ"},   {"en", "", "MY", "ENM"},
    {"en", "", "NZ", "ENZ"},   {"en", "", "PH", "ENP"},   {"en", "", "SG", "ENE"},   {"en", "", "TT", "ENT"},
    {"en", "", "ZA", "ENS"},   {"en", "", "ZW", "ENW"},   {"en", "", "", "ENU"},     {"es", "", "AR", "ESS"},
    {"es", "", "BO", "ESB"},   {"es", "", "CL", "ESL"},   {"es", "", "CO", "ESO"},   {"es", "", "CR", "ESC"},
    {"es", "", "DO", "ESD"},   {"es", "", "EC", "ESF"},   {"es", "", "GT", "ESG"},   {"es", "", "HN", "ESH"},
    {"es", "", "MX", "ESM"},   {"es", "", "NI", "ESI"},   {"es", "", "PA", "ESA"},   {"es", "", "PE", "ESR"},
    {"es", "", "PR", "ESU"},   {"es", "", "PY", "ESZ"},   {"es", "", "SV", "ESE"},   {"es", "", "US", "EST"},
    {"es", "", "UY", "ESY"},   {"es", "", "VE", "ESV"},   {"es", "", "", "ESN"},     {"et", "", "", "ETI"},
    {"eu", "", "", "EUQ"},     {"fa", "", "", "FAR"},     {"fi", "", "", "FIN"},     {"fil", "", "", "FPO"},
    {"fo", "", "", "FOS"},     {"fr", "", "BE", "FRB"},   {"fr", "", "CA", "FRC"},   {"fr", "", "CH", "FRS"},
    {"fr", "", "LU", "FRL"},   {"fr", "", "MC", "FRM"},   {"fr", "", "", "FRA"},     {"ga", "", "", "IRE"},
    {"gl", "", "", "GLC"},     {"gu", "", "", "GUJ"},     {"he", "", "", "HEB"},     {"hi", "", "", "HIN"},
    {"hr", "", "BA", "HRB"},   {"hr", "", "", "HRV"},     {"hu", "", "", "HUN"},     {"hy", "", "", "HYE"},
    {"id", "", "", "IND"},     {"is", "", "", "ISL"},     {"it", "", "CH", "ITS"},   {"it", "", "", "ITA"},
    {"ja", "", "", "JPN"},     {"ka", "", "", "KAT"},     {"kk", "", "", "KKZ"},     {"kn", "", "", "KDI"},
    {"ko", "", "", "KOR"},     {"ky", "", "", "KYR"},     {"lb", "", "", "LBX"},     {"lt", "", "", "LTH"},
    {"lv", "", "", "LVI"},     {"mk", "", "", "MKI"},     {"ml", "", "", "MYM"},     {"mn", "", "", "MNN"},
    {"mr", "", "", "MAR"},     {"ms", "", "BN", "MSB"},   {"ms", "", "", "MSL"},     {"mt", "", "", "MLT"},
    {"nb", "", "", "NOR"},     {"ne", "", "", "NEP"},     {"nl", "", "BE", "NLB"},   {"nl", "", "", "NLD"},
    {"nn", "", "", "NON"},     {"no", "", "", "NOR"},     {"pa", "", "", "PAN"},     {"pl", "", "", "PLK"},
    {"pt", "", "PT", "PTG"},   {"pt", "", "", "PTB"},     {"rm", "", "", "RMC"},     {"ro", "", "", "ROM"},
    {"ru", "", "", "RUS"},     {"sk", "", "", "SKY"},     {"sl", "", "", "SLV"},     {"sq", "", "", "SQI"},
    {"sr", "Latn", "", "SRM"}, {"sr", "", "", "SRO"},     {"sv", "", "FI", "SVF"},   {"sv", "", "", "SVE"},
    {"sw", "", "", "SWK"},     {"ta", "", "", "TAI"},     {"te", "", "", "TEL"},     {"th", "", "", "THA"},
    {"tr", "", "", "TRK"},     {"tt", "", "", "TTT"},     {"uk", "", "", "UKR"},     {"ur", "", "", "URD"},
    {"uz", "Latn", "", "UZB"}, {"uz", "Cyrl", "", "UZC"}, {"vi", "", "", "VIT"},     {"zh", "", "HK", "ZHH"},
    {"zh", "", "MO", "ZHM"},   {"zh", "", "SG", "ZHI"},   {"zh", "Hant", "", "CHT"}, {"zh", "", "", "CHS"},
};

bool fits(std::string_view pattern, std::string_view value) { return pattern.empty() || pattern == value; }

}  // namespace

LanguageCodePages codePagesOf(std::string_view language, std::string_view script, std::string_view region) {
    for (const LanguagePages& row : Pages) {
        if (!fits(row.language, language) || !fits(row.script, script)) continue;
        LanguageCodePages pages = row.pages;
        if (language == "en" && region == "US") pages = {1252, 437, 10000, 37};
        if (language == "en" && region == "GB") pages.ebcdic = 20285;
        if (region == "CA" || region == "BR" || region == "PT" || region == "NL")
            if (pages.ansi == 1252) pages.ebcdic = 37;
        return pages;
    }
    return {0, 0, 0, 0};
}

int diallingPrefix(std::string_view region) {
    const auto* row = std::lower_bound(
        std::begin(Prefixes), std::end(Prefixes), region,
        [](const RegionPrefix& entry, std::string_view key) { return std::string_view(entry.region) < key; });
    return row != std::end(Prefixes) && row->region == region ? row->prefix : 0;
}

std::string languageAbbreviation(std::string_view language, std::string_view script,
                                 std::string_view region) {
    for (const Abbreviation& row : Abbreviations)
        if (row.language == language && fits(row.script, script) && fits(row.region, region)) return row.text;
    return "";
}

}  // namespace platform
