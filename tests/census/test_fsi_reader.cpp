// Censuses as reports and scripts see them: schema scripts, every way to reach a value, hostile input.
#include <thread>

#include "census/fsi_closure.h"
#include "census/fsi_lists.h"
#include "census/fsi_recordfilter.h"
#include "census/index/fsi_pathlevelhelper.h"
#include "census/script/fsi_readertabletype.h"
#include "census/script/fsi_readertype.h"
#include "census/script/fsi_recordcallables.h"
#include "census_support.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "runtime/epa_shutdown.h"
#include "runtime/xpk_threadstate.h"

namespace {

IPE_Object literal(const std::string& text) { return parse_literal(text); }
std::string repr(const IPE_Object& value) {
    std::string text = value.isNull() ? "null" : IPE_Object_ToString(value);
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}

// Tables as text: fields are "type name format", rows a list.
void addTable(SMF_Writer& writer, const char* name, const std::vector<std::string>& fields,
              const std::string& rows) {
    std::string list;
    for (const std::string& field : fields) {
        std::string type, label, tags;
        std::istringstream(field) >> type >> label >> tags;
        list += "{'type': " + type + ", 'name': '" + label + "', 'tags': {" +
                (tags.empty() ? "'Format': 'S'" : tags) + "}},";
    }
    SMF_WriterTable table(writer.fileName());
    table.createFromSchema(name, literal("({'size': 4096, 'zero': 10}, [" + list + "])"), writer);
    for (const IPE_Object& row : FSI_ItemsOf(literal(rows), "rows")) table.append(row);
}

// A table `Item` whose column Ref leads to `Thing` and `Property`, and two tables that lead to each other.
void addTables(SMF_Writer& writer) {
    addTable(writer, "Item", {"3 Id", "3 Ref", "4 Wide"},
             "[[1,0,0],[2,1,1],[3,3,3],[4,1,1],[5,2,2],[6,4,9000000000],[7,-1,-5]]");
    addTable(writer, "Thing",
             {"3 Number", "0 Name 'style':'thing'", "4 Weight", "8 Branch 'Format':'S','R':'T','S':'/'",
              "9 Made 'Format':'D'", "6 At"},
             "[[1,'one',100,['a','b'],'2024-05-01 10:00:00',[1,2,3]],[2,'two',200,[],'2024-05-02 "
             "10:00:00',[1,2,3]],"
             "[3,'three',300,['c'],'2024-05-03 10:00:00',[1,2,3]]]");
    addTable(writer, "Property", {"3 Number", "3 A", "3 B", "0 Name", "0 Value"},
             "[[1,0,0,'size','L'],[1,0,0,'color','red'],[1,0,0,'color','never'],[3,0,0,'color','blue'],[9,0,"
             "0,'color','x']]");
    addTable(writer, "Left", {"3 Next"}, "[[2],[1]]");
    addTable(writer, "Right", {"3 Next"}, "[[1],[2]]");
    addTable(writer, "Root", {"3 Number", "0 Path", "0 Name"}, "[[1,'/data/','data']]");
}

class Census : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(fault([&] { writeCensus(model, folder.file(), addTables); }), "none");
    }

    FSI_Reader& reader(const std::map<std::string, std::string>& schemas = {},
                       const std::map<std::string, std::string>& columns = {}, const std::string& more = {}) {
        return *(reader_ = std::make_unique<FSI_Reader>(options, makeHost(schemas, {}, columns, more)));
    }
    // The visible columns of all rows, of a table with this schema.
    std::string rows(const char* name, const std::string& schema, bool helpers = false) {
        table.connect(reader({{name, schema}}), name, helpers);
        return repr(table.batch(1000));
    }
    static std::string fault(const std::function<void()>& action) {
        try {
            action();
        } catch (const XPK_Exception& e) {
            const std::string* type = e.record().findString("type");
            return e.type() + (type && e.type() == "DatabaseError" ? " " + *type : "") + ": " + e.message();
        }
        return "none";
    }
    // A fault without the place in the script.
    std::string connectFault(const char* name, const std::string& schema, const std::string& more = {}) {
        std::string text = fault([&] { table.connect(reader({{name, schema}}, {}, more), name, false); });
        EXPECT_FALSE(text != "none" && table.isConnected()) << text;
        return text;
    }
    static bool has(const std::string& text, const char* part) { return text.find(part) != text.npos; }

    XPK_ThreadScope thread{true};
    CensusFolder folder;
    ModelCensus model = randomCensus(5, 30, 4);
    IPE_Object options = censusOptions(folder.file());
    std::unique_ptr<FSI_Reader> reader_;
    FSI_ReaderTable table;  // after its reader
};

// Ref leads to Thing in three ways; Ref is 0, 1, 3, 1, 2 in the first five rows.
const char* const ItemSchema = R"(
    function adjust()
        addFieldShadow('Cached', 'Ref', {FTable = 'Thing', FShow = 'Name', style = 'own'})
        addFieldShadow('Single', 'Wide', {FTable = 'thing', FMode = '1:1', FShow = 'WEIGHT', style = 'own'})
        addFieldShadow('Branch', 'Ref', {FTable = 'Thing', FShow = 'Branch'})
        addFieldShadow('Made', 'Ref', {FTable = 'Thing', FMode = 'Compare', FShow = 'Made'})
        addFieldShadow('Color', 'Ref', {FTable = 'Property', FMode = 'UDP', FShow = 'color'})
    end
    columns = {'Id', 'Cached', 'Single', 'Branch', 'Made', 'Color'}
)";

}  // namespace

TEST_F(Census, ValuesOfOtherTables) {
    std::string schema(ItemSchema);
    schema.replace(schema.find("'thing'"), 7, "'Thing'");
    table.connect(reader({{"Item", schema}}), "Item", true);
    EXPECT_EQ(repr(table.header()), R"([{"style": "", "type": "I32", "name": "Id"}, )"
                                    R"({"style": "thing", "type": "String", "name": "Cached"}, )"
                                    R"({"style": "own", "type": "I64", "name": "Single"}, )"
                                    R"({"style": "", "type": "Tree", "name": "Branch"}, )"
                                    R"({"style": "", "type": "DateTime", "name": "Made"}, )"
                                    R"({"style": "", "type": "String", "label": "color", "name": "Color"}])");
    EXPECT_EQ(repr(table.batch(5)), R"([[1, "", 0, [], "", ""], )"
                                    R"([2, "one", 100, ["a", "b"], "2024-05-01 10:00:00", "red"], )"
                                    R"([3, "three", 300, ["c"], "2024-05-03 10:00:00", "blue"], )"
                                    R"([4, "one", 100, ["a", "b"], "2024-05-01 10:00:00", "red"], )"
                                    R"([5, "two", 200, [], "2024-05-02 10:00:00", ""]])");
    // Who gets a list may change it, and changes nobody else's.
    for (int64_t row : {1, 2}) {
        table.seek(row);
        std::string before = repr(table.valueOf("branch"));
        table.valueOf("Branch").as<IPE_ListType>()->append(IPE_Int(1));
        EXPECT_EQ(repr(table.valueOf("Branch")), before);
    }
    // Numbers that no row has.
    table.seek(6);
    EXPECT_EQ(fault([&] { table.valueOf("Cached"); }), "DatabaseError Runtime: Seek past end of table");
    EXPECT_EQ(fault([&] { table.valueOf("Single"); }), "DatabaseError Runtime: Seek past end of table");
    EXPECT_EQ(repr(table.valueOf("Color")), "\"\"");
    table.seek(7);
    EXPECT_EQ(repr(table.recordAsDict().as<IPE_DictType>()->keys('A')),
              R"(["Branch", "Cached", "Color", "Id", "Made", "Single"])");
    EXPECT_EQ(repr(table.recordAsList()), R"([7, "", 0, [], "", ""])");
    EXPECT_EQ(table.valueOf("Nothing"), IPE_None());
    EXPECT_EQ(table.planOf("Nothing"), nullptr);
    EXPECT_EQ(repr(table.fieldsAsDict().as<IPE_DictType>()->__getitem__(IPE_String("Cached"))), "-1");
}

TEST_F(Census, PropertiesAreFoundByTheirNumber) {
    // The first row of a number need not be the row of that number.
    table.connect(reader(), "Property", false);
    auto find = [&](int64_t number, const char* name) {
        return FSI_ReaderTable::seekProperty(table, number, name) ? table.position() : 0;
    };
    EXPECT_EQ(find(1, "size"), 1);
    EXPECT_EQ(find(1, "color"), 2);
    EXPECT_EQ(find(3, "color"), 4);
    EXPECT_EQ(find(9, "color"), 5);
    for (int64_t number : {int64_t(0), int64_t(2), int64_t(5), int64_t(-1), INT64_MAX, INT64_MIN})
        EXPECT_EQ(find(number, "color"), 0) << number;
    EXPECT_EQ(find(3, "size"), 0);
}

// Of each file: its path, that as a column of the tables Path and Root, and all figures of its folder.
TEST_F(Census, ValuesOutOfTheIndexes) {
    const std::string schema = R"(
        function adjust()
            addFieldShadow('Text', 'PathNumber', {FTable = 'PathName', FShow = 'Path', style = 'own'})
            addFieldShadow('UNC', 'PathNumber', {FTable = 'PathName', FShow = 'UNC'})
            addFieldShadow('Folder', 'PathNumber', {FTable = 'Path', FShow = 'Name'})
            addFieldShadow('Levels', 'PathNumber', {FTable = 'Path', FMode = '1:1', FShow = 'Levels'})
            columns = {'PathNumber', 'Text', 'UNC', 'Folder', 'Levels'}
            for i, shown in ipairs{'Size', 'Space', 'Files', 'Depth', 'TreeSize', 'TreeSpace', 'TreeFiles',
                                   'LastCreated', 'LastModified', 'LastAccessed'} do
                addFieldShadow('F' .. shown, 'PathNumber', {FTable = 'PathLevel', FShow = shown})
                columns[5 + i] = 'F' .. shown
            end
        end
    )";
    struct Figures {
        int64_t size = 0, space = 0, files = 0, created = 0, modified = 0, accessed = 0;
        void add(const ModelFile& file) {
            auto later = [](int64_t& latest, const SMF_DateTimeValue& moment) {
                latest = std::max<int64_t>(latest, SMF_TimeOfDateTime(moment.date, moment.time));
            };
            size += file.size, space += file.space, ++files;
            later(created, file.created), later(modified, file.modified), later(accessed, file.accessed);
        }
    };
    table.connect(reader({{"File", schema}}), "File", true);
    for (size_t number = 1; number <= model.paths.size(); ++number) {
        Figures own, tree;
        int64_t depth = 0;
        for (size_t below = number; below <= model.endOfTree(number); ++below)
            for (const ModelFile& file : model.paths[below - 1].files) tree.add(file);
        for (const ModelFile& file : model.paths[number - 1].files) own.add(file);
        for (size_t up = number; up > 1; up = static_cast<size_t>(model.paths[up - 1].parent)) ++depth;
        std::string path = "\"" + model.textOf(number) + "\"";
        std::string row = "[" + std::to_string(number) + ", " + path + ", " + path + ", \"" +
                          (number == 1 ? "data" : model.paths[number - 1].name) + "\"";
        for (int64_t figure : {depth, own.size, own.space, own.files, depth, tree.size, tree.space,
                               tree.files, tree.created, tree.modified, tree.accessed})
            row += ", " + repr(IPE_Int(figure));
        for (size_t i = 0; i < model.paths[number - 1].files.size(); ++i) {
            ASSERT_TRUE(table.advance());
            ASSERT_EQ(repr(table.recordAsList()), row + "]");
        }
    }
    EXPECT_FALSE(table.advance());
    std::string styles;
    for (const IPE_Object& column : FSI_ItemsOf(table.header(), "columns"))
        styles += IPE_Dict_GetString(column, "type") + " " + IPE_Dict_GetString(column, "style") + ",";
    EXPECT_EQ(styles,
              "I32 ,String pathname,String pathname,String ,I32 ,I64 bytes,I64 bytes,I64 ,I64 ,I64 bytes,"
              "I64 bytes,I64 ,I64 ,I64 ,I64 ,");

    // Numbers that no path has, and a census without roots.
    std::string hostile = schema;
    for (size_t at; (at = hostile.find("'PathNumber'")) != std::string::npos;)
        hostile.replace(at, 12, "'Wide'");
    table.connect(reader({{"Item", hostile}}), "Item", false);
    std::string zeros = ", \"\", \"\", \"\", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0]";
    for (int64_t row : {1, 7}) {
        table.seek(row);
        EXPECT_EQ(repr(table.recordAsList()), (row == 1 ? "[0" : "[-5") + zeros);
    }
    table.seek(6);
    EXPECT_EQ(repr(table.valueOf("Text")) + repr(table.valueOf("FTreeSize")), "\"\"0");
    EXPECT_EQ(fault([&] { table.valueOf("Folder"); }), "DatabaseError Runtime: Seek past end of table");
    writeCensus(model, folder.file("bare.smf"));
    FSI_Reader bare(censusOptions(folder.file("bare.smf")), makeHost({{"File", schema}}));
    FSI_ReaderTable files;
    files.connect(bare, "File", true);
    ASSERT_TRUE(files.advance());
    EXPECT_EQ(repr(files.valueOf("PathNumber")) + repr(files.valueOf("Folder")), "1\"\"");
}

TEST_F(Census, IndexesInThePlaceOfTables) {
    const char* entities = R"(
        function api.GetImageEntitySchema() return {{name = 'Title', style = 'who'}} end
        function api.GetImageEntity(entity) return {Title = string.upper(entity.Name)} end
    )";
    std::map<std::string, std::string> schemas{{"Path", "columns = {'Number', 'Path', 'Name'}"},
                                               {"Entity", "columns = {'Number', 'Title', 'Name'}"}};
    table.connect(reader(schemas, {}, entities), "Path", true);
    table.seek(2);
    EXPECT_EQ(repr(table.recordAsList()), "[2, \"" + model.textOf(2) + "\"]");
    FSI_ReaderTable other;
    other.connect(*reader_, "Path", false);
    other.seek(2);
    EXPECT_EQ(repr(other.recordAsList()), "[2, \"" + model.paths[1].name + "\"]");
    other.connect(*reader_, "Entity", true);
    EXPECT_EQ(repr(other.batch(9)), R"([[1, "ROOT"], [2, "STAFF"], [3, "ANNA"]])");
    EXPECT_EQ(IPE_Dict_GetString(FSI_ItemsOf(other.header(), "columns")[1], "style"), "who");
    // The indexes outlast the reader's change to another census.
    std::string path = repr(table.recordAsList());
    SMF_Writer writer;
    writer.open(folder.file("nothing.smf"));
    addTable(writer, "Item", {"3 PathNumber"}, "[[1]]");
    writer.close();
    reader_->reopen(IPE_String(folder.file("nothing.smf")));
    EXPECT_EQ(repr(table.recordAsList()), path);
    EXPECT_NE(fault([&] { other.connect(*reader_, "Path", true); }), "none");
    EXPECT_FALSE(other.isConnected());
}

// A text of the stored table, which the paths index lacks, is no way around its masks.
TEST_F(Census, HiddenNamesStayHidden) {
    model = randomCensus(9, 60, 2);
    writeCensus(model, folder.file());
    IPE_Dict_Set(options, "hide_paths", IPE_Int(1));
    IPE_Dict_Set(options, "base", literal("['srv']"));
    table.connect(reader({{"File", R"(
                      function adjust()
                          addFieldShadow('Folder', 'PathNumber', {FTable = 'Path', FShow = 'Name'})
                          addFieldShadow('Above', 'PathNumber', {FTable = 'Path', FShow = 'Parent'})
                          addFieldShadow('Text', 'PathNumber', {FTable = 'PathName', FShow = 'Path'})
                      end)"}}),
                  "File", true);
    int deep = 0;
    while (table.advance()) {
        auto number = static_cast<size_t>(table.valueOf("PathNumber")->__int__());
        std::string shown = IPE_Object_Text(table.valueOf("Folder")), text = model.textOf(number);
        if (number == 1) continue;
        EXPECT_EQ(table.valueOf("Above")->__int__(), model.paths[number - 1].parent);
        EXPECT_TRUE(IPE_Object_Text(table.valueOf("Text")).ends_with("/" + shown + "/")) << shown;
        bool masked = std::count(text.begin(), text.end(), '/') > 4;  // the item of `base` is a level
        EXPECT_EQ(shown != model.paths[number - 1].name, masked) << text;
        deep += masked;
    }
    EXPECT_GT(deep, 0);
}

TEST_F(Census, TagsThatLeadNowhere) {
    auto header = [&](const std::string& tags, const char* field = "Ref") {
        return fault([&] {
            table.connect(reader({{"Item", "function adjust() setFieldTags('" + std::string(field) + "', " +
                                               tags + ") end columns = {'" + field + "'}"}}),
                          "Item", true);
            table.header();
        });
    };
    EXPECT_EQ(header("{FTable = 'Thing', FShow = 'Nothing'}"),
              "DatabaseError Runtime: Nothing is not a property on Thing objects.");
    EXPECT_EQ(header("{FTable = 'Thing', FShow = 'At'}"), "SystemError: Invalid database field type");
    EXPECT_EQ(header("{FTable = 'None', FShow = 'Name'}"),
              "DatabaseError Runtime: No physical or logical table named None");
    EXPECT_EQ(header("{FMode = '1:1', FShow = 'Name'}"),
              "DatabaseError Runtime: No physical or logical table named ");
    EXPECT_EQ(header("{FTable = 'PathLevel', FShow = 'PathFiles'}"),
              "DatabaseError Runtime: No physical or logical table named PathLevel");
    EXPECT_EQ(header("{FMode = 'Compare', FShow = 'Name'}"), "none");

    // Two tables that lead to each other, and one to itself: values are those stored there.
    auto next = [](const char* table) {
        return std::string("function adjust() setFieldTags('Next', {FTable = '") + table +
               "', FShow = 'Next'}) end columns = {'Next'}";
    };
    table.connect(reader({{"Left", next("Right")}, {"Right", next("Left")}}), "Left", true);
    EXPECT_EQ(repr(table.batch(9)), "[[2], [1]]");
    EXPECT_EQ(rows("Left", next("Left")), "[[1], [2]]");

    // Only so many tables.
    table.connect(reader({}, {}, "function api.ResolveTableScript() return 'function vtable() end' end"),
                  "Item", false);
    for (int i = 0; i < 32; ++i) table.foreignTable("T" + std::to_string(i));
    EXPECT_EQ(&table.foreignTable("T3"), &table.foreignTable("T3"));
    EXPECT_THROW(table.foreignTable("One more"), XPK_AssertException);
}

TEST_F(Census, SchemaFunctions) {
    std::string failed = connectFault("Item", R"(
        result = {}
        local names = {}  -- the library `table` is Lua's own here
        table.insert(names, 'Id')
        function note(...)
            for i = 1, select('#', ...) do result[#result + 1] = tostring((select(i, ...))) end
        end
        function adjust()
            note(hasField('ref'), hasField('Nothing'), options.fsi ~= nil)
            note(setFieldName('id', 'Key'), hasField('Id'), hasField('Key'), setFieldName('Nothing', 'X'))
            setFieldStyle('key', 'number')
            setFieldTags('Key', {More = 5, Fixed = 7, Transform = 'Fixed'})
            setFieldTags('Nothing', {More = 5})
            note(getFieldTags('Key').style, getFieldTags('Key').More, getFieldTags('Nothing') == nil)
            addFieldDefault('Count', 'I32', 12)
            addFieldDefault('Count', 'Nothing', 'again')
            addFieldDefault('Text', 'String', 'ten')
            addFieldDefault('List', 'Tree', {'a'})
            addFieldDefault('Bits', 'Flag', nil)
            addFieldDefault('Day', 'DateTime', '2024-01-01')
            addFieldDefault('Big', 'I64', nil)
            setFieldTags('Text', {IPEDefault = 'as given'})
            setFieldTags('Bits', {SN = 'R;H', IPEDefault = 'H'})
            addFieldShadow('Again', 'Ref')
            addFieldShadow('Again', 'Nothing', {})
            note(getFieldTags('Again').Format, getFieldTags('Text').Default)
            note(toboolean(true), toboolean(2), toboolean(0), toboolean('true'), toboolean('1'), toboolean(nil))
            note(_G.table('somethingElse', 'Key'), _G.table())
        end
        columns = {'Key', 'Count', 'Text', 'List', 'Bits', 'Day', 'Big', 'Again', 'Id', 'key'}
    )");
    ASSERT_EQ(failed, "none");
    std::string notes;
    for (const std::string& note : FSI_TextsOf(table.lua().getGlobal("result"), "notes")) notes += note + " ";
    EXPECT_EQ(
        notes,
        "true false true nil false true nil number 5 true S ten true true false true false false nil nil ");
    EXPECT_EQ(repr(table.batch(2)), R"([[7, 12, "as given", [], "H", "0000-00-00 00:00:00", 0, 0], )"
                                    R"([7, 12, "as given", [], "H", "0000-00-00 00:00:00", 0, 1]])");
    EXPECT_TRUE(has(connectFault("Item", "function adjust() addFieldDefault('X', 'Date', 0) end"),
                    "Unsupported column type"));
    EXPECT_TRUE(has(connectFault("Item", "function adjust() addFieldShadow('X', 'Nothing') end"),
                    "The shadow field Nothing does not exist"));
    EXPECT_TRUE(
        has(connectFault("Item",
                         "function adjust() for i = 1, 200 do addFieldDefault('F' .. i, 'I32', i) end end"),
            "Too many fields"));
    EXPECT_TRUE(has(connectFault("Item", "function adjust() fieldSetIPE(99, 1) end"),
                    "Field index not in valid range"));
    EXPECT_TRUE(has(connectFault("Item", "function adjust() setFieldTags('Id', 5) end"), "Require a"));
}

TEST_F(Census, TablesWithoutRows) {
    const char* schema = R"(
        function vtable()
            addFieldDefault('File', 'String', '')
            addFieldDefault('Count', 'I64', 0)
            addFieldDefault('Parts', 'Tree', nil)
            addFieldShadow('Thing', 'Count', {FTable = 'Thing', FShow = 'Name'})
        end
        function adjust() setFieldTags('Parts', {R = 'T'}) end
        function vtable_record()
            fieldSetIPE(0, options.label)
            fieldSetIPE('Count', 9)
            fieldSetIPE(1, 2)
            fieldSetIPE(2, {'x', 'y'})
            fieldSetIPE(3, 3)
        end
        columns = {'File', 'Count', 'Parts', 'Thing'}
    )";
    IPE_Dict_Set(options, "label", IPE_String("a\xC3\xA4"));
    EXPECT_EQ(rows("Virtual", schema), "[[\"a\xC3\xA4\", 2, [\"x\", \"y\"], \"three\"]]");
    EXPECT_TRUE(table.isVirtual());
    EXPECT_EQ(table.rows(), 1);
    // Its row stays when the cursor has passed it, and queries see it.
    EXPECT_EQ(table.position(), 2);
    for (const char* query : {"Count = 2 and File = '^a'", "Count > 2", "Parts contains 'x'"}) {
        FSI_RecordFilter filter(table);
        filter.compileFor(query, {}, {});
        table.top();
        ASSERT_TRUE(table.advance());
        EXPECT_EQ(filter.accepts(), !has(query, ">")) << query;
    }
    EXPECT_EQ(rows("Virtual", "function vtable() end"), "[[]]");
    EXPECT_EQ(rows("Virtual", "function vtable() addFieldDefault('N', 'I32', 4) end columns = {'N'}"),
              "[[4]]");
    EXPECT_EQ(connectFault("Virtual", "vtable = nil"),
              "DatabaseError Runtime: No physical or logical table named Virtual");
    FSI_Reader alone(options, {});
    FSI_ReaderTable none;
    EXPECT_EQ(fault([&] { none.connect(alone, "Virtual", true); }),
              "DatabaseError Runtime: No physical or logical table named Virtual");
    EXPECT_EQ(fault([&] { none.header(); }), "DatabaseError Runtime: Not connected");
}

TEST_F(Census, VisibleColumns) {
    auto names = [&](FSI_Reader& reader) {
        FSI_ReaderTable item;
        item.connect(reader, "Item", false);
        std::string out;
        for (const IPE_Object& column : FSI_ItemsOf(item.header(), "columns"))
            out += IPE_Dict_GetString(column, "name") + " ";
        return out;
    };
    EXPECT_EQ(names(reader({}, {{"Item", "Wide,id,Nothing,Id,Wide"}})), "Wide Id Wide ");
    EXPECT_EQ(names(reader({{"Item", "columns = {'Ref'}"}}, {{"Item", "Id"}})), "Ref ");
    EXPECT_EQ(names(reader({{"Item", "columns = {}"}}, {{"Item", "Id"}})), "");
    EXPECT_EQ(names(*std::make_unique<FSI_Reader>(options, IPE_Int(5))), "Id Ref Wide ");
    std::string many = "columns = {} for i = 1, 300 do columns[i] = i % 2 == 0 and 'Id' or 'F' .. i end";
    EXPECT_EQ(names(reader({{"Item", many}})).size(), 450u);
    EXPECT_THROW(names(reader({{"Item", "columns = {} for i = 1, 300 do columns[i] = 'Id' end"}})),
                 XPK_AssertException);
    for (const char* columns : {"'Id'", "5", "{Id = 1}", "{[2] = 'Id'}", "function() end"})
        EXPECT_EQ(connectFault("Item", std::string("columns = ") + columns),
                  "TypeError: Require a list of columns");
    IPE_Dict_Set(options, "view", IPE_String("v"));
    EXPECT_EQ(names(reader({}, {{"Item", "Id"}})), "");
    EXPECT_EQ(names(reader({{"Item", "columns = {'Ref'}"}})), "Ref ");
}

TEST_F(Census, ScriptsThatFail) {
    EXPECT_TRUE(has(connectFault("Item", "function ("), "LuaInterpreterException: "));
    EXPECT_TRUE(has(connectFault("Item", "error('at the top')"), "at the top [1"));
    EXPECT_TRUE(has(connectFault("Item", "function adjust() error('in adjust') end"), "in adjust"));
    EXPECT_TRUE(
        has(connectFault("Item", "function adjust() hasField() local x = nil; x.y = 1 end"), "LuaInter"));
    EXPECT_TRUE(has(connectFault("Item", "adjust = 5"), "named 'adjust'"));
    EXPECT_TRUE(has(connectFault("Item", "hasField('Id')"), "LuaInterpreterException"));
    EXPECT_TRUE(has(connectFault("Item", "", "function api.ResolveTableScript() return {1} end"),
                    "TypeError: Require a 'StringType'"));
    EXPECT_TRUE(has(connectFault("Item", "", "function api.ListMyColumns() return 'Id' end"),
                    "TypeError: Require a list of columns"));
    EXPECT_TRUE(
        has(connectFault("Item", "", "api_call = nil"), "RuntimeError: Could not locate a Lua function"));
    EXPECT_TRUE(has(connectFault("Item", "", "function api.ListMyColumns() error('no') end"), "no"));
    // One that never ends does when the server stops, soon even where each instruction takes long.
    for (const char* loop : {"pcall(hasField, 'Id')", "local s = string.rep('x', 1e8)"}) {
        std::thread stop([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            epa_detail::running = false;
        });
        auto begin = std::chrono::steady_clock::now();
        std::string looped =
            connectFault("Item", "function adjust() while true do " + std::string(loop) + " end end");
        stop.join();
        epa_detail::running = true;
        EXPECT_EQ(looped, "SystemExit: ");
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    }
    // The table can be used after all that, and what a script kept of an older one does nothing.
    EXPECT_EQ(rows("Item", "columns = {'Id'} kept = hasField").substr(0, 10), "[[1], [2],");
    IPE_Object kept = table.lua().getGlobal("kept");
    table.connect(reader(), "Left", false);
    EXPECT_EQ(IPE_Call(kept, IPE_String("Id")), IPE_None());
}

TEST_F(Census, RowsAndBatches) {
    table.connect(reader({{"Item", "columns = {'Id'}"}}), "Item", false);
    EXPECT_EQ(repr(table.batch(0)), "[]");
    EXPECT_EQ(table.position(), 0);
    EXPECT_EQ(repr(table.batch(2)), "[[1], [2]]");
    EXPECT_EQ(repr(table.recordAsList()), "[3]");
    EXPECT_EQ(repr(table.recordAsDict()), "{\"Id\": 3}");
    EXPECT_EQ(table.position(), 3);
    table.seek(6);
    EXPECT_EQ(repr(table.batch(INT64_MAX)), "[[6], [7]]");
    EXPECT_EQ(repr(table.batch(3)), "[]");
    EXPECT_EQ(repr(table.batch(-1)), "[]");
    EXPECT_EQ(fault([&] { table.record(IPE_NewTuple()); }),
              "RuntimeError: Unsupported type passed to FSI_ReaderTable::get_record()");
    EXPECT_EQ(fault([&] { table.plan(3); }), "DatabaseError Runtime: Field index out of range");
    IPE_Object list;
    {
        FSI_RecordCallables records(table);
        list = records.asList();
        table.seek(4);
        EXPECT_EQ(repr(IPE_Call(list)), "[4]");
        reader_->host()->setGlobal("record", records.asDict());
        EXPECT_EQ(repr(reader_->host()->execute("return record().Id + record().Id")), "8");
        EXPECT_EQ(table.position(), 4);
    }
    EXPECT_EQ(fault([&] { IPE_Call(list); }), "DatabaseError Runtime: Not connected");
    EXPECT_TRUE(has(fault([&] { reader_->host()->execute("return record()"); }), "Not connected"));

    // The application asks for a row while the columns of that very row are planned.
    table.connect(reader({{"File", R"(
                             function adjust()
                                 addFieldShadow('Levels', 'PathNumber', {FTable = 'Path', FShow = 'Levels'})
                                 addFieldShadow('Length', 'PathNumber', {FTable = 'Path', FShow = 'Length'})
                             end
                             columns = {'Levels', 'Length'})"}},
                         {}, R"(
                             local plain = api.ResolveTableScript
                             function api.ResolveTableScript(name)
                                 local ask = record
                                 record = nil
                                 if ask then ask() end
                                 return plain(name)
                             end)"),
                  "File", true);
    FSI_RecordCallables records(table);
    reader_->host()->setGlobal("record", records.asList());
    table.seek(table.rows());
    auto folderOf = static_cast<size_t>(table.valueOf("PathNumber")->__int__());
    IPE_Object row = table.recordAsList();
    EXPECT_EQ(FSI_ItemsOf(row, "values")[1]->__int__(), model.textOf(folderOf).size());
    EXPECT_TRUE(reader_->host()->getGlobal("record").is<IPE_NoneType>());
}

TEST_F(Census, ReadersAndOptions) {
    EXPECT_EQ(fault([] { FSI_Reader(IPE_NewDict(), {}); }), "KeyError: fsi");
    EXPECT_EQ(fault([] { FSI_Reader(IPE_Int(1), {}); }).substr(0, 9), "TypeError");
    EXPECT_EQ(fault([&] { FSI_Reader(censusOptions(folder.file("none")), {}); }).substr(0, 7), "IOError");
    FSI_Reader& census = reader();
    EXPECT_EQ(fault([&] { FSI_Reader(options, {}).apiCall("X", {}); }).substr(0, 15), "AssertionError:");
    for (const char* value : {"None", "0", "''", "'0'", "'false'", "False", "[]", "{}", "0.0"}) {
        IPE_Dict_Set(options, "flag", literal(value));
        EXPECT_FALSE(census.isSet("flag")) << value;
    }
    for (const char* value : {"1", "'1'", "'yes'", "True", "[0]", "-1"}) {
        IPE_Dict_Set(options, "flag", literal(value));
        EXPECT_TRUE(census.isSet("flag")) << value;
    }
    EXPECT_FALSE(census.isSet("absent"));
    EXPECT_TRUE(census.base().empty());
    IPE_Dict_Set(options, "base", literal("['srv', 5]"));
    EXPECT_EQ(census.base(), (std::vector<std::string>{"srv", "5"}));

    // A table outlasts its reader's change to another census, without mixing the two.
    table.connect(reader({{"Item",
                           "function adjust() setFieldTags('Ref', {FTable = 'Thing', FShow = 'Name'}) end "
                           "columns = {'Id', 'Ref'}"}}),
                  "Item", true);
    std::string other = folder.file("other.smf");
    writeCensus(randomCensus(6, 3, 1), other);
    reader_->reopen(IPE_String(other));
    EXPECT_EQ(IPE_Dict_GetString(options, "fsi"), other);
    EXPECT_EQ(fault([&] { table.header(); }), "DatabaseError Runtime: Not connected");
    EXPECT_EQ(fault([&] { table.connect(*reader_, "Item", true); }),
              "DatabaseError Runtime: No physical or logical table named Item");
}

TEST_F(Census, ScriptObjects) {
    IPE_Object object = IPE_New<FSI_ReaderType>(options, makeHost({{"Item", "columns = {'Id'}"}}));
    object->__bind__();
    auto call = [](const IPE_Object& target, const char* method, const std::vector<IPE_Object>& items = {},
                   const std::string& keywords = "{}") {
        IPE_Object callee = target->__getattr__(IPE_String(method), 0), words = literal(keywords);
        return callee->__call__(IPE_Arguments(items.data(), static_cast<int>(items.size()), words));
    };
    EXPECT_EQ(
        repr(call(object, "tables")),
        R"(["Path", "File", "Entity", "PathDACL", "Item", "Thing", "Property", "Left", "Right", "Root"])");
    IPE_Object item = call(object, "table", {IPE_String("Item")});
    EXPECT_EQ(repr(call(item, "pump", {}, "{'batch': 0}")), "[]");
    EXPECT_EQ(repr(call(item, "pump", {}, "{'batch': 2}")), "[[1], [2]]");
    EXPECT_EQ(repr(call(item, "record_as_list")), "[3]");
    call(item, "next");
    EXPECT_EQ(repr(call(item, "record_as_list", {}, "{'batch': 1}")), "[[4]]");
    call(item, "seek", {IPE_Int(2)});
    EXPECT_EQ(repr(call(item, "record_as_dict")), "{\"Id\": 2}");
    EXPECT_EQ(repr(call(item, "get_header")), R"([{"style": "", "type": "I32", "name": "Id"}])");
    EXPECT_EQ(fault([&] { call(item, "seek", {IPE_Int(8)}); }),
              "DatabaseError Runtime: Seek past end of table");
    call(object, "close", {IPE_String("")});
    EXPECT_EQ(repr(call(object, "tables")), "[]");
    EXPECT_NE(fault([&] { call(object, "table", {IPE_String("Item")}); }), "none");
    call(object, "open", {IPE_String(folder.file()), IPE_None()});
    object = call(object, "table", {IPE_String("Item")});  // keeps its reader
    EXPECT_EQ(repr(call(object, "pump", {}, "{'batch': 1}")), "[[1]]");
    EXPECT_EQ(fault([&] {
                  IPE_Object lone = IPE_New<FSI_ReaderTableType>();
                  lone->__bind__();
                  call(lone, "pump");
              }),
              "DatabaseError Runtime: Not connected");
}

TEST_F(Census, ListsOutOfLua) {
    auto items = [&](const char* text) {
        return repr(IPE_Int(static_cast<int64_t>(FSI_ItemsOf(literal(text), "x").size())));
    };
    EXPECT_EQ(items("None") + items("[1, 2]") + items("(1,)") + items("{}") + items("{2: 'b', 1: 'a'}"),
              "02102");
    EXPECT_EQ(FSI_TextsOf(literal("{2: 'b', 1: 7}"), "x"), (std::vector<std::string>{"7", "b"}));
    for (const char* bad : {"{0: 'a'}", "{1: 'a', 3: 'b'}", "{'1': 'a'}", "'ab'", "4"})
        EXPECT_EQ(fault([&] { items(bad); }), "TypeError: Require a list of x") << bad;
}
