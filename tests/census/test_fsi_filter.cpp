// Queries over a census, against a plain recount of its model.
#include "filter_census.h"
#include "index_census.h"
#include "ipe/values/ipe_expansion.h"
#include "runtime/xpk_threadstate.h"

namespace {

// A row of `File`.
struct Row {
    size_t path;
    const ModelFile& file;
};

const char* const Loops = "function before() return {} end function during() while true do end end";

class CensusFilters : public ::testing::Test {
  protected:
    CensusFilters() : reader(censusOptions(census.folder.file()), census.host({{"loops", Loops}})) {
        table.connect(reader, "File", true);
    }

    // The rows that a query takes, as numbers, or its fault without the position.
    std::string select(std::string_view query) {
        std::string rows;
        std::string fault = faultOf([&] {
            FSI_RecordFilter filter(table);
            cacheable = filter.compileFor(query, options, keywords);
            for (table.top(); table.advance();)
                if (filter.accepts()) rows += std::to_string(table.position()) + " ";
        });
        return fault == "none" ? rows : fault.substr(0, fault.find('\n'));
    }
    template <class Predicate>
    void expect(const char* query, Predicate&& takes) {
        std::string rows;
        int64_t row = 0, taken = 0;
        for (size_t number = 1; number <= model.paths.size(); ++number)
            for (const ModelFile& file : model.paths[number - 1].files)
                if (++row; takes(Row{number, file})) rows += std::to_string(row) + " ", ++taken;
        EXPECT_EQ(select(query), rows) << query;
        EXPECT_TRUE(taken > 0 && taken < row) << query << " tells nothing: " << taken << " of " << row;
    }
    std::string nameOf(int32_t entity) const {
        return entity == 0 ? "" : model.entities[static_cast<size_t>(entity - 1)].name;
    }
    bool has(const std::string& text, const char* part) const { return text.find(part) != text.npos; }

    XPK_ThreadScope thread{true};
    FilterCensus census{7};
    const ModelCensus& model = census.model;
    const std::vector<RecountedPath> paths = recount(model);
    FSI_Reader reader;
    FSI_ReaderTable table;
    IPE_Object options = IPE_NewDict(), keywords = IPE_NewDict();
    bool cacheable = false;
};

}  // namespace

TEST_F(CensusFilters, TextsOfPaths) {
    auto text = [&](const Row& row) { return model.textOf(row.path); };
    expect("Path = 'dir6'", [&](const Row& row) { return has(text(row), "dir6"); });
    expect("pAtH,ce <> '/dir'", [&](const Row& row) { return !has(text(row), "/dir"); });
    expect("unc = 'ORDNER \xC3\x84'", [&](const Row& row) { return has(text(row), "Ordner \xC3\xA4"); });
    expect("Path in ['/', '/DIR3/']",
           [&](const Row& row) { return text(row) == "/" || text(row) == "/dir3/"; });
    // What follows the test belongs to the query, and lengths count for each row.
    expect("not Path = '/dir3/' and Size >= 10kb and (Name = 'file' or UNC = 'x')",
           [&](const Row& row) { return !has(text(row), "/dir3/") && row.file.size >= 10240; });
    expect("Name@length Path@length 20 >",
           [&](const Row& row) { return row.file.name.size() + text(row).size() > 20; });
    EXPECT_TRUE(cacheable);
}

TEST_F(CensusFilters, ColumnsOfPaths) {
    auto folder = [&](const Row& row) -> const ModelPath& { return model.paths[row.path - 1]; };
    expect("Path.Levels > 2", [&](const Row& row) { return row.path > 1 && paths[row.path].level > 2; });
    expect("path.Owner = 3 and Path.Mode <> 448", [&](const Row& row) {
        return row.path > 1 && folder(row).owner == 3 && folder(row).mode != 0700;
    });
    expect("not Path.Path = 'dir'",
           [&](const Row& row) { return row.path == 1 || !has(model.textOf(row.path), "dir"); });
    // What the paths index lacks stands in the stored table.
    expect("Path.Name = '^dir'",
           [&](const Row& row) { return row.path > 1 && folder(row).name.starts_with("dir"); });
    EXPECT_EQ(select("unc.Levels > 2"), "DatabaseError: No physical or logical table named UNC");
    EXPECT_EQ(select("Path.Nothing = 2"), "DatabaseError: Nothing is not a property on PathName objects.");
    EXPECT_EQ(select("Path.3 = 2").substr(0, 23), "InvalidFilterException:");
}

TEST_F(CensusFilters, HiddenPathsAreNotTestedInClear) {
    IPE_Object hidden = censusOptions(census.folder.file());
    hidden.as<IPE_DictType>()->setText("hide_paths", IPE_Int(1));
    FSI_Reader masked(hidden, census.host());
    FSI_ReaderTable files;
    files.connect(masked, "File", true);
    FSI_RecordFilter name(files), parent(files), text(files);
    EXPECT_EQ(faultOf([&] { name.compile("Path.Name = 'dir'"); }).substr(0, 35),
              "DatabaseError: Name is not a proper");
    parent.compile("Path.Parent = 1");
    text.compile("Path = '/(dir|Ordner)[^/]*/$'");
    for (files.top(); files.advance();) {
        auto number = static_cast<size_t>(files.valueOf("PathNumber")->__int__());
        EXPECT_EQ(parent.accepts(), number > 1 && model.paths[number - 1].parent == 1);
        EXPECT_EQ(text.accepts(), number > 1 && paths[number].level <= 4) << model.textOf(number);
    }
}

TEST_F(CensusFilters, RowsOfOtherTables) {
    auto label = [&](const Row& row) { return FilterCensus::labelOf(row.path); };
    expect("Small = 'label[12]'",
           [&](const Row& row) { return label(row) == "label1" || label(row) == "label2"; });
    expect("Label in ['label3', 'label4']",
           [&](const Row& row) { return label(row) == "label3" || label(row) == "label4"; });
    expect("not Label = '0' and Small <> '1'",
           [&](const Row& row) { return label(row) != "label0" && label(row) != "label1"; });
    // A number 0 has the empty value.
    expect("OwnerName = '^(root|)$'", [&](const Row& row) { return row.file.owner <= 1; });
    expect("OwnerName <> 'a'", [&](const Row& row) { return !has(nameOf(row.file.owner), "a"); });
    expect("Weight >= 2kb", [&](const Row& row) { return row.file.owner >= 2; });
    expect("Weight = 0", [&](const Row& row) { return row.file.owner == 0; });
    expect("OwnerName@length 4 >", [&](const Row& row) { return nameOf(row.file.owner).size() > 4; });
    EXPECT_EQ(select("Far = 'x'"), "DatabaseError: Seek past end of table");
    EXPECT_EQ(select("Lost = 'x'"), "DatabaseError: No physical or logical table named Nowhere");
    EXPECT_EQ(select("Loop = 'x'"), "InvalidFilterException: Nested too deeply");
}

TEST_F(CensusFilters, Properties) {
    auto color = [](const Row& row) { return FilterCensus::colorOf(row.file.owner); };
    expect("Color = 'RED'", [&](const Row& row) { return color(row) == "red"; });
    expect("Color <> 'red'", [&](const Row& row) { return color(row) != "red"; });
    expect("Color in ['blue', 'never', 'big', '']", [&](const Row& row) { return color(row) != "red"; });
}

TEST_F(CensusFilters, NumbersAndFigures) {
    auto of = [&](const Row& row, FSI_Figure figure) { return paths[row.path].figures[figure]; };
    expect("Bytes >= 20kb", [](const Row& row) { return row.file.size >= 20480; });
    expect("Bytes eq Space or Bytes lt 1.5kb",
           [](const Row& row) { return row.file.size == row.file.space || row.file.size < 1536; });
    expect("OwnerId <> 2", [](const Row& row) { return row.file.owner != 2; });
    expect("FolderSize >= 200kb", [&](const Row& row) { return of(row, FSI_PathSize) >= 204800; });
    expect("FolderSpace le Space", [&](const Row& row) { return of(row, FSI_PathSpace) <= row.file.space; });
    expect("FolderFiles > 6", [&](const Row& row) { return of(row, FSI_PathFiles) > 6; });
    expect("FolderPathFiles le 3", [&](const Row& row) { return of(row, FSI_PathFiles) <= 3; });
    expect("FolderDepth = 2", [&](const Row& row) { return paths[row.path].level == 2; });
    expect("FolderTreeSize > 1mb", [&](const Row& row) { return of(row, FSI_TreeSize) > 1048576; });
    expect("FolderTreeSpace > 2000000000",
           [&](const Row& row) { return of(row, FSI_TreeSpace) > 2000000000; });
    expect("FolderTreeFiles < 20", [&](const Row& row) { return of(row, FSI_TreeFiles) < 20; });
    // Whoever stands in the index stays there.
    FSI_PathLevelHelper& levels = reader.pathLevelHelper();
    ASSERT_TRUE(levels.locateNumber(5));
    select("FolderDepth = 2");
    EXPECT_EQ(levels.number(), 5);
    for (const char* query : {"Plain = 'root'", "Odd > 5"})
        EXPECT_EQ(select(query).substr(0, 35), "InvalidFilterException: The field " + std::string(query, 1));
    EXPECT_EQ(select("FolderSize > 3 days"), "InvalidFilterException: Expecting a unit");
}

TEST_F(CensusFilters, AnIndexOfAQueryUsesTheOthers) {
    FSI_PathLevelHelper levels(reader);
    levels.open("Path = 'dir' and FolderFiles > 3 and OwnerName = 'anna' and exec bigger(-1)", options,
                keywords);
    ASSERT_TRUE(levels.locateNumber(1));
    EXPECT_EQ(levels.figure(FSI_TreeMatches), 0);
    EXPECT_EQ(IPE_Dict_GetInt32(options, "_not_cacheable", 0), 1);
    FSI_PathLevelHelper other(reader);
    other.open("Path = 'dir' and FolderFiles > 3 and OwnerName = 'anna'");
    int64_t matches = 0;
    for (size_t number = 1; number <= model.paths.size(); ++number)
        for (const ModelFile& file : model.paths[number - 1].files)
            matches += has(model.textOf(number), "dir") && paths[number].figures[FSI_PathFiles] > 3 &&
                       file.owner == 3;
    ASSERT_TRUE(other.locateNumber(1));
    EXPECT_EQ(other.figure(FSI_TreeMatches), matches);
    EXPECT_GT(matches, 0);
}

TEST_F(CensusFilters, ScriptsTest) {
    expect("exec bigger(50000)",
           [&](const Row& row) { return row.file.size >= 50000 && nameOf(row.file.owner) != "anna"; });
    EXPECT_FALSE(cacheable);
    for (const IPE_Object& dictionary : {options, keywords})
        EXPECT_EQ(IPE_Dict_GetInt32(dictionary, "_not_cacheable", 0), 1);
    // Positions of a group are its own.
    expect("(Name = 'file' and exec 'bigger'(1000, '/')) or not (exec bigger(-2.5)) or exec bigger(50000)",
           [&](const Row& row) {
               bool anna = nameOf(row.file.owner) == "anna";
               return anna || row.file.size >= (row.path == 1 ? 1000 : 50000);
           });
    EXPECT_EQ(select("exec silent()"), "");
    EXPECT_EQ(select("exec nothing()"), "");  // 0, as no column was asked for

    FSI_RecordFilter filter(table);
    filter.compile("exec skip('/', '/dir3/') and Size > 10");
    for (table.top(); table.advance();) {
        std::string path = model.textOf(static_cast<size_t>(table.valueOf("PathNumber")->__int__()));
        bool skipped = path == "/" || path == "/dir3/";
        EXPECT_EQ(filter.accepts(), !skipped && table.valueOf("Size")->__int__() > 10);
        EXPECT_EQ(filter.jumps(), skipped) << path;
    }
}

TEST_F(CensusFilters, ScriptsFail) {
    const std::pair<const char*, const char*> rows[] = {
        {"nobefore", "RuntimeError: Could not locate a Lua function named 'before'"},
        {"noduring", "RuntimeError: Could not locate a Lua function named 'during'"},
        {"nolist", "TypeError: Require a list of field names"},
        {"nofield", "DatabaseError: Nothing is not a property on File objects."},
        {"toomany", "RuntimeError: The script toomany asks for too many fields"}};
    for (const auto& [name, expected] : rows) EXPECT_EQ(select(std::string("exec ") + name + "()"), expected);
    for (const char* name : {"fails", "broken", "absent"})
        EXPECT_EQ(select("exec " + std::string(name) + "()").substr(0, 24), "LuaInterpreterException:");
    EXPECT_NE(select("exec fails()").find("no more"), std::string::npos);
    for (const char* query : {"exec", "exec 5()", "exec bigger", "exec bigger(", "exec bigger(,)",
                              "exec bigger(1 2)", "exec bigger(-'a')", "exec bigger(x)", "exec bigger(1,)"})
        EXPECT_EQ(select(query).substr(0, 23), "InvalidFilterException:") << query;
    EXPECT_EQ(faultOfStopped(200,
                             [&] {
                                 FSI_RecordFilter filter(table);
                                 filter.compileFor("exec loops()", options, keywords);
                                 table.top();
                                 if (table.advance()) filter.accepts();
                             })
                  .substr(0, 10),
              "SystemExit");
}

TEST_F(CensusFilters, TheApplicationGivesTexts) {
    expect("Name.end = @names['txt', 'ISO']", [&](const Row& row) {
        const std::string& name = row.file.name;
        return has(name, ".txt") || has(name, ".TXT") || has(name, ".iso");
    });
    expect("Path in @names['/']", [&](const Row& row) { return row.path == 1; });
    EXPECT_EQ(select("Name = @nothing[]"),
              "InvalidFilterException: Expecting a string or a list from nothing");
}

TEST_F(CensusFilters, TheEpoch) {
    auto since = [&](int year) {
        return [=](const Row& row) { return row.file.modified.date.year >= year; };
    };
    EXPECT_EQ(select("Modified within 1 day").substr(0, 33), "InvalidFilterException: The varia");
    reader.options().as<IPE_DictType>()->setText("epoch", IPE_String("20200101000000"));
    expect("Modified within 0 days", since(2020));
    options.as<IPE_DictType>()->setText("epoch", IPE_String("20100101000000"));
    expect("Modified within 0 days", since(2010));
    EXPECT_TRUE(cacheable && !options.as<IPE_DictType>()->findText("_not_cacheable"));
    // Numbers: the digits of a date, or seconds.
    for (int64_t epoch : {int64_t(20150101), int64_t(20150101000000), IPE_TimeOf(IPE_String("20150101"))}) {
        options.as<IPE_DictType>()->setText("epoch", IPE_Int(epoch));
        expect("Modified within 0 days", since(2015));
    }
}
