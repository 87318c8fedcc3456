// Segments: the stored lines of a module as the interpreter runs them.
//
// A segment is built once per import and interpreter. Its token array never moves, so cursors and slot hints
// may point into it; the hints are written by the running thread, which is why interpreters do not share
// segments.
#include "ipe/language/ipe_program.h"

#include <algorithm>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"

namespace {

bool hasValue(uint8_t kind) {
    return kind == TOKEN_IDENTIFIER || kind == TOKEN_STRING || kind == TOKEN_NUMBER || kind == TOKEN_EOL;
}

std::string tokenText(const IPE_TokenEntry& token) {
    switch (token.kind) {
        case TOKEN_IDENTIFIER: return token.value ? std::string(token.value->c_str()) : std::string();
        case TOKEN_STRING:
        case TOKEN_NUMBER: {
            EPA_StringBuffer out;
            IPE_PrintContext context{out, false, true};
            IPE_StackList stack;
            if (token.value) token.value->__repr__(context, stack);
            return std::string(out.view());
        }
        default: return IPE_TokenName(token.kind);
    }
}

// Literals are counted often while a program runs, so each interpreter has its own, which need no locked
// instruction.
IPE_Object privateCopy(const IPE_Object& value) {
    if (auto* number = value.tryAs<IPE_IntType>()) return IPE_Int(number->value);
    if (auto* number = value.tryAs<IPE_FloatType>()) return IPE_Float(number->value);
    auto* string = value.tryAs<IPE_StringType>();
    if (!string || string->isInterned()) return value;
    return IPE_StringType::make(string->view(), string->isTripleQuoted());
}

uint8_t kindOf(const IPE_Object& value) {
    auto* number = value.tryAs<IPE_IntType>();
    XPK_Assert(number && number->value >= 0 && number->value <= 255);
    return static_cast<uint8_t>(number->value);
}

}  // namespace

IPE_Object IPE_StoredTokens::toList() const {
    IPE_Object list = IPE_NewList();
    for (size_t i = 0; i < lines.size(); ++i) {
        size_t end = i + 1 < lines.size() ? lines[i + 1].first : kinds.size();
        IPE_Object flat = IPE_NewList();
        auto* tokens = flat.as<IPE_ListType>();
        for (size_t t = lines[i].first; t < end; ++t) {
            tokens->append(IPE_Int(kinds[t]));
            if (hasValue(kinds[t])) tokens->append(values[t] ? values[t] : IPE_None());
        }
        list.as<IPE_ListType>()->append(
            IPE_TupleOf({IPE_Int(lines[i].source), IPE_Int(lines[i].indent), flat}));
    }
    return list;
}

IPE_StoredTokens IPE_StoredTokens::fromList(const IPE_Object& list) {
    IPE_StoredTokens stored;
    XPK_Assert(list.is<IPE_ListType>());
    for (const IPE_Object& entry : list.as<IPE_ListType>()->items()) {
        XPK_Assert(entry.is<IPE_TupleType>() && entry.as<IPE_TupleType>()->count() == 3);
        auto& parts = entry.as<IPE_TupleType>()->items();
        XPK_Assert(parts[0].is<IPE_IntType>() && parts[1].is<IPE_IntType>() && parts[2].is<IPE_ListType>());
        stored.lines.push_back({static_cast<uint32_t>(parts[0].as<IPE_IntType>()->value),
                                static_cast<uint8_t>(parts[1].as<IPE_IntType>()->value),
                                static_cast<uint32_t>(stored.kinds.size())});
        auto& tokens = parts[2].as<IPE_ListType>()->items();
        for (size_t t = 0; t < tokens.size(); ++t) {
            uint8_t kind = kindOf(tokens[t]);
            XPK_Assert(kind != TOKEN_EOF);
            IPE_Object value;
            if (hasValue(kind)) {
                XPK_Assert(t + 1 < tokens.size());
                value = tokens[++t];
                if (kind == TOKEN_IDENTIFIER) {
                    XPK_Assert(value.is<IPE_StringType>());
                    value = IPE_Object(IPE_StringType::intern(value.as<IPE_StringType>()->view()));
                } else if (kind == TOKEN_STRING) {
                    XPK_Assert(value.is<IPE_StringType>());
                } else if (kind == TOKEN_NUMBER) {
                    XPK_Assert(value.is<IPE_IntType>() || value.is<IPE_FloatType>());
                }
            }
            stored.kinds.push_back(kind);
            stored.values.push_back(value);
        }
        XPK_Assert(!stored.kinds.empty() && stored.kinds.back() == TOKEN_EOL);
    }
    return stored;
}

IPE_Segment::IPE_Segment(const IPE_StoredTokens& stored, std::string file, uint32_t base)
    : file(std::move(file)), base(base) {
    lines.reserve(stored.lines.size() + 1);
    tokens.resize(stored.kinds.size() + 2);
    for (const auto& line : stored.lines) lines.push_back({line.first, line.source, 0, line.indent});
    for (size_t i = 0; i < stored.kinds.size(); ++i) {
        tokens[i].kind = stored.kinds[i];
        if (IPE_Object value = privateCopy(stored.values[i]))
            tokens[i].value = static_cast<IPE_Type*>(value.detach());
    }
    uint32_t last = static_cast<uint32_t>(stored.kinds.size());
    lines.push_back({last, lines.empty() ? 0 : lines.back().source + 1, 0, 0});
    tokens[last].kind = tokens[last + 1].kind = TOKEN_EOF;
    linkBlocks();
    linkBrackets();
}

IPE_Segment::~IPE_Segment() {
    for (IPE_TokenEntry& token : tokens)
        if (token.value) token.value->release();
}

// From the last line up: the end of a line's block is found by hopping over the deeper blocks below it.
void IPE_Segment::linkBlocks() {
    uint32_t last = static_cast<uint32_t>(lines.size()) - 1;
    lines[last].blockEnd = last;
    for (uint32_t i = last; i-- > 0;) {
        uint32_t end = i + 1;
        while (end < last && lines[end].indent > lines[i].indent) end = lines[end].blockEnd;
        lines[i].blockEnd = end;
    }
}

// An opening bracket knows the distance to its partner on the same line; 0 when it has none.
void IPE_Segment::linkBrackets() {
    std::vector<uint32_t> open;
    for (uint32_t i = 0; i < tokens.size(); ++i) {
        switch (tokens[i].kind) {
            case TOKEN_LPAREN:
            case TOKEN_LBRACKET:
            case TOKEN_LBRACE:
                tokens[i].local = 0;
                open.push_back(i);
                break;
            case TOKEN_RPAREN:
            case TOKEN_RBRACKET:
            case TOKEN_RBRACE:
                if (!open.empty()) {
                    tokens[open.back()].local = i - open.back();
                    open.pop_back();
                }
                break;
            case TOKEN_EOL: open.clear(); break;
            default: break;
        }
    }
}

IPE_Segment* IPE_Program::append(const IPE_StoredTokens& stored, const std::string& file) {
    segments_.push_back(std::make_unique<IPE_Segment>(stored, file, count_));
    count_ += static_cast<uint32_t>(segments_.back()->lines.size());
    return segments_.back().get();
}

const IPE_Segment& IPE_Program::segmentOf(uint32_t index) const {
    if (index >= count_) XPK_Raise("RuntimeError", "Index out of range for IPE get source location").raise();
    auto after =
        std::upper_bound(segments_.begin(), segments_.end(), index,
                         [](uint32_t i, const std::unique_ptr<IPE_Segment>& s) { return i < s->base; });
    return **--after;
}

void IPE_Program::getSourceLocation(uint32_t index, std::string& file, int64_t& line) const {
    const IPE_Segment& segment = segmentOf(index);
    file = segment.file;
    line = segment.lines[index - segment.base].source;
}

IPE_Object IPE_Program::getLineTokens(uint32_t index) const {
    const IPE_Segment& segment = segmentOf(index);
    IPE_Object list = IPE_NewList();
    for (uint32_t t = segment.lines[index - segment.base].first;
         segment.tokens[t].kind != TOKEN_EOL && segment.tokens[t].kind != TOKEN_EOF; ++t)
        list.as<IPE_ListType>()->append(IPE_String(tokenText(segment.tokens[t])));
    return list;
}

std::string IPE_LineText(const IPE_Segment& segment, uint32_t line, uint32_t untilToken) {
    std::string text(segment.lines[line].indent, ' ');
    bool first = true;
    for (uint32_t t = segment.lines[line].first; t < untilToken; ++t) {
        const IPE_TokenEntry& token = segment.tokens[t];
        if (token.kind == TOKEN_EOL || token.kind == TOKEN_EOF) break;
        if (!first) text += ' ';
        first = false;
        text += tokenText(token);
    }
    return text;
}

void IPE_ProgramLine::describePosition(std::string& text, std::string& marker) const {
    text = IPE_LineText(*segment, line);
    uint32_t current = static_cast<uint32_t>(at - segment->tokens.data());
    std::string before = IPE_LineText(*segment, line, current);
    size_t blanks = before.size();
    if (current > segment->lines[line].first) ++blanks;
    marker.assign(blanks, ' ');
    marker += '?';
}

void IPE_ProgramLine::getSourceFile(std::string& file, int64_t& number) const {
    file = segment->file;
    number = segment->lines[line].source;
}

std::string IPE_ProgramLine::getTokenText() {
    return at->value ? std::string(at->value->c_str()) : std::string();
}

IPE_Object IPE_ProgramLine::getNumber(bool negate) {
    IPE_Object value(at->value);
    if (!negate) return value;
    if (auto* number = value.tryAs<IPE_IntType>())
        return IPE_Int(static_cast<int64_t>(0 - static_cast<uint64_t>(number->value)));
    return IPE_Float(-value->__float__());
}
