// The query language: its statements, the tests of every field type, its faults.
#include "filter_table.h"
#include "ipe/values/ipe_containers.h"
#include "store_support.h"

namespace {

struct Context final : SMF_FilterContext {
    IPE_Object apiCall(std::string_view name, const std::vector<IPE_Object>& arguments) override {
        last = std::string(name) + "/" + std::to_string(arguments.size());
        return parse_literal(answer);
    }
    std::string answer, last;
};

class Filters : public ::testing::Test {
  protected:
    Filters() : open(filterStore()) {
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
    }
    std::string select(std::string_view query, SMF_FilterContext* context = nullptr) {
        std::string rows;
        std::string fault = faultOf([&] {
            SMF_RecordFilter filter(open.table, context);
            filter.setVariables(variables);
            cacheable = filter.compile(query);
            rows = rowsOf(open.table, filter);
        });
        return fault == "none" ? rows : fault.substr(0, fault.find('\n'));
    }
    // Rows, and the queries that select them.
    void expect(std::initializer_list<std::pair<const char*, std::vector<const char*>>> cases) {
        for (const auto& [rows, queries] : cases)
            for (const char* query : queries) EXPECT_EQ(select(query), rows) << query;
    }
    void expectFaults(const std::vector<const char*>& queries, const char* start) {
        for (const char* query : queries) EXPECT_TRUE(select(query).starts_with(start)) << query;
    }
    FilterTable open;
    IPE_Object variables = IPE_NewDict();
    bool cacheable = false;
};

const char* const All = "1 2 3 4 5 6";

}  // namespace

TEST_F(Filters, StatementsWorkOnTheResultSoFar) {
    expect({{All, {"", "   ", "()", "Count = 5 or ()"}},
            {"1",
             {"Count = 5", "Count = 5) and nonsense ?", "Count = 5 or Count = 7 and Size = 0",
              "count = 5 # and nothing else"}},
            {"2 3 4 5 6", {"not Count = 5"}},
            {"1 4", {"Count = 5 or Count = 7"}},
            {"2 4", {"Count > 5 and Count < 20"}},
            {"4", {"Count = 5 Count = 7"}},
            {"2 3 5 6", {"not (Count = 5 or Count = 7)"}},
            {"", {"not ()"}},
            {"1 3 4", {"Count = 5 or (Count > 5 and (Count < 8 or (Count = 100)))"}}});
}

TEST_F(Filters, LengthsGoIntoTheAccumulator) {
    expect({{"1 2 6", {"Name@length 10 =", "Name@length Owner@length 14 =="}},
            {"3 4 5", {"Name@length 10 <>"}},
            {"4 5", {"Name@length 8 <="}},
            {"5", {"Name@length 10 < and Owner@length 9 <"}},
            {"1 2 3 6", {"not Name@length 10 <", "Name@length 9.5 >"}},
            {"3", {"Name@length 14 >=", "Name.end,ci+3@length 14 ="}},
            {All, {"Name@length", "Name@length (0 =)", "Count = 5 5 pass"}},
            {"", {"Name@length (10 =)"}}});
}

TEST_F(Filters, BranchesOnlyAssign) {
    expect({{All, {"if (Count > 5) : (Size = 1)", "Count = 5 %v -1.5", "def t string {} %t 'abc' t = '^AB'"}},
            {"3", {"def n i32 {} if (Count > 50) : (%n 1) elif (Count > 5) : (%n 2) else : (%n 3) n = 1"}},
            {"2 4 6",
             {"def n2 i32 {} if (Count > 50) : (%n2 1) elif (Count > 5) : (%n2 2) else : (%n2 3) n2 = 2"}},
            {"1 5",
             {"def n3 i32 {} if (Count > 50) : (%n3 1) elif (Count > 5) : (%n3 2) else : (%n3 3) n3 = 3"}},
            {"1", {"Count = 5 or (if (Count = 7) : (%v 1))", "%v 'text' Count = 5"}},
            {"", {"def s string {'Default': 'x', b: 2,} %s 'abc' s = '^B'"}}});
    select("%v [1, 'a'] %w 2");
    EXPECT_EQ(IPE_Object_ToString(IPE_Object(variables.as<IPE_DictType>()->findText("v"))), "[1, 'a']");
    EXPECT_EQ(variables.as<IPE_DictType>()->findText("w")->__int__(), 2);
}

TEST_F(Filters, TextsMatchAndBelong) {
    expect({{"1 2",
             {"Name = 'iso'", "Name,ci == 'ISO$'", "Name <> '\\{N}iso'", "Owner in ['ANNA', 7]",
              "Owner+3 = '^a$'", "Owner,ce = 'a'"}},
            {"1", {"Name,ce eq 'iso'", "Name.end,ce ['iso', 'readme']"}},
            {"3 4 5 6", {"Name <> 'iso'", "Name = '\\{N}iso'"}},
            {"5", {"Name ne '^(r|a)'", "Owner = '^$'"}},
            {"6", {"Name.end = '^x$'", "Name,tail = '^core'"}},
            {"1 2 4", {"Name.end in ['iso', 'README']"}},
            {"2 6", {"Name,tail,ce+4 in ('.x', 'rt.ISO')"}},
            {"3 4 5", {"Owner+3 = '^$'"}},
            {"", {"Name = 'o\\\\.p'"}},
            {"1 2 5", {"Name = '.p'"}}});
    EXPECT_EQ(select("Name = '('"), "InvalidRegularExpressionException: missing closing parenthesis");
    EXPECT_EQ(select("Name = '(a*)*(a*)*(a*)*(a*)*(a*)*(a*)*(a*)*b?$(*COMMIT)x|(e+)+(e+)+(e+)+Q'"), "");
}

TEST_F(Filters, TheContextGivesTexts) {
    Context context;
    context.answer = "'O.I'";
    EXPECT_EQ(select("Name = @groups ['a', 'b']", &context), "");
    EXPECT_EQ(context.last, "groups/2");
    context.answer = "['T.I', 'gz', 'a\\\\Eb']";
    EXPECT_EQ(select("Name = @groups 'one'", &context), "1 2 3");
    EXPECT_EQ(context.last, "groups/1");
    EXPECT_EQ(select("Name,ce <> @groups []", &context), "1 2 4 5 6");
    EXPECT_EQ(select("Name.end in @groups []", &context), "3");
    context.answer = "5";
    EXPECT_EQ(select("Name = @groups []", &context),
              "InvalidFilterException: Expecting a string or a list from groups");
    EXPECT_EQ(select("Name = @groups []").substr(0, 14), "AssertionError");
}

TEST_F(Filters, NumbersCompare) {
    expect({{"2 3 4 5 6", {"Count <> 5"}},
            {"2 3 6", {"Count >= 12"}},
            {"1 5", {"Count <= 5"}},
            {"1 2 3 5 6", {"Count < mode", "mode has ur"}},
            {"1 2 3 4", {"Count in [(5, 2), (7, 5), (100, 0), 'x']"}},
            {"", {"Count in []"}},
            {"1",
             {"Size = 10kb and Count = 5", "Size = 10 KB", "Size = 10240 and Count = 5",
              "Size gt 1.5 KB and Size lt 10.5kb", "mode is [ur, uw, gr, or]"}},
            {"2 4", {"Size >= 5MB", "Size lt 1tb and Size ge 5242880b"}},
            {"4", {"Size gt 9gb", "mode is []"}},
            {"1 3 5 6", {"Size le Space", "mode has or"}},
            {"2 4 5", {"Size ne Space"}},
            {All, {"Size < 99999999999999999999tb"}},
            {"3", {"mode has [s, ur]"}},
            {"2", {"mode eq 448"}},
            {"3 5", {"mode lt > 448"}}});
    expectFaults({"Count in [5]", "Count in 5", "Count = -1", "Count eq 5", "Count = '5'", "Count",
                  "Size = 5 Name = 'x'", "Size in [(1, 2)]", "mode has [ur, zz]", "mode has"},
                 "InvalidFilterException: Expecting");
    expectFaults({"Count in [(1, 10000000)]", "Count in [(-1, 2)]", "Count in [(1, 2, 3)]"},
                 "AssertionError");
    EXPECT_EQ(select("mode has [ur, zz]"), "InvalidFilterException: Expecting a permission");
    EXPECT_EQ(select("Count = Size"), "DatabaseError: Incorrect field type, expecting I32, actual I64");
    EXPECT_EQ(select("Size = Nothing"), "DatabaseError: Nothing is not a property on File objects.");
}

TEST_F(Filters, DatesCompareByParts) {
    expect({{"1 2", {"Day = 2006-*-15"}},
            {"5", {"Day <> 2006-06-15", "Day ne 20060615"}},
            {"1 4 5", {"Day < 20060630"}},
            {"1 4 5 6", {"Day <= 2006:06:30"}},
            {"", {"Day > 2006", "Day < *"}},
            {"2 3", {"Day ge 2006-07"}},
            {"1 4 6", {"Day = *-06"}},
            {All, {"Day = *"}},
            {"1",
             {"Day = 20060615123000", "When = 20060615123000", "When = 20060615", "Day = 2006-06-14 + 1 day",
              "When = 20060614 + 1 day", "  When = 2006-06-22 - 1 week", "Day = 2006-06-18 - 3 days",
              "Day = 2006-06-18 - 3DAYS", "Day + 3 days = 2006-06-18", "Day - 1 week = 2006-06-08",
              "When = 20060614123000 + 24 hours", "Day on thursday"}},
            {"1 4", {"When = *-*-*-12:30:00"}},
            {"2 3 6", {"When > 2006-06-15-12:30 and When < 20070101", "When >= 20060630123001"}},
            {"3", {"Day on sun and When on sunday"}},
            {"2", {"When on Sat"}}});
}

TEST_F(Filters, DatesCompareByTime) {
    expect({{"1 6", {"Day = Other"}},
            {"2 4", {"Day > Other"}},
            {"1 2 3 4 6", {"Day + 30 days > Other", "Day > now - 45 years"}},
            {"1 3 5 6", {"Day < Other + 1 second"}},
            {All, {"Day < now"}},
            {"", {"When > now - 1 year"}}});
    EXPECT_EQ(select("Day < now - 3 days"), All);
    EXPECT_FALSE(cacheable);
    variables = IPE_NewDict();
    EXPECT_EQ(select("Day within 3 days"), "InvalidFilterException: The variable date_epoch is not set");
    variables.as<IPE_DictType>()->setText("date_epoch", IPE_String("20060701"));
    EXPECT_EQ(select("Day within 16 days"), "1 2 3 6");
    EXPECT_TRUE(cacheable);
    EXPECT_EQ(select("Day within 15 days"), "2 3 6");
    EXPECT_EQ(select("When within 371 hours"), "2 3 6");
    EXPECT_EQ(select("When within 372 hours"), "1 2 3 6");  // 15 June 12:00
    variables.as<IPE_DictType>()->setText("date_shift", IPE_Int(86400));
    EXPECT_EQ(select("Day within 16 days"), "2 3 6");
    EXPECT_EQ(select("Day = When"), "DatabaseError: Incorrect field type, expecting Date, actual DateTime");
    expectFaults({"Day", "Day = 'x'", "Day = 1-x", "Day = *-1 + 3 days", "Day + 3 = 2006", "Day on may",
                  "Day on", "Day + 3 days on mon", "Day within 3", "Day = 2006 + 3 apples", "Day = 12345.67",
                  "Day = 2006 + 9999999999999999999 years"},
                 "InvalidFilterException: ");
}

// A naive model of the rules, on random dates.
TEST_F(Filters, RandomDatesAgreeWithAModel) {
    const int rows[6][3] = {{2006, 6, 15}, {2006, 7, 15}, {2006, 12, 31},
                            {2005, 6, 15}, {0, 0, 0},     {2006, 6, 30}};
    const char* const operators[] = {"=", "<>", "<", "<=", ">", ">="};
    uint32_t seed = 7;
    auto random = [&](uint32_t n) { return (seed = seed * 1664525 + 1013904223) / 65536 % n; };
    for (int round = 0; round < 2000; ++round) {
        const int* pick = rows[random(6)];
        int part[3] = {pick[0], pick[1], random(2) ? pick[2] : static_cast<int>(random(32))};
        bool present[3];
        std::string literal;
        for (int i = 0; i < 3; ++i) {
            present[i] = random(4) != 0;
            literal += (i ? "-" : "") + (present[i] ? std::to_string(part[i]) : "*");
        }
        uint32_t op = random(6);
        std::string expected;
        for (int row = 0; row < 6; ++row) {
            int order = 0, same = 0, count = 0;
            for (int i = 0; i < 3; ++i) {
                if (!present[i]) continue;
                int difference = rows[row][i] - part[i];
                ++count;
                same += difference == 0;
                if (order == 0) order = difference;
            }
            bool results[] = {same == count, same == 0, order<0, order <= 0, order> 0, order >= 0};
            if (results[op]) expected += (expected.empty() ? "" : " ") + std::to_string(row + 1);
        }
        std::string query = std::string("Day ") + operators[op] + " " + literal;
        ASSERT_EQ(select(query), expected) << query;
    }
}

// What passes and what raises, with the rows: asked one by one, and found by the sieve.
TEST_F(Filters, ManyRowsAtOnceAsOneByOne) {
    const char* const queries[] = {
        "Name = 'iso$'",
        "Name,ce <> '^re' and Size > 1",
        "Name.end in ['iso', 'gz', 'x'] and Count in [(5, 7), (100, 0)] and Owner = 'b$'",
        "Name = '(.e|core)' and Day >= 20060615 and When < 2006-12-31:23",
        "Day <> 2006-06-15 and Other <= 2006-06-15 and Size ne Space",
        "When > 2006-06-15:12:30 and Attr has R and Name,tail = '[a-z]+[.]'",
        "Size >= 5MB and Path = '/C/' and mode < 2000",
        "When = 2006-*-15 and Count < mode and Attr = in",
        "Day on thursday and When within 900 days and Name = '^.*port[.]'",
    };
    variables.as<IPE_DictType>()->setText("date_epoch", IPE_String("20061231"));
    std::string whole = filterStore(5000);
    uint32_t random = 7;
    int faults = 0;
    for (int round = 0; round < 24; ++round) {
        std::string bytes = whole;
        for (int flips = round; flips > 0; flips -= 3) {
            random = random * 1664525 + 1013904223;
            bytes[(random >> 8) % (bytes.size() * 3 / 4)] ^= 0x21;
        }
        for (const char* query : queries) {
            std::string traces[2];
            std::string opened[2];
            for (bool sieved : {false, true}) {
                opened[sieved] = faultOf([&] {
                    FilterTable damaged(bytes);
                    SMF_ReaderTable& table = damaged.table;
                    SMF_RecordFilter filter(table, nullptr);
                    filter.setVariables(variables);
                    filter.compile(query);
                    ASSERT_FALSE(filter.conjunction().empty()) << query;
                    SMF_RowSieve sieve;
                    std::string& trace = traces[sieved];
                    for (int64_t row = 1; row <= table.rows(); ++row) {
                        bool hit = true;
                        table.seek(row);
                        std::string fault = faultOf([&] {
                            if (sieved)
                                hit = sieve.find(table, filter.conjunction(),
                                                 std::min(row + 700, table.rows()));
                            else
                                filter.run(hit);
                        });
                        row = table.position();
                        if (fault != "none") trace += std::to_string(row) + "! " + fault + "\n";
                        if (fault == "none" && hit) trace += std::to_string(row) + "\n";
                        faults += fault != "none";
                    }
                });
            }
            EXPECT_EQ(opened[0], opened[1]);
            EXPECT_TRUE(traces[0] == traces[1]) << query << ", round " << round;
        }
    }
    EXPECT_GT(faults, 1000);
}

TEST_F(Filters, FlagsAndPaths) {
    expect({{"1 2 5", {"Attr has R"}},
            {"2 5", {"Attr has [R, H]"}},
            {All, {"Attr has []"}},
            {"3", {"Attr is []"}},
            {"1",
             {"Attr = R", "Path = 'c:\\\\music'", "Path,exactcase == 'C:\\\\music'",
              "not Path:is_malformed and Count = 5"}},
            {"2", {"Attr == [H, R]", "Path:end,exactcase = 'Old'"}},
            {"6", {"Attr is in", "Path,ignorecase contains 'CAF\\u00e9'"}},
            {"5 6", {"Attr has 'in'"}},
            {"",
             {"Path,exactcase = 'c:\\\\music'", "Path,exactcase contains 'caf\\u00e9'", "Path:is_malformed"}},
            {"2 3 4 5 6", {"Path <> 'c:\\\\MUSIC'"}},
            {"1 2 4", {"Path contains 'MUSIC'", "Path = 'c:\\p*music\\p*'"}},
            {"1 4", {"Path:end = 'music'", "Path:end = 'mus\\p?c'"}},
            {"2 3 5 6", {"Path <> '\\p*music'"}},
            {"4", {"Path contains 'D\\p?cs'", "Path contains '?'"}},
            {"5", {"Path = ''"}}});
    expectFaults(
        {"Attr has r", "Attr has [R", "Attr has ", "Attr in ['R']", "Attr has [R H]", "Path in ['x']",
         "Path:start = 'x'", "Path,ci = 'x'", "Path = 5", "Path:is_malformed = 'x'"},
        "InvalidFilterException: ");
}

TEST_F(Filters, FaultsAreFaultsOfTheQuery) {
    const char* const fault = "InvalidFilterException: ";
    // Groups and tokens, branches, values and declarations, tests of a field.
    expectFaults({"(Count = 5", "((Count = 5)", "and and ?", "Count = 'abc", "\tCount = 5",
                  "Count = \xC3\xA9", "= 5", "'text'", "Count == == 5"},
                 fault);
    expectFaults({"if Count = 5 : ()", "if (Count = 5) ()", "if (Count = 5) : ", "else ()", "5"}, fault);
    expectFaults({"%", "% v", "% v (", "%v name", "def", "def a", "def a i32", "def a i32 {", "def a i32 {b}",
                  "def a i32 {b:}", "def a i32 {b: 1"},
                 fault);
    expectFaults({"Name.start = 'x'", "Name@size", "Name,cx = 'x'", "Name+x = 'x'", "Name", "Name = 5",
                  "Name in 5", "Name = @", "Name in ['a'", "Name = '''abc", "Name = '\\q'"},
                 fault);
    EXPECT_EQ(faultOf([&] { SMF_RecordFilter(open.table, nullptr).compile("Count = 5 ]"); }),
              "InvalidFilterException: Expecting a statement\nCount = 5 ]\n          ?");
    EXPECT_EQ(select("Clock = 5"), "DevelopmentError: Not implemented");
    EXPECT_EQ(select("exec 'x'"), "DevelopmentError: Not Implemented");
    EXPECT_EQ(select("Nothing = 5"), "DatabaseError: Nothing is not a property on File objects.");
    // A number takes the token behind it for its operation, whatever it is.
    EXPECT_EQ(select("5 (").substr(0, 14), "AssertionError");
    EXPECT_EQ(select("3 kb").substr(0, 14), "AssertionError");
    EXPECT_EQ(select("5 exec"), "DevelopmentError: Not Implemented");
    EXPECT_EQ(select("5 not Count = 5"), "2 3 4 5 6");
    // The 513th field, or whatever comes first of its limits.
    std::string query;
    for (int i = 0; i < 130; ++i) query += "def d" + std::to_string(i) + " string {} ";
    EXPECT_EQ(select(query), "DatabaseError: Too many fields");
}

TEST_F(Filters, ProgramsAreBounded) {
    auto repeat = [](int times, const char* text) {
        std::string out;
        while (times-- > 0) out += text;
        return out;
    };
    EXPECT_EQ(select(repeat(512, "Count=5 ")), "1");
    EXPECT_EQ(select(repeat(513, "Count=5 ")), "DatabaseError: The query statement is too complex");
    EXPECT_EQ(select("Count=5 " + repeat(1013, "and ")), "1");
    EXPECT_EQ(select("Count=5 " + repeat(1014, "and ")), "InvalidFilterException: Too many operations");
    EXPECT_EQ(select(repeat(2, "(") + repeat(1014, "and ") + ")) Count = 5"), "1");
    EXPECT_EQ(select(repeat(99, "(") + "Count=5" + repeat(99, ")")), "1");
    EXPECT_EQ(select(repeat(100000, "(")), "InvalidFilterException: Nested too deeply");
    EXPECT_EQ(select(repeat(100000, "if (")), "InvalidFilterException: Nested too deeply");
    EXPECT_EQ(select("Name in " + repeat(100000, "[")), "InvalidFilterException: Nested too deeply");
}

TEST_F(Filters, TokensAreListed) {
    IPE_Object tokens = IPE_NewList();
    SMF_RecordFilter filter(open.table, nullptr);
    EXPECT_TRUE(filter.compile("not Size >= 5MB and Name = ''", tokens));
    std::string seen;
    for (const IPE_Object& token : tokens.as<IPE_ListType>()->items()) {
        auto* entry = token.as<IPE_DictType>();
        seen += std::to_string(entry->findText("token")->__int__()) + ":" +
                entry->findText("value")->c_str() + " ";
    }
    EXPECT_EQ(seen, "81:not 5:Size 131:>= 7:5 5:MB 84:and 5:Name 101:= 6: ");
    EXPECT_EQ(filter.count(), 4);
    filter.setVariable("not_cacheable", IPE_String("0"));
    EXPECT_TRUE(filter.isCacheable());
}
