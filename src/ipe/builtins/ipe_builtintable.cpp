// The table of built-in functions.
//
// Interpreters come and go with script threads, so each built-in is one immortal adapter that all of them
// share, and publishing is a run of dictionary stores. An adapter's target is the table itself, and its
// method number the row's index, so that callers that look through an adapter reach the same function.
#include "ipe/builtins/ipe_builtintable.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <mutex>

#include "ipe/values/ipe_secrettype.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

std::vector<const IPE_Builtin*>& rows() {
    static std::vector<const IPE_Builtin*> table;
    return table;
}

class Table final : public IPE_Type {
  public:
    Table() : IPE_Type("BuiltinTableType") {}
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override {
        return IPE_CallBuiltin(*rows()[static_cast<size_t>(method)], arguments);
    }
};

class Function final : public IPE_CallAdapter {
  public:
    Function(EPA_Counted* table, int index)
        : IPE_CallAdapter(table, index, true), row_(*rows()[static_cast<size_t>(index)]) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override { return IPE_CallBuiltin(row_, arguments); }

  private:
    const IPE_Builtin& row_;
};

struct Values {
    std::vector<std::pair<IPE_StringType*, IPE_Object>> functions;
    Values() {
        auto* table = new Table;
        table->makeImmortal();
        for (size_t i = 0; i < rows().size(); ++i) {
            IPE_Object function = IPE_New<Function>(table, static_cast<int>(i));
            function.counted()->makeImmortal();
            functions.emplace_back(IPE_StringType::intern(rows()[i]->name), std::move(function));
        }
        std::srand(static_cast<unsigned>(time(nullptr)) ^ static_cast<unsigned>(getpid()) << 16 ^
                   static_cast<unsigned>(reinterpret_cast<uintptr_t>(this)));
    }
};

const Values& values() {
    static const Values instance;
    return instance;
}

}  // namespace

IPE_BuiltinTable::IPE_BuiltinTable(const IPE_Builtin* first, size_t count) {
    for (size_t i = 0; i < count; ++i) rows().push_back(first + i);
}

const std::vector<const IPE_Builtin*>& IPE_Builtins() { return rows(); }

const IPE_Builtin* IPE_FindBuiltin(std::string_view name) {
    for (const IPE_Builtin* row : rows())
        if (name == row->name) return row;
    return nullptr;
}

IPE_Object IPE_CallBuiltin(const IPE_Builtin& row, const IPE_Arguments& arguments) {
    if (row.spec) arguments.check(row.spec, row.name);
    return row.function(arguments);
}

IPE_Object IPE_BuiltinValue(std::string_view name) {
    for (const auto& [text, function] : values().functions)
        if (text->view() == name) return function;
    return {};
}

void IPE_PublishBuiltins(IPE_DictType& target) {
    for (const auto& [name, function] : values().functions) target.setName(name, function);
}

const IPE_Object& IPE_RequiredArgument(const IPE_Arguments& arguments, int index) {
    if (index >= arguments.size()) XPK_Raise("IndexError", "tuple index out of range").raise();
    return arguments[index];
}

std::string IPE_NativeText(const IPE_Object& value) {
    if (value.is<IPE_StringType>() || value.is<IPE_SecretType>()) return value->c_str();
    return IPE_Object_Text(value);
}
