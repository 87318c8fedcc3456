// The query language: its parser and its runner.
//
// A query becomes a flat list of operations, most of them kept under the kind of the token that they began
// with. There is no precedence: `and` and `or` look at the result so far and end the run when it decides. Two
// statements take two positions: a branch, whose second one holds the action, and an assignment, whose second
// one holds the field.
//
// The scanner is that of scripts. Its own faults are script errors; here they become faults of the query.
#include "store/filters/smf_recordfilter.h"

#include <algorithm>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_tokenizer.h"
#include "store/filters/smf_datefilter.h"
#include "store/filters/smf_flagfilter.h"
#include "store/filters/smf_i32filter.h"
#include "store/filters/smf_i64filter.h"
#include "store/filters/smf_stringfilter.h"
#include "store/filters/smf_timefilter.h"
#include "store/filters/smf_treefilter.h"
#include "store/smf_error.h"

namespace {

constexpr int32_t KindOfAction = TOKEN_NONE;

class QueryTokens final : public IPE_Tokenizer {
  public:
    explicit QueryTokens(const IPE_Object& seen) : seen_(seen) { exceptionClass_ = "InvalidFilterException"; }
    void next() override {
        try {
            IPE_Tokenizer::next();
        } catch (const XPK_Exception& fault) {
            if (fault.type() != "SyntaxError" && fault.type() != "InterpreterException" &&
                fault.type() != "SystemError")
                throw;
            std::string message = fault.message();
            syntaxError(message.substr(0, message.find('\n')));
        }
        if (kind_ != TOKEN_EOL && !seen_.isNull()) note();
    }

  private:
    void note() {
        bool named = !text().empty() || kind_ == TOKEN_STRING;
        IPE_Object token = IPE_NewDict();
        token.as<IPE_DictType>()->setText("token", IPE_Int(kind_));
        token.as<IPE_DictType>()->setText("value", IPE_String(named ? text() : IPE_TokenName(kind_)));
        seen_.as<IPE_ListType>()->append(token);
    }
    const IPE_Object& seen_;
};

// The type of a declared field.
int32_t typeOfWord(std::string_view word) {
    struct Entry {
        const char* word;
        int32_t type;
    };
    static constexpr Entry Words[] = {
        {"string", SMF_TypeString}, {"i32", SMF_TypeI32},   {"i64", SMF_TypeI64},
        {"flag", SMF_TypeFlag},     {"date", SMF_TypeDate}, {"datetime", SMF_TypeDateTime},
        {"tree", SMF_TypeTree},
    };
    for (const Entry& entry : Words)
        if (word == entry.word) return entry.type;
    return SMF_TypeString;
}

std::string takeName(IPE_TokenSource& tokens, const char* expecting) {
    std::string name = SMF_NameAt(tokens);
    if (name.empty() && tokens.kind() != TOKEN_STRING) tokens.syntaxError(expecting);
    tokens.next();
    return name;
}

bool compareNumber(int32_t kind, double order) {
    switch (kind) {
        case TOKEN_ASSIGN:
        case TOKEN_EQ: return order == 0;
        case TOKEN_NE: return order != 0;
        case TOKEN_LT: return order < 0;
        case TOKEN_LE: return order <= 0;
        case TOKEN_GT: return order > 0;
        default: return order >= 0;
    }
}

}  // namespace

int64_t& SMF_Accumulator() noexcept {
    thread_local int64_t accumulator = 0;
    return accumulator;
}

// One position. An assignment keeps its name in `name` and, with the value, in the position behind.
struct SMF_RecordFilter::Operation {
    int32_t kind = 0;  // a token's, or the index of a field
    std::unique_ptr<SMF_FieldFilter> test;
    std::unique_ptr<SMF_RecordFilter> nested;
    IPE_Object name, value;
};

SMF_RecordFilter::SMF_RecordFilter(SMF_Record& record, SMF_FilterContext* context)
    : record_(record), context_(context), variables_(IPE_NewDict()) {}
SMF_RecordFilter::~SMF_RecordFilter() = default;

int SMF_RecordFilter::count() const noexcept { return static_cast<int>(operations_.size()); }
SMF_FilterScope SMF_RecordFilter::scope() const { return {record_, context_, variables_}; }

void SMF_RecordFilter::setVariable(std::string_view name, const IPE_Object& value) {
    variables_.as<IPE_DictType>()->setText(name, value);
}

bool SMF_RecordFilter::isMarkedNotCacheable() const {
    IPE_Type* mark = variables_.as<IPE_DictType>()->findText("not_cacheable");
    if (!mark) return false;
    if (mark->typeName() == IPE_StringType::TypeName || mark->typeName() == IPE_IntType::TypeName)
        return mark->__int__() != 0;
    return mark->__nonzero__();
}

// --- Compiling.

bool SMF_RecordFilter::compile(std::string_view text, const IPE_Object& tokens) {
    // A query is one line; blanks in front of it are no indent.
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    if (text.empty()) return true;
    QueryTokens source(tokens);
    source.assign(text);
    try {
        source.next();
        parse(source, 1);
    } catch (...) {
        operations_.clear();
        throw;
    }
    findConjunction();
    if (isMarkedNotCacheable()) notCacheable_ = true;
    return !notCacheable_;
}

void SMF_RecordFilter::findConjunction() {
    std::vector<SMF_FieldFilter*> tests;
    for (size_t at = 0; at < operations_.size(); ++at) {
        const Operation& operation = operations_[at];
        if (at % 2 == 1) {
            if (operation.kind != TOKEN_AND) return;
        } else {
            if (operation.kind != TOKEN_IDENTIFIER || !operation.test || operation.test->measures()) return;
            tests.push_back(operation.test.get());
        }
    }
    if (operations_.size() % 2 == 1) conjunction_ = std::move(tests);
}

SMF_RecordFilter::Operation& SMF_RecordFilter::add(int32_t kind) {
    operations_.emplace_back().kind = kind;
    return operations_.back();
}

void SMF_RecordFilter::parse(IPE_TokenSource& tokens, int depth) {
    if (depth > MaxDepth) tokens.syntaxError("Nested too deeply");
    for (;;) {
        if (count() + 10 > MaxOperations) tokens.syntaxError("Too many operations");
        if (tokens.kind() == TOKEN_EOL || tokens.kind() == TOKEN_RPAREN) return;
        parseStatement(tokens, depth);
    }
}

void SMF_RecordFilter::parseStatement(IPE_TokenSource& tokens, int depth) {
    switch (tokens.kind()) {
        case TOKEN_IDENTIFIER: parseTest(tokens, depth); break;
        case TOKEN_NUMBER: parseNumber(tokens); break;
        case TOKEN_LPAREN: {
            std::unique_ptr<SMF_RecordFilter> nested = parseGroup(tokens, depth);
            add(TOKEN_LPAREN).nested = std::move(nested);
            break;
        }
        case TOKEN_NOT:
        case TOKEN_AND:
        case TOKEN_OR:
            add(tokens.kind());
            tokens.next();
            break;
        case TOKEN_IF:
        case TOKEN_ELIF:
        case TOKEN_ELSE: parseBranch(tokens, depth); break;
        case TOKEN_DEF: parseDeclaration(tokens); break;
        case TOKEN_EXEC:
            tokens.next();
            parseExec(tokens);
            setVariable("not_cacheable", IPE_String("1"));
            add(TOKEN_EXEC);
            break;
        case TOKEN_PERCENT: parseAssignment(tokens); break;
        default: tokens.syntaxError("Expecting a statement");
    }
}

void SMF_RecordFilter::parseTest(IPE_TokenSource& tokens, int depth) {
    if (count() >= MaxTests)
        SMF_Fail(SMF_Runtime, "The query statement is too complex", record_.meta().fileName);
    std::string name = tokens.getTokenText();
    tokens.next();
    std::unique_ptr<SMF_FieldFilter> test = createFieldFilter(name, tokens);
    if (!test->parse(tokens, name, depth)) tokens.syntaxError("Expecting a test");
    if (test->isNotCacheable()) notCacheable_ = true;
    add(TOKEN_IDENTIFIER).test = std::move(test);
}

// Whatever follows the number becomes the operation; a kind that needs more than a number then fails when it
// is run.
void SMF_RecordFilter::parseNumber(IPE_TokenSource& tokens) {
    IPE_Object value = tokens.getNumber(false);
    tokens.next();
    if (tokens.kind() == TOKEN_EOL) tokens.syntaxError("Expecting an operator");
    add(tokens.kind()).value = std::move(value);
    tokens.next();
}

std::unique_ptr<SMF_RecordFilter> SMF_RecordFilter::parseGroup(IPE_TokenSource& tokens, int depth) {
    tokens.expect(TOKEN_LPAREN);
    std::unique_ptr<SMF_RecordFilter> nested = makeNested();
    nested->parse(tokens, depth + 1);
    tokens.expect(TOKEN_RPAREN);
    if (nested->notCacheable_) notCacheable_ = true;
    return nested;
}

void SMF_RecordFilter::parseBranch(IPE_TokenSource& tokens, int depth) {
    int32_t kind = tokens.kind();
    tokens.next();
    std::unique_ptr<SMF_RecordFilter> condition;
    if (kind != TOKEN_ELSE) condition = parseGroup(tokens, depth);
    tokens.expect(TOKEN_COLON);
    std::unique_ptr<SMF_RecordFilter> action = parseGroup(tokens, depth);
    if (condition) {
        add(kind).nested = std::move(condition);
        kind = KindOfAction;
    }
    add(kind).nested = std::move(action);
}

void SMF_RecordFilter::parseAssignment(IPE_TokenSource& tokens) {
    tokens.next();
    std::string name = takeName(tokens, "Expecting a name");
    IPE_Object value = IPE_ReadLiteral(tokens);
    setVariable(name, value);
    Operation& operation = add(TOKEN_PERCENT);
    operation.name = IPE_String(name);
    operation.value = std::move(value);
    add(record_.meta().indexOf(name, false));
}

void SMF_RecordFilter::parseDeclaration(IPE_TokenSource& tokens) {
    tokens.next();
    std::string name = takeName(tokens, "Expecting a name");
    int32_t type = typeOfWord(takeName(tokens, "Expecting a type"));
    tokens.expect(TOKEN_LBRACE);
    IPE_Object tags = IPE_NewDict();
    while (tokens.kind() != TOKEN_RBRACE) {
        std::string key = takeName(tokens, "Expecting a key");
        tokens.expect(TOKEN_COLON);
        tags.as<IPE_DictType>()->setText(key, IPE_String(takeName(tokens, "Expecting a value")));
        if (tokens.kind() != TOKEN_COMMA) break;
        tokens.next();
    }
    tokens.expect(TOKEN_RBRACE);
    record_.addField(name, type, tags);
}

// --- What a census filter replaces.

void SMF_RecordFilter::runExec(bool& result, int position) {
    XPK_Raise("DevelopmentError", "Not Implemented").raise();
}

void SMF_RecordFilter::parseExec(IPE_TokenSource& tokens) {
    XPK_Raise("DevelopmentError", "Not Implemented").raise();
}

std::unique_ptr<SMF_FieldFilter> SMF_RecordFilter::createFieldFilter(std::string_view name,
                                                                     IPE_TokenSource& tokens) {
    int32_t index = record_.fieldIndex(name);
    const SMF_RecordMeta& meta = record_.meta();
    switch (meta.fields[static_cast<size_t>(index)]->type) {
        case SMF_TypeString:
        case SMF_TypeString10: return std::make_unique<SMF_StringFilter>(scope(), index);
        case SMF_TypeI32: return std::make_unique<SMF_I32Filter>(scope(), index);
        case SMF_TypeI64: return std::make_unique<SMF_I64Filter>(scope(), index);
        case SMF_TypeDate: return std::make_unique<SMF_DateFilter>(scope(), index);
        case SMF_TypeTime: return std::make_unique<SMF_TimeFilter>(scope(), index);
        case SMF_TypeFlag: return std::make_unique<SMF_FlagFilter>(scope(), index);
        case SMF_TypeTree: return std::make_unique<SMF_TreeFilter>(scope(), index);
        case SMF_TypeDateTime: return std::make_unique<SMF_DateTimeFilter>(scope(), index);
        default: SMF_Fail(SMF_Runtime, "Field index out of range", meta.fileName);
    }
}

std::unique_ptr<SMF_RecordFilter> SMF_RecordFilter::makeNested() {
    auto nested = std::make_unique<SMF_RecordFilter>(record_, context_);
    nested->variables_ = variables_;
    return nested;
}

// --- Running.

void SMF_RecordFilter::runNested(SMF_RecordFilter& nested, bool& result) {
    if (nested.operations_.empty()) {
        result = true;
        return;
    }
    SMF_Accumulator() = 0;
    nested.run(result);
}

// A taken branch leaves the ones behind it alone. Neither condition nor action touches the outer result.
void SMF_RecordFilter::runBranch(size_t& at, bool& taken) {
    Operation& branch = operations_[at];
    if (branch.kind != TOKEN_ELSE) {
        XPK_Assert(branch.nested && at + 1 < operations_.size() && operations_[at + 1].nested);
        ++at;
        if (branch.kind == TOKEN_ELIF && taken) return;
        taken = true;
        runNested(*branch.nested, taken);
        if (!taken) return;
    } else {
        XPK_Assert(branch.nested != nullptr);
        if (taken) return;
    }
    bool ignored = true;
    runNested(*operations_[at].nested, ignored);
}

void SMF_RecordFilter::assign(size_t at) {
    Operation& operation = operations_[at];
    XPK_Assert(!operation.name.isNull());
    variables_.as<IPE_DictType>()->set(operation.name, operation.value);
    if (int32_t index = operations_[at + 1].kind; index >= 0) record_.assignObject(index, operation.value);
}

void SMF_RecordFilter::run(bool& result) {
    bool negate = false, taken = false;
    auto answer = [&](bool value) {
        result = value != negate;
        negate = false;
    };
    for (size_t at = 0; at < operations_.size(); ++at) {
        Operation& operation = operations_[at];
        bool value = result;
        switch (operation.kind) {
            case TOKEN_IDENTIFIER:
                XPK_Assert(operation.test != nullptr);
                operation.test->evaluate(value);
                // A measure is no answer: a negation waits for the comparison.
                if (!operation.test->measures()) answer(value);
                break;
            case TOKEN_LPAREN:
                XPK_Assert(operation.nested != nullptr);
                runNested(*operation.nested, value);
                answer(value);
                break;
            case TOKEN_EXEC:
                runExec(value, static_cast<int>(at));
                answer(value);
                break;
            case TOKEN_IF:
            case TOKEN_ELIF:
            case TOKEN_ELSE: runBranch(at, taken); break;
            case TOKEN_PASS: result = true; break;
            case TOKEN_NOT: negate = true; break;
            case TOKEN_AND:
                if (!result) return;
                break;
            case TOKEN_OR:
                if (result) return;
                break;
            case TOKEN_PERCENT:
                assign(at++);
                result = true;
                break;
            case TOKEN_ASSIGN:
            case TOKEN_EQ:
            case TOKEN_NE:
            case TOKEN_LT:
            case TOKEN_LE:
            case TOKEN_GT:
            case TOKEN_GE: {
                XPK_Assert(!operation.value.isNull());
                int64_t measured = SMF_Accumulator();
                double order;
                if (auto* whole = operation.value.tryAs<IPE_IntType>())
                    order = measured < whole->value ? -1 : measured > whole->value;
                else
                    order = static_cast<double>(measured) - operation.value->__float__();
                answer(compareNumber(operation.kind, order));
                break;
            }
            default: break;
        }
    }
}
