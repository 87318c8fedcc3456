// Cursors of scripts.
//
// A filter is bound to the fields of one connected table. So connect() begins with a new table and no filter,
// and filter() compiles into a new object, which takes over only when the text was good.
#include "store/script/smf_cursortype.h"

#include <algorithm>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/script/smf_readertype.h"
#include "store/script/smf_schema.h"

const char SMF_CursorType::TypeName[] = "SMF_CursorType";

SMF_CursorType::SMF_CursorType() : IPE_ModuleType(TypeName) { disconnect(); }

void SMF_CursorType::disconnect() {
    filter_ = nullptr;
    columns_.clear();
    chosen_ = false;
    started_ = true;
    first_ = count_ = 0;
    table_ = std::make_unique<SMF_ReaderTable>();
}

IPE_Object SMF_CursorType::open(const EPA_FileName& path) {
    disconnect();
    reader_.open(path);
    return SMF_TableNames(reader_);
}

IPE_Object SMF_CursorType::connect(std::string_view name) {
    disconnect();
    table_->connect(reader_, name);
    return SMF_FieldNames(*table_);
}

IPE_Object SMF_CursorType::filter(const IPE_Arguments& arguments) {
    table_->meta();
    if (arguments.size() > 1) {
        PyDict_SafeCast(arguments[1]);
        variables_ = arguments[1];
    }
    IPE_Object tokens = IPE_NewList();
    std::string_view text = arguments.text(0);
    if (text.empty()) return tokens;
    if (!chosen_) columns_.clear();  // the text may declare fields
    auto compiled = std::make_unique<SMF_RecordFilter>(*table_, nullptr);
    if (!variables_.isNull()) compiled->setVariables(variables_);
    compiled->compile(text, tokens);
    filter_ = std::move(compiled);
    return tokens;
}

// Rows count from 1: a range from an earlier place begins at the first row.
void SMF_CursorType::range(const IPE_Arguments& arguments) {
    table_->meta();
    if (arguments.size() == 0) {
        first_ = 1;
        count_ = table_->rows();
        table_->top();
        table_->next();
    } else {
        int64_t first = std::max<int64_t>(arguments.integer(0), 1);
        table_->seek(first);
        first_ = first;
        count_ = std::min(arguments.size() > 1 ? arguments.integer(1) : INT64_MAX, INT64_MAX - first);
    }
    started_ = false;
}

bool SMF_CursorType::__nonzero__() {
    if (started_)
        table_->next();
    else
        started_ = true;
    for (;; table_->next()) {
        if (table_->row() >= first_ + count_ || table_->position() > table_->rows()) return false;
        if (passes()) return true;
    }
}

bool SMF_CursorType::passes() {
    if (!filter_ || filter_->count() == 0) return true;
    bool result = true;
    SMF_Accumulator() = 0;
    filter_->run(result);
    return result;
}

// --- Columns.

SMF_CursorType::Column SMF_CursorType::column(const SMF_FieldMeta& field) const {
    IPE_Object description = IPE_NewDict(), name = IPE_String(field.name);
    field.exportTo(*description.as<IPE_DictType>());
    return {field.index, IPE_TupleOf({IPE_Int(field.index), description, name}), name};
}

// Names that begin with '_' are the application's own business.
std::vector<SMF_CursorType::Column> SMF_CursorType::plainColumns() const {
    std::vector<Column> columns;
    for (const auto& field : table_->meta().fields)
        if (!field->name.starts_with('_')) columns.push_back(column(*field));
    return columns;
}

IPE_Object SMF_CursorType::header(const IPE_Arguments& arguments) {
    std::vector<Column> columns;
    if (arguments.size() == 0) {
        columns = plainColumns();
    } else {
        IPE_List names(arguments[0]);
        for (int32_t i = 0; i < names.count(); ++i)
            if (auto field = table_->meta().findField(IPE_Object_Text(names[i])))
                columns.push_back(column(*field));
    }
    columns_ = std::move(columns);
    chosen_ = true;
    IPE_Object entries = IPE_NewList();
    for (const Column& column : columns_) entries.as<IPE_ListType>()->append(column.entry);
    return entries;
}

void SMF_CursorType::record(const IPE_Object& container) {
    auto* list = container.tryAs<IPE_ListType>();
    auto* dictionary = container.tryAs<IPE_DictType>();
    if (!list && !dictionary)
        XPK_Raise("RuntimeError", "Unsupported type passed to FSI_ReaderTable::get_record()").raise();
    size_t count = table_->meta().fields.size();
    if (!chosen_ && columns_.empty()) columns_ = plainColumns();
    // A value is decoded when it is read, so each is read once, whatever the order of the columns.
    std::vector<IPE_Object> values(count);
    for (const Column& column : columns_) values[static_cast<size_t>(column.index)] = IPE_None();
    for (size_t i = 0; i < count; ++i)
        if (values[i]) values[i] = table_->asObject(static_cast<int64_t>(i));
    for (const Column& column : columns_) {
        IPE_Object& value = values[static_cast<size_t>(column.index)];
        if (list)
            list->append(value);
        else
            dictionary->set(column.name, value);
    }
}

// --- Methods.

namespace {
enum {
    MethodOpen,
    MethodConnect,
    MethodSchema,
    MethodFilter,
    MethodRange,
    MethodHeader,
    MethodTellp,
    MethodRecord
};
}

void SMF_CursorType::__bind__() {
    bindMethods({{"open", MethodOpen},
                 {"connect", MethodConnect},
                 {"schema", MethodSchema},
                 {"filter", MethodFilter},
                 {"range", MethodRange},
                 {"header", MethodHeader},
                 {"tellp", MethodTellp},
                 {"record", MethodRecord}});
}

IPE_Object SMF_CursorType::__callmethod__(int method, const IPE_Arguments& arguments) {
    constexpr struct {
        const char *name, *spec;
    } Specs[] = {{"open", "o"},    {"connect", "s"}, {"schema", ""}, {"filter", "s|o"},
                 {"range", "|ii"}, {"header", "|o"}, {"tellp", ""},  {"record", "|i"}};
    arguments.check(Specs[method].spec, Specs[method].name);
    if (method > MethodConnect) table_->meta();
    switch (method) {
        case MethodOpen: return open(EPA_FileNameOf(arguments[0]));
        case MethodConnect: return connect(arguments.text(0));
        case MethodSchema: return SMF_SchemaOf(*table_);
        case MethodFilter: return filter(arguments);
        case MethodRange: range(arguments); return {};
        case MethodHeader: return header(arguments);
        case MethodTellp: return IPE_Int(table_->row());
        case MethodRecord: {
            bool named = arguments.size() > 0 && arguments.integer(0) != 0;
            IPE_Object container = named ? IPE_NewDict() : IPE_NewList();
            record(container);
            return container;
        }
    }
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("", "create");
    IPE_Object object = IPE_New<SMF_CursorType>();
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("smf.cursor", "create", create, "IPE_Globals");

}  // namespace
