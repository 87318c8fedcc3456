// The reports into a real database, beside a flat dump of the same census: what they write must equal what
// SQL finds in the dump. Only the dump and the statement are C++, so nothing is shared with the reports.
#include <future>

#include "census_support.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_literal.h"
#include "ipe_sqlite/ipe_sqlite.h"
#include "ipe_sqlite/ipe_sqlite_connection.h"
#include "ipe_sqlite/ipe_sqlite_cursor.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadmanager.h"
#include "runtime/xpk_threadstate.h"

namespace {

// Runs each statement in the database, with the names of the templates filled in.
class Database final : public IPE_Type {
  public:
    static constexpr const char TypeName[] = "Database";
    Database() : IPE_Type(TypeName) {
        connection_ = IPE_Sqlite::shared().as<IPE_Sqlite>()->connect(IPE_String(":memory:"));
        cursor = connection_.as<IPE_Sqlite_Connection>()->cursor();
    }
    IPE_Object __call__(const IPE_Arguments& arguments) override {
        std::string sql = IPE_Object_Text(arguments[0]);
        if (watch) watch(sql);
        replace(sql, "${table}", "t");
        replace(sql, "$table", "t");
        replace(sql, "$cache", "'run'");
        replace(sql, "$ipath__c", std::to_string(path));
        run(sql, arguments.size() > 1 ? arguments[1] : IPE_Object());
        return {};
    }
    IPE_Object __getattr__(const IPE_Object& key, int depth) override {
        if (!key->is_text("set")) return IPE_Type::__getattr__(key, depth);
        static Database* self;
        self = this;
        return IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
            EXPECT_EQ(IPE_Object_Text(arguments[0]), "ipath");
            self->path = arguments[1]->__int__();
            return IPE_Object();
        });
    }
    void run(const std::string& sql, const IPE_Object& rows = {}) {
        if (rows.isNull())
            cursor.as<IPE_Sqlite_Cursor>()->execute(sql);
        else
            cursor.as<IPE_Sqlite_Cursor>()->executemany(sql, rows);
    }
    std::string query(const std::string& sql) {
        cursor.as<IPE_Sqlite_Cursor>()->execute(sql);
        return IPE_Object_ToString(cursor.as<IPE_Sqlite_Cursor>()->fetchall());
    }
    IPE_Object cursor;
    int64_t path = -1;
    std::function<void(const std::string&)> watch;  // sees each template

  private:
    static void replace(std::string& text, std::string_view mark, const std::string& by) {
        for (size_t at; (at = text.find(mark)) != std::string::npos;) text.replace(at, mark.size(), by);
    }
    IPE_Object connection_;
};

class Recount : public ReportCases {
  public:  // the work of another thread uses it all
    // Writes a census and its dump: p (n, parent, name, text, last, owner), f (r, n, name, size, space,
    // created, accessed, modified, owner) and d (r, n, entity, rights). Selects a tree in the middle twice.
    void write(const ModelCensus& census) {
        writeCensus(census, folder.file());
        database.run("create table p (n, parent, name, text, last, owner)");
        database.run("create table f (r, n, name, size, space, created, accessed, modified, owner)");
        database.run("create table d (r, n, entity, rights)");
        IPE_Object paths = IPE_NewList(), files = IPE_NewList(), rights = IPE_NewList();
        auto rowOf = [](const IPE_Object& list) { return list.as<IPE_ListType>()->count() + 1; };
        for (size_t i = 0; i < census.paths.size(); ++i) {
            const ModelPath& path = census.paths[i];
            IPE_Object n = IPE_Int(int64_t(i) + 1);
            paths.as<IPE_ListType>()->append(
                IPE_TupleOf({n, IPE_Int(path.parent), IPE_String(path.name), IPE_String(census.textOf(i + 1)),
                             IPE_Int(int64_t(census.endOfTree(i + 1))), IPE_Int(path.owner)}));
            for (const ModelFile& file : path.files)
                files.as<IPE_ListType>()->append(IPE_TupleOf(
                    {IPE_Int(rowOf(files)), n, IPE_String(file.name), IPE_Int(file.size), IPE_Int(file.space),
                     IPE_String(momentText(file.created)), IPE_String(momentText(file.accessed)),
                     IPE_String(momentText(file.modified)), IPE_Int(file.owner)}));
            for (const ModelRight& right : path.rights)
                rights.as<IPE_ListType>()->append(
                    IPE_TupleOf({IPE_Int(rowOf(rights)), n, IPE_Int(right.entity), IPE_Int(right.rights)}));
        }
        database.run("insert into p values (?,?,?,?,?,?)", paths);
        database.run("insert into f values (?,?,?,?,?,?,?,?,?)", files);
        database.run("insert into d values (?,?,?,?)", rights);
        database.run("create table s (number, n, last)");  // the selections
        size_t middle = 2;
        while (census.endOfTree(middle) < middle + 20) ++middle;
        selected = "[{'name': " + std::to_string(middle) + "}, {'name': '/'}]";
        database.run("insert into s select 1, n, last from p where n = " + std::to_string(middle));
        database.run("insert into s select 2, n, last from p where n = 1");
    }
    void run(const std::string& report, const std::string& more = "") {
        for (const char* table : {"t", "t_offsets", "t_preview", "about"})
            database.run(std::string("drop table if exists ") + table);
        IPE_Object options = parse_literal("{'paths': " + selected + (more.empty() ? "" : ", ") + more + "}");
        const IPE_Object arguments[] = {IPE_String("run"), statement, censusOptions(folder.file()), options};
        if (report == "file_duplicated") options.as<IPE_DictType>()->setText("dcursor", database.cursor);
        IPE_Object keywords = IPE_NewDict();
        keywords.as<IPE_DictType>()->setText("lua", host);
        keywords.as<IPE_DictType>()->setText("progress", progress);
        IPE_ModuleRegistry::lookup("storage." + report)
            .as<IPE_ModuleBridge>()
            ->factory()(IPE_Arguments(arguments, 4, keywords));
        EXPECT_EQ(database.query("select cache, count(*) from about"), "[('run', 1)]") << report;
    }
    std::string fault(const std::string& report, const std::string& more = "") {
        try {
            run(report, more);
        } catch (const XPK_Exception& e) {
            return e.type() + ": " + e.message();
        }
        return "none";
    }
    // Both queries answer the same, and more than nothing.
    void same(const std::string& found, const std::string& expected) {
        std::string rows = database.query(found);
        EXPECT_GT(rows.size(), 10u) << found;
        EXPECT_TRUE(rows == database.query(expected)) << found << "\n" << expected;
    }

    XPK_ThreadScope scope{true};
    CensusFolder folder;
    IPE_Object host = IPE_None(), progress = IPE_None(), statement = IPE_New<Database>();
    Database& database = *statement.as<Database>();
    std::string selected;
    std::promise<void> done;
};

// The same question as a query and in SQL.
struct Question {
    const char *filter, *where;
};
const Question Questions[] = {
    {"", "1"},
    {"Size >= 40000 and Name = '[.]txt$'", "f.size >= 40000 and f.name like '%.txt'"},
    {"Modified > 20120601120000 or Owner = 3", "(f.modified > '2012-06-01 12:00:00' or f.owner = 3)"}};
const std::string Files = "from s join f on f.n between s.n and s.last join p on p.n = f.n ";

}  // namespace

TEST_F(Recount, ReportsOnFiles) {
    write(randomCensus(21, 300, 6));
    for (const auto& [filter, where] : Questions) {
        std::string with = std::string("'filter': \"") + filter + "\"", rows = Files + "where " + where;
        SCOPED_TRACE(filter);

        run("file_largest", with + ", 'count': 150");
        same("select ipath, value, path, name from t",
             "select f.n, f.size, text, f.name " + rows + " order by 2 desc, 1 desc, 4 desc limit 150");
        std::string matches = database.query("select 'x', count(*) " + rows);
        matches = "'count': " + matches.substr(7, matches.size() - 9);
        EXPECT_NE(database.query("select object from about").find(matches), std::string::npos) << matches;

        for (const char* mode : {"size", "space", "count"}) {
            run("file_ages", with + ", 'mode': '" + mode + "'");
            std::string amount = *mode == 'c' ? "1" : "f." + std::string(mode), all;
            for (const char* column : {"created", "accessed", "modified"}) {
                all += std::string(all.empty() ? "" : " union all ") + "select substr(f." + column +
                       ",1,10) as d";
                for (const char* other : {"created", "accessed", "modified"})
                    all += std::string(",") + (column == std::string(other) ? amount : "0") + " as " + other;
                all += " " + rows;
            }
            same("select date, created, accessed, modified from t order by 1",
                 "select d, sum(created), sum(accessed), sum(modified) from (" + all +
                     ") group by d order by d");
        }

        run("file_search", with + ", 'preview_cap': 3");
        std::string hit = std::string("(f.n is not null and (") + where + "))";
        same("select path, size, space, count, filteredsize, filteredspace, filteredcount, ipath from t",
             "select text, ifnull(sum(f.size),0), ifnull(sum(f.space),0), count(f.n), sum(ifnull(f.size, 0) "
             "* " +
                 hit + "), sum(ifnull(f.space, 0) * " + hit + "), sum(" + hit +
                 "), p.n from s join p on p.n between s.n and "
                 "s.last left join f on f.n = p.n group by s.number, p.n order by s.number, p.n");
        // Neighbours among the matches of a directory: their row less their place is one number.
        same("select offset, count from t_offsets",
             "select min(r), count(*) from (select s.number as number, f.n as n, f.r as r, f.r - "
             "row_number() over "
             "(partition by s.number, f.n order by f.r) as run " +
                 rows +
                 ") group by number, n, run order by number, "
                 "min(r)");
        same(
            "select ipath, path, name from t_preview",
            "select n, text, name from (select s.number as number, f.n as n, text, f.name as name, f.r as r, "
            "row_number() over (partition by s.number, f.n order by f.r) as place " +
                rows + ") where place <= 3 order by number, r");

        // What stands behind the last full stop.
        std::string extension = "lower(replace(f.name, rtrim(f.name, replace(f.name, '.', '')), ''))";
        for (bool perPath : {false, true}) {
            run("group_by_pcre", with + ", 'regex': '[.]([^.]+)$', 'perpath': " + (perPath ? "1" : "0"));
            std::string path = perPath ? "s.n" : "0";
            same("select ipath, value, size, space, count from t order by 1, 2",
                 "select " + path + ", " + extension + ", sum(f.size), sum(f.space), count(*) " + rows +
                     " and f.name like '%.%' group by 1, 2 order by 1, 2");
        }

        database.run("create table details (name, size, date, owner, path, hash, ipath, field1, field2)");
        run("file_duplicated", with + ", 'fields': ['Size', 'Owner']");
        same("select name, size, date, owner, path, ipath, field1, field2 from details",
             "select f.name, f.size, f.modified, f.owner, text, f.n, f.size, f.owner " + rows +
                 " order by s.number, f.r");
        same("select count(*) as c, size from details group by hash order by c, size",
             "select count(*) as c, f.size " + rows + " group by f.size, f.owner order by c, f.size");
        database.run("drop table details");
    }
}

TEST_F(Recount, ReportsOnPathsAndRights) {
    write(randomCensus(22, 300, 6));
    run("dacl_search", "'filter': 'Rights >= 5', 'preview_cap': 1");
    same("select path, count, filteredcount, ipath from t",
         "select text, count(d.n), sum(d.n is not null and rights >= 5), p.n from s join p on p.n between "
         "s.n and "
         "s.last left join d on d.n = p.n group by s.number, p.n order by s.number, p.n");
    same("select ipath, path from t_preview",
         "select p.n, text from s join d on d.n between s.n and s.last join p on p.n "
         "= d.n "
         "where rights >= 5 group by s.number, p.n order by s.number, p.n");

    std::string paths = "from s join p on p.n between s.n and s.last where owner = 3 ";
    run("path_names", "'filter': 'Owner = 3'");
    same("select ipath, path from t", "select p.n, text " + paths + "order by s.number, p.n");
    run("path_search", "'filter': 'Owner = 3'");
    same("select path, totalcount, filteredcount, ipath from t",
         "select text, s.last - s.n + 1, (select count(*) from p where p.n between s.n and s.last and owner "
         "= 3), s.n "
         "from s join p on p.n = s.n order by s.number");
    same("select offset, count from t_offsets",
         "select min(n), count(*) from (select s.number as number, p.n as n, p.n - row_number() over "
         "(partition by "
         "s.number order by p.n) as run " +
             paths + ") group by number, run order by number, min(n)");
    run("path_largest", "'filter': 'Owner = 3', 'count': 40");
    same("select value, path, ipath from t",
         "select ifnull((select sum(size) from f where f.n = p.n), 0), text, p.n " + paths +
             "order by 1 desc, 3 desc limit 40");

    for (const auto& [filter, where] : Questions) {
        SCOPED_TRACE(filter);
        auto latest = [](const char* column) {
            return std::string(", ifnull(max(case when hit then ") + column + " end), '0000-00-00 00:00:00')";
        };
        // Every directory with the files of its tree; `own` are those that stand in it.
        std::string tree =
            "(select s.number, p.n as n, p.text, p.name, f.*, f.n = p.n as own, f.n is not null and (" +
            std::string(where) +
            ") as hit from s join p on p.n between s.n and s.last left join f on "
            "f.n between p.n and p.last) group by number, n order by number, n";
        auto figures = [&](const std::string& use) {
            return "total(size * (hit and " + use + ")), total(space * (hit and " + use +
                   ")), total(r is not null and " + use + ")" + latest("created") + latest("modified") +
                   latest("accessed");
        };
        std::string with = std::string("'filter': \"") + filter + "\"";
        std::string columns = "size + 0.0, space + 0.0, files + 0.0, lastcreated, lastmodified, lastaccessed";
        run("path_summary", with);
        same("select ipath, path, " + columns + " from t",
             "select n, text, " + figures("own") + " from " + tree);
        run("tree_summary", with);
        same("select path, name, " + columns + ", ipath from t",
             "select text, name, " + figures("1") + ", n from " + tree);
    }
}

// What must hold of every space map, whatever its layout: amounts add up, and directories are whole.
TEST_F(Recount, SpaceMapsAddUp) {
    write(randomCensus(23, 300, 6));
    for (const char* field : {"size", "space", "files"}) {
        run("spacemap", std::string("'threshold': 40000, 'field': '") + field + "'");
        SCOPED_TRACE(field);
        std::string measure = *field == 'f' ? "count(*)" : "sum(f." + std::string(field) + ")";
        EXPECT_GT(database.query("select id from t where mode = 0 and parent_id > 2").size(), 10u);
        // What stands for the files of a directory has no size of its own.
        std::string own = *field == 'f' ? "" : ", psize, pspace",
                    all = *field == 'f' ? "" : ", sum(psize), sum(pspace)";
        same("select id, size" + own +
                 " from t n where exists (select 1 from t where parent_id = n.id) order by id",
             "select parent_id, sum(size)" + all +
                 " from t where parent_id > 0 group by parent_id order by parent_id");
        same("select size from t where mode = 1 order by id",
             "select (select " + measure +
                 " from f where f.n between p.n and p.last) from t join p on p.text = case "
                 "parent_id when 0 then t.path else t.path || t.name || '/' end where mode = 1 order by id");
        EXPECT_EQ(database.query("select count(*) from t where id <= parent_id or mode not in (0, 1, 2)"),
                  "[(0)]");
    }
}

// What a script on another thread would read, and what the keyword's callable gets.
TEST_F(Recount, ProgressIsShownAndRemoved) {
    ModelCensus census;
    census.paths = {{0, "/", std::vector<ModelFile>(4000, {"a", 1, 1, {}, {}, {}}), {}}};
    writeCensus(census, folder.file());
    selected = "[{'name': 1}]";
    static std::vector<std::string> heard;
    auto work = [](EPA_ThreadPassportImpl& passport) {
        passport.announce("report_%i");
        auto& self = *static_cast<Recount*>(passport.argument());
        auto shown = [](const char* key) {
            return IPE_ThreadStore().getKey(IPE_String("progress"), IPE_String(key));
        };
        self.progress = IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
            heard.push_back(IPE_Object_Text(arguments[0]) + " " + IPE_Object_Text(arguments[1]));
            return IPE_Object();
        });
        for (const char* report : {"file_largest", "file_ages"}) {
            std::string last;
            self.database.watch = [&](const std::string& sql) {
                if (!sql.starts_with("insert into $table") || heard.empty()) return;
                EXPECT_TRUE(IPE_Object_Equal(shown("message"), shown("msg_primitive")));
                IPE_List message(shown("message"));
                last = IPE_Object_Text(message[0]) + " " + IPE_Object_Text(message[1]);
            };
            self.run(report);
            EXPECT_FALSE(IPE_ThreadStore().has("progress"));
            EXPECT_EQ(last, heard.empty() ? "" : heard.back()) << report;
            if (heard.empty()) continue;  // file_ages has no messages
            std::string first =
                "\xF4\x8F\xBF\xBAprogress.report_threshold,${0}% Finding the report threshold] ";
            std::string second = "\xF4\x8F\xBF\xBAprogress.file_threshold,${0}% Finding the largest files] ";
            heard.erase(heard.begin(), std::find(heard.begin(), heard.end(), first + "0"));
            heard.resize(std::max<size_t>(heard.size(), 7));
            EXPECT_EQ(std::vector<std::string>(heard.begin(), heard.begin() + 6),
                      (std::vector<std::string>{first + "0", first + "12", first + "25", first + "38",
                                                first + "50", second + "50"}));
            EXPECT_EQ(heard.back(), second + "100");
            // Also when the report fails.
            self.database.watch = [&](const std::string& sql) {
                if (sql.starts_with("insert")) XPK_Raise("RuntimeError", "full").raise();
            };
            EXPECT_EQ(self.fault(report), "RuntimeError: full");
            EXPECT_FALSE(IPE_ThreadStore().has("progress"));
            heard.clear();
        }
        self.database.watch = {};
        self.progress = IPE_None();
        self.done.set_value();
    };
    EPA_ThreadManager::instance().release();
    EPA_ThreadManager::instance().start(work, this);
    done.get_future().wait();
}

// Directories of one file: no walk is long enough to ask by itself.
TEST_F(Recount, ReportsEndWithTheServer) {
    ModelCensus census = randomCensus(24, 40, 0);
    for (ModelPath& path : census.paths) path.files = {{"f.txt", 1, 1, {}, {}, {}}};
    writeCensus(census, folder.file());
    selected = "[{'name': 1}]";
    database.watch = [](const std::string& sql) {
        if (sql.starts_with("create table if not exists $table")) epa_detail::running = false;
    };
    for (const char* report :
         {"path_largest", "path_names", "path_search", "path_summary", "tree_summary", "spacemap",
          "dacl_search", "file_ages", "file_largest", "file_search", "group_by_pcre"}) {
        fault("path_index");  // builds the index
        std::string ended = fault(report, "'regex': 'x'");
        epa_detail::running = true;
        EXPECT_EQ(ended, "SystemExit: ") << report;
    }
}

TEST_F(Recount, ColumnsAreShownAsTheSchemaHasThem) {
    ModelCensus census;
    census.paths = {
        {0, "/", {{"secret.txt", INT64_MAX, 900, {}, {}, {}}, {"other.txt", INT64_MAX, 90, {}, {}, {}}}, {}},
        {1,
         "d",
         {{"\xC3\x84"
           "B",
           1,
           1,
           {},
           {},
           {}}},
         {}}};
    writeCensus(census, folder.file());
    selected = "[{'name': 1}]";
    auto schema = [&](const std::string& adjust) {
        host = makeHost({{"File", "function adjust() " + adjust + " end"}},
                        {{"cut",
                          "function before() return {regex = '.*'} end "
                          "function during(t) return string.sub(t[1], 1, 1) .. 'Z' end"}},
                        {{"File", "Name"}, {"Path", "Number"}});
    };
    schema("setFieldTags('Name', {Transform = 'FileName'})");
    run("spacemap", "'threshold': 1000000");
    std::string names = database.query("select name from t where mode = 0 order by 1");
    EXPECT_EQ(names.find("secret"), std::string::npos);
    run("file_largest");
    EXPECT_EQ(database.query("select name from t order by 1"), names);
    // Sums wrap.
    run("file_search");
    EXPECT_EQ(database.query("select size, filteredsize, space from t"), "[(-2, -2, 990), (1, 1, 1)]");
    schema("");
    run("group_by_pcre", "'xform': 'cut'");  // half of a character
    EXPECT_EQ(database.query("select hex(value) from t order by 1"), "[('6F7A'), ('737A'), ('C37A')]");

    schema("setFieldName('Name', 'Other')");
    const std::pair<const char*, const char*> nameless[] = {
        {"file_largest", "t"}, {"file_search", "t_preview"}, {"spacemap", "t where mode = 0"}};
    for (const auto& [report, rows] : nameless) {
        run(report, "'threshold': 1000000");
        EXPECT_EQ(database.query(std::string("select distinct name from ") + rows), "[(None)]") << report;
    }
    for (const char* column : {"Size", "Space", "Accessed"}) {
        schema(std::string("setFieldName('") + column + "', 'Other')");
        for (const char* report : {"spacemap", "group_by_pcre_date"})
            EXPECT_EQ(fault(report, "'regex': 'x', 'pivot': 'Accessed'"),
                      std::string("DatabaseError: ") + column + " is not a property on File objects.");
    }
    // A script has no tuples: a pair is a table.
    schema("");
    run("iterate",
        "'script': \"options.paths = {{name = {1, 1}}} n = '' function before() end function after() end "
        "function during(path, name) n = n .. path end\"");
    EXPECT_EQ(IPE_Object_Text(IPE_LuaOf(host)->getGlobal("n")), "/d/");
}
