#pragma once

// Code pages by number: bytes to UTF-16 and back.
//
// 0 and 3 are the default code page, 1 the OEM code page of the user's locale, 2 the Macintosh one, 65001
// UTF-8; other numbers are those of the Windows world, as far as ICU has a converter. Safe on any thread.

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

constexpr std::uint32_t Utf8CodePage = 65001;

// The process's default code page: the codeset of the user's locale, 65001 for UTF-8. It is what stands for
// the ANSI code page. Read once per process.
std::uint32_t defaultCodePage();

// The number for a charset name such as "ISO-8859-15"; 0 if there is none.
std::uint32_t codePageOfCharset(const std::string& charset);

// With `strict`, bytes that the code page does not define are EILSEQ and `out` stays; otherwise they become
// U+FFFD. EINVAL: no such code page.
int codePageToUtf16(std::uint32_t codePage, std::string_view bytes, bool strict, std::u16string& out);

// What the code page lacks becomes the nearest character that it has, otherwise "?" (in UTF-8: U+FFFD, and
// that only for unpaired surrogates). EINVAL: no such code page.
int utf16ToCodePage(std::uint32_t codePage, std::u16string_view text, std::string& out);

}  // namespace platform
