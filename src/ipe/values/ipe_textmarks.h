// Text with the private code points that the runtime reserves: the fold, the unmark step, and HTML.
//
// U+F001 to U+F02E stand for characters that a foreign file name holds and the host's does not; the fold maps
// them back (U+F010 and U+F02A stay). U+10FFF2 and U+10FFF3 open and close a highlight and are followed by
// `C` or `V`; the unmark step drops each with its follower. U+10FFF0 marks a damaged sequence: a digit 2, 4
// or 8 and that many code points follow. Bytes that are not UTF-8 pass through unchanged.
#pragma once

#include <string_view>

#include "runtime/epa_stringbuffer.h"

// Appends the folded text, without highlight marks when `unmark` is set.
void IPE_AppendFolded(EPA_StringBuffer& out, std::string_view text, bool unmark);

// Appends text as HTML and gives the bytes spent on line-break hints. `strike` shows damaged sequences struck
// out rather than in red brackets; `breaks` puts "<wbr />" before every ASCII character that is neither
// letter nor digit, unless `strike` is set. Markup characters are escaped everywhere, also within damaged
// sequences.
size_t IPE_AppendHtml(EPA_StringBuffer& out, std::string_view text, bool strike, bool breaks);
