// SMF_RecordFilter: a query over the fields of one record, compiled once, run for each row.
//
//   SMF_RecordFilter filter(table, nullptr);
//   filter.compile("Size >= 5MB and Name = '\\.iso$'", tokens);
//   ... for each row: bool hit = true; SMF_Accumulator() = 0; filter.run(hit);
//
// A filter belongs to the record that it was built on, and to its thread. docs/scripting.md teaches the
// language.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "runtime/ipe_object.h"
#include "store/smf_record.h"

class IPE_TokenSource;
class SMF_FieldFilter;
struct SMF_FilterScope;

// Through which field filters reach the application: a census, a report. All calls come on the filter's
// thread.
class SMF_FilterContext {
  public:
    virtual ~SMF_FilterContext() = default;
    // `api_call` with the name and the arguments: a string or a list.
    virtual IPE_Object apiCall(std::string_view name, const std::vector<IPE_Object>& arguments) = 0;
};

// What a length test adds to and a numeric comparison reads: one number a thread. Set to 0 before each run.
int64_t& SMF_Accumulator() noexcept;

class SMF_RecordFilter {
  public:
    // Of one level; a test may stand only below `MaxTests`. Groups nest to `MaxDepth` levels.
    static constexpr int MaxOperations = 1024, MaxTests = 512, MaxDepth = 100;

    // `record` must outlive the filter; `context` may be null.
    SMF_RecordFilter(SMF_Record& record, SMF_FilterContext* context);
    virtual ~SMF_RecordFilter();
    SMF_RecordFilter(const SMF_RecordFilter&) = delete;
    SMF_RecordFilter& operator=(const SMF_RecordFilter&) = delete;

    // Compiles a query, once for each filter; an empty text does nothing. Gives false when the result depends
    // on more than the stored data (`now`, `exec`), so that it may not be cached. Each token seen is appended
    // to `tokens` (a ListType, or null) as a dictionary with `token`, its kind, and `value`, its text. A
    // fault of the query, lexical ones among them, is InvalidFilterException "$decode\n$position"; a name
    // that is no field, Runtime "$field is not a property on $table objects."; a test behind 512 operations
    // of one level, Runtime "The query statement is too complex". After a fault the filter is an empty one.
    bool compile(std::string_view text, const IPE_Object& tokens = {});
    void setVariable(std::string_view name, const IPE_Object& value);
    // The dictionary shared with all nested filters; replacing it must come before compile().
    const IPE_Object& variables() const noexcept { return variables_; }
    void setVariables(const IPE_Object& dictionary) { variables_ = dictionary; }

    int count() const noexcept;
    // Runs from position 0. A program that runs no test leaves `result` as it was.
    void run(bool& result);
    bool isCacheable() const noexcept { return !notCacheable_; }
    SMF_Record& record() const noexcept { return record_; }
    SMF_FilterContext* context() const noexcept { return context_; }

    // Runs a filter nested in another: an empty one gives true, else the accumulator becomes 0 first.
    static void runNested(SMF_RecordFilter& nested, bool& result);

    // The tests of a program that is nothing but tests with `and` between them; empty for any other. Whoever
    // runs them in order, up to the first false one, gets what run() gives, and need not set the accumulator.
    const std::vector<SMF_FieldFilter*>& conjunction() const noexcept { return conjunction_; }

  protected:
    // --- What a census filter replaces.
    // Both raise DevelopmentError "Not Implemented" here. `position` is that of the operation; parseExec()
    // is called before it is added, when it is count(), with the token behind `exec` as the current one.
    virtual void runExec(bool& result, int position);
    virtual void parseExec(IPE_TokenSource& tokens);
    // By the type of the field that the record has under that name.
    virtual std::unique_ptr<SMF_FieldFilter> createFieldFilter(std::string_view name,
                                                               IPE_TokenSource& tokens);
    // An empty filter with the same variables, context and record.
    virtual std::unique_ptr<SMF_RecordFilter> makeNested();
    SMF_FilterScope scope() const;

    SMF_Record& record_;
    SMF_FilterContext* context_;
    IPE_Object variables_;
    bool notCacheable_ = false;

  private:
    struct Operation;
    // Reads statements up to the line's end or a `)`, which stays the current token.
    void parse(IPE_TokenSource& tokens, int depth);
    void parseStatement(IPE_TokenSource& tokens, int depth);
    void parseTest(IPE_TokenSource& tokens, int depth);
    void parseNumber(IPE_TokenSource& tokens);
    void parseAssignment(IPE_TokenSource& tokens);
    void parseDeclaration(IPE_TokenSource& tokens);
    void parseBranch(IPE_TokenSource& tokens, int depth);
    std::unique_ptr<SMF_RecordFilter> parseGroup(IPE_TokenSource& tokens, int depth);
    Operation& add(int32_t kind);
    void runBranch(size_t& at, bool& taken);
    void assign(size_t at);
    bool isMarkedNotCacheable() const;
    void findConjunction();

    std::vector<Operation> operations_;
    std::vector<SMF_FieldFilter*> conjunction_;
};
