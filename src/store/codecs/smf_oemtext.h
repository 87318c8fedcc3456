// Text in the OEM code page, as version A of the text codecs stores it.
#pragma once

#include <string>
#include <string_view>

// The UTF-8 form: `bytes` itself when all of it is ASCII, else made in `room`. The code page is that of the
// user's locale, 437 where the locale has none. Any thread.
std::string_view SMF_FromOem(std::string_view bytes, std::string& room);
