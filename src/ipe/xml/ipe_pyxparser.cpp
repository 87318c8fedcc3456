// The PYX parser.
//
// It works on one line at a time. What ends a run of ordinary bytes is searched with memchr, and the run goes
// straight from the line into the token's string; only runs with entities or dropped blanks are put together
// aside first. No construct nests here but tags, and of those only the open ones' tokens are kept, so hostile
// depth costs a handle a level and no native stack. Names of tags and other short texts come over and over; a
// small table of the latest lets the list hold one string of each many times.
//
// Where a line ends inside an end tag or an instruction, the token takes the rest of the line.
#include "ipe/xml/ipe_pyxparser.h"

#include <algorithm>
#include <cstring>

#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_string.h"
#include "runtime/streams/epa_istringstream.h"

namespace {

constexpr std::string_view Comment = "<!--", CommentEnd = "-->";
constexpr std::string_view Doctype = "<!DOCTYPE";
constexpr std::string_view Cdata = "<![CDATA[", CdataEnd = "]]>";

constexpr struct {
    std::string_view name;
    char byte;
} Entities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
constexpr size_t Short = 24;  // bytes of a text that is likely to come again
constexpr ptrdiff_t Near = 8;
constexpr size_t CodeLength = 6;  // of "&#x41;"

[[noreturn]] void fail(const char* message, XPK_Place where = XPK_Place::current()) {
    XPK_Raise("PYXParserError", message, where).raise();
}
[[noreturn]] void failAtEnd(const char* message, XPK_Place where = XPK_Place::current()) {
    XPK_Raise("PYXParser", message, where).raise();
}
[[noreturn]] void failInTag(const char* message, XPK_Place where = XPK_Place::current()) {
    XPK_Raise("RuntimeError", message, where).raise();
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// The byte, or null. Names and values are short, so the first bytes are looked at without a call.
const char* findByte(const char* from, const char* to, char byte) {
    for (const char* near = from + std::min<ptrdiff_t>(Near, to - from); from < near; ++from)
        if (*from == byte) return from;
    return static_cast<const char*>(std::memchr(from, byte, static_cast<size_t>(to - from)));
}

std::string_view between(const char* from, const char* to) { return {from, static_cast<size_t>(to - from)}; }

// The string of the kind's letter and the text, which ends at its first NUL as every text of scripts does.
IPE_Object token(char kind, std::string_view text) {
    if (const char* nul = findByte(text.data(), text.data() + text.size(), '\0'))
        text = between(text.data(), nul);
    if (text.empty()) return IPE_String(std::string_view(&kind, 1));
    IPE_Object result = IPE_StringType::makeUninitialised(text.size() + 1);
    char* out = result.as<IPE_StringType>()->data();
    *out = kind;
    std::memcpy(out + 1, text.data(), text.size());
    return result;
}

int hexDigit(std::string_view text, size_t at) {
    char c = at < text.size() ? text[at] : '\0';
    if (c >= '0' && c <= '9') return c - '0';
    c |= 0x20;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    fail("Expecting Hex Digit");
}

// Appends what the entity at the start of `text` stands for; gives the bytes that it takes.
size_t takeEntity(std::string_view text, std::string& out) {
    if (text.size() > 1 && text[1] == '#') {
        if (text.size() < 3 || text[2] != 'x') fail("Unsupported Entity Encoding");
        int high = hexDigit(text, 3), low = hexDigit(text, 4);
        out += static_cast<char>(high * 16 + low);
        return std::min(CodeLength, text.size());
    }
    for (const auto& entity : Entities) {
        if (!text.starts_with(entity.name)) continue;
        out += entity.byte;
        return entity.name.size();
    }
    out += '&';
    return 1;
}

// Appends the text with its entities replaced. An entity takes nothing from behind the text.
void decode(std::string_view text, std::string& out) {
    for (;;) {
        size_t run = std::min(text.find('&'), text.size());
        out += text.substr(0, run);
        text.remove_prefix(run);
        if (text.empty()) return;
        text.remove_prefix(takeEntity(text, out));
    }
}

}  // namespace

IPE_PyxParser::IPE_PyxParser(EPA_IStream& input, bool strict)
    : input_(input), strict_(strict), lineEnd_(IPE_String("-\n")) {
    at_ = end_ = line_.c_str();
    nextLine();
    skipByteOrderMark();
}

bool IPE_PyxParser::nextLine() {
    if (input_.atEnd()) return false;
    input_.readLine(line_);
    at_ = line_.c_str();
    end_ = at_ + line_.length();
    return true;
}

void IPE_PyxParser::skipByteOrderMark() {
    for (char byte : {'\xEF', '\xBB', '\xBF'})
        if (at_ < end_ && *at_ == byte) ++at_;
}

void IPE_PyxParser::skipBlanks() {
    while (at_ < end_ && isBlank(*at_)) ++at_;
}

IPE_Object IPE_PyxParser::shared(char kind, std::string_view text) {
    if (text.empty() || text.size() > Short) return token(kind, text);
    size_t slot = (static_cast<unsigned char>(text.front()) * 5u + static_cast<unsigned char>(text.back()) +
                   text.size() * 37u + static_cast<unsigned char>(kind)) %
                  recent_.size();
    IPE_Object& recent = recent_[slot];
    if (recent) {
        std::string_view known = recent.as<IPE_StringType>()->view();
        if (known[0] == kind && known.substr(1) == text) return recent;
    }
    return recent = token(kind, text);
}

bool IPE_PyxParser::step(IPE_ListType& tokens) {
    if (at_ == end_) return endOfLine(tokens);
    if (*at_ == '<')
        markup(tokens);
    else
        characters(tokens);
    return true;
}

bool IPE_PyxParser::endOfLine(IPE_ListType& tokens) {
    if (!nextLine()) {
        if (!open_.empty()) fail("All tags not closed in XML document");
        return false;
    }
    if (!strict_ || !open_.empty()) tokens.append(lineEnd_);
    return true;
}

void IPE_PyxParser::markup(IPE_ListType& tokens) {
    switch (at_ + 1 < end_ ? at_[1] : '\0') {
        case '/': endTag(tokens); break;
        case '?': instruction(tokens); break;
        case '!': directive(tokens); break;
        default: startTag(tokens); break;
    }
}

void IPE_PyxParser::directive(IPE_ListType& tokens) {
    std::string_view text = rest();
    if (text.starts_with(Cdata)) {
        at_ += Cdata.size();
        cdata(tokens);
    } else if (text.starts_with(Comment)) {
        at_ += Comment.size();
        skipOver(CommentEnd, "Unexpected EOF in comment");
    } else if (text.starts_with(Doctype)) {
        at_ += Doctype.size();
        skipOver(">", "Unexpected EOF in doctype");
    } else {
        fail("Unknown directive");
    }
}

void IPE_PyxParser::endTag(IPE_ListType& tokens) {
    const char* name = at_ + 2;
    const char* close = findByte(name, end_, '>');
    const char* stop = close ? close : end_;
    tokens.append(shared(')', between(name, stop)));
    at_ = close ? close + 1 : end_;
    if (!strict_) return;

    std::string_view found = tokens.items().back().as<IPE_StringType>()->view().substr(1), expecting;
    IPE_Object opened;
    if (!open_.empty()) {
        opened = std::move(open_.back());
        open_.pop_back();
        expecting = opened.as<IPE_StringType>()->view().substr(1);
    }
    if (opened && expecting == found) return;
    XPK_Raise("PYXParserError", "Parsing Error; Expecting '$expecting', Found '$found'")
        .string("expecting", expecting)
        .string("found", found)
        .raise();
}

void IPE_PyxParser::instruction(IPE_ListType& tokens) {
    const char* text = at_ + 2;
    const char* mark = findByte(text, end_, '?');
    tokens.append(token('?', between(text, mark ? mark : end_)));
    at_ = mark ? mark + 1 : end_;
    if (mark && at_ < end_ && *at_ == '>') ++at_;
}

void IPE_PyxParser::startTag(IPE_ListType& tokens) {
    const char* name = ++at_;
    auto ends = [this] { return *at_ == '>' || (*at_ == '/' && at_ + 1 < end_ && at_[1] == '>'); };
    while (at_ < end_ && !isBlank(*at_) && !ends()) ++at_;
    IPE_Object tag = shared('(', between(name, at_));
    tokens.append(tag);
    if (!tagEnds(tokens, tag)) attributes(tokens, tag);
}

bool IPE_PyxParser::tagEnds(IPE_ListType& tokens, const IPE_Object& tag) {
    if (at_ == end_) return false;
    if (*at_ == '>') {
        ++at_;
        if (strict_) open_.push_back(tag);
        return true;
    }
    if (*at_ != '/' || at_ + 1 == end_ || at_[1] != '>') return false;
    at_ += 2;
    tokens.append(shared(')', tag.as<IPE_StringType>()->view().substr(1)));
    return true;
}

void IPE_PyxParser::attributes(IPE_ListType& tokens, const IPE_Object& tag) {
    for (;;) {
        skipBlanks();
        if (at_ == end_) {
            if (!nextLine()) failAtEnd("Unexpected EOF in Tag Data");
        } else if (tagEnds(tokens, tag)) {
            return;
        } else {
            attribute(tokens);
        }
    }
}

void IPE_PyxParser::attribute(IPE_ListType& tokens) {
    const char* equals = findByte(at_, end_, '=');
    if (!equals) failInTag("Expecting property=value");
    scratch_.clear();
    for (; at_ < equals; ++at_)
        if (!isBlank(*at_)) scratch_ += *at_;
    scratch_ += ' ';
    ++at_;
    skipBlanks();
    if (at_ == end_ || (*at_ != '"' && *at_ != '\'')) failInTag("Expecting quote on property");
    const char quote = *at_++;
    const char* close = findByte(at_, end_, quote);
    decode(between(at_, close ? close : end_), scratch_);
    if (!close) failInTag("Expecting multiple line property values are not supported");
    tokens.append(shared('A', scratch_));
    at_ = close + 1;
}

void IPE_PyxParser::skipOver(std::string_view mark, const char* atEnd) {
    for (;;) {
        size_t found = rest().find(mark);
        if (found != std::string_view::npos) {
            at_ += found + mark.size();
            return;
        }
        if (!nextLine()) failAtEnd(atEnd);
    }
}

void IPE_PyxParser::cdata(IPE_ListType& tokens) {
    for (;;) {
        std::string_view text = rest();
        size_t found = text.find(CdataEnd);
        if (found != std::string_view::npos) {
            tokens.append(token('-', text.substr(0, found)));
            at_ += found + CdataEnd.size();
            return;
        }
        if (!text.empty()) tokens.append(token('-', text));
        if (!nextLine()) failAtEnd("Unexpected EOF in CDATA");
        tokens.append(lineEnd_);
    }
}

void IPE_PyxParser::characters(IPE_ListType& tokens) {
    if (strict_ && open_.empty()) fail("Data is not allowed outside tags");
    const char* tag = findByte(at_, end_, '<');
    std::string_view text = between(at_, tag ? tag : end_);
    at_ += text.size();
    if (!findByte(text.data(), text.data() + text.size(), '&')) {
        tokens.append(shared('-', text));
        return;
    }
    scratch_.clear();
    decode(text, scratch_);
    tokens.append(token('-', scratch_));
}

IPE_Object IPE_PyxTokens(EPA_IStream& input, bool strict) {
    IPE_Object tokens = IPE_NewList();
    IPE_PyxParser parser(input, strict);
    while (parser.step(*tokens.as<IPE_ListType>())) {
    }
    return tokens;
}

IPE_Object IPE_PyxTokens(std::string_view text, bool strict) {
    IPE_Object input = IPE_New<EPA_IStringStream>(EPA_String(text));
    return IPE_PyxTokens(*static_cast<EPA_IStringStream*>(input.get()), strict);
}
