// FSI_RecordFilter: a query over a table of a census: SMF_RecordFilter with tests that run Lua (`exec`) and
// tests on what a number stands for (FSI_FTableFilter).
//
//   FSI_RecordFilter filter(table);
//   filter.compileFor("Size >= 5MB and Path = '/backup/'", options, {});
//   while (table.advance()) if (filter.accepts()) ...
//
// Belongs to the table's thread; the table must outlive it. docs/scripting.md teaches the language.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "census/fsi_readertable.h"
#include "store/filters/smf_fieldfilter.h"
#include "store/filters/smf_recordfilter.h"
#include "store/filters/smf_rowsieve.h"

class FSI_RecordFilter final : public SMF_RecordFilter {
  public:
    // A test may lead through so many tables.
    static constexpr int MostTables = 8;

    // The table need not be connected before the filter is compiled.
    explicit FSI_RecordFilter(FSI_ReaderTable& table);
    ~FSI_RecordFilter() override;

    // Compiles. The variable `date_epoch` is the `epoch` of `options` (a DictType or null), else that of the
    // reader. When the result may not be cached, `_not_cacheable` := 1 goes into `options` and `keywords`
    // (each a DictType or null). False in that case.
    bool compileFor(std::string_view text, const IPE_Object& options, const IPE_Object& keywords);
    // The moment from which ages count, for IPE_TimeOf: the `epoch` of `options` (a DictType or null), else
    // that of the census; null when there is none.
    static IPE_Object epoch(const FSI_Reader& census, const IPE_Object& options);

    bool isEmpty() const noexcept { return count() == 0; }
    // Whether the current row passes; an empty filter lets every row pass.
    bool accepts() {
        bool result = true;
        if (!conjunction().empty()) {
            for (SMF_FieldFilter* test : conjunction())
                if (test->evaluate(result); !result) return false;
            return true;
        }
        if (isEmpty()) return true;
        *jump_ = false;
        SMF_Accumulator() = 0;
        run(result);
        return result;
    }
    // Moves the table on, from its current row, to the first row up to `last` that passes; false, with `last`
    // as the current row, when there is none. Of a filter without `exec` it asks many rows at once.
    bool find(int64_t last) {
        if (!conjunction().empty()) return sieve_.find(table_, conjunction(), last);
        while (!accepts()) {
            if (table_.position() >= last) return false;
            table_.next();
        }
        return true;
    }
    // True when, in the last accepts(), the `during` of an `exec` asked with a second result to leave out the
    // tree below the row.
    bool jumps() const noexcept { return *jump_; }

    FSI_ReaderTable& table() const noexcept { return table_; }

    // --- For FSI_FTableFilter.
    // An empty filter on a table that a test of this one leads to, with the same variables and context. One
    // table too many is a syntax error of the source.
    std::unique_ptr<FSI_RecordFilter> makeForeign(FSI_ReaderTable& table, IPE_TokenSource& tokens) const;
    // Reads the test of the named field that begins at the current token.
    std::unique_ptr<SMF_FieldFilter> takeTest(std::string_view name, IPE_TokenSource& tokens, int depth);

  protected:
    void runExec(bool& result, int position) override;
    void parseExec(IPE_TokenSource& tokens) override;
    std::unique_ptr<SMF_FieldFilter> createFieldFilter(std::string_view name,
                                                       IPE_TokenSource& tokens) override;
    std::unique_ptr<SMF_RecordFilter> makeNested() override;

  private:
    class Context;
    struct Exec;  // the script of one position
    FSI_RecordFilter(FSI_ReaderTable& table, const FSI_RecordFilter& outer);

    FSI_ReaderTable& table_;
    std::shared_ptr<Context> application_;  // shared by the outermost filter and all within
    std::shared_ptr<bool> jump_;            // likewise
    int tables_ = 0;                        // that lead to this one
    SMF_RowSieve sieve_;
    std::vector<std::unique_ptr<Exec>> execs_;  // by position; null for other operations
};
