// IPE_PyxParser: turns an XML text into a flat list of tokens, one string for each event.
//
//   (name          start tag
//   )name          end tag; also the second half of an empty-element tag
//   Aname value    attribute, behind its start tag
//   -text          character data of one line; "-\n" for the line end itself
//   ?text          processing instruction
//
// Comments and the document type give no token. CR is dropped wherever it stands; a byte order mark at the
// start too. A strict parser also checks that tags match and that no text stands outside them.
//
// Errors, by type:
//   PYXParserError  "Data is not allowed outside tags", "All tags not closed in XML document",
//                   "Parsing Error; Expecting '$expecting', Found '$found'", "Unknown directive",
//                   "Unsupported Entity Encoding", "Expecting Hex Digit"
//   PYXParser       "Unexpected EOF in comment", "... in doctype", "... in CDATA", "... in Tag Data"
//   RuntimeError    "Expecting property=value", "Expecting quote on property",
//                   "Expecting multiple line property values are not supported"
// and what the input raises. Time is linear in the text; memory is the longest line, the open tags and the
// tokens. A parser belongs to one thread.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "ipe/values/ipe_containers.h"
#include "runtime/streams/epa_istream.h"

class IPE_PyxParser {
  public:
    // Reads the first line. `input` must outlive the parser.
    IPE_PyxParser(EPA_IStream& input, bool strict);

    // One event: adds its tokens, or none for what gives none. False at the end of the input.
    bool step(IPE_ListType& tokens);

  private:
    bool nextLine();  // false at the end of the input
    std::string_view rest() const noexcept { return {at_, static_cast<size_t>(end_ - at_)}; }
    void skipByteOrderMark();
    void skipBlanks();

    bool endOfLine(IPE_ListType& tokens);
    void markup(IPE_ListType& tokens);
    void directive(IPE_ListType& tokens);
    void startTag(IPE_ListType& tokens);
    void endTag(IPE_ListType& tokens);
    void instruction(IPE_ListType& tokens);
    void attributes(IPE_ListType& tokens, const IPE_Object& tag);
    void attribute(IPE_ListType& tokens);
    void skipOver(std::string_view mark, const char* atEnd);
    void cdata(IPE_ListType& tokens);
    void characters(IPE_ListType& tokens);
    // As a new string, or one of this text that was used lately.
    IPE_Object shared(char kind, std::string_view text);
    // Ends the tag if `>` or `/>` stands here.
    bool tagEnds(IPE_ListType& tokens, const IPE_Object& tag);

    EPA_IStream& input_;
    const bool strict_;
    EPA_StringBuffer line_;
    const char* at_ = nullptr;  // in line_
    const char* end_ = nullptr;
    std::string scratch_;           // a text that is not a run of the line
    std::vector<IPE_Object> open_;  // start tokens of the open tags; strict only
    std::array<IPE_Object, 256> recent_;
    IPE_Object lineEnd_;  // "-\n", one string for the whole list
};

// The list of all tokens.
IPE_Object IPE_PyxTokens(EPA_IStream& input, bool strict);
IPE_Object IPE_PyxTokens(std::string_view text, bool strict);
