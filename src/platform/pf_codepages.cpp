// Code pages on ICU's converters.
//
// A converter holds state and costs far more to open than to use on a file name, so each thread keeps the few
// that it used last. UTF-8 does not go through a converter: it is by far the most frequent code page, and
// ICU's string functions do it at once.
#include "platform/pf_codepages.h"

#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <array>
#include <cerrno>
#include <memory>
#include <vector>

#include "platform/pf_localeitems.h"

namespace platform {

namespace {

struct NamedPage {
    std::uint32_t number;
    const char* converter;
};

// Numbers whose converter cannot be told from the number; all others are tried as "windows-N", "ibm-N" and
// "cpN".
constexpr NamedPage Named[] = {
    {709, "ibm-720"},
    {932, "ibm-943_P15A-2003"},
    {936, "windows-936"},
    {949, "windows-949"},
    {950, "windows-950"},
    {1200, "UTF-16LE"},
    {1201, "UTF-16BE"},
    {1361, "ibm-1363"},
    {10000, "macintosh"},
    {10006, "x-mac-greek"},
    {10007, "x-mac-cyrillic"},
    {10017, "x-mac-cyrillic"},
    {10029, "x-mac-centraleurroman"},
    {10081, "x-mac-turkish"},
    {12000, "UTF-32LE"},
    {12001, "UTF-32BE"},
    {20127, "US-ASCII"},
    {20273, "ibm-273"},
    {20277, "ibm-277"},
    {20278, "ibm-278"},
    {20280, "ibm-280"},
    {20284, "ibm-284"},
    {20285, "ibm-285"},
    {20290, "ibm-290"},
    {20297, "ibm-297"},
    {20420, "ibm-420"},
    {20424, "ibm-424"},
    {20838, "ibm-838"},
    {20866, "KOI8-R"},
    {20871, "ibm-871"},
    {20932, "EUC-JP"},
    {20936, "GB2312"},
    {21866, "KOI8-U"},
    {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},
    {28593, "ISO-8859-3"},
    {28594, "ISO-8859-4"},
    {28595, "ISO-8859-5"},
    {28596, "ISO-8859-6"},
    {28597, "ISO-8859-7"},
    {28598, "ISO-8859-8"},
    {28599, "ISO-8859-9"},
    {28600, "ISO-8859-10"},
    {28603, "ISO-8859-13"},
    {28604, "ISO-8859-14"},
    {28605, "ISO-8859-15"},
    {50220, "ISO-2022-JP"},
    {50225, "ISO-2022-KR"},
    {51932, "EUC-JP"},
    {51936, "GB2312"},
    {51949, "EUC-KR"},
    {52936, "HZ"},
    {54936, "gb18030"},
    {65000, "UTF-7"},
};

using Converter = std::unique_ptr<UConverter, decltype(&ucnv_close)>;

Converter openNamed(const std::string& name) {
    UErrorCode status = U_ZERO_ERROR;
    Converter converter(ucnv_open(name.c_str(), &status), ucnv_close);
    if (U_FAILURE(status)) converter.reset();
    return converter;
}

Converter openNumber(std::uint32_t page) {
    for (const NamedPage& named : Named)
        if (named.number == page) return openNamed(named.converter);
    for (const char* family : {"windows-", "ibm-", "cp"})
        if (Converter converter = openNamed(family + std::to_string(page))) return converter;
    return {nullptr, ucnv_close};
}

// The thread's converter for a code page, or null; ready for a new text in lenient mode.
UConverter* converterFor(std::uint32_t page) {
    struct Entry {
        std::uint32_t page = 0;
        Converter converter{nullptr, ucnv_close};
    };
    thread_local std::array<Entry, 4> cache;
    thread_local size_t next = 0;
    for (Entry& entry : cache)
        if (entry.converter && entry.page == page) {
            ucnv_reset(entry.converter.get());
            return entry.converter.get();
        }
    Converter opened = openNumber(page);
    if (!opened) return nullptr;
    ucnv_setFallback(opened.get(), true);
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setSubstString(opened.get(), u"?", 1, &status);
    if (U_FAILURE(status)) return nullptr;
    Entry& entry = cache[next++ % cache.size()];
    entry.page = page;
    entry.converter = std::move(opened);
    return entry.converter.get();
}

std::uint32_t resolve(std::uint32_t page) {
    if (page == 0 || page == 3) return defaultCodePage();
    return page == 1 || page == 2 ? localeCodePage(0, page == 1 ? CodePageKind::Oem : CodePageKind::Mac)
                                  : page;
}

int utf8ToUtf16(std::string_view bytes, bool strict, std::u16string& out) {
    std::u16string text(bytes.size(), 0);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8WithSub(text.data(), static_cast<int32_t>(text.size()), &length, bytes.data(),
                         static_cast<int32_t>(bytes.size()), strict ? -1 : 0xFFFD, nullptr, &status);
    if (U_FAILURE(status)) return EILSEQ;
    text.resize(static_cast<size_t>(length));
    out = std::move(text);
    return 0;
}

int utf16ToUtf8(std::u16string_view text, std::string& out) {
    std::string bytes(text.size() * 3, 0);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strToUTF8WithSub(bytes.data(), static_cast<int32_t>(bytes.size()), &length, text.data(),
                       static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &status);
    if (U_FAILURE(status)) return EILSEQ;
    bytes.resize(static_cast<size_t>(length));
    out = std::move(bytes);
    return 0;
}

}  // namespace

std::uint32_t codePageOfCharset(const std::string& charset) {
    UErrorCode status = U_ZERO_ERROR;
    Converter wanted = openNamed(charset);
    if (charset.empty() || !wanted) return 0;
    std::string canonical = ucnv_getName(wanted.get(), &status);
    if (canonical == "UTF-8") return Utf8CodePage;
    for (const NamedPage& named : Named) {
        Converter converter = openNamed(named.converter);
        if (converter && canonical == ucnv_getName(converter.get(), &status)) return named.number;
    }
    for (std::uint32_t page :
         {874U, 1250U, 1251U, 1252U, 1253U, 1254U, 1255U, 1256U, 1257U, 1258U, 437U, 850U, 852U, 866U}) {
        Converter converter = openNumber(page);
        if (converter && canonical == ucnv_getName(converter.get(), &status)) return page;
    }
    return 0;
}

int codePageToUtf16(std::uint32_t codePage, std::string_view bytes, bool strict, std::u16string& out) {
    if (bytes.size() > INT32_MAX / 4) return EOVERFLOW;
    codePage = resolve(codePage);
    if (codePage == Utf8CodePage) return utf8ToUtf16(bytes, strict, out);
    UConverter* converter = converterFor(codePage);
    if (!converter) return EINVAL;
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setToUCallBack(converter, strict ? UCNV_TO_U_CALLBACK_STOP : UCNV_TO_U_CALLBACK_SUBSTITUTE, nullptr,
                        nullptr, nullptr, &status);
    std::u16string text(bytes.size() * 2, 0);
    int32_t length = ucnv_toUChars(converter, text.data(), static_cast<int32_t>(text.size()), bytes.data(),
                                   static_cast<int32_t>(bytes.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        text.resize(static_cast<size_t>(length));
        status = U_ZERO_ERROR;
        ucnv_reset(converter);
        length = ucnv_toUChars(converter, text.data(), length, bytes.data(),
                               static_cast<int32_t>(bytes.size()), &status);
    }
    if (U_FAILURE(status)) return EILSEQ;
    text.resize(static_cast<size_t>(length));
    out = std::move(text);
    return 0;
}

int utf16ToCodePage(std::uint32_t codePage, std::u16string_view text, std::string& out) {
    if (text.size() > INT32_MAX / 8) return EOVERFLOW;
    codePage = resolve(codePage);
    if (codePage == Utf8CodePage) return utf16ToUtf8(text, out);
    UConverter* converter = converterFor(codePage);
    if (!converter) return EINVAL;
    UErrorCode status = U_ZERO_ERROR;
    std::string bytes(text.size() * 2 + 16, 0);
    int32_t length = ucnv_fromUChars(converter, bytes.data(), static_cast<int32_t>(bytes.size()), text.data(),
                                     static_cast<int32_t>(text.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        bytes.resize(static_cast<size_t>(length));
        status = U_ZERO_ERROR;
        ucnv_reset(converter);
        length = ucnv_fromUChars(converter, bytes.data(), length, text.data(),
                                 static_cast<int32_t>(text.size()), &status);
    }
    if (U_FAILURE(status)) return EILSEQ;
    bytes.resize(static_cast<size_t>(length));
    out = std::move(bytes);
    return 0;
}

}  // namespace platform
