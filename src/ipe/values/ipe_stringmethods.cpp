// The methods of strings by name, and the translation of marked texts.
//
// Searching and cutting work on the UTF-8 bytes: a code point never begins inside another, so a byte search
// for whole texts or ASCII separators finds just what a search by code points would, without an array of
// them.
#include <cstring>

#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_codepoints.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_secrettype.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_translate.h"
#include "platform/pf_locale.h"
#include "runtime/epa_unicode.h"
#include "runtime/epa_wildmatch.h"

namespace {

enum Method : int {
    Split,
    Float,
    Integer,
    Upper,
    Find,
    Lower,
    LeftStrip,
    RightStrip,
    Strip,
    Match,
    Replace,
    Substitute,
    Secret,
    IsTriquote
};

// A set of bytes with constant-time membership.
struct ByteSet {
    bool has[256] = {};
    explicit ByteSet(std::string_view bytes) {
        for (char c : bytes) has[static_cast<unsigned char>(c)] = true;
    }
    bool operator()(char c) const noexcept { return has[static_cast<unsigned char>(c)]; }
};

constexpr std::string_view Blanks = " \t\r\n";

// Collects the pieces of a split: `next(p)` gives the first separator at or behind p, or `end`; `width` of a
// separator in bytes.
template <class Next>
IPE_Object splitBy(std::string_view text, int64_t limit, Next&& next) {
    IPE_Object result = IPE_NewList();
    std::vector<IPE_Object>& items = result.as<IPE_ListType>()->items();
    const char* p = text.data();
    const char* end = p + text.size();
    while (p < end) {
        size_t width = 1;
        const char* stop = next(p, end, width);
        items.push_back(IPE_String({p, static_cast<size_t>(stop - p)}));
        if (stop == end) break;
        p = stop + width;
        if (limit > 0 && --limit == 0) {
            if (p < end) items.push_back(IPE_String({p, static_cast<size_t>(end - p)}));
            break;
        }
    }
    return result;
}

IPE_Object splitAtPoints(std::string_view text, IPE_StringType& separators, int64_t limit) {
    const char32_t* set = separators.codePoints();
    int32_t count = separators.length();
    return splitBy(text, limit, [&](const char* p, const char* end, size_t& width) {
        while (p < end) {
            const char* start = p;
            char32_t point;
            if (!IPE_ReadCodePoint(p, end, point)) XPK_Raise("UnicodeError", "Conversion Failue").raise();
            for (int32_t i = 0; i < count; ++i) {
                if (set[i] != point) continue;
                width = static_cast<size_t>(p - start);
                return start;
            }
        }
        return end;
    });
}

}  // namespace

int IPE_StringType::methodNumber(std::string_view name) noexcept {
    auto is = [&](std::string_view text, Method method) { return name == text ? method : -1; };
    if (name.empty()) return -1;
    switch (name[0]) {
        case 'f': return name.size() == 4 ? is("find", Find) : is("float", Float);
        case 'i': return name.size() == 7 ? is("integer", Integer) : is("is_triquote", IsTriquote);
        case 'l': return name.size() == 5 ? is("lower", Lower) : is("lstrip", LeftStrip);
        case 'm': return is("match", Match);
        case 'r': return name.size() == 6 ? is("rstrip", RightStrip) : is("replace", Replace);
        case 's':
            if (name == "split") return Split;
            if (name == "strip") return Strip;
            return name.size() == 6 ? is("secret", Secret) : is("substitute", Substitute);
        case 'u': return is("upper", Upper);
        default: return -1;
    }
}

IPE_Object IPE_StringType::__getattr__(const IPE_Object& key, int depth) {
    int method = key.is<IPE_StringType>() ? methodNumber(key.as<IPE_StringType>()->view()) : -1;
    if (method < 0) return IPE_Type::__getattr__(key, depth);
    return IPE_MethodOf(this, method);
}

IPE_Object IPE_StringType::__callmethod__(int method, const IPE_Arguments& arguments) {
    auto stripped = [&](const char* name, bool left, bool right) {
        arguments.check("|s", name);
        return strip(arguments.size() ? arguments.text(0) : Blanks, left, right);
    };
    switch (method) {
        case Split: return split(arguments);
        case Float: arguments.check("", "float"); return IPE_Float(__float__());
        case Integer: arguments.check("", "integer"); return IPE_Int(__int__());
        case Upper: arguments.check("", "upper"); return upper();
        case Find: arguments.check("s", "find"); return find(arguments.text(0));
        case Lower: arguments.check("", "lower"); return lower();
        case LeftStrip: return stripped("lstrip", true, false);
        case RightStrip: return stripped("rstrip", false, true);
        case Strip: return stripped("strip", true, true);
        case Match:
            arguments.check("s|o", "match");
            return IPE_Bool(EPA_WildMatch(view(), arguments.text(0)));
        case Replace: arguments.check("ss", "replace"); return replace(arguments.text(0), arguments.text(1));
        case Substitute:
            arguments.check("o", "substitute");
            return IPE_ExpandDollar(IPE_Object(this), arguments[0], arguments.keywordTrue("exact"));
        case Secret: arguments.check("", "secret"); return IPE_New<IPE_SecretType>(view());
        case IsTriquote: arguments.check("", "is_triquote"); return IPE_Bool(isTripleQuoted());
        default: return {};
    }
}

// --- split

IPE_Object IPE_StringType::characters() {
    IPE_Object result = IPE_NewList();
    std::vector<IPE_Object>& items = result.as<IPE_ListType>()->items();
    int32_t count = length();
    items.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) items.push_back(part(i, i + 1));
    return result;
}

IPE_Object IPE_StringType::split(const IPE_Arguments& arguments) {
    arguments.check("|so", "split");
    if (bytes_ == 0) return IPE_NewList();
    std::string_view separators = arguments.size() > 0 ? arguments.text(0) : std::string_view(" ");
    int64_t limit = arguments.size() > 1 ? arguments.integer(1) : -1;
    if (separators.empty()) return characters();
    if (limit == 0) return IPE_ListOf({IPE_Object(this)});
    if (separators.size() == 1) {
        char only = separators[0];
        return splitBy(view(), limit, [only](const char* p, const char* end, size_t&) {
            const void* found = memchr(p, only, static_cast<size_t>(end - p));
            return found ? static_cast<const char*>(found) : end;
        });
    }
    if (!IPE_IsAscii(separators)) return splitAtPoints(view(), *arguments[0].as<IPE_StringType>(), limit);
    ByteSet set(separators);
    return splitBy(view(), limit, [&set](const char* p, const char* end, size_t&) {
        while (p < end && !set(*p)) ++p;
        return p;
    });
}

// --- Searching and replacing

IPE_Object IPE_StringType::find(std::string_view needle) {
    if (needle.empty() || needle.size() > bytes_) return IPE_Int(-1);
    const void* found = memmem(text(), bytes_, needle.data(), needle.size());
    if (!found) return IPE_Int(-1);
    auto offset = static_cast<size_t>(static_cast<const char*>(found) - text());
    return IPE_Int(static_cast<int64_t>(isAscii() ? offset : IPE_CountCodePoints({text(), offset})));
}

// An empty `from` occurs nowhere: the text stays as it is.
IPE_Object IPE_StringType::replace(std::string_view from, std::string_view to) {
    if (from.empty() || from.size() > bytes_) return IPE_Object(this);
    const char* end = text() + bytes_;
    auto next = [&](const char* p) {
        return static_cast<const char*>(memmem(p, static_cast<size_t>(end - p), from.data(), from.size()));
    };
    const char* first = next(text());
    if (!first) return IPE_Object(this);
    size_t count = 0;
    for (const char* p = first; p; p = next(p + from.size())) ++count;
    IPE_Object result = makeUninitialised(bytes_ - count * from.size() + count * to.size());
    char* out = result.as<IPE_StringType>()->data();
    const char* done = text();
    for (const char* p = first; count > 0; --count) {
        out = static_cast<char*>(mempcpy(out, done, static_cast<size_t>(p - done)));
        out = static_cast<char*>(mempcpy(out, to.data(), to.size()));
        done = p + from.size();
        if (count > 1) p = next(done);
    }
    memcpy(out, done, static_cast<size_t>(end - done));
    return result;
}

IPE_Object IPE_StringType::strip(std::string_view set, bool left, bool right) {
    ByteSet drop(set);
    const char* begin = text();
    const char* end = begin + bytes_;
    if (left)
        while (begin < end && drop(*begin)) ++begin;
    if (right)
        while (begin < end && drop(end[-1])) --end;
    if (begin == text() && end == text() + bytes_) return IPE_Object(this);
    return IPE_String({begin, static_cast<size_t>(end - begin)});
}

// --- Case

namespace {

// Where plain letters map to plain letters: the locales with a dotted or a soft-dotted i of their own do not.
bool plainCase() {
    static const bool plain = [] {
        std::string_view language = std::string_view(platform::userLocaleName()).substr(0, 2);
        return language != "tr" && language != "az" && language != "lt";
    }();
    return plain;
}

// Flips the case bit of the letters from `first` on in a plain ASCII text.
IPE_Object flipCase(std::string_view text, char first) {
    IPE_Object result = IPE_StringType::makeUninitialised(text.size());
    char* out = result.as<IPE_StringType>()->data();
    for (char c : text) *out++ = static_cast<unsigned char>(c - first) < 26 ? static_cast<char>(c ^ 0x20) : c;
    return result;
}

}  // namespace

IPE_Object IPE_StringType::upper() {
    if (isAscii() && plainCase()) return flipCase(view(), 'a');
    EPA_Unicode mapped{EPA_String(view())};
    mapped.toUpper();
    return IPE_String(mapped.toUtf8());
}

IPE_Object IPE_StringType::lower() {
    if (isAscii() && plainCase()) return flipCase(view(), 'A');
    EPA_Unicode mapped{EPA_String(view())};
    mapped.toLower();
    return IPE_String(mapped.toUtf8());
}

// --- Translation

namespace {

IPE_TranslationSource translation;

constexpr std::string_view Mark = "\xF4\x8F\xBF\xBA";  // U+10FFFA

bool hasLetter(std::string_view text) {
    for (char c : text)
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) return true;
    return false;
}

// No code point above U+0080, which is the bytes C2 80.
bool isPlain(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (static_cast<signed char>(text[i]) >= 0) continue;
        if (text[i] != '\xC2' || i + 1 >= text.size() || text[i + 1] != '\x80') return false;
        ++i;
    }
    return true;
}

// The text that stands for one mark: the thread's or the process's entry, else the default behind the comma,
// else the key.
IPE_Object translated(std::string_view marked) {
    size_t comma = marked.find(',');
    std::string_view name = marked.substr(0, comma);
    std::string_view otherwise = comma == std::string_view::npos ? name : marked.substr(comma + 1);
    if (otherwise.empty()) otherwise = name;
    IPE_Object key = IPE_String(name);
    IPE_Object found = translation.lookup ? translation.lookup(key) : IPE_Object();
    if (!found.isNull() && !found.is<IPE_NoneType>()) return found;
    IPE_Object text = IPE_String(otherwise);
    if (translation.missing && hasLetter(otherwise) && isPlain(otherwise) && isPlain(name))
        translation.missing(key, text);
    return text;
}

}  // namespace

void IPE_SetTranslationSource(IPE_TranslationSource source) { translation = source; }

IPE_Object IPE_StringType::translate(IPE_StackList&) {
    std::string_view rest = view();
    size_t mark = rest.find(Mark);
    if (mark == std::string_view::npos) return IPE_Object(this);
    EPA_StringBuffer out;
    out.append(rest.substr(0, mark));
    while (mark != std::string_view::npos) {
        rest = rest.substr(mark + Mark.size());
        mark = rest.find(Mark);
        std::string_view piece = rest.substr(0, mark);
        size_t close = piece.find(']');
        IPE_Object text = translated(piece.substr(0, close));
        out.append(PyString_SafeCast(text)->view());
        if (close != std::string_view::npos) out.append(piece.substr(close + 1));
    }
    return IPE_String(out.view());
}
