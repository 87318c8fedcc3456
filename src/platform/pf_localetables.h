#pragma once

// Facts about languages and regions that ICU does not hold. Internal to the locale group of this floor.

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

// The code pages of a language in one script: ANSI, OEM, Macintosh, EBCDIC; 0 for none.
struct LanguageCodePages {
    std::uint32_t ansi, oem, mac, ebcdic;
};

// `language` and `script` as ICU spells them ("sr", "Latn"), `region` for EBCDIC's national forms.
LanguageCodePages codePagesOf(std::string_view language, std::string_view script, std::string_view region);

// The international dialling prefix of a region ("DE" gives 49); 0 if unknown.
int diallingPrefix(std::string_view region);

// The three-letter language name of the Windows world ("ENU", "DES"); empty for languages without one.
std::string languageAbbreviation(std::string_view language, std::string_view script, std::string_view region);

}  // namespace platform
