// What the tests of reports share: reports into a real database, beside a flat dump of the same census, so
// that what they write can be compared with what SQL finds in the dump. Only the dump and the statement are
// C++; nothing is shared with the reports.
#pragma once

#include "census_support.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "ipe_sqlite/ipe_sqlite.h"
#include "ipe_sqlite/ipe_sqlite_connection.h"
#include "ipe_sqlite/ipe_sqlite_cursor.h"

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
        IPE_Object rows = arguments.size() > 1 ? arguments[1] : IPE_Object();
        if (sql.starts_with("insert into $table (")) inserts.push_back(PyList_SafeCast(rows)->count());
        replace(sql, "${table}", "t");
        replace(sql, "$table", "t");
        replace(sql, "$cache", "'run'");
        replace(sql, "$ipath__c", std::to_string(path));
        run(sql, rows);
        return {};
    }
    IPE_Object __getattr__(const IPE_Object& key, int depth) override {
        static Database* self;
        self = this;
        if (key->is_text("results") && takesResults)
            return IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
                self->results = IPE_Object_ToString(arguments[0]);
                return IPE_Object();
            });
        if (!key->is_text("set")) return IPE_Type::__getattr__(key, depth);
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
    std::string text(const std::string& sql) {  // the only value
        cursor.as<IPE_Sqlite_Cursor>()->execute(sql);
        return IPE_Object_Text(cursor.as<IPE_Sqlite_Cursor>()->fetchone().as<IPE_TupleType>()->at(0));
    }
    IPE_Object cursor;
    int64_t path = -1;
    std::vector<int64_t> inserts;  // the rows of each into the report's table
    bool takesResults = false;
    std::string results;
    std::function<void(const std::string&)> watch;  // sees each template

  private:
    static void replace(std::string& text, std::string_view mark, const std::string& by) {
        for (size_t at; (at = text.find(mark)) != std::string::npos;) text.replace(at, mark.size(), by);
    }
    IPE_Object connection_;
};

class Reports : public ReportCases {
  public:  // the work of another thread uses it all
    // Writes a census and its dump: p (n, parent, name, text, last, owner, mode), f (r, n, name, size, space,
    // created, accessed, modified, owner, masked) and d (r, n, entity, rights). Paths read as with this base
    // and, if they are hidden, with masks. Selects a tree in the middle and the whole.
    void write(const ModelCensus& census, const std::vector<std::string>& base = {}, bool hidden = false) {
        writeCensus(census, folder.file());
        IPE_Object paths = IPE_NewList(), files = IPE_NewList(), rights = IPE_NewList();
        auto add = [](const IPE_Object& list, std::initializer_list<IPE_Object> row) {
            list.as<IPE_ListType>()->append(IPE_TupleOf(row));
        };
        auto rowOf = [](const IPE_Object& list) { return IPE_Int(list.as<IPE_ListType>()->count() + 1); };
        std::vector<std::vector<std::string>> shown(census.paths.size() + 1, base);
        for (size_t i = 0; i < census.paths.size(); ++i) {
            const ModelPath& path = census.paths[i];
            IPE_Object n = IPE_Int(int64_t(i) + 1);
            std::vector<std::string>& items = shown[i + 1];
            if (i > 0) {
                items = shown[static_cast<size_t>(path.parent)];
                items.push_back(hidden && items.size() >= 4 ? SMF_PathMask(path.name) : path.name);
            }
            std::string text = "/";
            for (const std::string& item : items) text += item + "/";
            add(paths,
                {n, IPE_Int(path.parent), IPE_String(items.empty() ? "/" : items.back()), IPE_String(text),
                 IPE_Int(int64_t(census.endOfTree(i + 1))), IPE_Int(path.owner), IPE_Int(path.mode)});
            for (const ModelFile& file : path.files)
                add(files, {rowOf(files), n, IPE_String(file.name), IPE_Int(file.size), IPE_Int(file.space),
                            IPE_String(momentText(file.created)), IPE_String(momentText(file.accessed)),
                            IPE_String(momentText(file.modified)), IPE_Int(file.owner),
                            IPE_String(SMF_FileMask(file.name))});
            for (const ModelRight& right : path.rights)
                add(rights, {rowOf(rights), n, IPE_Int(right.entity), IPE_Int(right.rights)});
        }
        const std::tuple<const char*, const char*, IPE_Object> tables[] = {
            {"p (n, parent, name, text, last, owner, mode)", "p values (?,?,?,?,?,?,?)", paths},
            {"f (r, n, name, size, space, created, accessed, modified, owner, masked)",
             "f values (?,?,?,?,?,?,?,?,?,?)", files},
            {"d (r, n, entity, rights)", "d values (?,?,?,?)", rights}};
        for (const auto& [columns, values, rows] : tables) {
            database.run("drop table if exists " + std::string(columns, 1));
            database.run("create table " + std::string(columns));
            database.run("insert into " + std::string(values), rows);
        }
        middle = 2;
        while (census.endOfTree(middle) < middle + 20 && middle < census.paths.size()) ++middle;
        select({middle, 1});
    }
    // The same without a dump, for a run on the whole.
    void writeAlone(const ModelCensus& census) {
        writeCensus(census, folder.file());
        selected = "[{'name': '/'}]";
    }
    void select(const std::vector<size_t>& numbers) {
        database.run("drop table if exists s");
        database.run("create table s (number, n, last)");
        selected.clear();
        for (size_t n : numbers) {
            selected += "{'name': " + (n == 1 ? "'/'" : std::to_string(n)) + "}, ";
            database.run("insert into s select " + std::to_string(selected.size()) +
                         ", n, last from p where n = " + std::to_string(n));
        }
        selected = "[" + selected.substr(0, selected.size() - 2) + "]";
    }
    // Runs a report on what is selected; `more` are further options as a literal. Gives what it returns.
    IPE_Object run(const std::string& report, const std::string& more = "") {
        for (const char* table : {"t", "t_offsets", "t_preview", "about"})
            database.run(std::string("drop table if exists ") + table);
        IPE_Object result =
            runWith(report, parse_literal("{'paths': " + selected + (more.empty() ? "" : ", ") + more + "}"));
        EXPECT_EQ(report == "path_index" ? "" : database.query("select cache, count(*) from about"),
                  report == "path_index" ? "" : "[('run', 1)]");
        return result;
    }
    IPE_Object runWith(const std::string& report, const IPE_Object& given) {
        options = given;
        database.inserts.clear();
        selection = censusOptions(folder.file(), selectionMore);
        const IPE_Object arguments[] = {IPE_String("run"), statement, selection, options};
        if (report == "file_duplicated" && !options.as<IPE_DictType>()->findText("dcursor"))
            options.as<IPE_DictType>()->setText("dcursor", database.cursor);
        IPE_Object keywords = IPE_NewDict();
        if (host) keywords.as<IPE_DictType>()->setText("lua", host);
        if (progress) keywords.as<IPE_DictType>()->setText("progress", progress);
        return function(report)(IPE_Arguments(arguments, 4, keywords));
    }
    static IPE_NativeFunction function(const std::string& report) {
        return IPE_ModuleRegistry::lookup("storage." + report).as<IPE_ModuleBridge>()->factory();
    }
    std::string fault(const std::string& report, const std::string& more = "") {
        return faultOf([&] { run(report, more); });
    }
    // Both queries answer the same, and more than nothing.
    void same(const std::string& found, const std::string& expected, size_t least = 11) {
        std::string rows = database.query(found);
        EXPECT_GE(rows.size(), least) << found;
        EXPECT_TRUE(rows == database.query(expected)) << found << "\n" << expected;
    }
    void none(const std::string& what) {
        EXPECT_EQ(database.query("select count(*) from " + what), "[(0)]") << what;
    }

    XPK_ThreadScope scope{true};
    CensusFolder folder;
    IPE_Object host, progress, options, selection, statement = IPE_New<Database>();
    Database& database = *statement.as<Database>();
    std::string selected, selectionMore;  // the second: further entries of the selection
    size_t middle = 0;
};

// The same question as a query and in SQL.
struct Question {
    const char *filter, *where;
    std::string option() const { return std::string("'filter': \"") + filter + "\""; }
};
inline const Question Questions[] = {
    {"", "1"},
    {"Size >= 40000 and Name = '[.]txt$'", "f.size >= 40000 and f.name like '%.txt'"},
    {"Modified > 20120601120000 or Owner = 3", "(f.modified > '2012-06-01 12:00:00' or f.owner = 3)"}};
inline const std::string Files = "from s join f on f.n between s.n and s.last join p on p.n = f.n ";
inline const std::string Paths = "from s join p on p.n between s.n and s.last ";
