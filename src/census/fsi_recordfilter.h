// FSI_RecordFilter: a query over a table of a census: SMF_RecordFilter with tests that run Lua (`exec`) and
// tests on what a number stands for (FSI_FTableFilter).
//
//   FSI_RecordFilter filter(table);
//   filter.compileFor("Size >= 5MB and Path = '/backup/'", options, {});
//   while (table.advance()) if (filter.accepts()) ...
//
// Belongs to the table's thread; the table must outlive it.
#pragma once

#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "census/fsi_readertable.h"
#include "store/filters/smf_recordfilter.h"

class FSI_RecordFilter final : public SMF_RecordFilter {
  public:
    explicit FSI_RecordFilter(FSI_ReaderTable& table);
    ~FSI_RecordFilter() override;

    // Compiles. The variable `date_epoch` is the `epoch` of `options` (a DictType or null), else that of the
    // reader. When the result may not be cached, `_not_cacheable` := 1 goes into `options` and `keywords`
    // (each a DictType or null). False in that case.
    bool compileFor(std::string_view text, const IPE_Object& options, const IPE_Object& keywords);

    bool isEmpty() const noexcept { return count() == 0; }
    // Whether the current row passes; an empty filter lets every row pass.
    bool accepts() {
        if (isEmpty()) return true;
        bool result = true;
        SMF_Accumulator() = 0;
        run(result);
        return result;
    }
    // True when, in the last accepts(), the `during` of an `exec` asked with a second result to leave out the
    // tree below the row.
    bool jumps() const noexcept { return *jump_; }

    FSI_ReaderTable& table() const noexcept { return table_; }

  protected:
    void runExec(bool& result, int position) override;
    void parseExec(IPE_TokenSource& tokens) override;
    std::unique_ptr<SMF_FieldFilter> createFieldFilter(std::string_view name,
                                                       IPE_TokenSource& tokens) override;
    std::unique_ptr<SMF_RecordFilter> makeNested() override;

  private:
    class Context;
    struct Exec;  // of one position: the state, `during`, the columns that it is given
    FSI_ReaderTable& table_;
    std::shared_ptr<bool> jump_;  // of the outermost filter
    std::map<int, std::unique_ptr<Exec>> execs_;
};
