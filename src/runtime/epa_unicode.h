// EPA_Unicode: one text in any of four forms, converted in place when a form is asked for.
//
// The forms are native (8-bit in a code page), UTF-8, UTF-16 and UTF-32. Asking for the present form costs
// nothing; a conversion leaves the pointers of the form before valid until the next one. The text has a
// length, so it may hold NULs; the pointers are to terminated text all the same. `flags` 0 is strict: illegal
// text raises UnicodeError. Any other value is lenient: illegal items become "?"; and bit 0 makes the
// conversion to UTF-32 strict first and, where that fails, sanitises. A failed conversion leaves the object
// as it was. Not for use by two threads at once.
//
// UnicodeError: "Illegal Unicode 2 - $cr" UTF-16 to UTF-8 (cr: 1 cut off, 3 illegal), "Illegal Unicode 3"
// UTF-32 to UTF-8, "Illegal Unicode 4" UTF-8 to UTF-16, "Illegal Unicode 5" UTF-32 to UTF-16, "Illegal
// Unicode 6A ($value)" UTF-8 to UTF-32, "Illegal Unicode 7" UTF-16 to UTF-32. Native text that its code page
// does not define, and an unknown code page, raise the system error of "MultiByteToWideChar".
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "runtime/epa_string.h"

// The flags that a new EPA_Unicode starts with.
extern std::atomic<uint32_t> EPA_UnicodeDefaultFlags;

class EPA_Unicode {
  public:
    enum class Form { Empty = 0, Native = 1, Utf8 = 2, Utf16 = 3, Utf32 = 4 };

    EPA_Unicode() = default;
    EPA_Unicode(const EPA_String& text) { setUtf8(text.view()); }
    explicit EPA_Unicode(std::u16string_view text) { setUtf16(text); }
    explicit EPA_Unicode(std::u32string_view text) { setUtf32(text); }

    // Copy the text in. Terminated text may be null, which is the empty text.
    void setNative(const char* text) { setNative(text ? std::string_view(text) : std::string_view()); }
    void setUtf8(const char* text) { setUtf8(text ? std::string_view(text) : std::string_view()); }
    void setUtf8(const char* text, size_t length) { setUtf8(std::string_view(text, length)); }
    void setUtf16(const char16_t* text) {
        setUtf16(text ? std::u16string_view(text) : std::u16string_view());
    }
    void setUtf16(const char16_t* text, size_t length) { setUtf16(std::u16string_view(text, length)); }
    void setUtf32(const char32_t* text) {
        setUtf32(text ? std::u32string_view(text) : std::u32string_view());
    }
    void setUtf32(const char32_t* text, size_t length) { setUtf32(std::u32string_view(text, length)); }
    void setNative(std::string_view text);
    void setUtf8(std::string_view text);
    void setUtf16(std::u16string_view text);
    void setUtf32(std::u32string_view text);

    // Convert if need be and give the terminated text; an empty object becomes an empty UTF-8 text first.
    const char* toNative();
    const char* toUtf8();
    const char16_t* toUtf16();
    const char32_t* toUtf32();
    // The same with the length.
    std::string_view native() { return {toNative(), bytes_.size()}; }
    std::string_view utf8() { return {toUtf8(), bytes_.size()}; }
    std::u16string_view utf16() { return {toUtf16(), units_.size()}; }
    std::u32string_view utf32() { return {toUtf32(), codes_.size()}; }
    EPA_String string() { return EPA_String(utf8()); }

    // In units of the present form.
    size_t length() const noexcept;
    Form form() const noexcept { return form_; }
    // The code page of the native form; 0 is the process's default.
    uint32_t codePage() const noexcept { return codePage_; }
    void setCodePage(uint32_t codePage) noexcept { codePage_ = codePage; }
    uint32_t flags() const noexcept { return flags_; }
    void setFlags(uint32_t flags) noexcept { flags_ = flags; }

    // Appends in UTF-8 or UTF-16 (native text becomes UTF-16 first). An object in UTF-32 raises UnicodeError
    // "Append in UTF32 not implemented yet...".
    void append(const EPA_Unicode& other);
    // In the user's locale.
    void toUpper();
    void toLower();
    // Collates both in the user's locale: -1, 0 or 1. RuntimeError "Unable to compare the strings" where the
    // platform refuses.
    int compare(EPA_Unicode& other, bool caseSensitive);
    // Over the UTF-8 form: 5381, then h * 33 + byte (signed) in 32 bits.
    uint32_t hash();
    // The mapping of epa_pathname.h, on the UTF-32 form.
    void encodePathName();
    void decodePathName();
    void stripMarkers();
    // Makes valid text of any, and loses nothing: what is illegal becomes U+10FFF0 and digits ("2C3" a byte,
    // "4D800" a UTF-16 unit), and so do code points that would read as such marks ("80010FFF0"). Valid text
    // without them stays in its form; the result of the rest is UTF-8. UTF-32 raises RuntimeError "Sanitize
    // not implemented for UTF32 strings".
    void sanitise();

  private:
    bool lenient() const noexcept { return flags_ != 0; }
    void start();
    void set(Form form);
    std::u16string utf16OfNative() const;
    bool needsSanitising() const;
    std::u32string sanitisedUtf32() const;

    // The text is in the member of its form. Another member may hold the text of the form before.
    std::string bytes_;
    std::u16string units_;
    std::u32string codes_;
    Form form_ = Form::Empty;
    uint32_t codePage_ = 0;
    uint32_t flags_ = EPA_UnicodeDefaultFlags.load(std::memory_order_relaxed);
};
