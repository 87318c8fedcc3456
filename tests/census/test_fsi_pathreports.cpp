// The reports on paths and trees, against a plain recount of their censuses.
#include <cmath>
#include <deque>
#include <sstream>

#include "census/index/fsi_pathlevelhelper.h"
#include "census/reports/fsi_rowbatch.h"
#include "census_support.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/xpk_threadstate.h"

namespace {

using Rows = std::vector<std::string>;  // each row's values, joined by '|'
using Passes = std::function<bool(const ModelFile&)>;

// "1|a|..." of numbers and texts.
template <class First, class... Values>
std::string row(const First& first, const Values&... values) {
    std::ostringstream out;
    out << first;
    ((out << '|' << values), ...);
    return out.str();
}
IPE_Object literal(const std::string& text) { return parse_literal(text); }

// A statement that writes down what it is called with.
class Statement final : public IPE_Type {
  public:
    static constexpr const char TypeName[] = "Statement";
    struct Call {
        std::string sql;
        Rows rows;
    };
    explicit Statement(bool takesResults) : IPE_Type(TypeName), takesResults(takesResults) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override {
        calls.push_back({std::string(arguments.text(0)), {}});
        if (arguments.size() < 2) return {};
        if (keeps && !kept) kept = arguments[1];
        for (const IPE_Object& tuple : PyList_SafeCast(arguments[1])->items()) {
            std::string text;
            for (const IPE_Object& value : PyTuple_SafeCast(tuple)->items())
                text += (text.empty() ? "" : "|") + IPE_Object_Text(value);
            calls.back().rows.push_back(text);
        }
        return {};
    }
    IPE_Object __getattr__(const IPE_Object& key, int depth) override {
        if (!takesResults || !key->is_text("results")) return IPE_Type::__getattr__(key, depth);
        return IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
            results = IPE_Object_ToString(arguments[0]);
            return IPE_Object();
        });
    }
    // The sizes of the inserts that begin so.
    std::vector<size_t> inserts(std::string_view begin = "insert into $table (") const {
        std::vector<size_t> sizes;
        for (const Call& call : calls)
            if (call.sql.starts_with(begin)) sizes.push_back(call.rows.size());
        return sizes;
    }
    Rows rows(std::string_view begin = "insert into $table (") const {
        Rows all;
        for (const Call& call : calls)
            if (call.sql.starts_with(begin)) all.insert(all.end(), call.rows.begin(), call.rows.end());
        return all;
    }
    bool takesResults;
    std::vector<Call> calls;
    static inline std::string results;
    bool keeps = false;
    IPE_Object kept;  // the rows of the first insert
};

struct Figures {
    int64_t size = 0, space = 0, files = 0, rights = 0;
    std::string created = "0000-00-00 00:00:00", modified = created, accessed = created;
    int64_t pick(const std::string& field) const {
        if (field == "savings") return size - space;
        return field == "size" ? size : field == "files" ? files : field == "rights" ? rights : space;
    }
};

class PathReports : public ReportCases {
  protected:
    // Writes a census; gives a path in it with some more below.
    size_t write(ModelCensus census) {
        model = std::move(census);
        for (ModelPath& path : model.paths)
            for (size_t i = 0; i < path.files.size(); i += 3) path.files[i].space = path.files[i].size / 2;
        std::filesystem::remove_all(folder.folder);
        std::filesystem::create_directory(folder.folder);
        writeCensus(model, folder.file());
        selection = censusOptions(folder.file());
        size_t middle = 2;
        while (middle < model.paths.size() && model.endOfTree(middle) < middle + 4) ++middle;
        return middle;
    }
    static IPE_NativeFunction function(const std::string& report) {
        return IPE_ModuleRegistry::lookup("storage." + report).as<IPE_ModuleBridge>()->factory();
    }
    // Runs a report on the trees with these names, as literals; `options` is what a dictionary begins with.
    IPE_Object run(const char* report, const std::string& paths, const std::string& more = "",
                   bool takesResults = false) {
        std::string list;
        for (size_t i = 0; i < paths.size();) {
            size_t end = std::min(paths.find(' ', i), paths.size());
            list += "{'name': " + paths.substr(i, end - i) + "}, ";
            i = end + 1;
        }
        list = list.substr(0, list.size() - 2);
        return runWith(report, literal("{" + more + (more.empty() ? "" : ", ") + "'paths': [" + list + "]}"),
                       takesResults);
    }
    IPE_Object runWith(const char* report, const IPE_Object& given, bool takesResults = false) {
        options = given;
        statement = IPE_New<Statement>(takesResults);
        const IPE_Object arguments[] = {IPE_String("run"), statement, selection, options};
        IPE_Object keywords = IPE_NewDict();
        keywords.as<IPE_DictType>()->setText("lua", host);
        return function(report)(IPE_Arguments(arguments, 4, keywords));
    }
    Statement& last() { return *statement.as<Statement>(); }
    Rows rows(const char* report, const std::string& paths, const std::string& more = "") {
        run(report, paths, more);
        return last().rows();
    }
    template <class Action>
    std::string fault(Action&& action) {
        try {
            action();
        } catch (const XPK_Exception& e) {
            return e.type() + ": " + e.message();
        }
        return "none";
    }

    // --- The recount.
    std::vector<std::string> components(size_t number) const {
        std::vector<std::string> out;
        for (size_t n = number; n > 1; n = static_cast<size_t>(model.paths[n - 1].parent))
            out.insert(out.begin(), model.paths[n - 1].name);
        out.insert(out.begin(), base.begin(), base.end());
        for (size_t i = 4; hide && i < out.size(); ++i) out[i] = SMF_PathMask(out[i]);
        return out;
    }
    std::string shown(size_t number) const {
        std::string text = "/";
        for (const std::string& component : components(number)) text += component + "/";
        return text;
    }
    std::string nameOf(size_t number) const {
        std::vector<std::string> all = components(number);
        return all.empty() ? "/" : all.back();
    }
    Figures figures(size_t first, size_t end, const Passes& test) const {
        Figures out;
        for (size_t n = first; n <= end; ++n) {
            const ModelPath& path = model.paths[n - 1];
            out.files += static_cast<int64_t>(path.files.size());
            out.rights += static_cast<int64_t>(path.rights.size());
            for (const ModelFile& file : path.files) {
                if (!test(file)) continue;
                out.size += file.size, out.space += file.space;
                out.created = std::max(out.created, momentText(file.created));
                out.modified = std::max(out.modified, momentText(file.modified));
                out.accessed = std::max(out.accessed, momentText(file.accessed));
            }
        }
        return out;
    }
    Figures own(size_t n, const Passes& test = all) const { return figures(n, n, test); }
    Figures tree(size_t n, const Passes& test = all) const { return figures(n, model.endOfTree(n), test); }

    Rows summary(bool trees, std::initializer_list<size_t> roots, const Passes& test = all) const {
        Rows out;
        for (size_t root : roots)
            for (size_t n = root; n <= model.endOfTree(root); ++n) {
                Figures whole = tree(n, test), figures = trees ? whole : own(n, test);
                out.push_back((trees ? nameOf(n) + "|" : "") + row(figures.size, figures.space, figures.files,
                                                                   whole.created, whole.modified,
                                                                   whole.accessed, shown(n), n));
            }
        return out;
    }
    Rows spaceMap(std::initializer_list<size_t> roots, const std::string& field, int64_t threshold,
                  const Passes& test = all) const;

    static bool all(const ModelFile&) { return true; }

    XPK_ThreadScope scope{true};
    CensusFolder folder;
    ModelCensus model;
    std::vector<std::string> base;
    bool hide = false;
    IPE_Object selection, statement, options;
    IPE_Object host = makeHost({}, {{"skip", R"(
        function before() return {"Number"} end
        function during(number) return true, number % 7 == 0 end
    )"}},
                               {{"Path", "Number,Owner,Mode"}});
};

// The layout as it reads on paper: every item of every directory, sorted, one after the other.
Rows PathReports::spaceMap(std::initializer_list<size_t> roots, const std::string& field, int64_t threshold,
                           const Passes& test) const {
    struct Item {
        int64_t measure;
        std::string name;
        int kind;
        std::string accessed;
        int64_t size, space;
        size_t number;
    };
    Rows out;
    std::deque<std::tuple<int64_t, size_t, int64_t>> queue;
    for (size_t root : roots) queue.push_back({0, root, threshold});
    int64_t counter = 1;
    for (; !queue.empty(); queue.pop_front()) {
        auto [parent, n, budget] = queue.front();
        const ModelPath& path = model.paths[n - 1];
        int64_t t = 0, s = 0, p = 0;
        auto put = [&, n = n](int64_t above, const std::string& name, int64_t measure, int mode,
                              const std::string& accessed, int64_t size, int64_t space) {
            out.push_back(row(shown(n), n, counter++, above, name, measure, mode, accessed, size, space));
        };
        std::vector<Item> items;
        for (size_t child = n + 1; child <= model.endOfTree(n); ++child) {
            if (static_cast<size_t>(model.paths[child - 1].parent) != n) continue;
            Figures f = tree(child, test);
            bool sizes = field != "rights";
            if (f.pick(field) == 0 && sizes) continue;
            items.push_back({f.pick(field), nameOf(child), 1, f.accessed.substr(0, 10), sizes ? f.size : 0,
                             sizes ? f.space : 0, child});
        }
        if (field == "rights")
            for (const ModelRight& right : path.rights) {
                std::string record = "{'Path': " + row(n) + ", 'Entity': " + row(right.entity) +
                                     ", 'Rights': " + row(right.rights) + "}";
                items.push_back({1, IPE_Object_ToString(literal(record)), 0, "", 0, 0, 0});
            }
        if (field == "files") items.push_back({own(n).files, "Files", 0, "None", 0, 0, 0});
        for (const ModelFile& file : path.files) {
            if (field == "rights" || field == "files" || !test(file)) continue;
            Figures f{file.size, file.space};
            items.push_back({f.pick(field), file.name, 0, momentText(file.accessed).substr(0, 10), file.size,
                             file.space, 0});
        }
        for (const Item& item : items) t += item.measure, s += item.size, p += item.space;
        if (parent == 0) {
            parent = counter;
            put(0, shown(n), t, 1, tree(n, test).accessed.substr(0, 10), s, p);
        }
        std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
            return a.measure != b.measure ? a.measure < b.measure : IPE_CollateText(a.name, b.name) < 0;
        });
        auto total = static_cast<double>(t), b = static_cast<double>(budget);
        for (const Item& item : items) {
            double share = total == 0 ? 0 : (static_cast<double>(item.measure) / total) * (b - 17 * sqrt(b));
            if (!(share > (item.kind ? 128.0 : 64.0))) continue;
            if (item.kind) queue.push_back({counter, item.number, static_cast<int64_t>(share)});
            put(parent, item.name, item.measure, item.kind, item.accessed, item.size, item.space);
            t -= item.measure, s -= item.size, p -= item.space;
        }
        if (t != 0) put(parent, "", t, 2, "None", s, p);
    }
    return out;
}

bool isLarge(const ModelFile& file) { return file.size >= 40000; }
const char* const Large = "'filter': 'Size >= 40000'";

const char* const Reports[] = {"path_index",   "path_largest", "path_names", "path_search",
                               "path_summary", "tree_summary", "spacemap"};

}  // namespace

TEST_F(PathReports, SummariesEqualTheRecount) {
    for (unsigned seed : {1u, 2u}) {
        size_t middle = write(randomCensus(seed, 200, 4));
        std::string paths = row(middle) + " '/' (0,200)";
        for (bool trees : {false, true}) {
            const char* report = trees ? "tree_summary" : "path_summary";
            EXPECT_EQ(rows(report, paths), summary(trees, {middle, 1, 200}));
            EXPECT_EQ(rows(report, paths, Large), summary(trees, {middle, 1, 200}, isLarge));
            EXPECT_EQ(last().calls[1].sql,
                      std::string("create table if not exists $table (cache, ") +
                          (trees ? "path, name" : "ipath, path") +
                          ", size, space, files, lastcreated, lastmodified, lastaccessed" +
                          (trees ? ", ipath)" : ")"));
        }
        EXPECT_EQ(last().calls[0].sql, "create table if not exists about (cache, object)");
        EXPECT_EQ(last().calls[2].sql,
                  "insert into $table (cache, name, size, space, files, lastcreated, lastmodified, "
                  "lastaccessed, path, ipath) values ($cache,?,?,?,?,?,?,?,?,?)");
        EXPECT_EQ(last().rows("insert into about (cache, object) values ($cache, ?)"), Rows{"{}"});
    }
}

TEST_F(PathReports, DigestsAreThoseOfTheIndexAndLeaveTheSelectionAsItWas) {
    write(randomCensus(3, 60, 3));
    FSI_Reader reader(literal("{'fsi': '" + folder.file() + "', 'calc_digests': 1}"), host);
    FSI_PathLevelHelper& levels = reader.pathLevelHelper();
    for (bool trees : {false, true}) {
        Rows expected = summary(trees, {1});
        for (size_t n = 1; n <= 60; ++n) {
            ASSERT_TRUE(levels.locateNumber(static_cast<int64_t>(n)));
            std::string digest = trees ? levels.treeHash() : levels.pathHash();
            EXPECT_EQ(digest.empty(), !trees && model.paths[n - 1].files.empty());
            std::string& line = expected[n - 1];
            line.insert(line.rfind('|', line.rfind('|') - 1) + 1, digest + "|");
        }
        EXPECT_EQ(rows(trees ? "tree_summary" : "path_summary", "1", "'calc_digests': 1"), expected);
        EXPECT_EQ(selection.as<IPE_DictType>()->count(), 1);
        EXPECT_TRUE(last().calls[1].sql.ends_with(trees ? "accessed, digest, ipath)" : "accessed, digest)"));
    }
}

TEST_F(PathReports, TextsAreHiddenAndCarryTheBase) {
    write(randomCensus(4, 120, 2));
    base = {"server", "share"};
    hide = true;
    selection = literal("{'fsi': '" + folder.file() + "', 'hide_paths': 1, 'base': ['server', 'share']}");
    Rows names;
    for (size_t n = 1; n <= 120; ++n) names.push_back(row(n, shown(n)));
    EXPECT_EQ(rows("path_names", "1"), names);
    EXPECT_EQ(rows("path_summary", "1"), summary(false, {1}));
    EXPECT_EQ(rows("tree_summary", "'/server/share/'"), summary(true, {1}));
    EXPECT_EQ(rows("spacemap", "1", "'threshold': 200000"), spaceMap({1}, "space", 200000));
    EXPECT_EQ(rows("path_search", "1"), Rows{"/server/share/|120|120|1"});
    EXPECT_NE(rows("path_largest", "1")[0].find("|/server/share/"), std::string::npos);
}

TEST_F(PathReports, NamesAndSearchTakeAFilterOnPaths) {
    size_t middle = write(randomCensus(5, 200, 1));
    std::string paths = "1 " + row(middle);
    Rows names, offsets, counts;
    for (size_t root : {size_t(1), middle}) {
        size_t end = model.endOfTree(root), matches = 0, length = 0;
        for (size_t n = root; n <= end + 1; ++n) {
            bool hit = n <= end && model.paths[n - 1].owner == 3;
            if (hit) names.push_back(row(n, shown(n))), ++matches, ++length;
            if (hit || !length) continue;
            offsets.push_back(row(n - length, length));
            length = 0;
        }
        counts.push_back(row(shown(root), end - root + 1, matches, root));
    }
    EXPECT_EQ(rows("path_names", paths, "'filter': 'Owner = 3'"), names);
    EXPECT_EQ(last().inserts("insert into $table (cache, ipath, path) values ($cache,?,?)").size(), 2u);
    EXPECT_EQ(rows("path_search", paths, "'filter': 'Owner = 3'"), counts);
    EXPECT_EQ(last().rows("insert into ${table}_offsets (cache, offset, count) values ($cache,?,?)"),
              offsets);
    // A filter that takes all gives one run for each path, one that takes nothing none.
    run("path_search", paths);
    EXPECT_EQ(last().rows("insert into ${table}_offsets").size(), 2u);
    EXPECT_EQ(rows("path_search", "1", "'filter': 'Owner = 9'"), Rows{"/|200|0|1"});
    EXPECT_TRUE(last().rows("insert into ${table}_offsets").empty());
}

TEST_F(PathReports, AJumpLeavesOutTheWholeTree) {
    write(randomCensus(6, 300, 1));
    Rows names;
    for (size_t n = 1; n <= 300; n = n % 7 ? n + 1 : model.endOfTree(n) + 1)
        names.push_back(row(n, shown(n)));
    ASSERT_LT(names.size(), 280u);
    EXPECT_EQ(rows("path_names", "1", "'filter': 'exec skip()'"), names);
    EXPECT_TRUE(options.as<IPE_DictType>()->findText("_not_cacheable"));
    EXPECT_EQ(rows("path_largest", "1", "'filter': 'exec skip()', 'count': 100000").size(), names.size());
    // The search counts every row.
    EXPECT_EQ(rows("path_search", "1", "'filter': 'exec skip()'"), Rows{"/|300|300|1"});
}

TEST_F(PathReports, LargestByTheIndexOrByAColumn) {
    write(randomCensus(7, 250, 5));
    for (const char* field : {"size", "Space", "files", "Levels"}) {
        std::vector<std::pair<int64_t, size_t>> values;
        for (size_t n = 1; n <= 250; ++n)
            values.push_back({*field == 'S'   ? own(n).space
                              : *field == 'L' ? static_cast<int64_t>(components(n).size())
                                              : own(n).pick(field),
                              n});
        std::sort(values.begin(), values.end(), std::greater<>());
        for (size_t count : {3u, 249u, 1000u}) {
            Rows expected;
            for (size_t i = 0; i < std::min<size_t>(count, 250); ++i) {
                auto [value, n] = values[i];
                const ModelPath& path = model.paths[n - 1];
                IPE_Object record = literal("{'Number': " + row(n) + ", 'Owner': " + row(path.owner) +
                                            ", 'Mode': " + row(path.mode) + "}");
                expected.push_back(row(value, shown(n), IPE_Object_ToString(record), n));
            }
            EXPECT_EQ(
                rows("path_largest", "'/'", "'field': '" + std::string(field) + "', 'count': " + row(count)),
                expected);
            Rows about = last().rows("insert into about");
            ASSERT_EQ(about.size(), 1u);
            EXPECT_NE(about[0].find("'count': 250"), std::string::npos) << about[0];
        }
    }
}

TEST_F(PathReports, SpaceMapsEqualThePlainLayout) {
    for (unsigned seed : {8u, 9u}) {
        size_t middle = write(randomCensus(seed, seed == 8 ? 30 : 120, 5));
        std::string paths = row(middle) + " '/'";
        for (const char* field : {"size", "space", "files", "rights", "savings"})
            for (int64_t threshold : {-5LL, 64LL, 700LL, 2000LL, 30000LL, 5000000LL}) {
                std::string more = "'field': '" + std::string(field) + "', 'threshold': " + row(threshold);
                EXPECT_EQ(rows("spacemap", paths, more), spaceMap({middle, 1}, field, threshold))
                    << seed << more;
                more += std::string(", ") + Large;
                EXPECT_EQ(rows("spacemap", paths, more), spaceMap({middle, 1}, field, threshold, isLarge))
                    << seed << more;
            }
    }
    EXPECT_EQ(last().inserts().size(), 1u);
    EXPECT_EQ(last().calls[2].sql, "create index if not exists ix01_$table on $table (id)");
    EXPECT_EQ(last().rows("insert into about"), Rows{"{}"});
    // Letters count alike, an unknown field is the default, and the largest threshold shows everything.
    EXPECT_EQ(rows("spacemap", "1", "'field': 'FILES'"), spaceMap({1}, "files", 2000));
    EXPECT_EQ(rows("spacemap", "1", "'field': 'what'"), spaceMap({1}, "space", 2000));
    EXPECT_EQ(rows("spacemap", "1", "'threshold': 9223372036854775807L"), spaceMap({1}, "space", INT64_MAX));
}

TEST_F(PathReports, TheDefaultBudgetDividesAtATenthAndATwentieth) {
    SMF_DateTimeValue day = momentOf(2020, 2, 29);
    auto file = [&](const char* name, int64_t size) { return ModelFile{name, size, size, day, day, day}; };
    ModelCensus census;
    census.paths = {{0, "/", {file("above", 52), file("below", 51)}, {}},
                    {1, "big", {file("a", 100), file("b", 4)}, {}},
                    {1, "small", {file("c", 103)}, {}},
                    {1, "empty", {}, {}}};
    for (int i = 0; i < 23; ++i) census.paths[0].files.push_back(file("tiny", 30));
    write(census);
    EXPECT_EQ(rows("spacemap", "1", "'field': 'size'"),
              (Rows{"/|1|1|0|/|1000|1|2020-02-29|1000|752", "/|1|2|1|above|52|0|2020-02-29|52|26",
                    "/|1|3|1|big|104|1|2020-02-29|104|54", "/|1|4|1||844|2|None|844|672",
                    "/big/|2|5|3||104|2|None|104|54"}));
    // A directory without files or directories: one row each, and no date.
    EXPECT_EQ(rows("path_names", "'/empty'"), Rows{"4|/empty/"});
    EXPECT_EQ(rows("path_summary", "'/empty'").size(), 1u);
    EXPECT_EQ(rows("tree_summary", "'/empty'"),
              Rows{"empty|0|0|0|0000-00-00 00:00:00|0000-00-00 00:00:00|0000-00-00 00:00:00|/empty/|4"});
    EXPECT_EQ(rows("spacemap", "'/empty'"), Rows{"/empty/|4|1|0|/empty/|0|1|0000-00-00|0|0"});
}

TEST_F(PathReports, ManyRowsGoInBatches) {
    write(randomCensus(11, 25000, 0, 30));
    std::string children;
    for (size_t n = 2; n <= 25000; n = model.endOfTree(n) + 1) children += row(n) + " ";
    children.pop_back();
    for (const char* report : {"path_summary", "tree_summary"}) {
        Rows whole = rows(report, "1");
        EXPECT_EQ(last().inserts(), (std::vector<size_t>{10001, 10001, 4998}));
        Rows parts = rows(report, children);
        parts.insert(parts.begin(), whole[0]);
        EXPECT_EQ(parts, whole);
    }
    run("path_names", "1");
    EXPECT_EQ(last().inserts(), std::vector<size_t>{25000});

    statement = IPE_New<Statement>(false);
    FSI_RowBatch batch(statement, "insert", 2);
    for (int i = 0; i < 3; ++i) batch.add(IPE_Int(i));
    batch.flush(true);
    batch.flush(true);
    batch.flush(false);
    batch.add(IPE_Int(1), IPE_String("x"));
    batch.flush(false);
    EXPECT_EQ(last().inserts("insert"), (std::vector<size_t>{3, 0, 1}));
    EXPECT_EQ(last().calls.back().rows, Rows{"1|x"});

    // What a statement keeps stays as it was; what it does not keep may be filled again.
    statement = IPE_New<Statement>(false);
    last().keeps = true;
    FSI_RowBatch kept(statement, "insert", 1);
    for (int i = 0; i < 8; ++i) kept.add(IPE_Int(i), IPE_Int(-i));
    EXPECT_EQ(IPE_Object_ToString(last().kept), "[(0, 0), (1, -1)]");
    EXPECT_EQ(last().rows("insert"), (Rows{"0|0", "1|-1", "2|-2", "3|-3", "4|-4", "5|-5", "6|-6", "7|-7"}));
}

TEST_F(PathReports, TheIndexOfPathsGoesBackToTheCaller) {
    size_t middle = write(randomCensus(12, 80, 1));
    IPE_Object expected = IPE_NewList();
    for (size_t n : {size_t(1), middle}) {
        IPE_Object range =
            literal("{'pathStart': " + row(n) + ", 'pathCount': " + row(model.endOfTree(n) - n) + "}");
        expected.as<IPE_ListType>()->append(IPE_TupleOf(
            {IPE_String(shown(n)), IPE_String(IPE_Object_ToString(range)), IPE_Int(n == 1 ? 0 : 1)}));
    }
    for (bool takesResults : {false, true})
        EXPECT_EQ(IPE_Object_ToString(run("path_index", "'/' " + row(middle), "", takesResults)),
                  IPE_Object_ToString(expected));
    EXPECT_EQ(Statement::results, IPE_Object_ToString(expected));
    EXPECT_TRUE(last().calls.empty());
    EXPECT_EQ(IPE_Object_ToString(run("path_index", "'/'", "'mode': 'other'", true)), "[]");
    EXPECT_EQ(Statement::results, "[]");
}

TEST_F(PathReports, BadOptionsAreNamed) {
    const int versions[] = {1, 4, 4, 5, 13, 19, 63};
    const IPE_Object command[] = {IPE_String("version")};
    for (size_t i = 0; i < std::size(Reports); ++i) {
        EXPECT_EQ(function(Reports[i])(IPE_Arguments(command, 1))->__int__(), versions[i]);
        EXPECT_TRUE(IPE_ModuleRegistry::find(std::string("fsi_report.storage.") + Reports[i]));
    }
    write(randomCensus(13, 30, 2));
    // The fault of these options, as far as `expected` goes.
    auto check = [&](const char* report, const std::string& given, const std::string& expected) {
        std::string text = fault([&] { runWith(report, literal(given)); });
        EXPECT_EQ(text.substr(0, expected.size()), expected) << report << given << text;
    };
    for (const char* report : Reports) {
        check(report, "{}", "KeyError: paths");
        check(report, "{'paths': [{'name': '/not/there'}]}",
              "PathNotFoundException: The path (/not/there) does not exist");
        check(report, "{'paths': [{'name': 31}]}", "PathNotFoundException");
        check(report, "{'paths': '/'}", "TypeError");
        check(report, "{'paths': [1]}", "TypeError");
        check(report, "{'paths': [{}]}", "KeyError: name");
        if (std::string_view(report) == "path_index") continue;
        check(report, "{'filter': 'Owner = = 3', 'paths': [{'name': 1}]}", "InvalidFilterException");
        check(report, "{'filter': 'Nothing = 3', 'paths': [{'name': 1}]}", "DatabaseError");
    }
    for (const char* count : {"0", "-1", "100001"})
        check("path_largest", std::string("{'paths': [{'name': 1}], 'count': ") + count + "}", "Assert");
    check("path_largest", "{'paths': [{'name': 1}], 'field': 'Path'}", "Assert");
    check("path_largest", "{'paths': [{'name': 1}], 'field': 'no such'}",
          "DatabaseError: no such is not a property");
    check("path_largest", "{'paths': [{'name': 1}], 'count': 100000}", "none");
    check("spacemap", "{'paths': [{'name': 1}], 'threshold': []}", "TypeError");
    check("spacemap", "{'paths': [{'name': 1}], 'field': [1], 'threshold': 'many'}", "none");
    EXPECT_EQ(last().rows().size(), 2u);  // of the threshold 0
}
