// path_summary and tree_summary: one row for every directory of the selected trees, with its own figures or
// those of its tree.
//
// Everything stands in the file index: no file is read. The option `filter` is given to the index, which then
// holds the figures of the files that pass. Directories are taken by number, in the order of the walk, so
// that the index is read in sequence and a path's text grows out of the one before.
#include "census/reports/fsi_momenttexts.h"
#include "census/reports/fsi_report.h"
#include "census/reports/fsi_rowbatch.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

// Sets an option in a dictionary that belongs to somebody else, and puts back what was there.
class OptionScope {
  public:
    OptionScope(const IPE_Object& options, std::string_view key, const IPE_Object& value)
        : options_(options), key_(key), old_(options_.as<IPE_DictType>()->findText(key)) {
        options_.as<IPE_DictType>()->setText(key_, value);
    }
    ~OptionScope() {
        if (old_)
            options_.as<IPE_DictType>()->setText(key_, old_);
        else
            options_.as<IPE_DictType>()->removeText(key_);
    }
    OptionScope(const OptionScope&) = delete;
    OptionScope& operator=(const OptionScope&) = delete;

  private:
    IPE_Object options_;
    std::string_view key_;
    IPE_Object old_;
};

// The last component; "/" when there is none.
std::string_view lastComponent(std::string_view path) {
    if (path.size() < 2) return path;
    path.remove_suffix(1);
    return path.substr(path.rfind('/') + 1);
}

class Summary : public FSI_Report {
  public:
    IPE_Object run() override {
        digests_ = trueOption("calc_digests");
        FSI_PathLevelHelper& index = openIndex();
        std::vector<FSI_Selection> trees = selections(index);
        createTable(tableSql());
        FSI_RowBatch rows(statement(), insertSql(), FSI_RowBatch::Short);
        int64_t total = 0;
        for (const FSI_Selection& tree : trees) total += tree.treePaths + 1;
        progress().start("progress.path_summary", "${0}% Summing up the paths", total);
        for (const FSI_Selection& tree : trees)
            for (int64_t number = tree.number; number <= tree.number + tree.treePaths; ++number) {
                stopCheck();
                XPK_Assert(index.locateNumber(number));
                add(rows, index, number);
                progress().tick();
            }
        rows.flush(false);
        about();
        return {};
    }

  protected:
    Summary(const IPE_Arguments& arguments, bool tree) : FSI_Report(arguments), tree_(tree) {}

  private:
    // Whether an index holds digests is decided by the census's options.
    FSI_PathLevelHelper& openIndex() {
        if (!digests_ || census().isSet("calc_digests")) return filteredLevels();
        OptionScope scope(census().options(), "calc_digests", IPE_Int(1));
        return filteredLevels();
    }

    std::string tableSql() const {
        std::string sql = "create table if not exists $table (cache, ";
        sql += tree_ ? "path, name" : "ipath, path";
        sql += ", size, space, files, lastcreated, lastmodified, lastaccessed";
        if (digests_) sql += ", digest";
        return sql + (tree_ ? ", ipath)" : ")");
    }

    std::string insertSql() const {
        std::string sql = "insert into $table (cache, ";
        if (tree_) sql += "name, ";
        sql += "size, space, files, lastcreated, lastmodified, lastaccessed";
        if (digests_) sql += ", digest";
        sql += ", path, ipath) values ($cache";
        for (int i = 8 + tree_ + digests_; i > 0; --i) sql += ",?";
        return sql + ")";
    }

    void add(FSI_RowBatch& rows, FSI_PathLevelHelper& index, int64_t number) {
        auto figure = [&](FSI_Figure own, FSI_Figure whole) {
            return IPE_Int(index.figure(tree_ ? whole : own));
        };
        text_.clear();
        index.pathText(text_);
        IPE_Object row = rows.newRow(10);
        auto put = [&](IPE_Object value) { FSI_RowBatch::append(row, std::move(value)); };
        if (tree_) put(IPE_String(lastComponent(text_)));
        put(figure(FSI_PathSize, FSI_TreeSize));
        put(figure(FSI_PathSpace, FSI_TreeSpace));
        put(figure(FSI_PathFiles, FSI_TreeFiles));
        put(dates_.of(index.figure(FSI_TreeMaxCreated)));
        put(dates_.of(index.figure(FSI_TreeMaxModified)));
        put(dates_.of(index.figure(FSI_TreeMaxAccessed)));
        if (digests_) put(IPE_String(tree_ ? index.treeHash() : index.pathHash()));
        put(IPE_String(text_));
        put(IPE_Int(number));
        rows.take(std::move(row));
    }

    bool tree_, digests_ = false;
    FSI_MomentTexts dates_{FSI_MomentTexts::Form::DateTime};
    std::string text_;
};

class PathSummary final : public Summary {
  public:
    static constexpr int Version = 13;
    explicit PathSummary(const IPE_Arguments& arguments) : Summary(arguments, false) {}
};

class TreeSummary final : public Summary {
  public:
    static constexpr int Version = 19;
    explicit TreeSummary(const IPE_Arguments& arguments) : Summary(arguments, true) {}
};

const FSI_ReportRegistration paths("fsi_report.storage.path_summary", "storage.path_summary",
                                   FSI_CallReport<PathSummary>);
const FSI_ReportRegistration trees("fsi_report.storage.tree_summary", "storage.tree_summary",
                                   FSI_CallReport<TreeSummary>);

}  // namespace
