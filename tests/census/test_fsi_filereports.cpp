// The reports on files, against a plain recount of their censuses.
#include "census/index/fsi_pathlevelhelper.h"
#include "census/reports/fsi_extensionpattern.h"
#include "census_support.h"
#include "components/netcode.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe_sqlite/ipe_sqlite.h"
#include "ipe_sqlite/ipe_sqlite_connection.h"
#include "ipe_sqlite/ipe_sqlite_cursor.h"
#include "runtime/epa_digest.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/xpk_threadstate.h"
#include "store/filters/smf_textmatcher.h"

namespace {

using Rows = std::vector<std::string>;  // each row's values, joined by '|'
using Passes = std::function<bool(const ModelFile&)>;

template <class... Values>
std::string joined(const Values&... values) {
    std::ostringstream out;
    const char* between = "";
    ((out << between << values, between = "|"), ...);
    return out.str();
}

// A statement that writes down what it is called with; set() is a call "NAME=VALUE".
class Statement final : public IPE_Type {
  public:
    static constexpr const char TypeName[] = "Statement";
    Statement() : IPE_Type(TypeName) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override {
        calls.push_back({std::string(arguments.text(0)), {}});
        if (arguments.size() < 2) return {};
        for (const IPE_Object& row : PyList_SafeCast(arguments[1])->items()) {
            std::string text;
            for (const IPE_Object& value : PyTuple_SafeCast(row)->items())
                text += (&value == &row.as<IPE_TupleType>()->at(0) ? "" : "|") + IPE_Object_Text(value);
            calls.back().second.push_back(text);
        }
        return {};
    }
    IPE_Object __getattr__(const IPE_Object& key, int depth) override {
        if (!key->is_text("set")) return IPE_Type::__getattr__(key, depth);
        static Statement* last;
        last = this;
        return IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
            last->calls.push_back({IPE_Object_Text(arguments[0]) + "=" + IPE_Object_Text(arguments[1]), {}});
            return IPE_Object();
        });
    }
    Rows rowsOf(std::string_view begin, size_t* inserts = nullptr) const {
        Rows all;
        for (const auto& [sql, rows] : calls)
            if (sql.starts_with(begin)) {
                all.insert(all.end(), rows.begin(), rows.end());
                if (inserts) ++*inserts;
            }
        return all;
    }
    std::vector<std::pair<std::string, Rows>> calls;
};

std::string faultOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const XPK_Exception& e) {
        return e.type() + ": " + e.message();
    }
    return "none";
}

IPE_Object dictionary(std::initializer_list<std::pair<const char*, IPE_Object>> entries) {
    IPE_Object dict = IPE_NewDict();
    for (const auto& [key, value] : entries) dict.as<IPE_DictType>()->setText(key, value);
    return dict;
}

IPE_Object newCursor() {
    IPE_Object connection = IPE_Sqlite::shared().as<IPE_Sqlite>()->connect(IPE_String(":memory:"));
    return connection.as<IPE_Sqlite_Connection>()->cursor();
}

std::string dateText(const SMF_DateValue& date) {
    char text[32];
    snprintf(text, sizeof text, "%04i-%02i-%02i", date.year, date.month, date.day);
    return text;
}
std::string lower(std::string text) { return IPE_String(text).as<IPE_StringType>()->lower()->c_str(); }
std::string extensionOf(const std::string& name, const std::string& absent) {
    size_t dot = name.rfind('.');
    return dot == std::string::npos || dot + 1 == name.size() ? absent : lower(name.substr(dot + 1));
}

// `rows` whose first value is the key, in the order in which a dictionary goes over keys entered so.
Rows inDictOrder(const Rows& keys, const std::map<std::string, std::string>& rows) {
    IPE_Object dict = IPE_NewDict();
    for (const std::string& key : keys) dict.as<IPE_DictType>()->setText(key, IPE_None());
    Rows out;
    IPE_Object order = dict.as<IPE_DictType>()->keys();
    for (const IPE_Object& key : order.as<IPE_ListType>()->items())
        out.push_back(rows.at(IPE_Object_Text(key)));
    return out;
}

class FileReports : public ReportCases {
  protected:
    // One row of `File`.
    struct Entry {
        int64_t row;
        size_t path;
        const ModelFile* file;
    };

    void write(ModelCensus census) {
        model = std::move(census);
        std::filesystem::remove_all(folder.folder);
        std::filesystem::create_directory(folder.folder);
        writeCensus(model, folder.file());
        selection = censusOptions(folder.file());
        entries.clear();
        for (size_t n = 1; n <= model.paths.size(); ++n)
            for (const ModelFile& file : model.paths[n - 1].files)
                entries.push_back({static_cast<int64_t>(entries.size()) + 1, n, &file});
    }
    std::vector<Entry> tree(size_t n, const Passes& passes = {}) const {
        std::vector<Entry> out;
        for (const Entry& entry : entries)
            if (entry.path >= n && entry.path <= model.endOfTree(n) && (!passes || passes(*entry.file)))
                out.push_back(entry);
        return out;
    }

    void call(const char* report, const IPE_Object& options) {
        statement = IPE_New<Statement>();
        const IPE_Object arguments[] = {IPE_String("run"), statement, selection, options};
        IPE_Object keywords = host ? dictionary({{"lua", host}}) : IPE_Object();
        function(report)(IPE_Arguments(arguments, 4, keywords));
    }
    IPE_Object options(std::initializer_list<int64_t> paths,
                       std::initializer_list<std::pair<const char*, IPE_Object>> more = {}) {
        IPE_Object list = IPE_NewList(), all = dictionary(more);
        for (int64_t n : paths) list.as<IPE_ListType>()->append(dictionary({{"name", IPE_Int(n)}}));
        all.as<IPE_DictType>()->setText("paths", list);
        return all;
    }
    // The rows of the report's table.
    Rows run(const char* report, std::initializer_list<int64_t> paths,
             std::initializer_list<std::pair<const char*, IPE_Object>> more = {}) {
        IPE_Object all = options(paths, more);
        EXPECT_EQ(fault(report, all), "none") << report;
        return last().rowsOf("insert into $table (");
    }
    std::string fault(const char* report, const IPE_Object& options) {
        return faultOf([&] { call(report, options); });
    }
    static IPE_NativeFunction function(const char* report) {
        return IPE_ModuleRegistry::lookup(std::string("storage.") + report).as<IPE_ModuleBridge>()->factory();
    }
    Statement& last() { return *statement.as<Statement>(); }

    Rows groups(const std::vector<Entry>& rows, const std::function<std::string(const Entry&)>& nameOf) {
        struct Sums {
            int64_t size = 0, space = 0, count = 0;
        };
        std::map<std::string, Sums> sums;
        Rows keys;
        for (const Entry& entry : rows) {
            std::string name = nameOf(entry);
            if (name == "-") continue;
            keys.push_back(name);
            Sums& s = sums[name];
            s.size += entry.file->size, s.space += entry.file->space, ++s.count;
        }
        std::map<std::string, std::string> out;
        for (const auto& [name, s] : sums) out[name] = joined(name, s.size, s.space, s.count);
        return inDictOrder(keys, out);
    }

    XPK_ThreadScope scope{true};
    CensusFolder folder;
    ModelCensus model;
    std::vector<Entry> entries;
    IPE_Object selection, statement, host;
};

bool isLarge(const ModelFile& file) { return file.size >= 50000; }
const IPE_Object Large = IPE_String("Size >= 50000");

const std::pair<const char*, int> Versions[] = {
    {"dacl_search", 2}, {"file_ages", 3},      {"file_duplicated", 9},    {"file_largest", 9},
    {"file_search", 9}, {"group_by_pcre", 11}, {"group_by_pcre_date", 8}, {"iterate", 3}};

}  // namespace

TEST_F(FileReports, VersionsOpenNothingAndBadArgumentsAreNamed) {
    write(randomCensus(1, 5, 2));
    host = makeHost({}, {}, {{"File", "Name,Size"}});
    for (const auto& [report, version] : Versions) {
        const char* name = report;
        const IPE_Object command[] = {IPE_String("version")};
        EXPECT_EQ(function(name)(IPE_Arguments(command, 1))->__int__(), version);
        IPE_Object common = dictionary({{"regex", IPE_String("x")}, {"script", IPE_String("")}});
        common.as<IPE_DictType>()->setText("dcursor", newCursor());
        EXPECT_EQ(fault(name, common), "KeyError: paths") << name;
        auto with = [&](const char* key, IPE_Object value) {
            common.as<IPE_DictType>()->setText(key, std::move(value));
            return fault(name, common);
        };
        EXPECT_EQ(with("paths", IPE_Int(3)).substr(0, 9), "TypeError") << name;
        EXPECT_EQ(with("paths", IPE_ListOf({IPE_Int(3)})).substr(0, 9), "TypeError") << name;
        EXPECT_EQ(with("paths", IPE_ListOf({dictionary({})})), "KeyError: name") << name;
        EXPECT_EQ(with("paths", IPE_ListOf({dictionary({{"name", IPE_String("/no")}})})),
                  "PathNotFoundException: The path (/no) does not exist")
            << name;
        EXPECT_EQ(with("filter", IPE_String("== 3")).substr(0, 22), "InvalidFilterException") << name;
    }
    EXPECT_EQ(fault("file_ages", options({1}, {{"mode", IPE_String("age")}})),
              "ValueError: There is no mode age");
    EXPECT_EQ(fault("file_search", options({1}, {{"preview_cap", IPE_Int(-1)}})).substr(0, 5), "Asser");
    EXPECT_EQ(fault("group_by_pcre", options({1})), "KeyError: regex");
    EXPECT_EQ(fault("file_duplicated", options({1})), "KeyError: dcursor");
    EXPECT_EQ(fault("file_duplicated", options({1}, {{"dcursor", IPE_Int(1)}})).substr(0, 9), "TypeError");
    EXPECT_EQ(fault("iterate", options({1})), "KeyError: script");
    host = {};
    EXPECT_EQ(fault("iterate", options({1}, {{"script", IPE_String("")}})), "KeyError: lua");
    EXPECT_EQ(fault("group_by_pcre", options({1}, {{"xform", IPE_String("x")}})), "KeyError: lua");
}

TEST_F(FileReports, LargestIsTheHeadOfTheSortedRows) {
    write(randomCensus(2, 900, 4));
    // Ties of value, path and name, across the places where the list is cut.
    for (size_t i = 0; i < entries.size(); ++i)
        if (i % 3 == 0) const_cast<ModelFile*>(entries[i].file)->size = 77000;
    write(ModelCensus(model));
    for (const char* field : {"size", "Space"})
        for (int64_t count : {1, 7, 1500, 100000}) {
            auto valueOf = [&](const Entry& e) { return *field == 's' ? e.file->size : e.file->space; };
            std::vector<Entry> expected = tree(2, isLarge), more = tree(1, isLarge);
            expected.insert(expected.end(), more.begin(), more.end());
            std::sort(expected.begin(), expected.end(), [&](const Entry& a, const Entry& b) {
                return std::tuple(valueOf(b), b.path, b.file->name, b.row) <
                       std::tuple(valueOf(a), a.path, a.file->name, a.row);
            });
            size_t matches = expected.size();
            if (expected.size() > static_cast<size_t>(count)) expected.resize(static_cast<size_t>(count));
            Rows rows = run("file_largest", {2, 1},
                            {{"count", IPE_Int(count)}, {"field", IPE_String(field)}, {"filter", Large}});
            ASSERT_EQ(rows.size(), expected.size());
            for (size_t i = 0; i < rows.size(); ++i) {
                const Entry& e = expected[i];
                std::string head = joined(e.path, valueOf(e), model.textOf(e.path), e.file->name) + "|{";
                ASSERT_EQ(rows[i].substr(0, head.size()), head) << i;
                ASSERT_NE(rows[i].find("'Modified': '" + momentText(e.file->modified)), std::string::npos);
            }
            EXPECT_NE(last().rowsOf("insert into about")[0].find("'count': " + std::to_string(matches)),
                      std::string::npos);
        }
    for (int64_t count : {0, 100001})
        EXPECT_EQ(fault("file_largest", options({1}, {{"count", IPE_Int(count)}})).substr(0, 5), "Asser");
    EXPECT_EQ(fault("file_largest", options({1}, {{"field", IPE_String("Name")}})).substr(0, 5), "Asser");
}

TEST_F(FileReports, AgesSumEachDayOfThreeColumns) {
    ModelCensus census = randomCensus(3, 200, 4);
    census.paths[1].files.push_back({"odd", 60000, 61440, momentOf(1812, 9, 14), momentOf(2150, 1, 1), {}});
    write(census);
    for (const char* mode : {"size", "space", "count", "count all"}) {
        bool all = mode == std::string("count all");
        Passes passes = all ? Passes() : isLarge;
        std::map<std::string, std::array<int64_t, 3>> days;
        Rows keys;
        for (const std::vector<Entry>& rows : {tree(2, passes), tree(1, passes)})
            for (const Entry& e : rows) {
                int64_t amount = *mode == 'c' ? 1 : mode[1] == 'i' ? e.file->size : e.file->space;
                const SMF_DateTimeValue* dates[] = {&e.file->created, &e.file->accessed, &e.file->modified};
                for (size_t i = 0; i < 3; ++i) {
                    keys.push_back(dateText(dates[i]->date));
                    days[keys.back()][i] += amount;
                }
            }
        std::map<std::string, std::string> expected;
        for (const auto& [day, sums] : days) expected[day] = joined(day, sums[0], sums[1], sums[2]);
        EXPECT_EQ(run("file_ages", {2, 1},
                      {{"mode", IPE_String(all ? "count" : mode)}, {"filter", all ? IPE_String("") : Large}}),
                  inDictOrder(keys, expected))
            << mode;
        EXPECT_TRUE(days.contains("0000-00-00") && days.contains("1812-09-14"));
    }
    EXPECT_EQ(last().calls[0].first, "create table if not exists about (cache, object)");
    EXPECT_EQ(last().calls.back().first, "insert into about (cache, object) values ($cache, ?)");
    EXPECT_EQ(last().calls.back().second, Rows{"{}"});
}

TEST_F(FileReports, SearchTellsEachDirectoryItsRunsAndItsFirstMatches) {
    ModelCensus census = randomCensus(4, 250, 3);
    census.paths[9].files.clear();
    write(census);
    auto isText = [](const ModelFile& file) { return lower(file.name).ends_with(".txt"); };
    struct Case {
        const char* filter;
        int64_t cap;
        Passes passes;
    };
    for (const Case& c :
         {Case{"", 1, [](const ModelFile&) { return true; }}, Case{"Name = '[.]txt$'", 2, isText},
          Case{"Size < 0", 200, [](const ModelFile&) { return false; }},
          Case{"Name = '[.]txt$'", 0, isText}}) {
        Rows expected, offsets, previews;
        int64_t matches = 0;
        for (size_t root : {size_t{1}, size_t{250}, size_t{2}})
            for (size_t n = root; n <= model.endOfTree(root); ++n) {
                int64_t size = 0, space = 0, count = 0, own[3] = {}, start = 0, length = 0;
                auto endRun = [&] {
                    if (length) offsets.push_back(joined(start, length));
                    length = 0;
                };
                for (const Entry& e : entries) {
                    if (e.path != n) continue;
                    size += e.file->size, space += e.file->space, ++count;
                    if (!c.passes(*e.file)) {
                        endRun();
                        continue;
                    }
                    if (length++ == 0) start = e.row;
                    own[0] += e.file->size, own[1] += e.file->space;
                    if (own[2]++ < c.cap) previews.push_back(joined(n, model.textOf(n), e.file->name) + "|{");
                }
                endRun();
                matches += own[2];
                expected.push_back(joined(model.textOf(n), size, space, count, own[0], own[1], own[2], n));
            }
        EXPECT_EQ(run("file_search", {1, 250, 2},
                      {{"filter", IPE_String(c.filter)}, {"preview_cap", IPE_Int(c.cap)}}),
                  expected)
            << c.filter;
        EXPECT_EQ(last().rowsOf("insert into ${table}_offsets (cache, offset, count) values ($cache,?,?)"),
                  offsets);
        Rows shown = last().rowsOf(
            "insert into ${table}_preview (cache, ipath, path, name, details) values ($cache,?,?,?,?)");
        ASSERT_EQ(shown.size(), previews.size());
        for (size_t i = 0; i < shown.size(); ++i)
            EXPECT_EQ(shown[i].substr(0, previews[i].size()), previews[i]);
        EXPECT_NE(last().rowsOf("insert into about")[0].find("'count': " + std::to_string(matches)),
                  std::string::npos);
        EXPECT_EQ(last().calls.size(), 8u);  // four tables, three inserts, about
    }
}

TEST_F(FileReports, SearchPassesOnWhatIsTooMuchToHold) {
    ModelCensus census;
    for (int32_t n = 1; n <= 24000; ++n) {
        ModelPath path;
        path.parent = n == 1 ? 0 : 1;
        path.name = n == 1 ? "/" : "d" + std::to_string(n);
        for (int i = 0; i < 3; ++i) path.files.push_back({i == 1 ? "b" : "a", 1, 1, {}, {}, {}});
        census.paths.push_back(path);
    }
    write(census);
    EXPECT_EQ(run("file_search", {1}, {{"filter", IPE_String("Name = 'a'")}}).size(), 24000u);
    size_t inserts = 0;
    EXPECT_EQ(last().rowsOf("insert into $table (", &inserts).size(), 24000u);
    EXPECT_GT(inserts, 1u);
    EXPECT_EQ(last().rowsOf("insert into ${table}_offsets").size(), 48000u);
    EXPECT_EQ(last().rowsOf("insert into ${table}_preview").size(), 48000u);
    EXPECT_TRUE(last().calls[4].first.starts_with("insert into $table "));
}

TEST_F(FileReports, RightsAreSearchedInAnyTableThatHasAPath) {
    for (const char* rights : {"PathDACL", "Rights"}) {
        ModelCensus census = randomCensus(5, 120, 2);
        census.rightsTable = rights;
        write(census);
        Rows expected, files;
        for (size_t n = 3; n <= model.endOfTree(3); ++n) {
            auto isWritable = [](const ModelRight& right) { return right.rights >= 6; };
            const auto& all = model.paths[n - 1].rights;
            expected.push_back(
                joined(model.textOf(n), all.size(), std::count_if(all.begin(), all.end(), isWritable), n));
            size_t count = model.paths[n - 1].files.size();
            files.push_back(joined(model.textOf(n), count, count, n));
        }
        EXPECT_EQ(
            run("dacl_search", {3}, {{"table", IPE_String(rights)}, {"filter", IPE_String("Rights >= 6")}}),
            expected);
        EXPECT_NE(last().rowsOf("insert into ${table}_preview")[0].find("'Rights': "), std::string::npos);
        EXPECT_EQ(last().calls[3].first,
                  "create table if not exists ${table}_preview (cache, ipath, path, details)");
        EXPECT_EQ(run("dacl_search", {3}, {{"table", IPE_String("File")}}), files);
    }
    EXPECT_EQ(fault("dacl_search", options({1})).substr(0, 13), "DatabaseError");  // there is no PathDACL
}

TEST_F(FileReports, ShownPathsCarryBaseAndMasks) {
    ModelCensus census = randomCensus(6, 150, 2, 9);
    write(census);
    selection.as<IPE_DictType>()->setText("base", IPE_ListOf({IPE_String("host"), IPE_String("c:")}));
    selection.as<IPE_DictType>()->setText("hide_paths", IPE_Int(1));
    Rows expected;
    for (size_t n = 1; n <= 150; ++n) {
        Rows parts;
        for (size_t p = n; p > 1; p = static_cast<size_t>(model.paths[p - 1].parent))
            parts.insert(parts.begin(), model.paths[p - 1].name);
        parts.insert(parts.begin(), {"host", "c:"});
        std::string text = "/";
        for (size_t i = 0; i < parts.size(); ++i) text += (i < 4 ? parts[i] : SMF_PathMask(parts[i])) + "/";
        expected.push_back(text);
    }
    Rows rows = run("file_search", {1});
    ASSERT_EQ(rows.size(), 150u);
    for (size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(rows[i].substr(0, rows[i].find('|')), expected[i]);
}

TEST_F(FileReports, GroupsByWhatAnExpressionFinds) {
    ModelCensus census = randomCensus(7, 200, 5);
    for (const char* name :
         {"Straße.TÄR", "x.tär", "end.", ".bashrc", "a\nb.\n", "two.words.TXT", "bad.\xFF", "broken\xC3.txt",
          "long.extension_of_many_bytes", "LONG.Extension_of_many_BYTES"})
        census.paths[20].files.push_back({name, 51000, 4096, {}, {}, {}});
    write(census);
    auto extension = [](const Entry& e) {
        std::string name = e.file->name;
        if (name == "bad.\xFF") return std::string("\xEF\xBF\xBD");
        return extensionOf(name, "(none)");
    };
    Rows expected = groups(tree(1, isLarge), extension);
    // The second is the same question in a form that is not known to look at the extension alone.
    for (const char* regex : {"\\.([^.]+)$", "(?:)\\.([^.]+)\\z"}) {
        Rows rows =
            run("group_by_pcre", {1},
                {{"regex", IPE_String(regex)}, {"regex_dvalue", IPE_String("(None)")}, {"filter", Large}});
        EXPECT_EQ(rows, expected) << regex;
        EXPECT_EQ(last().calls[2].first, "ipath=1");
        EXPECT_EQ(last().calls[3].first,
                  "insert into $table (cache, ipath, value, size, space, count) values "
                  "($cache,$ipath__c,?,?,?,?)");
    }
    // Without groups the whole match counts, without a default only what matches.
    std::vector<Entry> both = tree(3), more = tree(1);
    both.insert(both.end(), more.begin(), more.end());
    auto wholeMatch = [](const Entry& e) {
        const std::string& name = e.file->name;
        size_t at = std::min({name.find(".txt"), name.find(".TXT"), name.find(".tar")});
        return at == std::string::npos ? "-" : lower(name.substr(at, 4));
    };
    EXPECT_EQ(run("group_by_pcre", {3, 1}, {{"regex", IPE_String("(?i)\\.T(?:XT|AR)")}}),
              groups(both, wholeMatch));
    EXPECT_EQ(last().calls[2].first, "ipath=0");

    run("group_by_pcre", {2, 21}, {{"regex", IPE_String("\\.([^.]*)$")}, {"perpath", IPE_Int(1)}});
    EXPECT_EQ(last().calls[2].first, "ipath=2");
    EXPECT_EQ(last().calls[4].first, "ipath=21");
    auto group = [&](size_t n) {
        return groups(tree(n), [&](const Entry& e) {
            return e.file->name.find('.') == std::string::npos ? "-"
                   : e.file->name == "end."                    ? ""
                   : e.file->name == "a\nb.\n"                 ? "\n"
                                                               : extension(e);
        });
    };
    EXPECT_EQ(last().calls[3].second, group(2));
    EXPECT_EQ(last().calls[5].second, group(21));
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
    auto owner = [&](const Entry& e) { return model.entities[static_cast<size_t>(e.file->owner) - 1].name; };
    EXPECT_EQ(run("group_by_pcre", {1}, {{"field", IPE_String("Owner")}, {"regex", IPE_String(".*")}}),
              groups(tree(1), owner));
    EXPECT_EQ(run("group_by_pcre", {1}, {{"field", IPE_String("size")}, {"regex", IPE_String("^..?")}}),
              groups(tree(1), [](const Entry& e) { return std::to_string(e.file->size).substr(0, 2); }));
    // What is masked stays masked.
    EXPECT_EQ(run("group_by_pcre", {1}, {{"regex", IPE_String("^.*$")}}),
              groups(tree(1), [](const Entry& e) { return lower(SMF_FileMask(e.file->name)); }));
    EXPECT_EQ(fault("group_by_pcre", options({1}, {{"field", IPE_String("No")}, {"regex", IPE_String("x")}})),
              "DatabaseError: No is not a property on File objects.");
}

TEST_F(FileReports, TransformsTurnValuesIntoOthers) {
    write(randomCensus(9, 100, 5));
    host = makeHost(
        {},
        {{"kind", R"(
        local calls = 0
        function before(options)
            return {regex = "\\.([a-z]+)$", regex_dvalue = options.missing, columns = {"Size", "name"}}
        end
        function during(values)
            calls = calls + 1
            if values[2] > 90000 then return "BIG" end
            return values[1] .. #values[3]
        end
    )"},
         {"nothing", "function before() return {regex='x', regex_dvalue='y'} end function during() end"},
         {"fails", "function before() error('no luck') end"},
         {"shapeless", "function before() return 'x' end function during() end"},
         {"mute", "function before() return {regex='x'} end"},
         {"column", "function before() return {regex='x', columns={'No'}} end function during() end"},
         {"columns", "function before() return {regex='x', columns=7} end function during() end"}},
        {{"File", "Name,Size"}});
    auto expected = groups(tree(1), [](const Entry& e) {
        size_t dot = e.file->name.rfind('.');
        std::string tail = dot == std::string::npos ? "" : e.file->name.substr(dot + 1);
        bool matches =
            !tail.empty() && tail.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
        return e.file->size > 90000 ? "big" : (matches ? tail : "nil") + std::to_string(e.file->name.size());
    });
    EXPECT_EQ(run("group_by_pcre", {1}, {{"xform", IPE_String("kind")}, {"missing", IPE_String("NIL")}}),
              expected);
    auto with = [&](const char* name) {
        return fault("group_by_pcre", options({1}, {{"xform", IPE_String(name)}}));
    };
    EXPECT_EQ(with("nothing"), "TypeError: Require a 'StringType' but given a 'NoneType'");
    EXPECT_NE(with("fails").find("no luck"), std::string::npos);
    EXPECT_EQ(with("shapeless").substr(0, 9), "TypeError");
    EXPECT_EQ(with("mute"), "RuntimeError: Could not locate a Lua function named 'during'");
    EXPECT_EQ(with("column"), "DatabaseError: No is not a property on File objects.");
    EXPECT_EQ(with("columns").substr(0, 9), "TypeError");
    EXPECT_NE(with("absent").find("no script absent"), std::string::npos);
}

TEST_F(FileReports, ExpressionsThatFailOrNeverEndAreNamed) {
    ModelCensus census = randomCensus(10, 3, 1);
    census.paths[0].files.push_back({std::string(60, 'a') + "!", 1, 1, {}, {}, {}});
    write(census);
    auto with = [&](const char* regex) {
        return fault("group_by_pcre", options({1}, {{"regex", IPE_String(regex)}}));
    };
    EXPECT_EQ(with("(x").substr(0, 53), "RuntimeError: Error compiling regular expression: mis");
    EXPECT_EQ(with("^(a+)+$"), "RuntimeException: The PCRE engine returned an error");
    EXPECT_EQ(with("(?=a\\Kb|(a))"), "none");
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

TEST_F(FileReports, GroupsAreSplitByMonthUpToTheEpoch) {
    ModelCensus census = randomCensus(12, 150, 5);
    census.paths[2].files.push_back({"x.log", 60000, 5, {}, {}, momentOf(2020, 12, 31, 23, 59)});
    census.paths[2].files.push_back({"y.log", 60000, 5, {}, {}, {}});
    write(census);
    // None, 15 July 2015 in seconds, and as the number that its digits make.
    for (int64_t epoch : {0, 1437000000, 20150715})
        for (const char* pivot : {"accessed", "Modified"}) {
            std::map<std::string, std::map<std::string, std::pair<int64_t, int64_t>>> months;
            for (const Entry& e : tree(1, isLarge)) {
                const SMF_DateTimeValue& date = *pivot == 'a' ? e.file->accessed : e.file->modified;
                std::string month = dateText(date.date).substr(0, 7);
                if (epoch && month > "2015-07") month = "2015-07";
                auto& sums = months[extensionOf(e.file->name, "-")][month];
                sums.first += e.file->size, sums.second += e.file->space;
            }
            Rows rows = run("group_by_pcre_date", {1},
                            {{"regex", IPE_String("\\.([^.]+)$")},
                             {"regex_dvalue", IPE_String("-")},
                             {"filter", Large},
                             {"pivot", IPE_String(pivot)},
                             {"epoch", epoch ? IPE_Int(epoch) : IPE_None()}});
            ASSERT_EQ(rows.size(), months.size());
            for (const std::string& row : rows) {
                std::string name = row.substr(0, row.find('|'));
                std::string object = row.substr(row.rfind('|') + 1);
                int64_t size = 0, space = 0;
                size_t length = 2;
                for (const auto& [month, sums] : months.at(name)) {
                    std::string item =
                        "'" + month +
                        "': " + IPE_Object_ToString(IPE_TupleOf({IPE_Int(sums.first), IPE_Int(sums.second)}));
                    EXPECT_NE(object.find(item), std::string::npos) << item;
                    length += item.size() + 2;
                    size += sums.first, space += sums.second;
                }
                EXPECT_EQ(object.size(), length - 2);  // and nothing else
                EXPECT_EQ(row, joined(name, size, space, object));
            }
        }
    EXPECT_EQ(
        last().calls[3].first,
        "insert into $table (cache, ipath, value, size, space, object) values ($cache,$ipath__c,?,?,?,?)");
    EXPECT_NE(
        fault("group_by_pcre_date", options({1}, {{"regex", IPE_String("x")}, {"pivot", IPE_String("Size")}}))
            .find("Incorrect field type"),
        std::string::npos);
}

TEST_F(FileReports, DuplicatesShareAFingerprint) {
    ModelCensus census = randomCensus(13, 80, 3);
    for (ModelPath& path : census.paths)
        path.files.push_back({"same.iso", 7 << 20, 7 << 20, {}, momentOf(2020, 1, 2), {}});
    for (int i = 0; i < 20100; ++i) census.paths[5].files.push_back({"many", 5 << 20, 1, {}, {}, {}});
    census.paths[6].files.push_back({"under", (5 << 20) - 1, 1, {}, {}, {}});
    write(census);
    IPE_Object object = newCursor();
    IPE_Sqlite_Cursor& cursor = *object.as<IPE_Sqlite_Cursor>();
    auto query = [&](const char* sql) {
        cursor.execute(sql);
        std::string out;
        while (IPE_Object row = cursor.fetchone()) out += IPE_Object_ToString(row);
        return out;
    };
    cursor.execute(
        "create table details (name, size, date, owner, path, hash, ipath, field1, field2, field3)");
    run("file_duplicated", {1}, {{"dcursor", object}});
    size_t large = tree(1, [](const ModelFile& file) { return file.size >= 5 << 20; }).size();
    EXPECT_EQ(query("select count(*) from details"), "(" + std::to_string(large) + ")");
    EXPECT_EQ(
        query(
            "select max(copies), min(size) from (select count(*) as copies, size from details where name in "
            "('many', 'same.iso') group by hash)"),
        "(20100, 5242880)");
    unsigned char digest[20];
    EPA_Sha1("('2020-01-02 12:00:00', 7340032, 'same.iso')", digest);
    std::string hash = NetCode_Encode(NetCodeBase64, {reinterpret_cast<const char*>(digest), 20});
    EXPECT_EQ(query("select date, owner, path, hash, ipath, field1, field2, field3 from details where name = "
                    "'same.iso' "
                    "and ipath = 3"),
              "('2020-01-02 12:00:00', 1, '" + model.textOf(3) + "', '" + hash +
                  "', 3, '2020-01-02 12:00:00', 7340032, 'same.iso')");
    EXPECT_EQ(last().calls.back().second, Rows{"{}"});

    cursor.execute("delete from details");
    run("file_duplicated", {3},
        {{"dcursor", object},
         {"filter", IPE_String("")},
         {"fields", IPE_String("size\xF4\x8F\xBF\xB9Name")}});
    EXPECT_EQ(query("select count(*), count(field1), max(field3) from details"),
              "(" + std::to_string(tree(3).size()) + ", " + std::to_string(tree(3).size()) + ", None)");
    for (IPE_Object fields : {IPE_ListOf({IPE_String("No")}), IPE_String("")})
        EXPECT_EQ(
            fault("file_duplicated", options({1}, {{"dcursor", object}, {"fields", fields}})).substr(0, 13),
            "DatabaseError");
    EXPECT_EQ(
        fault("file_duplicated", options({1}, {{"dcursor", object}, {"fields", IPE_Int(3)}})).substr(0, 9),
        "TypeError");
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
            calls[#calls + 1] = path .. "|" .. (type(field) == "table" and "None" or field) .. "|" .. table.concat(items, ",") .. "|" .. row
                .. "|" .. tostring(record.Name or record.Rights or record.Number) .. "|" .. tostring(list[1])
            keep = get_record_as_dict
            return false
        end
        function after(given, names) calls[#calls + 1] = "after " .. table.concat(names, ",") end
        function late() keep() end
        function report() return table.concat(calls, "\n") .. "\n" end
    )";
    IPE_Lua& lua = *IPE_LuaOf(host);
    auto rows = [&](std::initializer_list<int64_t> paths,
                    std::initializer_list<std::pair<const char*, IPE_Object>> more = {}) {
        IPE_Object all = options(paths, more);
        all.as<IPE_DictType>()->setText("script", IPE_String(script));
        all.as<IPE_DictType>()->setText("mark", IPE_String("here"));
        call("iterate", all);
        return IPE_Object_Text(lua.callWith("report"));
    };
    auto expected = [&](const std::vector<Entry>& all, size_t most, bool sizes) {
        std::string out = "before here\n";
        for (const Entry& e : all) {
            if (most-- == 0) break;
            out += joined(model.textOf(e.path), e.file->name,
                          sizes ? std::to_string(e.file->size) + "," + momentText(e.file->modified) : "",
                          e.row, e.file->name, e.file->name) +
                   "\n";
        }
        return out + (sizes ? "after Size,modified\n" : "after \n");
    };
    IPE_Object fields = IPE_TupleOf({IPE_String("Size"), IPE_String("modified")});
    EXPECT_EQ(rows({2}, {{"fields", fields}}), expected(tree(2), SIZE_MAX, true));
    EXPECT_EQ(last().calls.back().second, Rows{"{}"});
    EXPECT_NE(faultOf([&] { lua.callWith("late"); }).find("Not connected"), std::string::npos);
    std::vector<Entry> own = tree(2);
    std::erase_if(own, [](const Entry& e) { return e.path != 2; });
    EXPECT_EQ(rows({2}, {{"subdirs", IPE_False()}}), expected(own, SIZE_MAX, false));
    EXPECT_EQ(rows({1}, {{"maxrows", IPE_Int(9)}, {"filter", Large}}), expected(tree(1, isLarge), 9, false));
    EXPECT_EQ(rows({1, 1}, {{"change", IPE_True()}}), expected(tree(1, isLarge), 5, false));

    std::string text = rows({3}, {{"table", IPE_String("PathDACL")}, {"field", IPE_String("Entity")}});
    std::string plain = "before here\n";
    size_t row = 0;
    for (size_t n = 1; n <= 60; ++n)
        for (const ModelRight& right : model.paths[n - 1].rights)
            if (++row; n >= 3 && n <= model.endOfTree(3))
                plain += joined(model.textOf(n), right.entity, "", row, right.rights, right.rights) + "\n";
    EXPECT_EQ(text, plain + "after \n");
    EXPECT_EQ(rows({60}, {{"table", IPE_String("Path")}, {"fields", IPE_ListOf({IPE_String("Mode")})}}),
              "before here\n" + joined(model.textOf(60), "None", model.paths[59].mode, 60, 60, 60) +
                  "\nafter Mode\n");

    IPE_Object noted =
        options({1}, {{"script", IPE_String(script)}, {"filter", IPE_String("Modified < now")}});
    call("iterate", noted);
    EXPECT_TRUE(noted.as<IPE_DictType>()->findText("_not_cacheable"));
    auto with = [&](const char* source, IPE_Object more = IPE_None()) {
        return fault("iterate", options({1}, {{"script", IPE_String(source)}, {"fields", more}}));
    };
    EXPECT_EQ(with("before = nil"), "RuntimeError: Could not locate a Lua function named 'before'");
    EXPECT_EQ(with("options = 3").substr(0, 9), "TypeError");
    EXPECT_NE(with("function before() end function during() error('stop here') end").find("stop here"),
              std::string::npos);
    EXPECT_EQ(with("", IPE_Int(1)).substr(0, 9), "TypeError");
    EXPECT_EQ(with("", IPE_ListOf({IPE_String("No")})),
              "DatabaseError: No is not a property on File objects.");
}

TEST_F(FileReports, ScriptsMayLeaveOutTrees) {
    write(randomCensus(15, 120, 3));
    // Wherever a directory's first row that is looked at has an even size, its tree is left out.
    host = makeHost({},
                    {{"skip",
                      "function before() return {'Size'} end "
                      "function during(size) return true, size % 2 == 0 end"}},
                    {{"File", "Name"}});
    std::vector<Entry> left;
    for (size_t i = 0; i < entries.size();) {
        left.push_back(entries[i]);
        size_t end = entries[i].file->size % 2 ? 0 : model.endOfTree(entries[i].path);
        for (++i; i < entries.size() && entries[i].path <= end;) ++i;
    }
    IPE_Object filter = IPE_String("exec skip()");
    EXPECT_EQ(run("group_by_pcre", {1}, {{"regex", IPE_String("\\.([^.]+)$")}, {"filter", filter}}),
              groups(left, [](const Entry& e) { return extensionOf(e.file->name, "-"); }));
    // A search counts every row.
    Rows rows = run("file_search", {1}, {{"filter", filter}, {"preview_cap", IPE_Int(0)}});
    for (size_t n = 1; n <= rows.size(); ++n)
        EXPECT_NE(rows[n - 1].find(joined("", model.paths[n - 1].files.size(), "")), std::string::npos);
    EXPECT_EQ(rows.size(), 120u);
}
