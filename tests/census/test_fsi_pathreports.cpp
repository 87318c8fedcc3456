// The reports on paths and trees: digests, a space map as it reads on paper, and the batches that rows go in.
#include "census/index/fsi_pathlevelhelper.h"
#include "census/reports/fsi_rowbatch.h"
#include "report_cases.h"

using PathReports = Reports;

TEST_F(PathReports, DigestsAreThoseOfTheIndexAndLeaveTheSelectionAsItWas) {
    write(randomCensus(3, 60, 3));
    select({1});
    FSI_Reader reader(censusOptions(folder.file(), "'calc_digests': 1"), {});
    FSI_PathLevelHelper& levels = reader.pathLevelHelper();
    for (bool trees : {false, true}) {
        std::string digests;
        for (int64_t n = 1; n <= 60; ++n) {
            ASSERT_TRUE(levels.locateNumber(n));
            digests += (n > 1 ? "," : "") + (trees ? levels.treeHash() : levels.pathHash());
        }
        run(trees ? "tree_summary" : "path_summary", "'calc_digests': 1");
        EXPECT_EQ(database.text("select group_concat(digest) from t"), digests);
        if (!trees) same("select ipath from t where digest != ''", "select distinct n from f");
        same("select ipath, path from t", "select n, text from p");
        EXPECT_EQ(selection.as<IPE_DictType>()->count(), 1);
    }
}

TEST_F(PathReports, TheDefaultBudgetDividesAtATenthAndATwentieth) {
    SMF_DateTimeValue day = momentOf(2020, 2, 29);
    auto file = [&](const char* name, int64_t size) { return ModelFile{name, size, size, day, day, day}; };
    ModelCensus census;
    census.paths = {
        {0, "/", {file("bb", 52), file("Bc", 52), file("ba", 52), file("below", 51), file("more", 6)}},
        {1, "big", {file("a", 100), file("b", 4)}},
        {1, "small", {file("c", 103)}},
        {1, "empty"}};
    for (int i = 0; i < 20; ++i) census.paths[0].files.push_back(file("tiny", 29));
    write(census);
    auto map = [&](const char* path, const std::string& more) {
        selected = std::string("[{'name': '") + path + "'}]";
        run("spacemap", more);
        return database.query(
            "select path, ipath, id, parent_id, name, size, mode, accessed, psize, pspace from t");
    };
    EXPECT_EQ(map("/", "'field': 'size'"),
              "[('/', 1, 1, 0, '/', 1000, 1, '2020-02-29', 1000, 1000), ('/', 1, 2, 1, 'ba', 52, 0, "
              "'2020-02-29', 52, "
              "52), ('/', 1, 3, 1, 'bb', 52, 0, '2020-02-29', 52, 52), ('/', 1, 4, 1, 'Bc', 52, 0, "
              "'2020-02-29', 52, "
              "52), ('/', 1, 5, 1, 'big', 104, 1, '2020-02-29', 104, 104), ('/', 1, 6, 1, '', 740, 2, None, "
              "740, 740), "
              "('/big/', 2, 7, 5, '', 104, 2, None, 104, 104)]");
    EXPECT_EQ(map("/empty", ""), "[('/empty/', 4, 1, 0, '/empty/', 0, 1, '0000-00-00', 0, 0)]");
    EXPECT_EQ(database.query("select sql from sqlite_master where type = 'index'"),
              "[('CREATE INDEX ix01_t on t (id)')]");
    // Letters count alike, an unknown field is the default, and the largest threshold shows everything.
    EXPECT_EQ(map("/", "'field': 'FILES'"), map("/", "'field': 'files'"));
    EXPECT_EQ(map("/", "'field': 'what'"), map("/", "'field': 'space'"));
    EXPECT_EQ(map("/", "'threshold': -5"), map("/", "'threshold': 64"));
    map("/", "'threshold': 9223372036854775807L");
    EXPECT_EQ(database.text("select count(*) from t"), "31");
    // A directory without files or directories: one row each, and no date.
    selected = "[{'name': '/empty'}]";
    run("path_names");
    EXPECT_EQ(database.query("select ipath, path from t"), "[(4, '/empty/')]");
    for (const char* report : {"path_summary", "tree_summary"}) {
        run(report);
        EXPECT_EQ(database.query("select size, space, files, lastcreated, path, ipath from t"),
                  "[(0, 0, 0, '0000-00-00 00:00:00', '/empty/', 4)]");
    }
}

TEST_F(PathReports, ManyRowsGoInBatches) {
    ModelCensus census = randomCensus(11, 25000, 0, 30);
    writeCensus(census, folder.file());
    std::string children;
    for (size_t n = 2; n <= 25000; n = census.endOfTree(n) + 1)
        children += "{'name': " + std::to_string(n) + "}, ";
    for (const char* report : {"path_summary", "tree_summary"}) {
        selected = "[{'name': 1}]";
        run(report);
        EXPECT_EQ(database.inserts, (std::vector<int64_t>{10001, 10001, 4998}));
        std::string whole = database.query("select * from t where ipath > 1");
        selected = "[" + children.substr(0, children.size() - 2) + "]";
        run(report);
        EXPECT_TRUE(database.query("select * from t") == whole);
    }
    selected = "[{'name': 1}]";
    run("path_names");
    EXPECT_EQ(database.inserts, std::vector<int64_t>{25000});

    // What a statement keeps stays as it was; what it does not keep may be filled again.
    static IPE_Object kept;
    static std::string rows;
    IPE_Object keeper = IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
        if (kept.isNull()) kept = arguments[1];
        rows += IPE_Object_ToString(arguments[1]);
        return IPE_Object();
    });
    FSI_RowBatch batch(keeper, "insert", 1);
    for (int i = 0; i < 5; ++i) batch.add(IPE_Int(i), IPE_Int(-i));
    for (bool always : {true, true, false}) batch.flush(always);
    batch.add(IPE_String("x"));
    batch.flush(false);
    EXPECT_EQ(rows, "[(0, 0), (1, -1)][(2, -2), (3, -3)][(4, -4)][][('x')]");
    EXPECT_EQ(IPE_Object_ToString(kept), "[(0, 0), (1, -1)]");
    kept = {};
}

TEST_F(PathReports, TheIndexOfPathsGoesBackToTheCaller) {
    write(randomCensus(12, 80, 1));
    const std::string none = IPE_Object_ToString(run("path_index", "'mode': 'other'")),
                      list = IPE_Object_ToString(run("path_index"));
    EXPECT_EQ(none, "[]");
    EXPECT_EQ(list,
              "[('/dir2/', \"{'pathStart': 2, 'pathCount': 78}\", 0), ('/', \"{'pathStart': 1, 'pathCount': "
              "79}\", 1)]");
    database.takesResults = true;
    EXPECT_EQ(IPE_Object_ToString(run("path_index")), list);
    EXPECT_EQ(database.results, list);
    EXPECT_EQ(IPE_Object_ToString(run("path_index", "'mode': 'other'")), none);
    EXPECT_EQ(database.results, none);
}
