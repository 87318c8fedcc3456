// The scanner of stanzas.
//
// A state and a position say all that a scan from the start would have found out. The position never stands
// behind a byte whose meaning is open: at the end of the text it stays at a `<` or `/` that could begin
// a mark, and as many bytes back as the searched mark could have begun, so nothing is ever seen in halves.
#include "ipe/xml/ipe_stanzascan.h"

#include "runtime/xpk_exception.h"

namespace {
constexpr std::string_view Cdata = "<![CDATA[", CdataEnd = "]]>", DirectiveEnd = "-->";
constexpr size_t ClosingRoom = 128;  // with its terminator
}  // namespace

void IPE_StanzaScan::restart(size_t position) {
    state_ = Outside;
    complete_ = false;
    position_ = position;
}

bool IPE_StanzaScan::advance(std::string_view text) {
    const size_t from = position_;
    while (!complete_ && advanceState(text)) {
    }
    work_ += (complete_ ? end_ : text.size()) - from;
    return complete_;
}

bool IPE_StanzaScan::advanceState(std::string_view text) {
    switch (state_) {
        case Outside: return findStart(text);
        case Instruction: return skipTo(text, ">", Outside);
        case Directive: return skipTo(text, DirectiveEnd, Outside);
        case Name: return readName(text);
        case OpeningTag: return readOpeningTag(text);
        case Content: return readContent(text);
        case CdataInTag: return skipTo(text, CdataEnd, OpeningTag);
        case CdataInContent: return skipTo(text, CdataEnd, Content);
    }
    return false;
}

bool IPE_StanzaScan::findStart(std::string_view text) {
    position_ = std::min(text.find('<', position_), text.size());
    if (position_ + 1 >= text.size()) return false;
    char next = text[position_ + 1];
    if (next == '?' || next == '!') {
        state_ = next == '?' ? Instruction : Directive;
        position_ += 2;
    } else {
        state_ = Name;
        begin_ = position_++;
        closing_ = "</";
    }
    return true;
}

bool IPE_StanzaScan::skipTo(std::string_view text, std::string_view mark, State next) {
    size_t found = text.find(mark, position_);
    if (found == std::string_view::npos) {
        if (text.size() >= mark.size()) position_ = std::max(position_, text.size() - mark.size() + 1);
        return false;
    }
    position_ = found + mark.size();
    state_ = next;
    return true;
}

bool IPE_StanzaScan::readName(std::string_view text) {
    for (; position_ < text.size(); ++position_) {
        char c = text[position_];
        if (c == ' ' || c == '>' || c == '/') {
            closing_ += '>';
            state_ = OpeningTag;
            return true;
        }
        XPK_Assert(closing_.size() + 3 <= ClosingRoom);  // with this byte, `>` and the terminator
        closing_ += c;
    }
    return false;
}

IPE_StanzaScan::Mark IPE_StanzaScan::markAt(std::string_view text) const {
    std::string_view here = text.substr(position_);
    if (here.size() > 1 && here[1] != '/' && here[1] != '!') return NoMark;
    if (here.starts_with(closing_)) return ClosingMark;
    if (here.starts_with(Cdata)) return CdataMark;
    return closing_.starts_with(here) || Cdata.starts_with(here) ? Unknown : NoMark;
}

bool IPE_StanzaScan::takeMark(Mark mark, State cdata) {
    if (mark == Unknown) return false;
    if (mark == NoMark) {
        ++position_;
    } else if (mark == CdataMark) {
        position_ += Cdata.size();
        state_ = cdata;
    } else {
        end_ = position_ + closing_.size();
        complete_ = true;
    }
    return true;
}

bool IPE_StanzaScan::readOpeningTag(std::string_view text) {
    for (; position_ < text.size(); ++position_) {
        switch (text[position_]) {
            case '>':
                ++position_;
                state_ = Content;
                return true;
            case '/':
                if (position_ + 1 == text.size()) return false;
                if (text[position_ + 1] != '>') break;
                end_ = position_ + 2;
                complete_ = true;
                return true;
            case '<': return takeMark(markAt(text), CdataInTag);
        }
    }
    return false;
}

bool IPE_StanzaScan::readContent(std::string_view text) {
    position_ = std::min(text.find('<', position_), text.size());
    if (position_ == text.size()) return false;
    return takeMark(markAt(text), CdataInContent);
}
