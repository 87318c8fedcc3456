// What a regular expression demands of every text that it matches.
#pragma once

#include <string>
#include <string_view>

struct SMF_PatternLiteral {
    // Bytes that every match contains as they stand; empty when none are known. Without regard to case they
    // are ASCII and in lower case.
    std::string text;
    // The pattern is this text and nothing else.
    bool whole = false;
};

// `pattern` is in the syntax of PCRE in UTF mode. Careful rather than clever: of groups, classes and anything
// unusual it makes nothing, and with an alternative at the top, an option or a verb it knows nothing.
SMF_PatternLiteral SMF_RequiredLiteral(std::string_view pattern, bool ignoreCase);

// True when a match in the tail of a text is surely one in the whole text: nothing in the pattern looks at
// what stands before it.
bool SMF_LooksAhead(std::string_view pattern);
