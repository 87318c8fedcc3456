// Each form has a buffer of its own. A conversion fills the buffer of the new form and only then changes the
// form, so a failure leaves the text alone, and the buffer of the old form lives on until the next conversion
// clears it.
//
// Sanitising is the one operation for text from file systems that may be anything: it is reversible by eye
// and by program, since every unit that could not be read stands in the result in hexadecimal.
#include "runtime/epa_unicode.h"

#include <cstdio>

#include "platform/pf_codepages.h"
#include "platform/pf_collation.h"
#include "platform/pf_locale.h"
#include "runtime/epa_convert.h"
#include "runtime/epa_pathname.h"
#include "runtime/xpk_exception.h"

std::atomic<uint32_t> EPA_UnicodeDefaultFlags{0};

namespace {

using Result = EPA_ConvertResult;

// Converts or raises UnicodeError with `message`.
template <typename From, typename To>
std::basic_string<To> converted(const std::basic_string<From>& text, bool lenient, const char* message) {
    std::basic_string<To> out;
    if (EPA_ConvertText(std::basic_string_view<From>(text), lenient, out) != Result::Done)
        XPK_Raise("UnicodeError", message).raise();
    return out;
}

std::string utf8OfUtf16(const std::u16string& text, bool lenient) {
    std::string out;
    Result result = EPA_ConvertText(std::u16string_view(text), lenient, out);
    if (result != Result::Done)
        XPK_Raise("UnicodeError", "Illegal Unicode 2 - $cr").number("cr", static_cast<int>(result)).raise();
    return out;
}

bool isMark(char32_t code) { return code >= EPA_EscapeMark && code <= EPA_LastMark; }

void appendEscape(std::string& out, const char* format, uint32_t value) {
    char digits[12];
    snprintf(digits, sizeof digits, format, value);
    EPA_AppendUtf8(out, EPA_EscapeMark);
    out += digits;
}

// Rewrites a text unit by unit. `escape` is the form of a unit that cannot be read.
template <typename Unit>
std::string sanitised(const std::basic_string<Unit>& text, const char* escape) {
    std::string out;
    out.reserve(text.size() + 128);
    const Unit* at = text.data();
    const Unit* end = at + text.size();
    while (at < end) {
        // With room for one code point the conversion stops behind it, or at what cannot be read.
        char32_t code = 0;
        char32_t* target = &code;
        const Unit* before = at;
        EPA_Convert(&at, end, &target, target + 1, false);
        if (at == before) {
            appendEscape(out, escape, static_cast<uint32_t>(*at) & (sizeof(Unit) == 1 ? 0xFF : 0xFFFF));
            ++at;
        } else if (isMark(code)) {
            appendEscape(out, "8%08X", code);
        } else {
            EPA_AppendUtf8(out, code);
        }
    }
    return out;
}

}  // namespace

void EPA_Unicode::set(Form form) {
    form_ = form;
    if (form != Form::Native && form != Form::Utf8) bytes_.clear();
    if (form != Form::Utf16) units_.clear();
    if (form != Form::Utf32) codes_.clear();
}

void EPA_Unicode::setNative(std::string_view text) {
    bytes_.assign(text);
    set(Form::Native);
}

void EPA_Unicode::setUtf8(std::string_view text) {
    bytes_.assign(text);
    set(Form::Utf8);
}

void EPA_Unicode::setUtf16(std::u16string_view text) {
    units_.assign(text);
    set(Form::Utf16);
}

void EPA_Unicode::setUtf32(std::u32string_view text) {
    codes_.assign(text);
    set(Form::Utf32);
}

void EPA_Unicode::start() {
    if (form_ == Form::Empty) form_ = Form::Utf8;
}

size_t EPA_Unicode::length() const noexcept {
    switch (form_) {
        case Form::Utf16: return units_.size();
        case Form::Utf32: return codes_.size();
        default: return bytes_.size();
    }
}

std::u16string EPA_Unicode::utf16OfNative() const {
    std::u16string out;
    XPK_ThrowSystemError("MultiByteToWideChar", platform::codePageToUtf16(codePage_, bytes_, true, out));
    return out;
}

const char* EPA_Unicode::toNative() {
    start();
    if (form_ == Form::Native) return bytes_.c_str();
    std::string out;
    EPA_Unicode wide(*this);
    XPK_ThrowSystemError("MultiByteToWideChar", platform::utf16ToCodePage(codePage_, wide.utf16(), out));
    bytes_ = std::move(out);
    form_ = Form::Native;
    return bytes_.c_str();
}

const char* EPA_Unicode::toUtf8() {
    start();
    switch (form_) {
        case Form::Native: {
            std::u16string wide = utf16OfNative();
            bytes_ = utf8OfUtf16(wide, lenient());
            units_ = std::move(wide);
            codes_.clear();
            break;
        }
        case Form::Utf16:
            bytes_ = utf8OfUtf16(units_, lenient());
            codes_.clear();
            break;
        case Form::Utf32:
            bytes_ = converted<char32_t, char>(codes_, lenient(), "Illegal Unicode 3");
            units_.clear();
            break;
        default: return bytes_.c_str();
    }
    form_ = Form::Utf8;
    return bytes_.c_str();
}

const char16_t* EPA_Unicode::toUtf16() {
    start();
    switch (form_) {
        case Form::Native:
            units_ = utf16OfNative();
            codes_.clear();
            break;
        case Form::Utf8:
            units_ = converted<char, char16_t>(bytes_, lenient(), "Illegal Unicode 4");
            codes_.clear();
            break;
        case Form::Utf32:
            units_ = converted<char32_t, char16_t>(codes_, lenient(), "Illegal Unicode 5");
            bytes_.clear();
            break;
        default: return units_.c_str();
    }
    form_ = Form::Utf16;
    return units_.c_str();
}

std::u32string EPA_Unicode::sanitisedUtf32() const {
    EPA_Unicode copy(*this);
    copy.sanitise();
    return converted<char, char32_t>(copy.bytes_, true, "Illegal Unicode 6A ($value)");
}

const char32_t* EPA_Unicode::toUtf32() {
    start();
    if (form_ == Form::Utf32) return codes_.c_str();
    if (form_ == Form::Native) toUtf16();
    const bool sanitising = flags_ & 1;
    std::u32string out;
    if (form_ == Form::Utf8) {
        if (EPA_ConvertText(std::string_view(bytes_), lenient() && !sanitising, out) != Result::Done) {
            if (!sanitising)
                XPK_Raise("UnicodeError", "Illegal Unicode 6A ($value)").string("value", bytes_).raise();
            out = sanitisedUtf32();
        }
        units_.clear();
    } else {
        if (EPA_ConvertText(std::u16string_view(units_), lenient() && !sanitising, out) != Result::Done) {
            if (!sanitising) XPK_Raise("UnicodeError", "Illegal Unicode 7").raise();
            out = sanitisedUtf32();
        }
        bytes_.clear();
    }
    codes_ = std::move(out);
    form_ = Form::Utf32;
    return codes_.c_str();
}

void EPA_Unicode::append(const EPA_Unicode& other) {
    start();
    if (form_ == Form::Utf32) XPK_Raise("UnicodeError", "Append in UTF32 not implemented yet...").raise();
    if (form_ == Form::Native) toUtf16();
    EPA_Unicode tail(other);
    if (form_ == Form::Utf8)
        bytes_.append(tail.utf8());
    else
        units_.append(tail.utf16());
}

void EPA_Unicode::toUpper() {
    toUtf16();
    std::u16string mapped;
    XPK_ThrowSystemError("LCMapString", platform::toUpper(0, units_, mapped));
    units_ = std::move(mapped);
}

void EPA_Unicode::toLower() {
    toUtf16();
    std::u16string mapped;
    XPK_ThrowSystemError("LCMapString", platform::toLower(0, units_, mapped));
    units_ = std::move(mapped);
}

int EPA_Unicode::compare(EPA_Unicode& other, bool caseSensitive) {
    int order = 0;
    unsigned flags = caseSensitive ? 0 : platform::CollateIgnoreCase;
    std::u16string_view left = utf16(), right = other.utf16();
    if (platform::collate(0, left, right, flags, order))
        XPK_Raise("RuntimeError", "Unable to compare the strings").raise();
    return order;
}

uint32_t EPA_Unicode::hash() {
    uint32_t value = 5381;
    for (char c : utf8())
        value = value * 33 + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
    return value;
}

void EPA_Unicode::encodePathName() {
    toUtf32();
    for (size_t i = 0; i < codes_.size(); ++i)
        codes_[i] = EPA_EncodeNameCode(codes_[i], i + 1 == codes_.size());
}

void EPA_Unicode::decodePathName() {
    toUtf32();
    for (char32_t& code : codes_) code = EPA_FoldCode(code);
}

void EPA_Unicode::stripMarkers() {
    toUtf32();
    size_t kept = 0;
    for (size_t i = 0; i < codes_.size(); ++i) {
        if (codes_[i] == EPA_OpenMark || codes_[i] == EPA_CloseMark)
            ++i;
        else
            codes_[kept++] = codes_[i];
    }
    codes_.resize(kept);
}

bool EPA_Unicode::needsSanitising() const {
    std::u32string codes;
    if (form_ == Form::Utf8) {
        if (EPA_ConvertText(std::string_view(bytes_), false, codes) != Result::Done) return true;
        for (char32_t code : codes)
            if (isMark(code)) return true;
        return false;
    }
    return EPA_ConvertText(std::u16string_view(units_), false, codes) != Result::Done ||
           codes.find(0xF02C) != std::u32string::npos;
}

void EPA_Unicode::sanitise() {
    start();
    if (form_ == Form::Utf32) XPK_Raise("RuntimeError", "Sanitize not implemented for UTF32 strings").raise();
    if (form_ == Form::Native) toUtf16();
    if (!needsSanitising()) return;
    bytes_ = form_ == Form::Utf8 ? sanitised(bytes_, "2%02X") : sanitised(units_, "4%04X");
    set(Form::Utf8);
}
