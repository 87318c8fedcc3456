// spacemap: the nodes of a tree map, breadth-first from the selected trees.
//
// Every directory has a budget. Its children and files get shares of it in proportion to a measure; who gets
// a big enough share becomes a row, a directory among them also an entry of the queue with its share as the
// budget, and the rest is summed up in one row. So the work follows the budget and not the census:
//   - the sums of a directory's children and of its own files stand in the file index;
//   - children are rows of one level table that follow each other; they are read twice, for the sums and for
//     those that get a row, since only the sums tell who does;
//   - files are read only where one of them can get a row, and a name only when its file does.
// What gets no row enters the order of rows nowhere, so only the others are kept and sorted.
//
// Sums wrap instead of overflowing: a store may hold any 64-bit numbers.
#include <algorithm>
#include <cmath>
#include <deque>

#include "census/reports/fsi_datecolumn.h"
#include "census/reports/fsi_momenttexts.h"
#include "census/reports/fsi_report.h"
#include "census/reports/fsi_rowbatch.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_i64field.h"

namespace {

enum class Field { Size, Space, Files, Rights, Savings };
// The column `mode`.
enum Mode : int64_t { ModeFile = 0, ModeDirectory = 1, ModeRest = 2 };

int64_t plus(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
int64_t minus(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

struct Amounts {
    int64_t measure = 0, size = 0, space = 0;
    void add(const Amounts& other) {
        measure = plus(measure, other.measure);
        size = plus(size, other.size), space = plus(space, other.space);
    }
    void remove(const Amounts& other) {
        measure = minus(measure, other.measure);
        size = minus(size, other.size), space = minus(space, other.space);
    }
};

// What gets a row.
struct Item {
    Amounts amounts;
    Mode mode;
    IPE_Object name, accessed;
    int64_t row;     // of a directory, in its level's table
    int64_t budget;  // of a directory
};

class Shares {
  public:
    static constexpr double OfFile = 64.0, OfDirectory = 128.0;  // a row takes more than that
    Shares(int64_t total, int64_t budget) : total_(static_cast<double>(total)) {
        auto amount = static_cast<double>(budget);
        usable_ = amount - 17 * std::sqrt(amount);  // not a number below 0, and then nothing gets a row
    }
    double of(int64_t measure) const {
        return total_ == 0 ? 0 : static_cast<double>(measure) / total_ * usable_;
    }

  private:
    double total_, usable_;
};

// Cut towards zero; a share beyond the numbers, as differences of both signs can give, is the largest.
int64_t truncated(double share) { return share < 9.2e18 ? static_cast<int64_t>(share) : INT64_MAX; }

// By measure, and among equal ones as the language sorts tuples, by name and the rest.
void sortItems(std::vector<Item>& items) {
    std::sort(items.begin(), items.end(),
              [](const Item& a, const Item& b) { return a.amounts.measure < b.amounts.measure; });
    for (size_t begin = 0, end; begin < items.size(); begin = end) {
        for (end = begin + 1; end < items.size(); ++end)
            if (items[end].amounts.measure != items[begin].amounts.measure) break;
        if (end - begin < 2) continue;
        IPE_Object list = IPE_NewList();
        for (size_t i = begin; i < end; ++i)
            list.as<IPE_ListType>()->append(IPE_TupleOf(
                {items[i].name, IPE_Int(items[i].mode), items[i].accessed, IPE_Int(items[i].amounts.size),
                 IPE_Int(items[i].amounts.space), IPE_Int(int64_t(i))}));
        list.as<IPE_ListType>()->sort(false);
        std::vector<Item> sorted;
        for (const IPE_Object& tuple : list.as<IPE_ListType>()->items())
            sorted.push_back(
                std::move(items[static_cast<size_t>(tuple.as<IPE_TupleType>()->at(5)->__int__())]));
        std::move(sorted.begin(), sorted.end(), items.begin() + static_cast<std::ptrdiff_t>(begin));
    }
}

class SpaceMap final : public FSI_Report {
  public:
    static constexpr int Version = 63;
    explicit SpaceMap(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        int64_t threshold = integerOption("threshold", 2000, INT64_MIN, INT64_MAX);
        chooseField();
        index_ = &filteredLevels();
        openTables();
        for (const FSI_Selection& tree : selections(*index_))
            queue_.push_back({0, tree.level, tree.row, threshold});
        createTable(
            "create table if not exists $table (cache, path, ipath, id, parent_id, name, size, mode, "
            "accessed, psize, pspace)");
        createTable("create index if not exists ix01_$table on $table (id)");
        progress().start("progress.space_map", "${0}% Drawing the space map", 0);
        FSI_RowBatch rows(statement(),
                          "insert into $table (cache, path, ipath, id, parent_id, name, size, mode, "
                          "accessed, psize, pspace) values ($cache,?,?,?,?,?,?,?,?,?,?)",
                          FSI_RowBatch::Long);
        rows_ = &rows;
        for (; !queue_.empty(); queue_.pop_front()) divide(queue_.front());
        rows.flush(true);
        about();
        return {};
    }

  private:
    struct Entry {
        int64_t parent;
        int32_t level;  // of the directory, with `row` as in FSI_PathLevelHelper::locateRow
        int64_t row;
        int64_t budget;
    };
    struct Directory {
        IPE_Object path, number, accessed;
        int32_t level = 0;
        int64_t firstChild = 0, children = 0;
        Amounts own;  // of its files, or of its rows of rights
        FSI_RowRange files, rights;
    };

    void chooseField() {
        std::string name = textOption("field", "space");
        for (char& c : name)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        field_ = name == "size"      ? Field::Size
                 : name == "files"   ? Field::Files
                 : name == "rights"  ? Field::Rights
                 : name == "savings" ? Field::Savings
                                     : Field::Space;
    }

    void openTables() {
        if (field_ == Field::Rights) {
            if (!index_->rightsTable().empty()) rights_.connect(census(), index_->rightsTable(), true);
        } else if (field_ != Field::Files) {
            openTable("File");
            openFilter();
            connectColumn(size_, "Size"), connectColumn(space_, "Space");
            accessed_.connect(table(), "Accessed");
            name_ = table().meta().indexOf("Name", false);
        }
    }

    int64_t measureOf(int64_t size, int64_t space, int64_t files, int64_t rights) const {
        switch (field_) {
            case Field::Size: return size;
            case Field::Space: return space;
            case Field::Files: return files;
            case Field::Rights: return rights;
            case Field::Savings: break;
        }
        return minus(size, space);
    }

    // --- One directory.

    Directory read(const Entry& entry) {
        index_->locateRow(entry.level, entry.row);
        Directory directory;
        directory.path = IPE_String(index_->pathText());
        directory.number = IPE_Int(index_->number());
        directory.accessed = dates_.of(index_->figure(FSI_TreeMaxAccessed));
        directory.level = entry.level;
        directory.firstChild = index_->figure(FSI_ChildIndex);
        directory.children = index_->figure(FSI_ChildCount);
        directory.files = index_->files();
        directory.rights = index_->dacls();
        int64_t size = index_->figure(FSI_PathSize), space = index_->figure(FSI_PathSpace);
        directory.own.measure = measureOf(size, space, directory.files.count, directory.rights.count);
        if (field_ != Field::Files && field_ != Field::Rights)
            directory.own.size = size, directory.own.space = space;
        return directory;
    }

    void divide(const Entry& entry) {
        Directory directory = read(entry);
        Amounts rest = directory.own;
        forChildren(directory, [&](const Amounts& child, int64_t) { rest.add(child); });
        int64_t parent = entry.parent;
        if (parent == 0) {
            parent = counter_;
            addRow(directory, 0, directory.path, rest, ModeDirectory, directory.accessed);
        }
        std::vector<Item> items = findItems(directory, Shares(rest.measure, entry.budget));
        sortItems(items);
        for (const Item& item : items) {
            if (item.mode == ModeDirectory)
                queue_.push_back({counter_, directory.level + 1, item.row, item.budget});
            addRow(directory, parent, item.name, item.amounts, item.mode, item.accessed);
            rest.remove(item.amounts);
        }
        if (rest.measure != 0) addRow(directory, parent, IPE_String({}), rest, ModeRest, IPE_None());
    }

    void addRow(const Directory& directory, int64_t parent, const IPE_Object& name, const Amounts& amounts,
                Mode mode, const IPE_Object& accessed) {
        rows_->add(directory.path, directory.number, IPE_Int(counter_++), IPE_Int(parent), name,
                   IPE_Int(amounts.measure), IPE_Int(mode), accessed, IPE_Int(amounts.size),
                   IPE_Int(amounts.space));
    }

    // --- What can get a row.

    std::vector<Item> findItems(const Directory& directory, const Shares& shares) {
        std::vector<Item> items;
        forChildren(directory, [&](const Amounts& child, int64_t row) {
            double share = shares.of(child.measure);
            if (share > Shares::OfDirectory)
                items.push_back({child, ModeDirectory, IPE_String(index_->name()),
                                 dates_.of(index_->figure(FSI_TreeMaxAccessed)), row, truncated(share)});
        });
        if (field_ == Field::Files) {
            if (shares.of(directory.own.measure) > Shares::OfFile)
                items.push_back({directory.own, ModeFile, IPE_String("Files"), IPE_None(), 0, 0});
        } else if (field_ == Field::Rights) {
            findRights(directory, shares, items);
        } else {
            findFiles(directory, shares, items);
        }
        return items;
    }

    // Calls `visit(amounts, row)` for each child that has an item, as the index's current directory.
    template <class Visit>
    void forChildren(const Directory& directory, Visit&& visit) {
        for (int64_t row = directory.firstChild; row < directory.firstChild + directory.children; ++row) {
            stopCheck();
            XPK_Assert(index_->locateRow(directory.level + 1, row));
            Amounts child;
            int64_t size = index_->figure(FSI_TreeSize), space = index_->figure(FSI_TreeSpace);
            child.measure =
                measureOf(size, space, index_->figure(FSI_TreeFiles), index_->figure(FSI_TreeDACLs));
            if (child.measure == 0) continue;
            if (field_ != Field::Rights) child.size = size, child.space = space;
            visit(child, row);
        }
    }

    // Files have a measure of at least 0, so that none has more than all of them, but for differences.
    void findFiles(const Directory& directory, const Shares& shares, std::vector<Item>& items) {
        if (field_ != Field::Savings && !(shares.of(directory.own.measure) > Shares::OfFile)) return;
        walk(directory.files, false, [&] {
            Amounts file{0, size_.get(), space_.get()};
            file.measure = measureOf(file.size, file.space, 0, 0);
            if (shares.of(file.measure) > Shares::OfFile && filter().accepts())
                items.push_back({file, ModeFile, name_ < 0 ? IPE_None() : table().value(name_),
                                 dates_.of(accessed_.get()), 0, 0});
        });
    }

    void findRights(const Directory& directory, const Shares& shares, std::vector<Item>& items) {
        if (directory.rights.count == 0 || !(shares.of(1) > Shares::OfFile)) return;
        rights_.seek(directory.rights.row);
        for (int64_t i = 0; i < directory.rights.count; ++i) {
            if (i > 0) rights_.next();
            items.push_back({{1, 0, 0},
                             ModeFile,
                             IPE_String(IPE_Object_ToString(rights_.fieldsAsDict())),
                             IPE_String({}),
                             0,
                             0});
        }
    }

    Field field_ = Field::Space;
    FSI_PathLevelHelper* index_ = nullptr;
    FSI_ReaderTable rights_;
    SMF_I64 size_, space_;
    int32_t name_ = -1;  // the column, shown as scripts see it
    FSI_DateColumn accessed_;
    FSI_MomentTexts dates_{FSI_MomentTexts::Form::Date};
    FSI_RowBatch* rows_ = nullptr;  // while run() runs
    std::deque<Entry> queue_;
    int64_t counter_ = 1;
};

const FSI_ReportRegistration registered("fsi_report.storage.spacemap", "storage.spacemap",
                                        FSI_CallReport<SpaceMap>);

}  // namespace
