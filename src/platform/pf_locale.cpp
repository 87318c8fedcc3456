// The locale's identity and its case mapping, on ICU.
//
// ICU's own default is left alone: it would follow LC_MESSAGES, and every call here names its locale anyway.
// The environment is read once, since getenv races with setenv. The case mapping has an ASCII path for
// languages in which ASCII letters map among themselves whatever follows (all but Turkish, Azeri and
// Lithuanian); it covers the great majority of file names.
#include "platform/pf_locale.h"

#include <langinfo.h>
#include <locale.h>
#include <unicode/ucasemap.h>
#include <unicode/uchar.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include "platform/pf_codepages.h"

namespace platform {

namespace {

constexpr LocaleId UserDefault = 0x400, SystemDefault = 0x800, Unassigned = 0x1000;

const char* firstSet(const char* a, const char* b, const char* c) {
    for (const char* setting : {a, b, c})
        if (setting && *setting) return setting;
    return "";
}

bool isPlain(std::string_view name) { return name.empty() || name == "C" || name == "POSIX"; }

// "de_DE.ISO-8859-15@euro" without codeset and modifier.
std::string_view languagePart(std::string_view setting) {
    return setting.substr(0, setting.find_first_of(".@"));
}

struct Defaults {
    std::string name;
    std::uint32_t codePage;
    LocaleId id;
};

const Defaults& defaults() {
    static const Defaults value = [] {
        const char *all = getenv("LC_ALL"), *ctype = getenv("LC_CTYPE"), *lang = getenv("LANG");
        Defaults read{localeNameFor(all, ctype, lang), codePageFor(all, ctype, lang), 0};
        read.id = idOfLocale(read.name);
        return read;
    }();
    return value;
}

bool asciiMapsPlainly(const std::string& locale) {
    std::string_view language = std::string_view(locale).substr(0, locale.find('_'));
    return language != "tr" && language != "az" && language != "lt";
}

template <typename View>
bool isAscii(View text) {
    return std::all_of(text.begin(), text.end(),
                       [](auto c) { return static_cast<std::make_unsigned_t<decltype(c)>>(c) < 0x80; });
}
template <>
bool isAscii(std::u16string_view text) {
    return std::all_of(text.begin(), text.end(), [](char16_t c) { return c < 0x80; });
}

template <bool Upper, typename Char>
Char mapAscii(Char c) {
    if constexpr (Upper) return c >= 'a' && c <= 'z' ? static_cast<Char>(c - 32) : c;
    return c >= 'A' && c <= 'Z' ? static_cast<Char>(c + 32) : c;
}

// The locale of a case mapping with what it needs open; one per thread, renewed when the locale changes.
struct CaseMapper {
    LocaleId id = ~0U;
    std::string locale;
    bool plain = false;
    std::unique_ptr<UCaseMap, decltype(&ucasemap_close)> map{nullptr, ucasemap_close};

    int use(LocaleId wanted) {
        if (wanted == id) return 0;
        std::string name;
        if (int error = localeOfId(wanted, name)) return error;
        UErrorCode status = U_ZERO_ERROR;
        decltype(map) opened(ucasemap_open(name.c_str(), 0, &status), ucasemap_close);
        if (U_FAILURE(status)) return ENOMEM;
        map = std::move(opened);
        locale = std::move(name);
        plain = asciiMapsPlainly(locale);
        id = wanted;
        return 0;
    }
};
thread_local CaseMapper mapper;

// Runs an ICU function that reports the room it needs, at most twice.
template <typename String, typename Call>
int intoString(String& out, size_t guess, Call call) {
    if (guess > INT32_MAX / 4) return EOVERFLOW;
    out.resize(guess);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = call(out.data(), static_cast<int32_t>(out.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        out.resize(static_cast<size_t>(length));
        status = U_ZERO_ERROR;
        length = call(out.data(), static_cast<int32_t>(out.size()), &status);
    }
    if (U_FAILURE(status)) return status == U_MEMORY_ALLOCATION_ERROR ? ENOMEM : EINVAL;
    out.resize(static_cast<size_t>(length));
    return 0;
}

template <bool Upper>
int mapUtf8(LocaleId id, std::string_view text, std::string& out) {
    if (int error = mapper.use(id)) return error;
    if (mapper.plain && isAscii(text)) {
        std::string mapped(text);
        for (char& c : mapped) c = mapAscii<Upper>(c);
        out = std::move(mapped);
        return 0;
    }
    std::string mapped;
    int error = intoString(
        mapped, text.size() + text.size() / 8 + 8, [&](char* room, int32_t size, UErrorCode* status) {
            constexpr auto Map = Upper ? ucasemap_utf8ToUpper : ucasemap_utf8ToLower;
            return Map(mapper.map.get(), room, size, text.data(), static_cast<int32_t>(text.size()), status);
        });
    if (error == 0) out = std::move(mapped);
    return error;
}

template <bool Upper>
int mapUtf16(LocaleId id, std::u16string_view text, std::u16string& out) {
    if (int error = mapper.use(id)) return error;
    if (mapper.plain && isAscii(text)) {
        std::u16string mapped(text);
        for (char16_t& c : mapped) c = mapAscii<Upper>(c);
        out = std::move(mapped);
        return 0;
    }
    std::u16string mapped;
    int error = intoString(mapped, text.size() + text.size() / 8 + 8,
                           [&](char16_t* room, int32_t size, UErrorCode* status) {
                               constexpr auto Map = Upper ? u_strToUpper : u_strToLower;
                               return Map(room, size, text.data(), static_cast<int32_t>(text.size()),
                                          mapper.locale.c_str(), status);
                           });
    if (error == 0) out = std::move(mapped);
    return error;
}

template <bool Upper>
char32_t mapOne(char32_t code) {
    char16_t source[2], mapped[8];
    int32_t units = 0;
    U16_APPEND_UNSAFE(source, units, code);
    UErrorCode status = U_ZERO_ERROR;
    constexpr auto Map = Upper ? u_strToUpper : u_strToLower;
    int32_t length = Map(mapped, 8, source, units, mapper.locale.c_str(), &status);
    if (U_SUCCESS(status) && length > 0) {
        int32_t at = 0;
        UChar32 single;
        U16_NEXT(mapped, at, length, single);
        if (at == length) return static_cast<char32_t>(single);
    }
    UChar32 plain = static_cast<UChar32>(code);
    return static_cast<char32_t>(Upper ? u_toupper(plain) : u_tolower(plain));
}

template <bool Upper>
int mapUtf32(LocaleId id, std::u32string& text) {
    if (int error = mapper.use(id)) return error;
    for (char32_t& code : text) {
        if (code < 0x80 && mapper.plain)
            code = mapAscii<Upper>(code);
        else if (code < 0x110000 && !U_IS_SURROGATE(code))
            code = mapOne<Upper>(code);
    }
    return 0;
}

}  // namespace

const std::string& userLocaleName() { return defaults().name; }
LocaleId userLocaleId() { return defaults().id; }
std::uint16_t systemLanguageId() { return static_cast<std::uint16_t>(userLocaleId()); }
std::uint32_t defaultCodePage() { return defaults().codePage; }

std::string localeNameFor(const char* lcAll, const char* lcCtype, const char* lang) {
    std::string_view setting = firstSet(lcAll, lcCtype, lang);
    std::string_view part = languagePart(setting);
    if (isPlain(part)) return "en_US";
    std::string source(part);
    // Of the modifiers only the scripts say something about the locale.
    if (setting.ends_with("@latin")) source.insert(std::min(source.find('_'), source.size()), "_Latn");
    if (setting.ends_with("@cyrillic")) source.insert(std::min(source.find('_'), source.size()), "_Cyrl");
    char name[ULOC_FULLNAME_CAPACITY];
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = uloc_getName(source.c_str(), name, sizeof name, &status);
    if (U_FAILURE(status) || status == U_STRING_NOT_TERMINATED_WARNING || length <= 0) return "en_US";
    // A language that ICU knows has an ISO code of three letters.
    return *uloc_getISO3Language(name) ? std::string(name, static_cast<size_t>(length)) : "en_US";
}

std::uint32_t codePageFor(const char* lcAll, const char* lcCtype, const char* lang) {
    const char* setting = firstSet(lcAll, lcCtype, lang);
    if (const char* dot = strchr(setting, '.')) {
        std::string_view codeset = dot + 1;
        std::uint32_t page = codePageOfCharset(std::string(codeset.substr(0, codeset.find('@'))));
        return page ? page : Utf8CodePage;
    }
    if (isPlain(setting)) return Utf8CodePage;
    // Without a codeset the C library's own choice for an installed locale counts.
    locale_t locale = newlocale(LC_CTYPE_MASK, setting, nullptr);
    if (!locale) return Utf8CodePage;
    std::uint32_t page = codePageOfCharset(nl_langinfo_l(CODESET, locale));
    freelocale(locale);
    return page ? page : Utf8CodePage;
}

int localeOfId(LocaleId id, std::string& name) {
    LocaleId low = id & 0xFFFF;
    if (low == 0 || low == UserDefault || low == SystemDefault ||
        (low == Unassigned && userLocaleId() == Unassigned)) {
        name = userLocaleName();
        return 0;
    }
    if (low == 0x7F) {
        name = "en_US_POSIX";
        return 0;
    }
    char text[ULOC_FULLNAME_CAPACITY];
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = uloc_getLocaleForLCID(low, text, sizeof text, &status);
    if (U_FAILURE(status) || length <= 0 || status == U_STRING_NOT_TERMINATED_WARNING) return EINVAL;
    name.assign(text, static_cast<size_t>(length));
    return 0;
}

LocaleId idOfLocale(const std::string& name) {
    LocaleId id = uloc_getLCID(name.c_str()) & 0xFFFF;
    if (id == 0 || id == 0x7F) return Unassigned;
    // ICU falls back to the bare language for a region that has no id; such an id would name another locale.
    char back[ULOC_FULLNAME_CAPACITY], region[ULOC_COUNTRY_CAPACITY], backRegion[ULOC_COUNTRY_CAPACITY];
    UErrorCode status = U_ZERO_ERROR;
    uloc_getLocaleForLCID(id, back, sizeof back, &status);
    uloc_getCountry(name.c_str(), region, sizeof region, &status);
    uloc_getCountry(back, backRegion, sizeof backRegion, &status);
    if (U_FAILURE(status)) return Unassigned;
    return *region == 0 || strcmp(region, backRegion) == 0 ? id : Unassigned;
}

int toUpper(LocaleId id, std::string_view text, std::string& out) { return mapUtf8<true>(id, text, out); }
int toLower(LocaleId id, std::string_view text, std::string& out) { return mapUtf8<false>(id, text, out); }
int toUpper(LocaleId id, std::u16string_view text, std::u16string& out) {
    return mapUtf16<true>(id, text, out);
}
int toLower(LocaleId id, std::u16string_view text, std::u16string& out) {
    return mapUtf16<false>(id, text, out);
}
int toUpper(LocaleId id, std::u32string& text) { return mapUtf32<true>(id, text); }
int toLower(LocaleId id, std::u32string& text) { return mapUtf32<false>(id, text); }

}  // namespace platform
