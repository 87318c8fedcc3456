// Queries over a census.
//
// `exec` hands rows to the application's scripts: a Lua chunk whose `before` gets the arguments of the query
// once and names the columns that its `during` then gets for each row. Columns are read by plan, so a script
// sees what a report shows. Each `exec` has a state of its own, so that scripts cannot disturb one another,
// and the vectors of values and results are kept from row to row.
#include "census/fsi_recordfilter.h"

#include "census/fsi_ftablefilter.h"
#include "census/fsi_lists.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_tokensource.h"

// Lists of the application come as what Lua makes of them; filters want a list.
class FSI_RecordFilter::Context final : public SMF_FilterContext {
  public:
    explicit Context(FSI_ReaderTable& table) : table_(table) {}
    IPE_Object apiCall(std::string_view name, const std::vector<IPE_Object>& arguments) override {
        IPE_Lua* host = table_.census().host();
        XPK_Assert(host != nullptr);
        std::vector<IPE_Object> all{IPE_String(name)};
        all.insert(all.end(), arguments.begin(), arguments.end());
        IPE_Object answer = host->call("api_call", IPE_Arguments(all.data(), static_cast<int>(all.size())));
        if (!answer.isNull() && answer.is<IPE_DictType>()) {
            IPE_Object list = IPE_NewList();
            for (IPE_Object& item : FSI_ItemsOf(answer, "texts")) list.as<IPE_ListType>()->append(item);
            return list;
        }
        return answer;
    }

  private:
    FSI_ReaderTable& table_;
};

struct FSI_RecordFilter::Exec {
    IPE_Object lua, during;
    std::vector<int32_t> columns;
    std::vector<IPE_Object> values, results;
};

FSI_RecordFilter::FSI_RecordFilter(FSI_ReaderTable& table)
    : SMF_RecordFilter(table, nullptr),
      table_(table),
      application_(std::make_shared<Context>(table)),
      jump_(std::make_shared<bool>(false)) {
    context_ = application_.get();
}

FSI_RecordFilter::FSI_RecordFilter(FSI_ReaderTable& table, const FSI_RecordFilter& outer)
    : SMF_RecordFilter(table, outer.context_),
      table_(table),
      application_(outer.application_),
      jump_(outer.jump_),
      tables_(outer.tables_) {
    variables_ = outer.variables_;
}

FSI_RecordFilter::~FSI_RecordFilter() = default;

// --- Compiling.

// As text; of integers those with the digits of a packed date, while others are seconds already.
IPE_Object FSI_RecordFilter::epoch(const FSI_Reader& census, const IPE_Object& options) {
    auto isThere = [](const IPE_Object& value) { return !value.isNull() && !value.is<IPE_NoneType>(); };
    IPE_Object epoch;
    if (!options.isNull()) epoch = IPE_Object(PyDict_SafeCast(options)->findText("epoch"));
    if (!isThere(epoch)) epoch = census.option("epoch");
    if (!isThere(epoch)) return {};
    std::string text = IPE_Object_Text(epoch);
    bool seconds = epoch.is<IPE_IntType>() && text.size() != 8 && text.size() != 14;
    return seconds ? epoch : IPE_String(text);
}

bool FSI_RecordFilter::compileFor(std::string_view text, const IPE_Object& options,
                                  const IPE_Object& keywords) {
    if (IPE_Object moment = epoch(table_.census(), options)) setVariable("date_epoch", moment);
    if (compile(text)) return true;
    for (const IPE_Object& dictionary : {options, keywords})
        if (!dictionary.isNull()) PyDict_SafeCast(dictionary)->setText("_not_cacheable", IPE_Int(1));
    return false;
}

std::unique_ptr<SMF_FieldFilter> FSI_RecordFilter::createFieldFilter(std::string_view name,
                                                                     IPE_TokenSource& tokens) {
    int32_t index = table_.fieldIndex(name);
    const SMF_FieldMeta& field = *table_.meta().fields[static_cast<size_t>(index)];
    if (field.tagText("FTable").empty() && field.tagText("FMode").empty())
        return SMF_RecordFilter::createFieldFilter(name, tokens);
    return std::make_unique<FSI_FTableFilter>(*this, scope(), index);
}

std::unique_ptr<SMF_RecordFilter> FSI_RecordFilter::makeNested() {
    return std::unique_ptr<FSI_RecordFilter>(new FSI_RecordFilter(table_, *this));
}

// Tables may lead to each other in a circle.
std::unique_ptr<FSI_RecordFilter> FSI_RecordFilter::makeForeign(FSI_ReaderTable& table,
                                                                IPE_TokenSource& tokens) const {
    if (tables_ >= MostTables) tokens.syntaxError("Nested too deeply");
    std::unique_ptr<FSI_RecordFilter> filter(new FSI_RecordFilter(table, *this));
    ++filter->tables_;
    return filter;
}

std::unique_ptr<SMF_FieldFilter> FSI_RecordFilter::takeTest(std::string_view name, IPE_TokenSource& tokens,
                                                            int depth) {
    std::unique_ptr<SMF_FieldFilter> test = createFieldFilter(name, tokens);
    if (!test->parse(tokens, name, depth)) tokens.syntaxError("Expecting a test");
    return test;
}

// --- Scripts.

namespace {

// Strings and numbers up to the `)`, which stays the current token.
std::vector<IPE_Object> takeArguments(IPE_TokenSource& tokens) {
    std::vector<IPE_Object> arguments;
    while (tokens.kind() != TOKEN_RPAREN) {
        if (!arguments.empty()) tokens.expect(TOKEN_COMMA);
        bool minus = tokens.kind() == TOKEN_MINUS;
        if (minus) tokens.next();
        if (tokens.kind() == TOKEN_NUMBER)
            arguments.push_back(tokens.getNumber(minus));
        else if (tokens.kind() == TOKEN_STRING && !minus)
            arguments.push_back(tokens.getString());
        else
            tokens.syntaxError("Expecting a string or a number");
        tokens.next();
    }
    return arguments;
}

}  // namespace

void FSI_RecordFilter::parseExec(IPE_TokenSource& tokens) {
    if (tokens.kind() != TOKEN_STRING && tokens.kind() != TOKEN_IDENTIFIER)
        tokens.syntaxError("Expecting the name of a script");
    std::string name = tokens.getTokenText();
    tokens.next();
    tokens.expect(TOKEN_LPAREN);
    std::vector<IPE_Object> arguments = takeArguments(tokens);
    tokens.expect(TOKEN_RPAREN);

    IPE_Object text = table_.census().apiCall("ResolveIncludeScript", {IPE_String(name)});
    if (text.isNull() || !text.is<IPE_StringType>())
        XPK_Raise("TypeError", "Require the text of the script $name").string("name", name).raise();
    auto exec = std::make_unique<Exec>();
    exec->lua = IPE_NewLua();
    IPE_Lua& lua = *IPE_LuaOf(exec->lua);
    lua.compile(text.as<IPE_StringType>()->view(), "FSI Filter: " + name);
    IPE_Object columns =
        lua.call("before", IPE_Arguments(arguments.data(), static_cast<int>(arguments.size())));
    for (const std::string& column : FSI_TextsOf(columns, "field names")) {
        if (exec->columns.size() == FSI_ReaderTable::MostColumns)
            XPK_Raise("RuntimeError", "The script $name asks for too many fields")
                .string("name", name)
                .raise();
        int32_t index = table_.fieldIndex(column);
        table_.plan(index);
        exec->columns.push_back(index);
    }
    exec->values.resize(exec->columns.size());
    exec->during = lua.getGlobal("during");
    if (!exec->during.is<IPE_LuaFunction>())
        XPK_Raise("RuntimeError", "Could not locate a Lua function named '$func'")
            .string("func", "during")
            .raise();
    auto position = static_cast<size_t>(count());
    execs_.resize(position + 1);
    execs_[position] = std::move(exec);
}

void FSI_RecordFilter::runExec(bool& result, int position) {
    Exec& exec = *execs_[static_cast<size_t>(position)];
    for (size_t i = 0; i < exec.columns.size(); ++i) exec.values[i] = table_.value(exec.columns[i]);
    exec.results.clear();
    exec.during.as<IPE_LuaFunction>()->callAll(
        IPE_Arguments(exec.values.data(), static_cast<int>(exec.values.size())), exec.results);
    auto isTrue = [&](size_t i) { return i < exec.results.size() && exec.results[i]->__nonzero__(); };
    result = isTrue(0);
    if (isTrue(1)) *jump_ = true;
}
