// The rows of every report on a random census, beside what SQL finds in a dump of it.
#include <future>

#include "ipe/values/ipe_globals.h"
#include "report_cases.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadmanager.h"

namespace {

class Recount : public Reports {
  public:
    // Of each row of `t`, with these columns, a text of its details that holds `mark` and the value of
    // `column`.
    void detailsHold(const char* mark, const char* column) {
        none(std::string("t where instr(details, '''") + mark + "'': ' || quote(" + column + ")) = 0");
    }
    std::promise<void> done;
};

std::string textOf(const IPE_Object& message, const IPE_Object& amount) {
    return IPE_Object_Text(message) + " " + IPE_Object_Text(amount);
}

const std::string Extension = "lower(replace(f.name, rtrim(f.name, replace(f.name, '.', '')), ''))";

}  // namespace

TEST_F(Recount, ReportsOnFiles) {
    ModelCensus census = randomCensus(21, 300, 6);
    // Ties of value, path and name, across the places where lists are cut, moments out of range, and none at
    // all.
    for (ModelPath& path : census.paths)
        for (size_t i = 0; i < path.files.size(); i += 3) path.files[i].size = 77000;
    census.paths[1].files.push_back(
        {"odd.txt", 60000, 61440, momentOf(1812, 9, 14), momentOf(2150, 1, 1), {}});
    census.paths[9].files.clear();
    write(census);
    for (const Question& question : Questions) {
        std::string with = question.option(), where = question.where, rows = Files + "where " + where;
        SCOPED_TRACE(with);
        std::string matches = database.query("select 'x', count(*) " + rows);
        matches = "'count': " + matches.substr(7, matches.size() - 9);
        auto counted = [&] {
            return database.query("select object from about").find(matches) != std::string::npos;
        };

        for (const char* field : {"size", "Space"})
            for (const char* count : {"1", "7", "150", "100000"}) {
                run("file_largest", with + ", 'field': '" + field + "', 'count': " + count);
                same("select ipath, value, path, name from t",
                     "select f.n, f." + std::string(field) + ", text, f.name " + rows +
                         " order by 2 desc, 1 desc, 4 desc limit " + count);
                detailsHold("Name", "name");
                EXPECT_TRUE(counted()) << matches;
            }

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

        for (const std::string cap : {"0", "1", "3", "200"}) {
            run("file_search", with + ", 'preview_cap': " + cap);
            std::string hit = std::string("(f.n is not null and (") + where + "))";
            same("select path, size, space, count, filteredsize, filteredspace, filteredcount, ipath from t",
                 "select text, ifnull(sum(f.size),0), ifnull(sum(f.space),0), count(f.n), "
                 "sum(ifnull(f.size, 0) * " +
                     hit + "), sum(ifnull(f.space, 0) * " + hit + "), sum(" + hit +
                     "), p.n from s join p on p.n between s.n and s.last left join f on f.n = p.n "
                     "group by s.number, p.n order by s.number, p.n");
            // Neighbours among the matches of a directory: their row less their place is one number.
            same("select offset, count from t_offsets",
                 "select min(r), count(*) from (select s.number as number, f.n as n, f.r as r, f.r - "
                 "row_number() "
                 "over (partition by s.number, f.n order by f.r) as run " +
                     rows + ") group by number, n, run order by number, min(r)");
            same("select ipath, path, name from t_preview",
                 "select n, text, name from (select s.number as number, f.n as n, text, f.name as name, f.r "
                 "as r, "
                 "row_number() over (partition by s.number, f.n order by f.r) as place " +
                     rows + ") where place <= " + cap + " order by number, r",
                 2);
            none("t_preview where instr(details, name) = 0");
            EXPECT_TRUE(counted()) << matches;
        }

        for (bool perPath : {false, true})
            // The second is the same question in a form that is not known to look at the extension alone.
            for (const char* regex : {"[.]([^.]+)$", "(?:)[.]([^.]+)\\\\z"}) {
                run("group_by_pcre",
                    with + ", 'regex': '" + regex + "', 'perpath': " + (perPath ? "1" : "0"));
                same("select ipath, value, size, space, count from t order by 1, 2",
                     std::string("select ") + (perPath ? "s.n" : "0") + ", " + Extension +
                         ", sum(f.size), sum(f.space), count(*) " + rows +
                         " and f.name like '%.%' group by 1, 2 order by 1, 2");
            }

        // Months up to the epoch, 15 July 2015 in seconds and by its digits; the object holds nothing but the
        // pairs of its months.
        for (const char* epoch : {"None", "1437000000", "20150715"})
            for (const char* pivot : {"accessed", "Modified"}) {
                run("group_by_pcre_date", with + ", 'regex': '[.]([^.]+)$', 'regex_dvalue': '-', 'pivot': '" +
                                              pivot + "', 'epoch': " + epoch);
                std::string month = std::string("substr(f.") + pivot + ", 1, 7)";
                if (*epoch != 'N') month = "min(" + month + ", '2015-07')";
                std::string months = "(select iif(f.name like '%.%', " + Extension + ", '-') as v, " + month +
                                     " as month, sum(f.size) as size, sum(f.space) as space " + rows +
                                     " group by 1, 2)";
                same("select value, size, space from t order by 1",
                     "select v, sum(size), sum(space) from " + months + " group by v order by v");
                std::string item = "'''' || month || ''': (' || m.size || ', ' || m.space || ')'";
                none("t join " + months + " m on v = value where instr(replace(object, 'L', ''), " + item +
                     ") = 0");
                same("select value, length(replace(object, 'L', '')) from t order by 1",
                     "select v, sum(length(" + item + ") + 2) from " + months + " m group by v order by v");
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
    run("file_search", "'filter': 'Size < 0'");
    none("t where filteredcount != 0 or filteredsize != 0");
    none("t_offsets");
    none("t_preview");
}

TEST_F(Recount, ReportsOnPathsAndRights) {
    for (const char* rights : {"PathDACL", "Rights"}) {
        ModelCensus census = randomCensus(22, 300, 6);
        census.rightsTable = rights;
        write(census);
        run("dacl_search",
            std::string("'table': '") + rights + "', 'filter': 'Rights >= 5', 'preview_cap': 1");
        same("select path, count, filteredcount, ipath from t",
             "select text, count(d.n), sum(d.n is not null and rights >= 5), p.n from s join p on p.n "
             "between s.n and "
             "s.last left join d on d.n = p.n group by s.number, p.n order by s.number, p.n");
        same("select ipath, path from t_preview",
             "select p.n, text from s join d on d.n between s.n and s.last join p on p.n = d.n where rights "
             ">= 5 group "
             "by s.number, p.n order by s.number, p.n");
        none("t_preview where details not like '{%''Rights'': %'");
    }
    EXPECT_EQ(fault("dacl_search").substr(0, 13), "DatabaseError");    // there is no PathDACL
    run("dacl_search", "'table': 'File', 'filter': 'Size >= 40000'");  // any table that has a path
    same("select ipath, count, filteredcount from t",
         "select p.n, count(f.n), ifnull(sum(f.size >= 40000), 0) from s join p on p.n between s.n and "
         "s.last left "
         "join f on f.n = p.n group by s.number, p.n order by s.number, p.n");

    const std::pair<const char*, const char*> questions[] = {
        {"Owner = 3", "owner = 3 "}, {"", "1 "}, {"Owner = 9", "0 "}};
    for (const auto& [filter, where] : questions) {
        SCOPED_TRACE(where);
        std::string with = std::string("'filter': '") + filter + "'", paths = Paths + "where " + where;
        run("path_names", with);
        same("select ipath, path from t", "select p.n, text " + paths + "order by s.number, p.n", 2);
        run("path_search", with);
        same("select path, totalcount, filteredcount, ipath from t",
             "select text, s.last - s.n + 1, (select count(*) from p where p.n between s.n and s.last and " +
                 std::string(where) + "), s.n from s join p on p.n = s.n order by s.number");
        same("select offset, count from t_offsets",
             "select min(n), count(*) from (select s.number as number, p.n as n, p.n - row_number() over "
             "(partition by "
             "s.number order by p.n) as run " +
                 paths + ") group by number, run order by number, min(n)",
             2);
        const std::pair<const char*, const char*> fields[] = {
            {"size", "ifnull((select sum(size) from f where f.n = p.n), 0)"},
            {"Space", "ifnull((select sum(space) from f where f.n = p.n), 0)"},
            {"files", "(select count(*) from f where f.n = p.n)"},
            {"Levels", "max(length(text) - length(replace(text, '/', '')) - 1, 0)"}};
        for (const auto& [field, value] : fields)
            for (const char* count : {"3", "249", "1000"}) {
                run("path_largest", with + ", 'field': '" + field + "', 'count': " + count);
                same("select value, path, ipath from t",
                     std::string("select ") + value + ", text, p.n " + paths +
                         "order by 1 desc, 3 desc limit " + count,
                     2);
                detailsHold("Number", "ipath");
            }
    }

    for (const Question& question : Questions) {
        std::string with = question.option();
        SCOPED_TRACE(with);
        auto latest = [](const char* column) {
            return std::string(", ifnull(max(case when hit then ") + column + " end), '0000-00-00 00:00:00')";
        };
        // Every directory with the files of its tree; `own` are those that stand in it.
        std::string tree =
            "(select s.number, p.n as n, p.text, p.name, f.*, f.n = p.n as own, f.n is not null and (" +
            std::string(question.where) +
            ") as hit from s join p on p.n between s.n and s.last left join f on f.n between p.n and "
            "p.last) group by number, n order by number, n";
        auto figures = [&](const std::string& use) {
            return "total(size * (hit and " + use + ")), total(space * (hit and " + use +
                   ")), total(r is not null and " + use + ")" + latest("created") + latest("modified") +
                   latest("accessed");
        };
        std::string columns = "size + 0.0, space + 0.0, files + 0.0, lastcreated, lastmodified, lastaccessed";
        run("path_summary", with);
        same("select ipath, path, " + columns + " from t",
             "select n, text, " + figures("own") + " from " + tree);
        run("tree_summary", with);
        same("select path, name, " + columns + ", ipath from t",
             "select text, name, " + figures("1") + ", n from " + tree);
    }
}

TEST_F(Recount, TextsAreHiddenAndCarryTheBase) {
    selectionMore = "'hide_paths': 1, 'base': ['server', 'c:']";
    write(randomCensus(4, 150, 2, 9), {"server", "c:"}, true);
    select({middle, 1});
    for (const char* report : {"path_names", "path_summary", "tree_summary", "file_search", "dacl_search"}) {
        run(report);
        same("select ipath, path from t", "select p.n, text " + Paths + "order by s.number, p.n");
    }
    run("tree_summary");
    same("select ipath, name from t", "select p.n, p.name " + Paths + "order by s.number, p.n");
    for (const char* report : {"path_largest", "file_largest", "path_search", "spacemap"}) {
        run(report, "'count': 100000, 'threshold': 400000");
        EXPECT_GT(database.query("select path from t").size(), 20u);
        none("t where path not in (select text from p where p.n = ipath)");
    }
    none("t where mode = 1 and parent_id > 0 and name not in (select name from p)");
    selected = "[{'name': '/server/c:/'}]";
    run("path_search");
    EXPECT_EQ(database.query("select path, totalcount, ipath from t"), "[('/server/c:/', 150, 1)]");
}

// What must hold of every space map, whatever its layout: amounts add up, and directories are whole.
TEST_F(Recount, SpaceMapsAddUp) {
    ModelCensus census = randomCensus(23, 300, 6);
    for (ModelPath& path : census.paths)
        for (size_t i = 0; i < path.files.size(); i += 3) path.files[i].space = path.files[i].size / 2;
    write(census);
    for (const char* field : {"size", "space", "files", "savings", "rights"})
        for (const Question& question : Questions) {
            run("spacemap", question.option() + ", 'threshold': 40000, 'field': '" + field + "'");
            SCOPED_TRACE(field + question.option());
            const bool amounts = *field == 's', rights = *field == 'r';
            std::string measure = !amounts              ? "count(*)"
                                  : *(field + 1) == 'a' ? "sum(f.size - f.space)"
                                                        : "sum(f." + std::string(field) + ")";
            std::string own = amounts ? ", psize, pspace" : "",
                        all = amounts ? ", sum(psize), sum(pspace)" : "";
            EXPECT_GT(database.query("select id from t where mode = 0 and parent_id > 2").size(), 10u);
            // What stands for the files of a directory or its rights has no size of its own.
            same("select id, size" + own +
                     " from t n where exists (select 1 from t where parent_id = n.id) order by id",
                 "select parent_id, sum(size)" + all +
                     " from t where parent_id > 0 group by parent_id order by parent_id");
            auto tree = [&](const std::string& sum, const std::string& table, const char* where) {
                return "(select ifnull(" + sum + ", 0) from " + table +
                       " f where f.n between p.n and p.last and " + where + ")";
            };
            const std::string folders =
                " from t join p on p.text = case parent_id when 0 then t.path else t.path || t.name || '/' "
                "end where "
                "t.mode = 1";
            same("select size from t where mode = 1 order by id",
                 "select " + tree(measure, rights ? "d" : "f", amounts ? question.where : "1") + folders +
                     " order by id");
            same("select psize, pspace from t where mode = 1 and parent_id > 0 order by id",
                 "select " +
                     (rights ? "0, 0"
                             : tree("sum(f.size)", "f", question.where) + ", " +
                                   tree("sum(f.space)", "f", question.where)) +
                     folders + " and parent_id > 0 order by id");
            none("t where id <= parent_id or mode not in (0, 1, 2)");
            // Items stand in the order of their sizes.
            none(
                "t a join t b on b.id = a.id + 1 and b.parent_id = a.parent_id where a.mode < 2 and b.mode < "
                "2 and "
                "a.parent_id > 0 and a.size > b.size");
        }
}
// What a script on another thread would read, and what the keyword's callable gets.
TEST_F(Recount, ProgressIsShownAndRemoved) {
    ModelCensus census;
    census.paths = {{0, "/", std::vector<ModelFile>(4000, {"a", 1, 1})}};
    writeAlone(census);
    static std::vector<std::string> heard;
    auto work = [](EPA_ThreadPassportImpl& passport) {
        passport.announce("report_%i");
        auto& self = *static_cast<Recount*>(passport.argument());
        auto shown = [](const char* key) {
            return IPE_ThreadStore().getKey(IPE_String("progress"), IPE_String(key));
        };
        self.progress = IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
            heard.push_back(textOf(arguments[0], arguments[1]));
            return IPE_Object();
        });
        for (const char* report : {"file_largest", "file_ages"}) {
            std::string last;
            self.database.watch = [&](const std::string& sql) {
                if (!sql.starts_with("insert into $table") || heard.empty()) return;
                EXPECT_TRUE(IPE_Object_Equal(shown("message"), shown("msg_primitive")));
                IPE_List message(shown("message"));
                last = textOf(message[0], message[1]);
            };
            self.run(report);
            EXPECT_FALSE(IPE_ThreadStore().has("progress"));
            EXPECT_EQ(last, heard.empty() ? "" : heard.back()) << report;
            if (heard.empty()) continue;  // file_ages has no messages
            const std::string first =
                "\xF4\x8F\xBF\xBAprogress.report_threshold,${0}% Finding the report threshold] ";
            const std::string second =
                "\xF4\x8F\xBF\xBAprogress.file_threshold,${0}% Finding the largest files] ";
            const std::string steps[] = {first + "0",  first + "12", first + "25",
                                         first + "38", first + "50", second + "50"};
            EXPECT_NE(std::search(heard.begin(), heard.end(), std::begin(steps), std::end(steps)),
                      heard.end());
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
    for (ModelPath& path : census.paths) path.files = {{"f.txt", 1, 1}};
    writeAlone(census);
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
    census.paths = {{0, "/", {{"secret.txt", INT64_MAX, 900}, {"other.txt", INT64_MAX, 90}}},
                    {1, "d", {{"\u00C4B", 1, 1}}}};
    writeAlone(census);
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
}
