// Censuses as reports and scripts see them: schema scripts, every way to reach a value, hostile input.
#include "census/fsi_closure.h"
#include "census/fsi_lists.h"
#include "census/fsi_recordfilter.h"
#include "census/script/fsi_readertabletype.h"
#include "census/script/fsi_readertype.h"
#include "census/script/fsi_recordcallables.h"
#include "index_census.h"
#include "runtime/xpk_threadstate.h"

namespace {

IPE_Object literal(const std::string& text) { return parse_literal(text); }
std::string repr(const IPE_Object& value) {
    std::string text = value.isNull() ? "null" : IPE_Object_ToString(value);
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}

// A table `Item` whose column Ref leads to `Thing` and `Property`, and two tables that lead to each other.
void addTables(SMF_Writer& writer) {
    const struct {
        const char* name;
        std::vector<std::string> fields;
        const char* rows;
    } tables[] = {{"Item",
                   {"3 Id", "3 Ref", "4 Wide"},
                   "[[1,0,0],[2,1,1],[3,3,3],[4,1,1],[5,2,2],[6,4,9000000000],[7,-1,-5]]"},
                  {"Thing",
                   {"3 Number", "0 Name 'style':'thing'", "4 Weight", "8 Branch 'Format':'S','R':'T','S':'/'",
                    "9 Made D", "6 At"},
                   "[[1,'one',100,['a','b'],'2024-05-01 10:00:00',[1,2,3]],[2,'two',200,[],'2024-05-02 "
                   "10:00:00',[1,2,3]],"
                   "[3,'three',300,['c'],'2024-05-03 10:00:00',[1,2,3]]]"},
                  {"Property",
                   {"3 Number", "3 A", "3 B", "0 Name", "0 Value"},
                   "[[1,0,0,'size','L'],[1,0,0,'color','red'],[1,0,0,'color','never'],[3,0,0,'color','blue'],"
                   "[9,0,0,'color','x']]"},
                  {"Left", {"3 Next"}, "[[2],[1]]"},
                  {"Right", {"3 Next"}, "[[1],[2]]"},
                  {"Root", {"3 Number", "0 Path", "0 Name"}, "[[1,'/data/','data']]"}};
    for (const auto& table : tables) addTable(writer, table.name, table.fields, literal(table.rows));
}

class Census : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(faultOf([&] { writeCensus(model, folder.file(), addTables); }), "none");
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
    // A fault without the place in the script.
    std::string connectFault(const char* name, const std::string& schema, const std::string& more = {}) {
        std::string text = faultOf([&] { table.connect(reader({{name, schema}}, {}, more), name, false); });
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
    EXPECT_EQ(faultOf([&] { table.valueOf("Cached"); }), "DatabaseError: Seek past end of table");
    EXPECT_EQ(faultOf([&] { table.valueOf("Single"); }), "DatabaseError: Seek past end of table");
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
    const std::vector<RecountedPath> paths = recount(model);
    table.connect(reader({{"File", schema}}), "File", true);
    for (size_t number = 1; number <= model.paths.size(); ++number) {
        const RecountedPath& recounted = paths[number];
        const auto& figures = recounted.figures;
        std::string path = "\"" + model.textOf(number) + "\"";
        std::string row = "[" + std::to_string(number) + ", " + path + ", " + path + ", \"" +
                          (number == 1 ? "data" : model.paths[number - 1].name) + "\", " +
                          std::to_string(recounted.level);
        for (int64_t figure :
             {figures[FSI_PathSize], figures[FSI_PathSpace], figures[FSI_PathFiles], int64_t{recounted.level},
              figures[FSI_TreeSize], figures[FSI_TreeSpace], figures[FSI_TreeFiles],
              figures[FSI_TreeMaxCreated], figures[FSI_TreeMaxModified], figures[FSI_TreeMaxAccessed]})
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
    EXPECT_EQ(faultOf([&] { table.valueOf("Folder"); }), "DatabaseError: Seek past end of table");
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
    addTable(writer, "Item", {"3 PathNumber"}, literal("[[1]]"));
    writer.close();
    reader_->reopen(IPE_String(folder.file("nothing.smf")));
    EXPECT_EQ(repr(table.recordAsList()), path);
    EXPECT_NE(faultOf([&] { other.connect(*reader_, "Path", true); }), "none");
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
    const std::pair<const char*, const char*> rows[] = {
        {"FTable = 'Thing', FShow = 'Nothing'", "DatabaseError: Nothing is not a property on Thing objects."},
        {"FTable = 'Thing', FShow = 'At'", "SystemError: Invalid database field type"},
        {"FTable = 'None', FShow = 'Name'", "DatabaseError: No physical or logical table named None"},
        {"FMode = '1:1', FShow = 'Name'", "DatabaseError: No physical or logical table named "},
        {"FTable = 'PathLevel', FShow = 'PathFiles'",
         "DatabaseError: No physical or logical table named PathLevel"},
        {"FMode = 'Compare', FShow = 'Name'", "none"}};
    for (const auto& [tags, expected] : rows) {
        std::string schema =
            std::string("function adjust() setFieldTags('Ref', {") + tags + "}) end columns = {'Ref'}";
        EXPECT_EQ(faultOf([&] {
                      table.connect(reader({{"Item", schema}}), "Item", true);
                      table.header();
                  }),
                  expected);
    }

    // Two tables that lead to each other, and one to itself: values are those stored there.
    auto next = [](const char* table) {
        return std::string("function adjust() setFieldTags('Next', {FTable = '") + table +
               "', FShow = 'Next'}) end columns = {'Next'}";
    };
    table.connect(reader({{"Left", next("Right")}, {"Right", next("Left")}}), "Left", true);
    EXPECT_EQ(repr(table.batch(9)), "[[2], [1]]");
    EXPECT_EQ(this->rows("Left", next("Left")), "[[1], [2]]");

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
    const std::pair<const char*, const char*> rows[] = {
        {"addFieldDefault('X', 'Date', 0)", "Unsupported column type"},
        {"addFieldShadow('X', 'Nothing')", "The shadow field Nothing does not exist"},
        {"for i = 1, 200 do addFieldDefault('F' .. i, 'I32', i) end", "Too many fields"},
        {"fieldSetIPE(99, 1)", "Field index not in valid range"},
        {"setFieldTags('Id', 5)", "Require a"}};
    for (const auto& [source, expected] : rows)
        EXPECT_TRUE(has(connectFault("Item", std::string("function adjust() ") + source + " end"), expected));
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
              "DatabaseError: No physical or logical table named Virtual");
    FSI_Reader alone(options, {});
    FSI_ReaderTable none;
    EXPECT_EQ(faultOf([&] { none.connect(alone, "Virtual", true); }),
              "DatabaseError: No physical or logical table named Virtual");
    EXPECT_EQ(faultOf([&] { none.header(); }), "DatabaseError: Not connected");
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
    const struct {
        const char *schema, *expected, *more = "";
    } rows[] = {{"function (", "LuaInterpreterException: "},
                {"error('at the top')", "at the top [1"},
                {"function adjust() error('in adjust') end", "in adjust"},
                {"function adjust() hasField() local x = nil; x.y = 1 end", "LuaInter"},
                {"adjust = 5", "named 'adjust'"},
                {"hasField('Id')", "LuaInterpreterException"},
                {"", "TypeError: Require a 'StringType'", "function api.ResolveTableScript() return {1} end"},
                {"", "TypeError: Require a list of columns", "function api.ListMyColumns() return 'Id' end"},
                {"", "RuntimeError: Could not locate a Lua function", "api_call = nil"},
                {"", "no", "function api.ListMyColumns() error('no') end"}};
    for (const auto& row : rows)
        EXPECT_TRUE(has(connectFault("Item", row.schema, row.more), row.expected)) << row.schema << row.more;
    // One that never ends does when the server stops, soon even where each instruction takes long.
    for (const char* loop : {"pcall(hasField, 'Id')", "local s = string.rep('x', 1e8)"}) {
        auto begin = std::chrono::steady_clock::now();
        std::string schema = "function adjust() while true do " + std::string(loop) + " end end";
        EXPECT_EQ(faultOfStopped(30,
                                 [&] {
                                     table.connect(reader({{"Item", schema}}), "Item", false);
                                 }),
                  "SystemExit: ");
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    }
    // The table can be used after all that, and what a script kept of an older one does nothing.
    EXPECT_EQ(this->rows("Item", "columns = {'Id'} kept = hasField").substr(0, 10), "[[1], [2],");
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
    EXPECT_EQ(faultOf([&] { table.record(IPE_NewTuple()); }),
              "RuntimeError: Unsupported type passed to FSI_ReaderTable::get_record()");
    EXPECT_EQ(faultOf([&] { table.plan(3); }), "DatabaseError: Field index out of range");
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
    EXPECT_EQ(faultOf([&] { IPE_Call(list); }), "DatabaseError: Not connected");
    EXPECT_TRUE(has(faultOf([&] { reader_->host()->execute("return record()"); }), "Not connected"));

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
    EXPECT_EQ(faultOf([] { FSI_Reader(IPE_NewDict(), {}); }), "KeyError: fsi");
    EXPECT_EQ(faultOf([] { FSI_Reader(IPE_Int(1), {}); }).substr(0, 9), "TypeError");
    EXPECT_EQ(faultOf([&] { FSI_Reader(censusOptions(folder.file("none")), {}); }).substr(0, 7), "IOError");
    FSI_Reader& census = reader();
    EXPECT_EQ(faultOf([&] { FSI_Reader(options, {}).apiCall("X", {}); }).substr(0, 15), "AssertionError:");
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
    EXPECT_EQ(faultOf([&] { table.header(); }), "DatabaseError: Not connected");
    EXPECT_EQ(faultOf([&] { table.connect(*reader_, "Item", true); }),
              "DatabaseError: No physical or logical table named Item");
}

// What the objects of scripts do beyond their methods, which a script program tries: a table keeps its
// reader.
TEST_F(Census, ScriptObjects) {
    IPE_Object object = IPE_New<FSI_ReaderType>(options, makeHost({{"Item", "columns = {'Id'}"}}));
    object->__bind__();
    auto call = [](const IPE_Object& target, const char* method, const std::vector<IPE_Object>& items = {}) {
        return target->__getattr__(IPE_String(method), 0)
            ->__call__(IPE_Arguments(items.data(), static_cast<int>(items.size()), IPE_NewDict()));
    };
    call(object, "close", {IPE_String("")});
    EXPECT_NE(faultOf([&] { call(object, "table", {IPE_String("Item")}); }), "none");
    call(object, "open", {IPE_String(folder.file()), IPE_None()});
    object = call(object, "table", {IPE_String("Item")});
    call(object, "seek", {IPE_Int(7)});
    EXPECT_EQ(repr(call(object, "record_as_list")), "[7]");
    EXPECT_EQ(faultOf([&] { call(object, "seek", {IPE_Int(8)}); }), "DatabaseError: Seek past end of table");
}

TEST_F(Census, ListsOutOfLua) {
    auto items = [&](const char* text) {
        return repr(IPE_Int(static_cast<int64_t>(FSI_ItemsOf(literal(text), "x").size())));
    };
    EXPECT_EQ(items("None") + items("[1, 2]") + items("(1,)") + items("{}") + items("{2: 'b', 1: 'a'}"),
              "02102");
    EXPECT_EQ(FSI_TextsOf(literal("{2: 'b', 1: 7}"), "x"), (std::vector<std::string>{"7", "b"}));
    for (const char* bad : {"{0: 'a'}", "{1: 'a', 3: 'b'}", "{'1': 'a'}", "'ab'", "4"})
        EXPECT_EQ(faultOf([&] { items(bad); }), "TypeError: Require a list of x") << bad;
}
