// The reports on paths and trees, against a plain recount of their censuses.
#include <cmath>
#include <deque>

#include "census/index/fsi_pathlevelhelper.h"
#include "census/reports/fsi_rowbatch.h"
#include "census_support.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "runtime/xpk_threadstate.h"

namespace {

using Rows = std::vector<std::string>;  // each row's values, joined by '|'
using Passes = std::function<bool(const ModelFile&)>;

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
        if (arguments.size() > 1)
            for (const IPE_Object& row : PyList_SafeCast(arguments[1])->items()) {
                std::string text;
                for (const IPE_Object& value : PyTuple_SafeCast(row)->items())
                    text += (text.empty() ? "" : "|") + IPE_Object_Text(value);
                calls.back().rows.push_back(text);
            }
        return {};
    }
    IPE_Object __getattr__(const IPE_Object& key, int depth) override {
        if (!takesResults || !key->is_text("results")) return IPE_Type::__getattr__(key, depth);
        static Statement* last;
        last = this;
        return IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
            last->results = arguments[0];
            return IPE_Object();
        });
    }
    // All rows of the inserts that begin so, and how many inserts there were.
    Rows rowsOf(std::string_view begin, size_t* inserts = nullptr) const {
        Rows all;
        for (const Call& call : calls)
            if (call.sql.starts_with(begin)) {
                all.insert(all.end(), call.rows.begin(), call.rows.end());
                if (inserts) ++*inserts;
            }
        return all;
    }
    bool takesResults;
    std::vector<Call> calls;
    IPE_Object results;
};

std::string faultOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const XPK_Exception& e) {
        return e.type() + ": " + e.message();
    }
    return "none";
}

std::string momentText(const SMF_DateTimeValue& value) {
    char text[32];
    snprintf(text, sizeof text, "%04i-%02i-%02i %02i:%02i:%02i", value.date.year, value.date.month,
             value.date.day, value.time.hour, value.time.minute, value.time.second);
    return text;
}

struct Figures {
    int64_t size = 0, space = 0, files = 0, rights = 0, paths = 0;
    std::string created = "0000-00-00 00:00:00", modified = created, accessed = created;
};

IPE_Object dictionary(std::initializer_list<std::pair<const char*, IPE_Object>> entries) {
    IPE_Object dict = IPE_NewDict();
    for (const auto& [key, value] : entries) dict.as<IPE_DictType>()->setText(key, value);
    return dict;
}

IPE_Object selected(std::initializer_list<IPE_Object> names) {
    IPE_Object list = IPE_NewList();
    for (const IPE_Object& name : names) list.as<IPE_ListType>()->append(dictionary({{"name", name}}));
    return list;
}

class PathReports : public ::testing::Test {
  protected:
    PathReports() {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    void write(ModelCensus census) {
        model = std::move(census);
        for (ModelPath& path : model.paths)
            for (size_t i = 0; i < path.files.size(); i += 3) path.files[i].space = path.files[i].size / 2;
        std::filesystem::remove_all(folder.folder);
        std::filesystem::create_directory(folder.folder);
        writeCensus(model, folder.file());
        selection = censusOptions(folder.file());
    }

    // Runs a report; `last` is its statement.
    IPE_Object run(const char* report, const IPE_Object& options, bool takesResults = false) {
        statement = IPE_New<Statement>(takesResults);
        const IPE_Object arguments[] = {IPE_String("run"), statement, selection, options};
        IPE_Object keywords = dictionary({{"lua", host}});
        return function(report)(IPE_Arguments(arguments, 4, keywords));
    }
    static IPE_NativeFunction function(const char* report) {
        IPE_Object node = IPE_ModuleRegistry::find(std::string("storage.") + report + ".call");
        if (!node) node = IPE_ModuleRegistry::find(std::string("storage.") + report);
        return node.as<IPE_ModuleBridge>()->factory();
    }
    Statement& last() { return *statement.as<Statement>(); }
    Rows table() { return last().rowsOf("insert into $table ("); }
    Rows rowsFor(const char* report, const IPE_Object& options) {
        run(report, options);
        return table();
    }

    // --- The recount.
    std::vector<std::string> components(size_t number) const {
        std::vector<std::string> out;
        for (size_t n = number; n > 1; n = static_cast<size_t>(model.paths[n - 1].parent))
            out.insert(out.begin(), model.paths[n - 1].name);
        out.insert(out.begin(), base.begin(), base.end());
        if (hide)
            for (size_t i = 4; i < out.size(); ++i) out[i] = SMF_PathMask(out[i]);
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
        out.paths = static_cast<int64_t>(end - first);
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
        Rows rows;
        for (size_t root : roots)
            for (size_t n = root; n <= model.endOfTree(root); ++n) {
                Figures whole = tree(n, test), shownFigures = trees ? whole : own(n, test);
                std::string row = trees ? nameOf(n) + "|" : "";
                for (int64_t figure : {shownFigures.size, shownFigures.space, shownFigures.files})
                    row += std::to_string(figure) + "|";
                rows.push_back(row + whole.created + "|" + whole.modified + "|" + whole.accessed + "|" +
                               shown(n) + "|" + std::to_string(n));
            }
        return rows;
    }
    Rows spaceMap(std::initializer_list<size_t> roots, const std::string& field, int64_t threshold,
                  const Passes& test = all) const;

    static bool all(const ModelFile&) { return true; }

    XPK_ThreadScope scope{true};
    CensusFolder folder;
    ModelCensus model;
    std::vector<std::string> base;
    bool hide = false;
    IPE_Object selection, statement;
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
    auto pick = [&](const Figures& f) {
        return field == "size"      ? f.size
               : field == "files"   ? f.files
               : field == "rights"  ? f.rights
               : field == "savings" ? f.size - f.space
                                    : f.space;
    };
    Rows rows;
    std::deque<std::tuple<int64_t, size_t, int64_t>> queue;
    for (size_t root : roots) queue.push_back({0, root, threshold});
    int64_t counter = 1;
    for (; !queue.empty(); queue.pop_front()) {
        auto [parent, n, budget] = queue.front();
        std::string head = shown(n) + "|" + std::to_string(n) + "|";
        int64_t t = 0, s = 0, p = 0;
        auto put = [&](int64_t above, const std::string& name, int64_t measure, int mode,
                       const std::string& accessed, int64_t size, int64_t space) {
            rows.push_back(head + std::to_string(counter++) + "|" + std::to_string(above) + "|" + name + "|" +
                           std::to_string(measure) + "|" + std::to_string(mode) + "|" + accessed + "|" +
                           std::to_string(size) + "|" + std::to_string(space));
        };
        std::vector<Item> items;
        for (size_t child = n + 1; child <= model.endOfTree(n); ++child) {
            if (static_cast<size_t>(model.paths[child - 1].parent) != n) continue;
            Figures f = tree(child, test);
            bool sizes = field != "rights";
            if (sizes && pick(f) == 0) continue;
            items.push_back({pick(f), nameOf(child), 1, f.accessed.substr(0, 10), sizes ? f.size : 0,
                             sizes ? f.space : 0, child});
        }
        if (field == "rights") {
            for (const ModelRight& right : model.paths[n - 1].rights) {
                IPE_Object record = dictionary({{"Path", IPE_Int(static_cast<int64_t>(n))},
                                                {"Entity", IPE_Int(right.entity)},
                                                {"Rights", IPE_Int(right.rights)}});
                items.push_back({1, IPE_Object_ToString(record), 0, "", 0, 0, 0});
            }
        } else if (field == "files") {
            items.push_back({own(n).files, "Files", 0, "None", 0, 0, 0});
        } else {
            for (const ModelFile& file : model.paths[n - 1].files)
                if (test(file))
                    items.push_back({field == "size"      ? file.size
                                     : field == "savings" ? file.size - file.space
                                                          : file.space,
                                     file.name, 0, momentText(file.accessed).substr(0, 10), file.size,
                                     file.space, 0});
        }
        for (const Item& item : items) t += item.measure, s += item.size, p += item.space;
        if (parent == 0) {
            parent = counter;
            put(0, shown(n), t, 1, tree(n, test).accessed.substr(0, 10), s, p);
        }
        std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
            if (a.measure != b.measure) return a.measure < b.measure;
            return IPE_CollateText(a.name, b.name) < 0;
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
    return rows;
}

bool isLarge(const ModelFile& file) { return file.size >= 40000; }

const char* const Reports[] = {"path_index",   "path_largest", "path_names", "path_search",
                               "path_summary", "tree_summary", "spacemap"};

}  // namespace

TEST_F(PathReports, SummariesEqualTheRecount) {
    for (unsigned seed : {1u, 2u}) {
        write(randomCensus(seed, 300, 4));
        size_t middle = 2;
        while (model.endOfTree(middle) < middle + 5) ++middle;
        IPE_Object options =
            dictionary({{"paths", selected({IPE_Int(static_cast<int64_t>(middle)), IPE_String("/"),
                                            IPE_TupleOf({IPE_Int(0), IPE_Int(300)})})}});
        for (const char* filter : {"", "Size >= 40000"}) {
            Passes test = *filter ? isLarge : all;
            options.as<IPE_DictType>()->setText("filter", IPE_String(filter));
            EXPECT_EQ(rowsFor("path_summary", options), summary(false, {middle, 1, 300}, test)) << filter;
            EXPECT_EQ(last().calls[1].sql,
                      "create table if not exists $table (cache, ipath, path, size, space, files, "
                      "lastcreated, lastmodified, lastaccessed)");
            EXPECT_EQ(rowsFor("tree_summary", options), summary(true, {middle, 1, 300}, test)) << filter;
        }
        EXPECT_EQ(last().calls[0].sql, "create table if not exists about (cache, object)");
        EXPECT_EQ(last().calls[2].sql,
                  "insert into $table (cache, name, size, space, files, lastcreated, lastmodified, "
                  "lastaccessed, path, ipath) values ($cache,?,?,?,?,?,?,?,?,?)");
        EXPECT_EQ(last().rowsOf("insert into about (cache, object) values ($cache, ?)"), Rows{"{}"});
    }
}

TEST_F(PathReports, DigestsAreThoseOfTheIndexAndLeaveTheSelectionAsItWas) {
    write(randomCensus(3, 60, 3));
    for (bool trees : {false, true}) {
        Rows expected = summary(trees, {1});
        FSI_Reader reader(dictionary({{"fsi", IPE_String(folder.file())}, {"calc_digests", IPE_Int(1)}}),
                          host);
        for (size_t n = 1; n <= 60; ++n) {
            FSI_PathLevelHelper& levels = reader.pathLevelHelper();
            ASSERT_TRUE(levels.locateNumber(static_cast<int64_t>(n)));
            std::string digest = trees ? levels.treeHash() : levels.pathHash();
            EXPECT_FALSE(digest.empty());
            std::string& row = expected[n - 1];
            row.insert(row.rfind('|', row.rfind('|') - 1) + 1, digest + "|");
        }
        IPE_Object options = dictionary({{"paths", selected({IPE_Int(1)})}, {"calc_digests", IPE_Int(1)}});
        EXPECT_EQ(rowsFor(trees ? "tree_summary" : "path_summary", options), expected);
        EXPECT_EQ(selection.as<IPE_DictType>()->count(), 1);
        EXPECT_TRUE(
            last().calls[1].sql.ends_with(trees ? "lastaccessed, digest, ipath)" : "lastaccessed, digest)"));
    }
}

TEST_F(PathReports, TextsAreHiddenAndCarryTheBase) {
    write(randomCensus(4, 120, 2));
    base = {"server", "share"};
    hide = true;
    selection = dictionary({{"fsi", IPE_String(folder.file())},
                            {"hide_paths", IPE_Int(1)},
                            {"base", IPE_ListOf({IPE_String("server"), IPE_String("share")})}});
    IPE_Object options = dictionary(
        {{"paths", selected({IPE_Int(1)})}, {"threshold", IPE_Int(200000)}, {"count", IPE_Int(500)}});
    Rows names, searched;
    for (size_t n = 1; n <= 120; ++n) names.push_back(std::to_string(n) + "|" + shown(n));
    EXPECT_EQ(rowsFor("path_names", options), names);
    EXPECT_EQ(rowsFor("path_summary", options), summary(false, {1}));
    EXPECT_EQ(rowsFor("tree_summary", options), summary(true, {1}));
    EXPECT_EQ(rowsFor("spacemap", options), spaceMap({1}, "space", 200000));
    EXPECT_EQ(rowsFor("path_search", options), Rows{"/server/share/|120|120|1"});
    EXPECT_NE(rowsFor("path_largest", options)[0].find("|/server/share/"), std::string::npos);
}

TEST_F(PathReports, NamesAndSearchTakeAFilterOnPaths) {
    write(randomCensus(5, 200, 1));
    size_t below = 2;
    while (model.endOfTree(below) < below + 8) ++below;
    IPE_Object options = dictionary({{"paths", selected({IPE_Int(1), IPE_Int(static_cast<int64_t>(below))})},
                                     {"filter", IPE_String("Owner = 3")}});
    Rows names, offsets, counts;
    for (size_t root : {size_t(1), below}) {
        size_t end = model.endOfTree(root), matches = 0, length = 0;
        for (size_t n = root; n <= end + 1; ++n) {
            bool hit = n <= end && model.paths[n - 1].owner == 3;
            if (hit) names.push_back(std::to_string(n) + "|" + shown(n)), ++matches, ++length;
            if (hit || !length) continue;
            offsets.push_back(std::to_string(n - length) + "|" + std::to_string(length));
            length = 0;
        }
        counts.push_back(shown(root) + "|" + std::to_string(end - root + 1) + "|" + std::to_string(matches) +
                         "|" + std::to_string(root));
    }
    EXPECT_EQ(rowsFor("path_names", options), names);
    size_t inserts = 0;
    last().rowsOf("insert into $table (cache, ipath, path) values ($cache,?,?)", &inserts);
    EXPECT_EQ(inserts, 2u);
    EXPECT_EQ(rowsFor("path_search", options), counts);
    EXPECT_EQ(last().rowsOf("insert into ${table}_offsets (cache, offset, count) values ($cache,?,?)"),
              offsets);
    // A filter that matches all gives one run for each path.
    options.as<IPE_DictType>()->removeText("filter");
    run("path_search", options);
    EXPECT_EQ(last().rowsOf("insert into ${table}_offsets").size(), 2u);
}

TEST_F(PathReports, AJumpLeavesOutTheWholeTree) {
    write(randomCensus(6, 300, 1));
    Rows names;
    int64_t largest = 0;
    for (size_t n = 1; n <= 300; n = n % 7 ? n + 1 : model.endOfTree(n) + 1) {
        names.push_back(std::to_string(n) + "|" + shown(n));
        ++largest;
    }
    IPE_Object options =
        dictionary({{"paths", selected({IPE_Int(1)})}, {"filter", IPE_String("exec skip()")}});
    EXPECT_EQ(rowsFor("path_names", options), names);
    ASSERT_LT(names.size(), 280u);
    EXPECT_TRUE(options.as<IPE_DictType>()->findText("_not_cacheable"));
    options.as<IPE_DictType>()->setText("count", IPE_Int(100000));
    EXPECT_EQ(rowsFor("path_largest", options).size(), static_cast<size_t>(largest));
    EXPECT_EQ(rowsFor("path_search", options), Rows{"/|300|300|1"});  // which counts every row
}

TEST_F(PathReports, LargestByTheIndexOrByAColumn) {
    write(randomCensus(7, 250, 5));
    for (const char* field : {"size", "Space", "files", "Levels"}) {
        std::vector<std::pair<int64_t, size_t>> values;
        for (size_t n = 1; n <= 250; ++n) {
            Figures figures = own(n);
            values.push_back({*field == 's'   ? figures.size
                              : *field == 'S' ? figures.space
                              : *field == 'f' ? figures.files
                                              : static_cast<int64_t>(components(n).size()),
                              n});
        }
        std::sort(values.begin(), values.end(), std::greater<>());
        for (size_t count : {3u, 249u, 1000u}) {
            IPE_Object options = dictionary({{"paths", selected({IPE_String("/")})},
                                             {"field", IPE_String(field)},
                                             {"count", IPE_Int(static_cast<int64_t>(count))}});
            Rows expected;
            for (size_t i = 0; i < std::min<size_t>(count, 250); ++i) {
                const ModelPath& path = model.paths[values[i].second - 1];
                IPE_Object record = dictionary({{"Number", IPE_Int(static_cast<int64_t>(values[i].second))},
                                                {"Owner", IPE_Int(path.owner)},
                                                {"Mode", IPE_Int(path.mode)}});
                expected.push_back(std::to_string(values[i].first) + "|" + shown(values[i].second) + "|" +
                                   IPE_Object_ToString(record) + "|" + std::to_string(values[i].second));
            }
            EXPECT_EQ(rowsFor("path_largest", options), expected) << field << count;
            Rows about = last().rowsOf("insert into about");
            ASSERT_EQ(about.size(), 1u);
            EXPECT_NE(about[0].find("\"count\": 250"), std::string::npos) << about[0];
        }
    }
}

TEST_F(PathReports, SpaceMapsEqualThePlainLayout) {
    for (unsigned seed : {8u, 9u, 10u}) {
        write(randomCensus(seed, seed == 8 ? 40 : 250, 6));
        size_t middle = 2;
        while (model.endOfTree(middle) < middle + 4) ++middle;
        for (const char* field : {"size", "space", "files", "rights", "savings", "SIZE", "what"})
            for (int64_t threshold : {-5LL, 0LL, 64LL, 700LL, 2000LL, 30000LL, 5000000LL}) {
                std::string plain = field;
                if (plain == "SIZE") plain = "size";
                IPE_Object options =
                    dictionary({{"paths", selected({IPE_Int(static_cast<int64_t>(middle)), IPE_String("/")})},
                                {"threshold", IPE_Int(threshold)},
                                {"field", IPE_String(field)}});
                EXPECT_EQ(rowsFor("spacemap", options), spaceMap({middle, 1}, plain, threshold))
                    << seed << " " << field << " " << threshold;
                options.as<IPE_DictType>()->setText("filter", IPE_String("Size >= 40000"));
                EXPECT_EQ(rowsFor("spacemap", options), spaceMap({middle, 1}, plain, threshold, isLarge))
                    << seed << " filter " << field << " " << threshold;
            }
    }
    size_t inserts = 0;
    last().rowsOf("insert into $table", &inserts);
    EXPECT_EQ(inserts, 1u);
    EXPECT_EQ(last().calls[2].sql, "create index if not exists ix01_$table on $table (id)");
    EXPECT_EQ(last().rowsOf("insert into about"), Rows{"{}"});
    IPE_Object options = dictionary({{"paths", selected({IPE_Int(1)})}, {"threshold", IPE_Int(INT64_MAX)}});
    EXPECT_EQ(rowsFor("spacemap", options), spaceMap({1}, "space", INT64_MAX));
}

TEST_F(PathReports, TheDefaultBudgetDividesAtATenthAndATwentieth) {
    ModelCensus census;
    SMF_DateTimeValue day = momentOf(2020, 2, 29);
    auto file = [&](const char* name, int64_t size) { return ModelFile{name, size, size, day, day, day}; };
    census.paths = {{0, "/", {file("above", 52), file("below", 51)}, {}},
                    {1, "big", {file("a", 100), file("b", 4)}, {}},
                    {1, "small", {file("c", 103)}, {}},
                    {1, "empty", {}, {}}};
    for (int i = 0; i < 23; ++i) census.paths[0].files.push_back(file("tiny", 30));
    model = census;
    writeCensus(model, folder.file());
    selection = censusOptions(folder.file());
    IPE_Object options = dictionary({{"paths", selected({IPE_Int(1)})}, {"field", IPE_String("size")}});
    EXPECT_EQ(rowsFor("spacemap", options),
              (Rows{"/|1|1|0|/|1000|1|2020-02-29|1000|1000", "/|1|2|1|above|52|0|2020-02-29|52|52",
                    "/|1|3|1|big|104|1|2020-02-29|104|104", "/|1|4|1||844|2|None|844|844",
                    "/big/|2|5|3||104|2|None|104|104"}));
    // A directory without files or directories: one row each, and no date.
    options = dictionary({{"paths", selected({IPE_String("/empty")})}});
    EXPECT_EQ(rowsFor("path_names", options), Rows{"4|/empty/"});
    EXPECT_EQ(rowsFor("path_summary", options).size(), 1u);
    EXPECT_EQ(rowsFor("tree_summary", options),
              Rows{"empty|0|0|0|0000-00-00 00:00:00|0000-00-00 00:00:00|0000-00-00 00:00:00|/empty/|4"});
    EXPECT_EQ(rowsFor("spacemap", options), Rows{"/empty/|4|1|0|/empty/|0|1|0000-00-00|0|0"});
}

TEST_F(PathReports, ManyRowsGoInBatches) {
    write(randomCensus(11, 25000, 0, 30));
    IPE_Object options = dictionary({{"paths", selected({IPE_Int(1)})}});
    for (const char* report : {"path_summary", "tree_summary"}) {
        Rows whole = rowsFor(report, options), parts;
        std::vector<size_t> batches;
        for (const Statement::Call& call : last().calls)
            if (call.sql.starts_with("insert into $table")) batches.push_back(call.rows.size());
        EXPECT_EQ(batches, (std::vector<size_t>{10001, 10001, 4998}));
        parts.push_back(whole[0]);
        IPE_Object children = IPE_NewList();
        for (size_t n = 2; n <= model.paths.size(); n = model.endOfTree(n) + 1)
            children.as<IPE_ListType>()->append(dictionary({{"name", IPE_String(shown(n))}}));
        Rows rest = rowsFor(report, dictionary({{"paths", children}}));
        parts.insert(parts.end(), rest.begin(), rest.end());
        EXPECT_EQ(parts, whole);
    }
    EXPECT_EQ(rowsFor("path_names", options).size(), 25000u);
    size_t inserts = 0;
    last().rowsOf("insert into $table", &inserts);
    EXPECT_EQ(inserts, 1u);
}

TEST_F(PathReports, BatchesPassOnWhatIsAboveTheirLimit) {
    statement = IPE_New<Statement>(false);
    FSI_RowBatch batch(statement, "insert", 2);
    auto sizes = [&] {
        std::string text;
        for (const Statement::Call& call : last().calls) text += std::to_string(call.rows.size()) + " ";
        return text;
    };
    for (int i = 0; i < 3; ++i) batch.add(IPE_Int(i));
    batch.flush(true);
    EXPECT_EQ(sizes(), "3 ");
    batch.flush(true);
    batch.flush(false);
    batch.add(IPE_Int(1), IPE_String("x"));
    batch.flush(false);
    EXPECT_EQ(sizes(), "3 0 1 ");
    EXPECT_EQ(last().calls.back().rows, Rows{"1|x"});
}

TEST_F(PathReports, TheIndexOfPathsGoesBackToTheCaller) {
    write(randomCensus(12, 80, 1));
    size_t middle = 2;
    while (model.endOfTree(middle) < middle + 3) ++middle;
    IPE_Object options =
        dictionary({{"paths", selected({IPE_String("/"), IPE_Int(static_cast<int64_t>(middle))})}});
    IPE_Object expected = IPE_NewList();
    for (size_t n : {size_t(1), middle}) {
        IPE_Object range = dictionary(
            {{"pathStart", IPE_Int(static_cast<int64_t>(n))}, {"pathCount", IPE_Int(tree(n).paths)}});
        expected.as<IPE_ListType>()->append(IPE_TupleOf(
            {IPE_String(shown(n)), IPE_String(IPE_Object_ToString(range)), IPE_Int(n == 1 ? 0 : 1)}));
    }
    for (bool takesResults : {false, true})
        EXPECT_EQ(IPE_Object_ToString(run("path_index", options, takesResults)),
                  IPE_Object_ToString(expected));
    EXPECT_EQ(IPE_Object_ToString(last().results), IPE_Object_ToString(expected));
    EXPECT_TRUE(last().calls.empty());
    options.as<IPE_DictType>()->setText("mode", IPE_String("other"));
    EXPECT_EQ(IPE_Object_ToString(run("path_index", options, true)), "[]");
    EXPECT_EQ(IPE_Object_ToString(last().results), "[]");
}

TEST_F(PathReports, BadOptionsAreNamed) {
    const int versions[] = {1, 4, 4, 5, 13, 19, 63};
    const IPE_Object command[] = {IPE_String("version")};
    for (size_t i = 0; i < std::size(Reports); ++i) {
        EXPECT_EQ(function(Reports[i])(IPE_Arguments(command, 1))->__int__(), versions[i]);
        EXPECT_TRUE(IPE_ModuleRegistry::find(std::string("fsi_report.storage.") + Reports[i]));
    }
    write(randomCensus(13, 30, 2));
    auto fault = [&](const char* report, std::initializer_list<std::pair<const char*, IPE_Object>> entries) {
        IPE_Object options = dictionary({{"paths", selected({IPE_Int(1)})}});
        options.as<IPE_DictType>()->update(*dictionary(entries).as<IPE_DictType>());
        return faultOf([&] { run(report, options); });
    };
    for (const char* report : Reports) {
        EXPECT_EQ(faultOf([&] { run(report, IPE_NewDict()); }), "KeyError: paths") << report;
        EXPECT_EQ(fault(report, {{"paths", selected({IPE_String("/not/there")})}}),
                  "PathNotFoundException: The path (/not/there) does not exist")
            << report;
        EXPECT_EQ(fault(report, {{"paths", selected({IPE_Int(31)})}}).substr(0, 21), "PathNotFoundException");
        EXPECT_EQ(fault(report, {{"paths", IPE_String("/")}}).substr(0, 9), "TypeError") << report;
        EXPECT_EQ(fault(report, {{"paths", IPE_ListOf({IPE_Int(1)})}}).substr(0, 9), "TypeError") << report;
        EXPECT_EQ(fault(report, {{"paths", IPE_ListOf({IPE_NewDict()})}}), "KeyError: name") << report;
        if (std::string_view(report) == "path_index") continue;
        EXPECT_EQ(fault(report, {{"filter", IPE_String("Owner = = 3")}}).substr(0, 22),
                  "InvalidFilterException")
            << report;
        EXPECT_EQ(fault(report, {{"filter", IPE_String("Nothing = 3")}}).substr(0, 13), "DatabaseError");
    }
    for (int64_t count : {0LL, -1LL, 100001LL})
        EXPECT_NE(fault("path_largest", {{"count", IPE_Int(count)}}), "none");
    EXPECT_EQ(fault("path_largest", {{"count", IPE_Int(100000)}}), "none");
    EXPECT_NE(fault("path_largest", {{"field", IPE_String("no such")}}).find("no such is not a property"),
              std::string::npos);
    EXPECT_NE(fault("path_largest", {{"field", IPE_String("Path")}}), "none");  // a text
    EXPECT_NE(fault("spacemap", {{"threshold", IPE_NewList()}}), "none");
    EXPECT_EQ(fault("spacemap", {{"threshold", IPE_String("many")}}), "none");  // which is 0
    EXPECT_EQ(table().size(), 2u);
    EXPECT_EQ(fault("spacemap", {{"field", IPE_NewList()}}), "none");
}
