// The frame of the reports.
//
// A tree's rows are one run in every table that is sorted by path number, and the file index knows where the
// runs of `File` and of the rights begin. For a table that the index did not count the run is found by binary
// search, since numbers of a tree follow one another.
#include "census/reports/fsi_report.h"

#include "census/fsi_lists.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/smf_error.h"

namespace {

bool isNothing(const IPE_Object& value) { return value.isNull() || value.is<IPE_NoneType>(); }

IPE_Object dictionaryAt(const IPE_Arguments& arguments, int index) {
    PyDict_SafeCast(arguments[index]);
    return arguments[index];
}

}  // namespace

FSI_Report::FSI_Report(const IPE_Arguments& arguments)
    : statement_((arguments.check("sooo|", "call"), arguments[1])),
      selection_(dictionaryAt(arguments, 2)),
      options_(dictionaryAt(arguments, 3)),
      keywords_(arguments.keywordsOrNull()),
      listener_(arguments.keyword("progress")),
      census_(selection_, arguments.keyword("lua")),
      progress_("msg_primitive") {}
FSI_Report::~FSI_Report() = default;

// --- Options.

IPE_Object FSI_Report::option(std::string_view name) const {
    IPE_Object value(options_.as<IPE_DictType>()->findText(name));
    return isNothing(value) ? IPE_Object() : value;
}

IPE_Object FSI_Report::requiredOption(std::string_view name) const {
    IPE_Object value = option(name);
    if (value.isNull()) XPK_Raise("KeyError", "$key").string("key", name).raise();
    return value;
}

std::string FSI_Report::textOption(std::string_view name, std::string_view absent) const {
    IPE_Object value = option(name);
    return value.isNull() ? std::string(absent) : IPE_Object_Text(value);
}

bool FSI_Report::trueOption(std::string_view name, bool absent) const {
    IPE_Object value = option(name);
    if (value.isNull()) return absent;
    if (value.is<IPE_IntType>()) return value->__int__() != 0;
    return value->__nonzero__();
}

int64_t FSI_Report::integerOption(std::string_view name, int64_t absent, int64_t low, int64_t high) const {
    IPE_Object value = option(name);
    if (value.isNull()) return absent;
    int64_t number = value->__int__();
    XPK_Assert(number >= low && number <= high);
    return number;
}

void FSI_Report::setOptions(const IPE_Object& options) {
    PyDict_SafeCast(options);
    options_ = options;
}

// --- Census.

FSI_PathLevelHelper& FSI_Report::levels() { return census_.pathLevelHelper(); }

FSI_PathLevelHelper& FSI_Report::filteredLevels() {
    std::string text = textOption("filter", "");
    if (text.empty()) return levels();
    if (!filteredLevels_) {
        auto helper = std::make_unique<FSI_PathLevelHelper>(census_);
        helper->open(text, options_, keywords_);
        filteredLevels_ = std::move(helper);
    }
    return *filteredLevels_;
}

void FSI_Report::openTable(std::string_view name) {
    table_.connect(census_, name, true);
    header_ = table_.header();
    tableIsPath_ = name == "Path";
    if (tableIsPath_) return;
    for (const char* column : {"PathNumber", "Path"}) {
        int32_t index = table_.meta().indexOf(column, false);
        if (index < 0 || table_.meta().fields[static_cast<size_t>(index)]->type != SMF_TypeI32) continue;
        path_.connect(table_, column);
        return;
    }
    table_.meta().indexOf(name == "File" ? "PathNumber" : "Path", true);  // raises what is missing
    table_.error(SMF_Runtime, "The path column is no 32-bit number");
}

void FSI_Report::openFilter(std::string_view absent) {
    auto compiled = std::make_unique<FSI_RecordFilter>(table_);
    compiled->compileFor(textOption("filter", absent), options_, keywords_);
    filter_ = std::move(compiled);
}

void FSI_Report::raiseStop() { XPK_Raise("SystemExit", "").raise(); }

std::vector<FSI_Selection> FSI_Report::selections(FSI_PathLevelHelper& levels) {
    std::vector<FSI_Selection> out;
    for (const IPE_Object& path : FSI_ItemsOf(requiredOption("paths"), "paths")) {
        FSI_Selection selection;
        IPE_Type* name = PyDict_SafeCast(path)->findText("name");
        if (!name) XPK_Raise("KeyError", "$key").string("key", "name").raise();
        selection.name = IPE_Object(name);
        // A script that writes the option has no tuples.
        if (selection.name.is<IPE_DictType>()) {
            IPE_Object pair = IPE_NewTuple();
            pair.as<IPE_TupleType>()->items() = FSI_ItemsOf(selection.name, "level and row");
            selection.name = pair;
        }
        levels.locate(selection.name, true);
        select(levels, selection);
        out.push_back(std::move(selection));
    }
    return out;
}

void FSI_Report::select(FSI_PathLevelHelper& levels, FSI_Selection& selection) {
    selection.number = levels.number();
    selection.treePaths = levels.figure(FSI_TreePaths);
    selection.level = levels.depth();
    selection.row = levels.row();
    levels.pathText(selection.text);
    selection.treeFiles = levels.treeFiles();
    selection.files = levels.files();
    selection.treeDacls = levels.treeDacls();
    selection.dacls = levels.dacls();
}

FSI_RowRange FSI_Report::treeRows(const FSI_Selection& selection) {
    if (tableIsPath_) return {selection.number, selection.treePaths + 1};
    if (table_.tableName() == "File") return selection.treeFiles;
    if (table_.tableName() == levels().rightsTable()) return selection.treeDacls;
    return searchRows(selection.number, selection.number + selection.treePaths);
}

FSI_RowRange FSI_Report::ownRows(const FSI_Selection& selection) {
    if (tableIsPath_) return {selection.number, 1};
    if (table_.tableName() == "File") return selection.files;
    if (table_.tableName() == levels().rightsTable()) return selection.dacls;
    return searchRows(selection.number, selection.number);
}

// The rows whose path number lies in first to last.
FSI_RowRange FSI_Report::searchRows(int64_t first, int64_t last) {
    auto firstRowFrom = [&](int64_t number) {
        int64_t low = 1, high = table_.rows() + 1;
        while (low < high) {
            int64_t middle = low + (high - low) / 2;
            table_.seek(middle);
            if (path_.get() < number)
                low = middle + 1;
            else
                high = middle;
        }
        return low;
    };
    int64_t begin = firstRowFrom(first);
    return {begin, firstRowFrom(last + 1) - begin};
}

std::string_view FSI_Report::pathText(int64_t number) {
    if (number != textNumber_) {
        textNumber_ = number;
        text_.clear();
        if (levels().locateNumber(number)) levels().pathText(text_);
    }
    return text_;
}

int64_t FSI_Report::pathNumber() const { return tableIsPath_ ? table_.row() : path_.get(); }

int64_t FSI_Report::pathNumberOf(const IPE_Object& record) const {
    if (tableIsPath_) return table_.row();
    IPE_Object path(record.as<IPE_DictType>()->findText("Path"));
    return path.is<IPE_IntType>() ? path->__int__() : path_.get();
}

int64_t FSI_Report::behindTree() {
    int64_t number = pathNumber(), here = table_.position();
    FSI_Selection tree;
    if (!levels().locateNumber(number)) return here + 1;
    select(levels(), tree);
    textNumber_ = 0;
    FSI_RowRange rows = treeRows(tree);
    table_.seek(here);  // a binary search leaves it elsewhere
    return std::max(here + 1, rows.row + rows.count);
}

// --- Output.

void FSI_Report::makeAbout() {
    if (std::exchange(aboutMade_, true)) return;
    IPE_CallScript(statement_, IPE_String("create table if not exists about (cache, object)"));
}

void FSI_Report::createTable(std::string_view sql) {
    makeAbout();
    IPE_CallScript(statement_, IPE_String(sql));
}

void FSI_Report::insert(std::string_view sql, const IPE_Object& rows) {
    IPE_CallScript(statement_, IPE_String(sql), rows);
}

void FSI_Report::writeAbout(const IPE_Object& dictionary) {
    makeAbout();
    IPE_Object row = IPE_TupleOf({IPE_String(IPE_Object_ToString(dictionary))});
    insert("insert into about (cache, object) values ($cache, ?)", IPE_ListOf({row}));
}

void FSI_Report::about() { writeAbout(IPE_NewDict()); }

void FSI_Report::aboutHeader(int64_t count) {
    IPE_Object dictionary = IPE_NewDict();
    dictionary.as<IPE_DictType>()->setText("header", header_);
    dictionary.as<IPE_DictType>()->setText("count", IPE_Int(count));
    writeAbout(dictionary);
}
