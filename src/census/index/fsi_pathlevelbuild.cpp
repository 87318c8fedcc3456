// The file index, built.
//
// What costs is the files. Without a filter their columns are taken as arrays, a directory's run at a time.
// Of dates only the maximum is wanted, and most need no conversion to seconds: one that lies more than two
// months before the latest so far cannot win, whatever its time of day and however far its day or month is
// out of range.
//
// The columns of files are those of the table's schema, which may supply one that the scan left out. The
// filter runs on a table of its own, so that what a query assigns is not counted, and only a row that passes
// is read further.
#include "census/index/fsi_pathlevelbuild.h"

#include <algorithm>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_digest.h"
#include "runtime/epa_shutdown.h"
#include "store/fields/smf_datetimefield.h"

namespace {

// The decoded values from the current row on, at least one; `one` serves where there is no array.
template <class Value, class Handle>
std::span<const Value> spanOf(const Handle& handle, size_t limit, Value& one) {
    std::span<const Value> span = handle.span(limit);
    if (!span.empty()) return span;
    one = handle.get();
    return {&one, 1};
}

void stopCheck() {
    if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
}

// The latest moment of a directory's files in one of the three columns. A column of another type counts as
// the number that it stands for.
class Latest {
  public:
    void connect(SMF_Record& table, std::string_view name) {
        other_.connect(table, name);
        if (other_.meta().type != SMF_TypeDateTime) return;
        other_.disconnect();
        moments_.connect(table, name);
    }
    void clear() noexcept { best_ = 0, bestDay_ = 0; }
    int64_t best() const noexcept { return best_; }
    int64_t seconds() const { return other_.isConnected() ? other_.as64() : moments_.time64(); }
    void offerRow() {
        if (other_.isConnected())
            best_ = std::max(best_, other_.as64());
        else
            offer(moments_.get());
    }
    // Up to `limit` rows from the current one on; gives how many.
    size_t offerRows(size_t limit) {
        std::span<const SMF_DateValue> dates;
        if (moments_.isConnected()) dates = moments_.dates(limit);
        std::span<const SMF_TimeValue> times;
        if (!dates.empty()) times = moments_.times(dates.size());
        if (times.empty()) {
            offerRow();
            return 1;
        }
        for (size_t i = 0; i < times.size(); ++i)
            if (dayOf(dates[i]) + Slack >= bestDay_) offer({dates[i], times[i]});
        return times.size();
    }

  private:
    static constexpr int32_t Slack = 64;  // days, counted as if all months had 32
    static int32_t dayOf(const SMF_DateValue& date) { return (date.year * 13 + date.month) * 32 + date.day; }
    void offer(const SMF_DateTimeValue& value) {
        int64_t seconds = SMF_TimeOfDateTime(value.date, value.time);
        if (seconds == 0) return;  // outside the years that count
        best_ = std::max(best_, seconds);
        bestDay_ = std::max(bestDay_, dayOf(value.date));
    }

    SMF_DateTime moments_;
    SMF_FieldHandle other_;  // one of the two
    int64_t best_ = 0;
    int32_t bestDay_ = 0;
};

// A cursor over a table that is sorted by path number: the run of rows of one number after the other.
template <class Table>
class Runs {
  public:
    template <class... Options>
    Runs(FSI_Reader& census, const std::string& name, const char* column, Options... options) {
        table_.connect(census, name, options...);
        number_.connect(table_, column);
        number_.meta();  // raises when there is no such column
    }
    // The row that the next run would begin at.
    int64_t row() const noexcept { return row_; }
    Table& table() noexcept { return table_; }
    // Calls `take(rows)` for each stretch of rows of `number` with the first of them as the current row.
    template <class Take>
    void take(int32_t number, Take&& take) {
        while (row_ <= table_.rows()) {
            table_.seek(row_);
            int32_t one;
            std::span<const int32_t> numbers = spanOf(number_, SIZE_MAX, one);
            size_t run = 0;
            while (run < numbers.size() && numbers[run] == number) ++run;
            if (run == 0) return;
            bool ended = run < numbers.size();
            stopCheck();
            take(run);
            row_ += static_cast<int64_t>(run);
            if (ended) return;
        }
    }

  private:
    Table table_;
    SMF_I32 number_;
    int64_t row_ = 1;
};

}  // namespace

// The files of one directory after the other, with their sums.
class FSI_PathLevelBuild::Files {
  public:
    Files(FSI_Reader& census, FSI_FileSelection* selection, EPA_VStackDigest* digest)
        : runs_(census, "File", "PathNumber", false), selection_(selection), digest_(digest) {
        FSI_ReaderTable& table = runs_.table();
        size_.connect(table, "Size");
        space_.connect(table, "Space");
        for (size_t i = 0; i < 3; ++i) latest_[i].connect(table, Moments[i]);
        name_.connect(table, "Name");
    }

    void take(int32_t number) {
        files = matches = size = space = 0;
        for (Latest& latest : latest_) latest.clear();
        runs_.take(number, [&](size_t run) {
            files += static_cast<int64_t>(run);
            if (selection_ || digest_)
                takeEach(run);
            else
                takeAll(run);
        });
    }
    int64_t row() const noexcept { return runs_.row(); }
    int64_t latest(size_t column) const noexcept { return latest_[column].best(); }

    int64_t files = 0, matches = 0, size = 0, space = 0;

  private:
    static constexpr const char* Moments[] = {"Created", "Modified", "Accessed"};

    void takeAll(size_t run) {
        matches += static_cast<int64_t>(run);
        addUp(size_, run, size);
        addUp(space_, run, space);
        for (Latest& latest : latest_)
            eachStretch(run, [&](size_t limit) { return latest.offerRows(limit); });
    }

    void addUp(const SMF_I64& column, size_t run, int64_t& sum) {
        auto total = static_cast<uint64_t>(sum);  // wraps around, as the stacks do
        eachStretch(run, [&](size_t limit) {
            int64_t one;
            std::span<const int64_t> values = spanOf(column, limit, one);
            for (int64_t value : values) total += static_cast<uint64_t>(value);
            return values.size();
        });
        sum = static_cast<int64_t>(total);
    }

    // Calls `part(limit)` until all rows of the run are done; it gives how many it did.
    template <class Part>
    void eachStretch(size_t run, Part part) {
        for (size_t done = 0; done < run;) {
            runs_.table().seek(runs_.row() + static_cast<int64_t>(done));
            done += part(run - done);
        }
    }

    void takeEach(size_t run) {
        for (int64_t row = runs_.row(), end = row + static_cast<int64_t>(run); row < end; ++row) {
            if (selection_) {
                selection_->table.seek(row);
                if (!selection_->filter.find(end - 1)) return;
                row = selection_->table.position();
            }
            runs_.table().seek(row);
            ++matches;
            size = static_cast<int64_t>(static_cast<uint64_t>(size) + static_cast<uint64_t>(size_.get()));
            space = static_cast<int64_t>(static_cast<uint64_t>(space) + static_cast<uint64_t>(space_.get()));
            for (Latest& latest : latest_) latest.offerRow();
            if (digest_)
                digest_->add(IPE_String(name_.get()),
                             IPE_ListOf({IPE_Int(size_.get()), IPE_Int(latest_[1].seconds())}));
        }
    }

    Runs<FSI_ReaderTable> runs_;
    FSI_FileSelection* selection_;
    EPA_VStackDigest* digest_;
    SMF_I64 size_, space_;
    std::array<Latest, 3> latest_;
    SMF_String name_;
};

class FSI_PathLevelBuild::Rights {
  public:
    Rights(FSI_Reader& census, const std::string& name) : runs_(census, name, "Path") {}
    int64_t row() const noexcept { return runs_.row(); }
    int64_t take(int32_t number) {
        int64_t count = 0;
        runs_.take(number, [&](size_t run) { count += static_cast<int64_t>(run); });
        return count;
    }

  private:
    Runs<SMF_ReaderTable> runs_;
};

FSI_PathLevelBuild::FSI_PathLevelBuild(FSI_Reader& census, SMF_Writer& writer, FSI_FileSelection* selection,
                                       const std::string& rights, bool digests)
    : census_(census),
      writer_(writer),
      matches_(selection != nullptr),
      digests_(digests),
      masked_(census.isSet("hide_paths")),
      files_(std::make_unique<Files>(census, selection, digests ? &fileDigest_ : nullptr)) {
    if (!rights.empty()) rights_ = std::make_unique<Rights>(census, rights);
    for (size_t i = 0; i < FSI_FigureCount; ++i) {
        const FSI_LevelColumn& column = FSI_LevelColumns[i];
        auto attach = [&](auto& stack) {
            stack.mode = column.mode;
            stack.propagate = column.rolls;
            gang_.attach(stack);
        };
        if (column.wide)
            attach(wide_[i]);
        else
            attach(narrow_[i]);
    }
    gang_.attach(fileDigest_);
    gang_.attach(childDigest_);
    names_.resize(EPA_VStackBase::Levels);
}
FSI_PathLevelBuild::~FSI_PathLevelBuild() = default;

void FSI_PathLevelBuild::apply(FSI_Figure figure, int64_t value) {
    const auto at = static_cast<size_t>(figure);
    if (FSI_LevelColumns[at].wide)
        wide_[at].apply(value);
    else
        narrow_[at].apply(static_cast<int32_t>(value));
}

int64_t FSI_PathLevelBuild::current(FSI_Figure figure) const {
    const auto at = static_cast<size_t>(figure);
    return FSI_LevelColumns[at].wide ? wide_[at].current() : narrow_[at].current();
}

// The deepest level that there may be has no level below it.
void FSI_PathLevelBuild::needLevel(int32_t level) {
    if (level < static_cast<int32_t>(levels_.size()) || level >= EPA_VStackBase::Levels) return;
    levels_.push_back(std::make_unique<FSI_LevelWriter>(writer_, level, matches_, digests_, masked_));
}

int64_t FSI_PathLevelBuild::nextRow(int32_t level) const {
    return level < static_cast<int32_t>(levels_.size()) ? levels_[static_cast<size_t>(level)]->rows() + 1 : 1;
}

void FSI_PathLevelBuild::enter(int32_t number, int32_t parent, std::string_view name) {
    while (current(FSI_PathIndex) != parent) {
        XPK_Assert(gang_.depth() > 0);
        close();
    }
    apply(FSI_ChildCount, 1);
    apply(FSI_TreePaths, 1);
    gang_.push();
    needLevel(gang_.depth() + 1);
    apply(FSI_ChildIndex, nextRow(gang_.depth() + 1));
    apply(FSI_PathParent, parent);
    apply(FSI_PathIndex, number);
    names_[static_cast<size_t>(gang_.depth())] = name;
    apply(FSI_FileIndex, files_->row());
    apply(FSI_DACLIndex, rights_ ? rights_->row() : 0);
}

void FSI_PathLevelBuild::count(int32_t number) {
    files_->take(number);
    apply(FSI_PathFiles, files_->files);
    apply(FSI_TreeFiles, files_->files);
    apply(FSI_PathMatches, files_->matches);
    apply(FSI_TreeMatches, files_->matches);
    apply(FSI_PathSize, files_->size);
    apply(FSI_TreeSize, files_->size);
    apply(FSI_PathSpace, files_->space);
    apply(FSI_TreeSpace, files_->space);
    for (int i = 0; i < 3; ++i)
        apply(static_cast<FSI_Figure>(FSI_TreeMaxCreated + i), files_->latest(static_cast<size_t>(i)));
    if (!rights_) return;
    int64_t rights = rights_->take(number);
    apply(FSI_PathDACLs, rights);
    apply(FSI_TreeDACLs, rights);
}

void FSI_PathLevelBuild::close() {
    const auto depth = static_cast<size_t>(gang_.depth());
    FSI_LevelWriter& level = *levels_[depth];
    level.setName(names_[depth]);
    for (int i = 0; i < FSI_FigureCount; ++i) {
        auto figure = static_cast<FSI_Figure>(i);
        if (matches_ || !FSI_LevelColumns[static_cast<size_t>(i)].ofMatches)
            level.set(figure, current(figure));
    }
    std::string tree;
    if (digests_) {
        std::string files = fileDigest_.digest();
        unsigned char bytes[20];
        EPA_Sha1(files + childDigest_.digest(), bytes);
        tree = EPA_HexText({reinterpret_cast<const char*>(bytes) + 16, 4}, false);
        level.setHashes(files, tree);
    }
    level.commit();
    if (depth == 0) return;
    gang_.pop();
    if (digests_) childDigest_.add(IPE_String(names_[depth]), IPE_String(tree));
}

void FSI_PathLevelBuild::run(FSI_Progress& progress, std::string_view key, std::string_view text) {
    SMF_ReaderTable paths;
    paths.connect(census_, "Path");
    SMF_I32 numbers, parents;
    SMF_String names;
    numbers.connect(paths, "Number");
    parents.connect(paths, "Parent");
    names.connect(paths, "Name");
    progress.start(key, text, paths.rows());

    needLevel(0);
    needLevel(1);
    SMF_WriterTable jump(writer_.fileName());
    SMF_I32 depth, index;
    depth.connect(jump, "Depth", "D");
    index.connect(jump, "Index", "M");
    jump.create(FSI_JumpTable, writer_, 8192, 25);
    names_[0] = "/";
    apply(FSI_PathIndex, 1);
    for (FSI_Figure first : {FSI_ChildIndex, FSI_FileIndex}) apply(first, 1);
    if (rights_) apply(FSI_DACLIndex, 1);

    paths.top();
    for (paths.next(); paths.position() <= paths.rows(); paths.next()) {
        int32_t number = numbers.get();
        FSI_RequirePathRow(census_, number, paths.position());
        if (number > 1) enter(number, parents.get(), names.get());
        depth.set(gang_.depth());
        index.set(static_cast<int32_t>(nextRow(gang_.depth())));
        jump.commit();
        count(number);
        progress.tick();
    }
    while (gang_.depth() > 0) close();
    close();
}
