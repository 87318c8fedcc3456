// The reports on files: what they make of odd names, scripts that run in them, and bad options.
#include "census/reports/fsi_extensionpattern.h"
#include "components/netcode.h"
#include "report_cases.h"
#include "runtime/epa_digest.h"
#include "store/filters/smf_textmatcher.h"

namespace {

using FileReports = Reports;

const std::string ByExtension = "'regex': '[.]([^.]+)$', 'regex_dvalue': '-'";

}  // namespace

TEST_F(FileReports, BadOptionsAreNamed) {
    const std::pair<const char*, int> versions[] = {
        {"dacl_search", 2},   {"file_ages", 3},          {"file_duplicated", 9},
        {"file_largest", 9},  {"file_search", 9},        {"group_by_pcre", 11},
        {"iterate", 3},       {"path_largest", 4},       {"path_names", 4},
        {"path_search", 5},   {"group_by_pcre_date", 8}, {"spacemap", 63},
        {"path_summary", 13}, {"tree_summary", 19},      {"path_index", 1}};
    // Options of each report, and the fault as far as it is told here.
    const std::pair<const char*, const char*> bad[] = {
        {"", "KeyError: paths"},
        {"'paths': 3", "TypeError"},
        {"'paths': [3]", "TypeError"},
        {"'paths': [{}]", "KeyError: name"},
        {"'paths': [{'name': '/no'}]", "PathNotFoundException: The path (/no) does not exist"},
        {"'paths': [{'name': 31}]", "PathNotFoundException"},
        {"'paths': [{'name': 1}], 'filter': '== 3'", "InvalidFilterException"},
        {"'paths': [{'name': 1}], 'filter': 'Nothing = 3'", "DatabaseError: Nothing is not a property on"}};
    write(randomCensus(1, 30, 2));
    host = makeHost({}, {}, {{"File", "Name,Size"}, {"Path", "Number"}});
    auto check = [&](const std::string& report, const std::string& given, const std::string& expected) {
        database.run("drop table if exists t");
        std::string text = faultOf([&] { runWith(report, parse_literal("{" + given + "}")); });
        EXPECT_EQ(text.substr(0, expected.size()), expected) << report << given << text;
    };
    for (const auto& [report, version] : versions) {
        const IPE_Object command[] = {IPE_String("version")};
        EXPECT_EQ(function(report)(IPE_Arguments(command, 1))->__int__(), version);
        EXPECT_TRUE(IPE_ModuleRegistry::find(std::string("fsi_report.storage.") + report));
        for (const auto& [given, expected] : bad)
            if (report != std::string("path_index") || !strstr(given, "filter"))
                check(report, std::string("'regex': 'x', 'script': ''") + (*given ? ", " : "") + given,
                      expected);
    }
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"file_ages", "'mode': 'age'", "ValueError: There is no mode age"},
        {"file_search", "'preview_cap': -1", "Assert"},
        {"group_by_pcre", "", "KeyError: regex"},
        {"group_by_pcre", "'regex': 'x', 'field': 'No'",
         "DatabaseError: No is not a property on File objects."},
        {"group_by_pcre", "'regex': '(x'", "RuntimeError: Error compiling regular expression: mis"},
        {"group_by_pcre_date", "'regex': 'x', 'pivot': 'Size'", "DatabaseError: Incorrect field type"},
        {"file_duplicated", "'dcursor': 1", "TypeError"},
        {"file_duplicated", "'fields': ['No']", "DatabaseError"},
        {"file_duplicated", "'fields': ''", "DatabaseError"},
        {"file_duplicated", "'fields': 3", "TypeError"},
        {"iterate", "", "KeyError: script"},
        {"file_largest", "'count': 0", "Assert"},
        {"file_largest", "'count': 100001", "Assert"},
        {"file_largest", "'field': 'Name'", "Assert"},
        {"path_largest", "'count': 0", "Assert"},
        {"path_largest", "'count': 100001", "Assert"},
        {"path_largest", "'count': 100000", "none"},
        {"path_largest", "'field': 'Path'", "Assert"},
        {"path_largest", "'field': 'no such'", "DatabaseError: no such is not a property"},
        {"spacemap", "'threshold': []", "TypeError"},
        {"spacemap", "'field': [1], 'threshold': 0", "none"}};
    for (const auto& [report, more, expected] : rows)
        check(report, std::string("'paths': [{'name': 1}]") + (*more ? ", " : "") + more, expected);
    host = {};
    check("iterate", "'paths': [{'name': 1}], 'script': ''", "KeyError: lua");
    check("group_by_pcre", "'paths': [{'name': 1}], 'xform': 'x'", "KeyError: lua");
}

TEST_F(FileReports, SearchPassesOnWhatIsTooMuchToHold) {
    ModelCensus census;
    for (int32_t n = 1; n <= 24000; ++n) {
        census.paths.push_back({n == 1 ? 0 : 1, n == 1 ? "/" : "d" + std::to_string(n)});
        for (const char* name : {"a", "b", "a"}) census.paths.back().files.push_back({name, 1, 1});
    }
    writeAlone(census);
    run("file_search", "'filter': \"Name = 'a'\"");
    EXPECT_GT(database.inserts.size(), 1u);
    EXPECT_EQ(
        database.query(
            "select (select count(*) from t), (select count(*) from t_offsets), count(*) from t_preview"),
        "[(24000, 48000, 48000)]");
}

TEST_F(FileReports, GroupsOfOddNames) {
    ModelCensus census;
    census.paths = {{0, "/"}};
    for (const char* name :
         {"Straße.TÄR", "x.tär", "end.", ".bashrc", "a\nb.\n", "two.words.TXT", "bad.\xFF", "broken\xC3.txt",
          "long.extension_of_many_bytes", "LONG.Extension_of_many_BYTES"})
        census.paths[0].files.push_back({name, 51000, 4096});
    writeAlone(census);
    auto groups = [&](const std::string& regex, const std::string& more = "") {
        run("group_by_pcre", "'regex': '" + regex + "'" + more);
        return database.query("select value, count from t");
    };
    // Rows come as a dictionary goes over its keys. The second form is not known to look at the extension
    // alone.
    const std::string
        head = "[('\\n', 1), ('tär', 2), ('\uFFFD', 1), ('bashrc', 1), ('extension_of_many_bytes', 2), ('",
        tail = "', 1), ('txt', 2)]";
    for (const char* regex : {"[.]([^.]+)$", "(?:)[.]([^.]+)\\\\z"})
        EXPECT_EQ(groups(regex, ", 'regex_dvalue': '(None)'"), head + "(none)" + tail) << regex;
    EXPECT_EQ(groups("[.]([^.]*)$"), head + tail);
    // Without groups the whole match counts.
    EXPECT_EQ(groups("(?i)\\\\.T(?:XT|AR)"), "[('.txt', 2)]");
}

TEST_F(FileReports, GroupsByColumnsThatAreNoPlainText) {
    write(randomCensus(8, 100, 5));
    host = makeHost({{"File", R"(
        function adjust()
            setFieldTags("Owner", {FTable = "Entity", FShow = "Name"})
            setFieldTags("Name", {Transform = "FileName"})
        end
    )"}},
                    {}, {{"File", "Name,Size,Owner"}},
                    "function api.GetImageEntitySchema() return {{name = 'Name'}} end");
    // What is masked stays masked.
    const std::pair<const char*, const char*> questions[] = {
        {"'field': 'Owner', 'regex': '.*'", "iif(f.owner = 3, 'anna', 'root')"},
        {"'field': 'size', 'regex': '^..?'", "substr(f.size, 1, 2)"},
        {"'regex': '^.*$'", "lower(f.masked)"}};
    for (const auto& [more, value] : questions) {
        run("group_by_pcre", more);
        same("select value, size, space, count from t order by 1",
             std::string("select ") + value + ", sum(f.size), sum(f.space), count(*) " + Files +
                 "group by 1 order by 1");
    }
}

TEST_F(FileReports, TransformsTurnValuesIntoOthers) {
    write(randomCensus(9, 100, 5));
    const std::map<std::string, std::string> scripts = {
        {"kind", R"(
        function before(options)
            return {regex = "\\.([a-z]+)$", regex_dvalue = options.missing, columns = {"Size", "name"}}
        end
        function during(values)
            if values[2] > 90000 then return "BIG" end
            return values[1] .. #values[3]
        end
    )"},
        {"nothing", "function before() return {regex='x', regex_dvalue='y'} end function during() end"},
        {"fails", "function before() error('no luck') end"},
        {"shapeless", "function before() return 'x' end function during() end"},
        {"mute", "function before() return {regex='x'} end"},
        {"column", "function before() return {regex='x', columns={'No'}} end function during() end"},
        {"columns", "function before() return {regex='x', columns=7} end function during() end"}};
    host = makeHost({}, scripts, {{"File", "Name,Size"}});
    run("group_by_pcre", "'xform': 'kind', 'missing': 'NIL'");
    same("select value, size, space, count from t order by 1",
         "select iif(f.size > 90000, 'big', iif(f.name glob '*.TXT' or f.name not like '%.%', 'nil', "
         "replace(f.name, rtrim(f.name, replace(f.name, '.', '')), '')) || length(f.name)), sum(f.size), "
         "sum(f.space), "
         "count(*) " +
             Files + "group by 1 order by 1");
    const std::pair<const char*, const char*> bad[] = {
        {"nothing", "TypeError: Require a 'StringType' but given a 'NoneType'"},
        {"fails", "no luck"},
        {"shapeless", "TypeError"},
        {"mute", "RuntimeError: Could not locate a Lua function named 'during'"},
        {"column", "DatabaseError: No is not a property on File objects."},
        {"columns", "TypeError"},
        {"absent", "no script absent"}};
    for (const auto& [name, expected] : bad)
        EXPECT_NE(fault("group_by_pcre", std::string("'xform': '") + name + "'").find(expected),
                  std::string::npos)
            << name;
}

TEST_F(FileReports, ExpressionsThatFailOrNeverEndAreNamed) {
    ModelCensus census = randomCensus(10, 3, 1);
    census.paths[0].files.push_back({std::string(60, 'a') + "!", 1, 1});
    writeAlone(census);
    EXPECT_EQ(fault("group_by_pcre", "'regex': '^(a+)+$'"),
              "RuntimeException: The PCRE engine returned an error");
    EXPECT_EQ(fault("group_by_pcre", "'regex': '(?=a\\\\Kb|(a))'"), "none");
}

TEST_F(FileReports, ExtensionPatternsDependOnTheExtensionAlone) {
    const char* const sure[] = {"\\.([^.]+)$", "[.][^./]*\\z", "\\.(?:[a-z0-9]{1,5})\\Z",
                                "\\.(\\w+?)$", "\\.([^.])$",   "\\.([a-]*+)$"};
    const char* const doubtful[] = {"\\.(.+)$",       "\\.([^a]+)$",   "\\.([+-a]+)$", "\\.([.a]+)$",
                                    "\\.([^.]+)",     "\\.([^.]+)$|x", "([^.]+)$",     "\\.([[:alpha:].]+)$",
                                    "\\.([^.\\n]+)$", "\\.([^.]+)*$",  "\\.(?i)[a]$",  "\\.[^.]{,3}$"};
    for (const char* text : doubtful) EXPECT_FALSE(FSI_IsExtensionPattern(text)) << text;
    std::mt19937 random(11);
    for (const char* text : sure) {
        EXPECT_TRUE(FSI_IsExtensionPattern(text)) << text;
        SMF_TextMatcher matcher(text, false, true);
        for (int i = 0; i < 3000; ++i) {
            std::string name;
            for (size_t n = random() % 9; n > 0; --n) name += ".a-/\n0Z."[random() % 8];
            size_t dot = name.rfind('.');
            SMF_TextMatcher::Match whole, tail;
            if (dot == std::string::npos) {
                EXPECT_FALSE(matcher.find(name, whole));
                continue;
            }
            std::string end = name.substr(dot);
            ASSERT_EQ(matcher.find(name, whole), matcher.find(end, tail)) << text << " " << name;
            ASSERT_EQ(whole.whole, tail.whole);
            ASSERT_EQ(whole.group, tail.group);
        }
    }
}

TEST_F(FileReports, DuplicatesShareAFingerprint) {
    ModelCensus census = randomCensus(13, 80, 3);
    for (ModelPath& path : census.paths)
        path.files.push_back({"same.iso", 7 << 20, 7 << 20, {}, momentOf(2020, 1, 2), {}});
    for (int i = 0; i < 20100; ++i) census.paths[5].files.push_back({"many", 5 << 20, 1});
    census.paths[6].files.push_back({"under", (5 << 20) - 1, 1});
    write(census);
    select({1});
    database.run("create table details (name, size, date, owner, path, hash, ipath, field1, field2, field3)");
    run("file_duplicated");
    same("select count(*) + 100000000 from details",
         "select count(*) + 100000000 from f where size >= 5 << 20");
    EXPECT_EQ(database.query(
                  "select max(copies), min(size) from (select count(*) as copies, size from details where "
                  "name in ('many', 'same.iso') group by hash)"),
              "[(20100, 5242880)]");
    unsigned char digest[20];
    EPA_Sha1("('2020-01-02 12:00:00', 7340032, 'same.iso')", digest);
    std::string hash = NetCode_Encode(NetCodeBase64, {reinterpret_cast<const char*>(digest), 20});
    EXPECT_EQ(database.query(
                  "select date, owner, path, hash, ipath, field1, field2, field3 from details where name = "
                  "'same.iso' and ipath = 3"),
              "[('2020-01-02 12:00:00', 1, '" + census.textOf(3) + "', '" + hash +
                  "', 3, '2020-01-02 12:00:00', 7340032, 'same.iso')]");
    database.run("delete from details");
    run("file_duplicated", "'filter': '', 'fields': 'size\xF4\x8F\xBF\xB9Name'");
    same("select count(*), count(field1), max(field3) from details",
         "select count(*), count(*), null from f");
}

TEST_F(FileReports, IterateCallsTheScriptForEachRow) {
    write(randomCensus(14, 60, 3));
    host = makeHost({}, {}, {{"File", "Name,Size"}, {"Path", "Number"}, {"PathDACL", "Rights"}});
    const char* const script = R"(
        calls, keep = {}, nil
        if options.change then options.filter, options.maxrows = "Size >= 50000", 5 end
        function before(given) calls = {"before " .. tostring(given.mark)} end
        function during(path, field, values, row)
            local items = {}
            for i, value in ipairs(values) do items[i] = tostring(value) end
            local record, list = get_record_as_dict(), get_record_as_list()
            calls[#calls + 1] = table.concat({path, type(field) == "table" and "None" or field, table.concat(items, ","),
                row, tostring(record.Name or record.Rights or record.Number), tostring(list[1])}, "|")
            keep = get_record_as_dict
            return false
        end
        function after(given, names) calls[#calls + 1] = "after " .. table.concat(names, ",") end
        function late() keep() end
        function report() return table.concat(calls, "\n") .. "\n" end
    )";
    auto iterate = [&](const std::string& source, const std::string& more = "") {
        IPE_Object given = parse_literal("{'mark': 'here', 'paths': " + selected + more + "}");
        given.as<IPE_DictType>()->setText("script", IPE_String(source));
        return faultOf([&] { runWith("iterate", given); });
    };
    IPE_Lua& lua = *IPE_LuaOf(host);
    const std::string bare = "f.name || '||' || f.r || '|' || f.name || '|' || f.name",
                      large = "where f.size >= 50000 ";
    const struct {
        std::vector<size_t> trees;
        std::string more, row, from, names;
    } cases[] = {
        {{2},
         "'fields': ('Size', 'modified')",
         "f.name || '|' || f.size || ',' || f.modified || '|' || f.r || '|' || f.name || '|' || f.name",
         Files + "order by f.r",
         "Size,modified"},
        {{2}, "'subdirs': False", bare, Files + "where f.n = 2 order by f.r", ""},
        {{1}, "'maxrows': 9, 'filter': 'Size >= 50000'", bare, Files + large + "order by f.r limit 9", ""},
        {{1, 1}, "'change': True", bare, Files + large + "order by s.number, f.r limit 5", ""},
        {{3},
         "'table': 'PathDACL', 'field': 'Entity'",
         "f.entity || '||' || f.r || '|' || f.rights || '|' || f.rights",
         "from s join d f on f.n between s.n and s.last join p on p.n = f.n order by f.r",
         ""},
        {{60}, "'table': 'Path', 'fields': ['Mode']", "'None|' || p.mode || '|60|60|60'", Paths, "Mode"}};
    for (const auto& row : cases) {
        select(row.trees);
        EXPECT_EQ(iterate(script, ", " + row.more), "none");
        EXPECT_EQ(IPE_Object_Text(lua.callWith("report")),
                  "before here\n" +
                      database.text("select group_concat(line, '') from (select text || '|' || " + row.row +
                                    " || char(10) as line " + row.from + ")") +
                      "after " + row.names + "\n");
    }
    EXPECT_NE(faultOf([&] { lua.callWith("late"); }).find("Not connected"), std::string::npos);
    EXPECT_EQ(iterate(script, ", 'filter': 'Modified < now'"), "none");
    EXPECT_TRUE(options.as<IPE_DictType>()->findText("_not_cacheable"));
    // A script has no tuples: a pair is a table.
    select({1});
    EXPECT_EQ(iterate("options.paths = {{name = {1, 1}}} n = '' function before() end function after() end "
                      "function during(path, name) n = n .. path end"),
              "none");
    EXPECT_NE(lua.getGlobal("n")->__len__(), 0);
    const std::tuple<const char*, const char*, const char*> bad[] = {
        {"before = nil", "", "RuntimeError: Could not locate a Lua function named 'before'"},
        {"options = 3", "", "TypeError"},
        {"function before() end function during() error('stop here') end", "", "stop here"},
        {"", ", 'fields': 1", "TypeError"},
        {"", ", 'fields': ['No']", "DatabaseError: No is not a property on File objects."}};
    for (const auto& [source, more, expected] : bad)
        EXPECT_NE(iterate(source, more).find(expected), std::string::npos) << source << more;
}

TEST_F(FileReports, ScriptsMayLeaveOutTrees) {
    ModelCensus census = randomCensus(15, 200, 3);
    write(census);
    select({1});
    // Wherever a directory's first row that is looked at has an even size, its tree is left out.
    host = makeHost(
        {},
        {{"skip",
          "function before() return {'Size'} end function during(size) return true, size % 2 == 0 end"},
         {"seven", "function before() return {'Number'} end function during(n) return true, n % 7 == 0 end"}},
        {{"File", "Name"}, {"Path", "Number"}});
    std::string left = "0", paths;
    size_t row = 0, end = 0;
    for (size_t n = 1; n <= 200; ++n)
        for (const ModelFile& file : census.paths[n - 1].files) {
            ++row;
            if (n <= end) continue;
            left += "," + std::to_string(row);
            if (file.size % 2 == 0) end = census.endOfTree(n);
        }
    run("group_by_pcre", "'filter': 'exec skip()', " + ByExtension);
    same("select value, count from t where value != '-' order by 1",
         "select lower(replace(name, rtrim(name, replace(name, '.', '')), '')), count(*) from f where name "
         "like '%.%' "
         "and r in (" +
             left + ") group by 1 order by 1");
    // A search counts every row.
    run("file_search", "'filter': 'exec skip()', 'preview_cap': 0");
    same("select ipath, count from t", "select p.n, count(f.n) from p left join f on f.n = p.n group by p.n");

    for (size_t n = 1; n <= 200; n = n % 7 ? n + 1 : census.endOfTree(n) + 1)
        paths += (paths.empty() ? "" : ",") + std::to_string(n);
    run("path_names", "'filter': 'exec seven()'");
    EXPECT_TRUE(options.as<IPE_DictType>()->findText("_not_cacheable"));
    EXPECT_EQ(database.text("select group_concat(ipath) from t"), paths);
    run("path_largest", "'filter': 'exec seven()', 'count': 100000");
    EXPECT_EQ(database.text("select group_concat(ipath) from (select * from t order by ipath)"), paths);
    run("path_search", "'filter': 'exec seven()'");
    EXPECT_EQ(database.query("select totalcount, filteredcount from t"), "[(200, 200)]");
}
