// Tables of a census: connecting.
//
// A table gets its form in a fixed order. The schema script's top level runs first, in a state of its own,
// and only defines; then the rows are found: an index that stands for the stored table, the stored table, or
// nothing but what the script declares. `adjust` changes the fields, and the value objects are built once the
// fields are final. Plans come later, when somebody asks for the header or for a value: they open further
// tables, which a walk that only reads stored columns never needs.
//
// Plans and values are in fsi_columnplan.cpp and fsi_readervalues.cpp.
#include "census/fsi_readertable.h"

#include <unordered_map>

#include "census/fsi_closure.h"
#include "census/fsi_lists.h"
#include "census/index/fsi_entityhelper.h"
#include "census/index/fsi_pathnamehelper.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/smf_error.h"

FSI_ReaderTable::FSI_ReaderTable() = default;
FSI_ReaderTable::~FSI_ReaderTable() { abandon(); }

FSI_Reader& FSI_ReaderTable::census() const {
    if (!census_) error(SMF_Runtime, "Not connected");
    return *census_;
}

IPE_Lua& FSI_ReaderTable::lua() const {
    if (lua_.isNull()) error(SMF_Runtime, "Not connected");
    return *lua_.as<IPE_Lua>();
}

// Back to a table that is connected to nothing.
void FSI_ReaderTable::abandon() noexcept {
    if (!closure_.isNull()) closure_.as<FSI_ReaderTable_Closure>()->detach();
    closure_ = nullptr;
    lua_ = nullptr;
    data_.fields.clear();
    data_.meta = nullptr;
    plans_.clear();
    planned_ = virtual_ = false;
    columns_.clear();
    keys_.clear();
    foreign_.clear();
    path_.reset();
    storedPath_.reset();
    root_.reset();
    entities_.reset();
    pathNames_.reset();
    pathLevels_.reset();
}

void FSI_ReaderTable::connect(FSI_Reader& reader, std::string_view name, bool helpers) {
    abandon();
    census_ = &reader;
    generation_ = reader.generation();
    tableName_ = name;
    try {
        runSchema();
        if (helpers && name == "Path") {
            pathNames_ = reader.sharePathNames();
            SMF_ReaderTable::connect(pathNames_->store(), FSI_PathNameHelper::TableName);
        } else if (helpers && name == "Entity") {
            entities_ = reader.shareEntities();
            SMF_ReaderTable::connect(entities_->store(), FSI_EntityHelper::TableName);
        } else if (reader.location(name) == -1) {
            connectVirtual();
        } else {
            SMF_ReaderTable::connect(reader, name);
        }
        callSchema("adjust");
        meta().complete = true;
        rebuild();
        if (virtual_) callSchema("vtable_record");
        for (const auto& field : meta().fields) keys_.push_back(IPE_String(field->name));
        chooseColumns();
    } catch (...) {
        abandon();
        throw;
    }
}

// The closure hides Lua's own library `table` only once the script's top level has run.
void FSI_ReaderTable::runSchema() {
    lua_ = IPE_NewLua();
    IPE_Lua& state = *lua_.as<IPE_Lua>();
    state.setGlobal("options", census_->options());
    state.compile(FSI_SchemaPrelude, "schema prelude");
    if (census_->host()) {
        std::string script = "Schemas/FSI/" + tableName_;
        IPE_Object text = census_->apiCall("ResolveTableScript", {IPE_String(script)});
        state.compile(PyString_SafeCast(text)->view(), script);
    }
    closure_ = IPE_New<FSI_ReaderTable_Closure>(*this);
    state.setGlobal("table", closure_);
}

void FSI_ReaderTable::callSchema(const char* function) {
    if (lua().hasGlobal(function)) lua().callWith(function);
}

void FSI_ReaderTable::connectVirtual() {
    if (!lua().hasGlobal("vtable"))
        SMF_Fail(SMF_Runtime, "No physical or logical table named $table", census_->name(),
                 {{"table", tableName_}});
    auto meta = std::make_shared<SMF_RecordMeta>(census_->name());
    meta->setName(tableName_);
    meta->options.as<IPE_DictType>()->update(*census_->options().as<IPE_DictType>());
    virtual_ = true;
    connectDeclared(*census_, std::move(meta), 1);
    lua().callWith("vtable");
}

// Names are compared exactly here; of several fields of one name the first is meant.
void FSI_ReaderTable::chooseColumns() {
    IPE_Object names = lua().getGlobal("columns");
    if (names.isNull() || names.is<IPE_NoneType>()) {
        if (!census_->option("view").isNull()) return;
        if (!census_->host()) {
            for (const auto& field : meta().fields) columns_.push_back(field->index);
            return;
        }
        names = census_->apiCall("ListMyColumns", {IPE_String("FSI"), IPE_String(tableName_)});
    }
    std::unordered_map<std::string_view, int32_t> fields;
    for (const auto& field : meta().fields) fields.emplace(field->name, field->index);
    for (const std::string& name : FSI_TextsOf(names, "columns")) {
        auto found = fields.find(name);
        if (found == fields.end()) continue;
        XPK_Assert(columns_.size() < MostColumns);
        columns_.push_back(found->second);
    }
}

// --- Other tables.

void FSI_ReaderTable::requireCensus() const {
    if (census().generation() != generation_) error(SMF_Runtime, "Not connected");
}

FSI_ReaderTable& FSI_ReaderTable::open(std::unique_ptr<FSI_ReaderTable>& place, const char* name,
                                       bool helpers) {
    if (!place) {
        requireCensus();
        auto table = std::make_unique<FSI_ReaderTable>();
        table->connect(*census_, name, helpers);
        // The application may have asked this table for its plans meanwhile, and those refer to the first.
        if (!place) place = std::move(table);
    }
    return *place;
}

FSI_ReaderTable& FSI_ReaderTable::foreignTable(std::string_view name) {
    for (const auto& [known, table] : foreign_)
        if (known == name) return *table;
    requireCensus();
    XPK_Assert(foreign_.size() < MostForeignTables);
    auto table = std::make_unique<FSI_ReaderTable>();
    table->connect(*census_, name, true);
    if (table->rows() > 0) table->seek(1);
    foreign_.emplace_back(name, std::move(table));
    return *foreign_.back().second;
}
