// file_search and dacl_search: how many rows of each directory pass a filter, and which.
//
// Every directory of the selected trees is a row of the result. The rows that pass are told as runs, in a
// table from which a user interface can fetch the n-th match out of the census, and the first few of each
// directory as records. Runs are plain numbers until they are written. The three tables are written at the
// end, or, when there is much to write, in parts that each hold the same directories in all of them.
#include "census/reports/fsi_report.h"
#include "census/reports/fsi_rowbatch.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_i64field.h"

namespace {

class Search : public FSI_Report {
  protected:
    struct Counts {
        int64_t size = 0, space = 0, count = 0;
        // Sums wrap instead of overflowing: a store may hold any 64-bit numbers.
        void add(int64_t size, int64_t space) {
            auto sum = [](int64_t a, int64_t b) {
                return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
            };
            this->size = sum(this->size, size), this->space = sum(this->space, space);
            ++count;
        }
    };

    Search(const IPE_Arguments& arguments, const char* progressKey, const char* progressText)
        : FSI_Report(arguments), progressKey_(progressKey), progressText_(progressText) {}

    virtual void connectColumns() {}
    virtual void addResult(FSI_RowBatch& rows, std::string_view path, const Counts& all,
                           const Counts& matching, int64_t number) = 0;
    // A record as a row of the preview.
    virtual void addPreview(FSI_RowBatch& rows, int64_t path, const IPE_Object& record) = 0;

    // `columns` are those of the result and of the preview behind `cache`.
    void search(std::string_view tableName, const std::string& columns, const std::string& previewColumns) {
        previewCap_ = integerOption("preview_cap", 200, 0, INT64_MAX);
        openTable(tableName);
        openFilter();
        connectColumns();
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, " + columns + ")");
        createTable("create table if not exists ${table}_offsets (cache, offset, count)");
        createTable("create table if not exists ${table}_preview (cache, " + previewColumns + ")");
        FSI_RowBatch rows(statement(), insertInto("$table", columns), MostHeld);
        FSI_RowBatch offsets(statement(), insertInto("${table}_offsets", "offset, count"), MostHeld);
        FSI_RowBatch previews(statement(), insertInto("${table}_preview", previewColumns), MostHeld);
        int64_t total = 0;
        for (const FSI_Selection& tree : trees) total += treeRows(tree).count;
        progress().start(progressKey_, progressText_, total);
        size_t held = 0;
        auto flush = [&](bool last) {
            rows.flush(last);
            for (const FSI_RowRange& run : runs_) offsets.add(IPE_Int(run.row), IPE_Int(run.count));
            runs_.clear();
            offsets.flush(last);
            previews.flush(last);
            held = 0;
        };
        for (const FSI_Selection& tree : trees)
            for (int64_t n = tree.number; n <= tree.number + tree.treePaths; ++n) {
                stopCheck();
                searchPath(n, rows, previews, held);
                if (++held + runs_.size() > MostHeld) flush(false);
            }
        flush(true);
        aboutHeader(matches_);
    }

    SMF_I64 size_, space_;  // not connected for rows without sizes

  private:
    static constexpr size_t MostHeld = FSI_RowBatch::Short;  // rows of all three tables

    static std::string insertInto(const std::string& table, const std::string& columns) {
        std::string marks;
        for (size_t at = 0; at != std::string::npos; at = columns.find(',', at + 1)) marks += ",?";
        return "insert into " + table + " (cache, " + columns + ") values ($cache" + marks + ")";
    }

    // Adds the current row and those behind it, up to `most`, as far as the sizes are decoded; how many it
    // did.
    int64_t addStretch(Counts& all, int64_t most) {
        if (!size_.isConnected()) {
            all.count += most;
            return most;
        }
        std::span<const int64_t> sizes = size_.span(static_cast<size_t>(most));
        std::span<const int64_t> spaces = space_.span(sizes.size());
        if (spaces.empty()) {
            all.add(size_.get(), space_.get());
            return 1;
        }
        auto sum = [](std::span<const int64_t> values, int64_t start) {
            auto total = static_cast<uint64_t>(start);
            for (int64_t value : values) total += static_cast<uint64_t>(value);
            return static_cast<int64_t>(total);
        };
        all.size = sum(sizes.first(spaces.size()), all.size);
        all.space = sum(spaces, all.space);
        all.count += static_cast<int64_t>(spaces.size());
        return static_cast<int64_t>(spaces.size());
    }

    // Adds the directory's row, its runs and its previews.
    void searchPath(int64_t number, FSI_RowBatch& rows, FSI_RowBatch& previews, size_t& held) {
        FSI_Selection own;
        own.number = number;
        XPK_Assert(levels().locateNumber(number));
        own.files = levels().files();
        own.dacls = levels().dacls();
        Counts all, matching;
        FSI_RowRange run;
        auto endRun = [&] {
            if (run.count) runs_.push_back(run);
            run.count = 0;
        };
        auto visit = [&] {
            if (run.row + run.count != table().position()) endRun();
            matching.add(size_.isConnected() ? size_.get() : 0, space_.isConnected() ? space_.get() : 0);
            if (run.count++ == 0) run.row = table().position();
            if (matching.count > previewCap_) return;
            IPE_Object record = table().recordAsDict();
            addPreview(previews, pathNumberOf(record), record);
            ++held;
        };
        // All rows are counted, so no tree is left out. Sums and matches go on side by side, for each column
        // is decoded forwards.
        FSI_RowRange range = ownRows(own);
        for (int64_t row = range.row, end = range.row + range.count; row < end;) {
            table().seek(row);
            int64_t stretch = addStretch(all, end - row);
            for (int64_t last = row + stretch - 1; filter().find(last); table().next()) {
                visit();
                if (table().position() == last) break;
            }
            progress().advance(stretch);
            row += stretch;
        }
        endRun();
        matches_ += matching.count;
        addResult(rows, pathText(number), all, matching, number);
    }

    const char *progressKey_, *progressText_;
    int64_t previewCap_ = 0, matches_ = 0;
    std::vector<FSI_RowRange> runs_;
};

class FileSearch final : public Search {
  public:
    static constexpr int Version = 9;
    explicit FileSearch(const IPE_Arguments& arguments)
        : Search(arguments, "progress.file_search", "${0}% Searching the files") {}

    IPE_Object run() override {
        search("File", "path, size, space, count, filteredsize, filteredspace, filteredcount, ipath",
               "ipath, path, name, details");
        return {};
    }

  private:
    void connectColumns() override {
        connectColumn(size_, "Size");
        connectColumn(space_, "Space");
    }
    void addResult(FSI_RowBatch& rows, std::string_view path, const Counts& all, const Counts& matching,
                   int64_t number) override {
        rows.add(IPE_String(path), IPE_Int(all.size), IPE_Int(all.space), IPE_Int(all.count),
                 IPE_Int(matching.size), IPE_Int(matching.space), IPE_Int(matching.count), IPE_Int(number));
    }
    void addPreview(FSI_RowBatch& rows, int64_t path, const IPE_Object& record) override {
        rows.add(IPE_Int(path), IPE_String(pathText(path)), table().valueOf("Name"),
                 IPE_String(IPE_Object_ToString(record)));
    }
};

class DaclSearch final : public Search {
  public:
    static constexpr int Version = 2;
    explicit DaclSearch(const IPE_Arguments& arguments)
        : Search(arguments, "progress.dacl_search", "${0}% Searching the rights") {}

    IPE_Object run() override {
        search(textOption("table", "PathDACL"), "path, count, filteredcount, ipath", "ipath, path, details");
        return {};
    }

  private:
    void addResult(FSI_RowBatch& rows, std::string_view path, const Counts& all, const Counts& matching,
                   int64_t number) override {
        rows.add(IPE_String(path), IPE_Int(all.count), IPE_Int(matching.count), IPE_Int(number));
    }
    void addPreview(FSI_RowBatch& rows, int64_t path, const IPE_Object& record) override {
        rows.add(IPE_Int(path), IPE_String(pathText(path)), IPE_String(IPE_Object_ToString(record)));
    }
};

const FSI_ReportRegistration fileSearch("fsi_report.storage.file_search", "storage.file_search",
                                        FSI_CallReport<FileSearch>);
const FSI_ReportRegistration daclSearch("fsi_report.storage.dacl_search", "storage.dacl_search",
                                        FSI_CallReport<DaclSearch>);

}  // namespace
