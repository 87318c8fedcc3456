// OEM text.
#include "store/codecs/smf_oemtext.h"

#include <algorithm>

#include "platform/pf_codepages.h"
#include "platform/pf_localeitems.h"
#include "runtime/xpk_exception.h"

namespace {

constexpr uint32_t DefaultPage = 437;

uint32_t oemPage() {
    static const uint32_t page = [] {
        uint32_t named = platform::localeCodePage(0, platform::CodePageKind::Oem);
        return named ? named : DefaultPage;
    }();
    return page;
}

}  // namespace

std::string_view SMF_FromOem(std::string_view bytes, std::string& room) {
    if (std::none_of(bytes.begin(), bytes.end(), [](char c) { return c & 0x80; })) return bytes;
    std::u16string wide;
    XPK_Assert(platform::codePageToUtf16(oemPage(), bytes, false, wide) == 0);
    XPK_Assert(platform::utf16ToCodePage(platform::Utf8CodePage, wide, room) == 0);
    return room;
}
