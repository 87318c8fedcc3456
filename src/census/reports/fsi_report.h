// The frame that all reports share: arguments and options, the census, the selected trees, walks over them,
// result tables and progress.
//
// A report is a script function `storage.NAME.call(command, statement, selection, options)` with the keyword
// `lua` and, for runs that no other thread watches, `progress` (FSI_ProgressListener). The command "version"
// gives its version and does nothing else. `statement` is called with one SQL template, for inserts also with
// a list of tuples. What a report owns is released when it ends, whichever way; rows inserted until then
// stay.
//
// A report runs on the calling thread; it holds no lock.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "census/fsi_readertable.h"
#include "census/fsi_recordfilter.h"
#include "census/index/fsi_pathlevelhelper.h"
#include "census/index/fsi_pathnamehelper.h"
#include "census/index/fsi_progress.h"
#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_shutdown.h"

// One selected tree.
struct FSI_Selection {
    IPE_Object name;        // as the option gives it
    int64_t number = 0;     // of its directory
    int64_t treePaths = 0;  // directories below it
    int32_t level = 0;      // FSI_PathLevelHelper::locateRow
    int64_t row = 0;
    std::string text;  // with a trailing "/"
    FSI_RowRange treeFiles, files, treeDacls, dacls;
};

class FSI_Report {
  public:
    virtual ~FSI_Report();
    virtual IPE_Object run() = 0;
    FSI_Report(const FSI_Report&) = delete;
    FSI_Report& operator=(const FSI_Report&) = delete;

  protected:
    // TypeError for arguments of the wrong kinds; opens the census.
    explicit FSI_Report(const IPE_Arguments& arguments);

    // --- Options. None counts as absent.
    IPE_Object option(std::string_view name) const;          // null when absent
    IPE_Object requiredOption(std::string_view name) const;  // KeyError
    std::string textOption(std::string_view name, std::string_view absent) const;
    bool trueOption(std::string_view name, bool absent = false) const;
    // Out of low to high is an assertion.
    int64_t integerOption(std::string_view name, int64_t absent, int64_t low, int64_t high) const;
    const IPE_Object& options() const noexcept { return options_; }
    // Other options from here on; TypeError unless it is a dictionary.
    void setOptions(const IPE_Object& options);

    // --- Census.
    FSI_Reader& census() noexcept { return census_; }
    FSI_ReaderTable& table() noexcept { return table_; }
    FSI_RecordFilter& filter() noexcept { return *filter_; }
    // The index with the option `filter` (path and tree reports that give it to the index) or without.
    FSI_PathLevelHelper& levels();          // without a filter
    FSI_PathLevelHelper& filteredLevels();  // with the option `filter`; the same when that is empty
    // Connects table() and keeps its header.
    void openTable(std::string_view name);
    const IPE_Object& header() const noexcept { return header_; }
    // Compiles the option `filter`, or `absent`, on table().
    void openFilter(std::string_view absent = {});
    // The option `paths`, located in `levels`. KeyError without it or without a `name`, TypeError for wrong
    // shapes, PathNotFoundException.
    std::vector<FSI_Selection> selections(FSI_PathLevelHelper& levels);
    // The rows of table() that belong to a tree, or to its directory alone.
    FSI_RowRange treeRows(const FSI_Selection& selection);
    FSI_RowRange ownRows(const FSI_Selection& selection);
    // The text of a path as reports show it. Valid until the next call.
    std::string_view pathText(int64_t number);
    // The path number of table()'s current row: its column `PathNumber` or `Path`, in the table Path the row.
    int64_t pathNumber() const;
    // The same for a row that was read as a dictionary, whose integer `Path` goes first.
    int64_t pathNumberOf(const IPE_Object& record) const;
    // Connects a handle to the column of table(). DatabaseError "$field is not a property on $table
    // objects.".
    template <class Handle>
    void connectColumn(Handle& handle, std::string_view column) {
        table_.fieldIndex(column);
        handle.connect(table_, column);
    }
    // SystemExit when the server stops. Walks ask at their start and as the table advances; loops that read
    // an index alone ask themselves.
    static void stopCheck() {
        if (!XPK_IsRunning()) [[unlikely]]
            raiseStop();
    }
    // Calls `visit()` for each row of the range as the current one. A visit may give false to end the walk.
    // With `jump` a filter's wish to leave out a tree is followed after the visit.
    template <class Visit>
    void walk(const FSI_RowRange& range, bool jump, Visit&& visit) {
        if (range.count <= 0) return;
        stopCheck();
        table_.seek(range.row);
        for (int64_t end = range.row + range.count;;) {
            if constexpr (std::is_same_v<decltype(visit()), bool>) {
                if (!visit()) return;
            } else {
                visit();
            }
            progress_.tick();
            if (jump && filter_ && filter_->jumps()) [[unlikely]] {
                int64_t next = behindTree();
                if (next >= end) return;
                progress_.advance(next - table_.position() - 1);
                table_.seek(next);
                continue;
            }
            if (table_.position() + 1 >= end) return;
            table_.next();
        }
    }

    // The same for the rows that pass the filter alone; jumps are followed.
    template <class Visit>
    void walkMatches(const FSI_RowRange& range, Visit&& visit) {
        if (range.count <= 0) return;
        if (filter_->conjunction().empty())
            return walk(range, true, [&] {
                if (filter_->accepts()) visit();
            });
        for (int64_t row = range.row, end = range.row + range.count; row < end; row = table_.position() + 1) {
            table_.seek(row);
            if (filter_->find(std::min(end, row + FSI_Progress::Step) - 1)) visit();
            progress_.advance(table_.position() - row + 1);
        }
    }

    // --- Output. Creates `about` first.
    void createTable(std::string_view sql);
    void insert(std::string_view sql, const IPE_Object& rows);
    // The row of `about`: with the header and `count` when the report has one, else an empty dictionary.
    void about();
    void aboutHeader(int64_t count);
    const IPE_Object& statement() const noexcept { return statement_; }
    FSI_Progress& progress() noexcept { return progress_; }

  private:
    [[noreturn]] static void raiseStop();
    static void select(FSI_PathLevelHelper& levels, FSI_Selection& selection);
    int64_t behindTree();
    FSI_RowRange searchRows(int64_t first, int64_t last);
    void makeAbout();
    void writeAbout(const IPE_Object& dictionary);

    IPE_Object statement_, selection_, options_, keywords_;
    FSI_ProgressListener listener_;  // the keyword `progress`
    FSI_Reader census_;
    FSI_ReaderTable table_;
    IPE_Object header_;
    std::unique_ptr<FSI_RecordFilter> filter_;
    std::unique_ptr<FSI_PathLevelHelper> filteredLevels_;
    SMF_I32 path_;
    bool tableIsPath_ = false, aboutMade_ = false;
    int64_t textNumber_ = 0;  // of the path that text_ is of
    std::string text_;
    FSI_Progress progress_;
};

// Publishes a report, a static object each: the component and the modules `fsi_report.storage.NAME` and
// `storage.NAME` with the function `call`.
struct FSI_ReportRegistration {
    // `component` is "fsi_report.storage.NAME", `module` "storage.NAME".
    FSI_ReportRegistration(const char* component, const char* module, IPE_NativeFunction call)
        : component_(component, "call", call, "IPE_Module"), module_(module, "call", call, "IPE_Module") {}

  private:
    IPE_NativeModule component_, module_;
};
// The function of a report class with `static constexpr int Version` and `explicit Class(const
// IPE_Arguments&)`.
template <class Report>
IPE_Object FSI_CallReport(const IPE_Arguments& arguments) {
    arguments.check("s|ooo", "call");
    if (arguments.text(0) == "version") return IPE_Int(Report::Version);
    return Report(arguments).run();
}
