// Tests of paths.
#include "store/filters/smf_treefilter.h"

#include "ipe/values/ipe_tokensource.h"

namespace {

constexpr std::string_view MalformedMark = "\xF4\x8F\xBF\xB0";                        // U+10FFF0
constexpr std::string_view StarMark = "\xEF\x80\xA1", QuestionMark = "\xEF\x80\xA5";  // U+F021, U+F025

// The literal with wild cards for its marks; true when there were any.
bool takeMarks(std::string& literal) {
    std::string plain;
    for (size_t at = 0; at < literal.size();) {
        std::string_view rest = std::string_view(literal).substr(at);
        bool star = rest.starts_with(StarMark), question = rest.starts_with(QuestionMark);
        plain += star ? '*' : question ? '?' : literal[at];
        at += star || question ? StarMark.size() : 1;
    }
    bool found = plain.size() != literal.size();
    literal = std::move(plain);
    return found;
}

}  // namespace

SMF_TreeFilter::SMF_TreeFilter(const SMF_FilterScope& scope, int32_t index) : SMF_FieldFilter(scope, index) {
    value_.connect(scope.record, meta_->name);
}

// False when the test is complete.
bool SMF_TreeFilter::parseOptions(IPE_TokenSource& tokens) {
    for (;;) {
        if (tokens.kind() == TOKEN_COLON) {
            tokens.next();
            malformed_ = SMF_AtWord(tokens, "is_malformed");
            if (!malformed_ && !SMF_AtWord(tokens, "end")) expecting(tokens, "end or is_malformed");
            end_ = end_ || !malformed_;
            tokens.next();
            if (malformed_) return false;
        } else if (tokens.kind() == TOKEN_COMMA) {
            tokens.next();
            exactCase_ = SMF_AtWord(tokens, "exactcase");
            if (!exactCase_ && !SMF_AtWord(tokens, "ignorecase"))
                expecting(tokens, "exactcase or ignorecase");
            tokens.next();
        } else {
            return true;
        }
    }
}

bool SMF_TreeFilter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) {
    if (!parseOptions(tokens)) return true;
    contains_ = SMF_AtWord(tokens, "contains");
    invert_ = tokens.kind() == TOKEN_NE;
    if (!contains_ && !invert_ && tokens.kind() != TOKEN_ASSIGN && tokens.kind() != TOKEN_EQ)
        expecting(tokens, "an operator");
    tokens.next();
    if (tokens.kind() != TOKEN_STRING) expecting(tokens, "a string");
    parseLiteral(tokens);
    tokens.next();
    return true;
}

void SMF_TreeFilter::parseLiteral(IPE_TokenSource& tokens) {
    literal_ = tokens.getTokenText();
    if (takeMarks(literal_)) {
        wild_.emplace(contains_ ? "*" + literal_ + "*" : literal_);
    } else if (!exactCase_) {
        std::string buffer;
        literal_ = SMF_Fold(std::string(literal_), buffer);
    }
}

void SMF_TreeFilter::evaluate(bool& result) {
    std::string_view text = value_.text();
    if (!known_ || text != last_) {
        last_ = text;
        known_ = true;
        lastAnswer_ = test(text);
    }
    result = lastAnswer_;
}

bool SMF_TreeFilter::test(std::string_view text) {
    if (malformed_) return text.find(MalformedMark) != std::string_view::npos;
    if (end_) {
        const std::string& separator = static_cast<const SMF_TreeData&>(*meta_->data).separator;
        size_t last = separator.empty() ? std::string_view::npos : text.rfind(separator);
        if (last != std::string_view::npos) text.remove_prefix(last + separator.size());
    }
    bool hit;
    if (wild_) {
        hit = wild_->matches(text);
    } else {
        if (!exactCase_) text = SMF_Fold(text, folded_);
        hit = contains_ ? text.find(literal_) != std::string_view::npos : text == literal_;
    }
    return hit != invert_;
}
