// FSI_PathLevelHelper: the file index: for each directory its own figures and those of its tree, and the way
// from a number or a text to it.
//
//   FSI_PathLevelHelper& levels = reader.pathLevelHelper();
//   levels.locateText("/usr/lib", true);
//   int64_t bytes = levels.figure(FSI_TreeSize);
//
// One directory is current at a time, or none; then every figure is 0. Locating numbers in ascending order
// reads the index in sequence. Texts shown carry the items of the reader's option `base` and are masked as
// `hide_paths` asks; texts looked up are compared with the stored names.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "census/index/fsi_helperindex.h"
#include "store/fields/smf_i32field.h"
#include "store/smf_readertable.h"

// The numbers of a level table's row. The order is that of the handles in fsi_pathlevels.h.
enum FSI_Figure : int32_t {
    FSI_PathIndex,
    FSI_PathParent,
    FSI_PathFiles,
    FSI_PathMatches,  // 0 in an index without a filter
    FSI_PathDACLs,
    FSI_PathSize,
    FSI_PathSpace,
    FSI_ChildIndex,
    FSI_ChildCount,
    FSI_TreePaths,
    FSI_TreeFiles,
    FSI_TreeMatches,
    FSI_TreeDACLs,
    FSI_TreeSize,
    FSI_TreeSpace,
    FSI_TreeMaxCreated,
    FSI_TreeMaxModified,
    FSI_TreeMaxAccessed,
    FSI_FileIndex,
    FSI_DACLIndex,
    FSI_FigureCount
};

// A run of rows of another table. `row` means nothing when `count` is 0.
struct FSI_RowRange {
    int64_t row = 0, count = 0;
};

class FSI_LevelTable;
struct FSI_FileSelection;

class FSI_PathLevelHelper final : public FSI_HelperIndex {
  public:
    static constexpr int32_t MostLevels = 512;
    struct Child {
        std::string name;  // as stored
        int32_t level = 0;
        int64_t row = 0, childIndex = 0, childCount = 0;
    };

    explicit FSI_PathLevelHelper(FSI_Reader& census);
    ~FSI_PathLevelHelper() override;

    // Opens, or builds, the index of the files that pass `filter` (all when it is empty). `options` is the
    // report's dictionary, `keywords` its keyword dictionary, or null (FSI_RecordFilter::compileFor).
    void open(std::string_view filter, const IPE_Object& options = {}, const IPE_Object& keywords = {});
    bool isOpen() const noexcept { return levelZero_ != nullptr; }
    bool hasFilter() const noexcept { return filtered_; }
    bool hasDigests() const noexcept { return digests_; }
    // The table of rights that was counted: "PathDACL", "Rights", or empty when the census has neither.
    const std::string& rightsTable() const noexcept { return rightsTable_; }
    // Directories in the index; numbers are 1 to paths().
    int64_t paths() const noexcept { return jump_.rows(); }

    // --- Making a directory current. All give true if it was found; otherwise none is current.
    // An integer is a path number, a tuple (level, row) or (0, number), a string a text.
    bool locate(const IPE_Object& value, bool raise = false);
    bool locateNumber(int64_t number);
    bool locateRow(int32_t level, int64_t row);
    // DevelopmentError "Path $name passed to locate()" for a text that begins with a backslash (but "\" alone
    // is the root); with `raise` PathNotFoundException "The path ($name) does not exist".
    bool locateText(std::string_view text, bool raise);
    void leave() noexcept;

    // --- The current directory.
    bool isLocated() const noexcept { return row_ != 0; }
    int32_t depth() const noexcept { return level_; }
    int64_t row() const noexcept { return row_; }  // in its level's table
    int64_t number() { return figure(FSI_PathIndex); }
    int64_t figure(FSI_Figure figure);
    // The name as shown; "/" for the root. Valid until the next call.
    std::string_view name();
    // The text with a trailing "/", with the items of `base` in front or without.
    void pathText(std::string& out, bool withBase = true);
    std::string pathText() {
        std::string out;
        pathText(out);
        return out;
    }
    // `PathHash`, `TreeHash`; empty in an index without digests.
    std::string pathHash();
    std::string treeHash();
    // `File` rows: of the directory, of its tree. DACL rows likewise.
    FSI_RowRange files() { return {figure(FSI_FileIndex), figure(FSI_PathFiles)}; }
    FSI_RowRange treeFiles() { return {figure(FSI_FileIndex), figure(FSI_TreeFiles)}; }
    FSI_RowRange dacls() { return {figure(FSI_DACLIndex), figure(FSI_PathDACLs)}; }
    FSI_RowRange treeDacls() { return {figure(FSI_DACLIndex), figure(FSI_TreeDACLs)}; }
    // The children in walk order. Valid until the next call of children() or locateText(); the current
    // directory stays. DevelopmentException "Unable to locate the path index".
    const std::vector<Child>& children();

  private:
    // Entries of the child lists that are kept, in all. A directory with more is searched row by row.
    static constexpr int64_t MostChildren = 1 << 16;
    struct ChildList;
    struct Component;
    void build(SMF_Writer& writer, FSI_Progress& progress) override;
    std::string filterKey(std::string_view text, const IPE_Object& options) const;
    FSI_LevelTable& level(int32_t level);
    // The level table with the current directory's row as the current one.
    FSI_LevelTable& here();
    std::string_view shownName(int32_t level, std::string_view stored);
    ChildList& childList();
    void readChildren(ChildList& list);
    bool searchChildren(const Component& wanted);
    bool enterChild(const Component& wanted);
    bool findText(std::string_view text);
    void skipBase(std::vector<Component>& components) const;
    void followBranch();
    bool fail(std::string_view text, bool raise);

    bool filtered_ = false, digests_ = false, masked_ = false;
    std::string rightsTable_;
    std::vector<std::string> base_;
    std::unique_ptr<FSI_FileSelection> selection_;  // while open() runs
    std::vector<std::unique_ptr<FSI_LevelTable>> levels_;
    FSI_LevelTable* levelZero_ = nullptr;
    SMF_ReaderTable jump_;
    SMF_I32 jumpDepth_, jumpIndex_;
    int32_t level_ = 0;
    int64_t row_ = 0;
    std::unordered_map<int64_t, std::unique_ptr<ChildList>> lists_;  // by path number
    int64_t listed_ = 0;                                             // children in them
    std::string shownName_;
    // The branch whose text was asked last: for each level its row and where its text ends.
    struct Branch {
        int64_t row = 0;
        size_t end = 0;
    };
    std::vector<Branch> branch_;
    std::string branchText_;  // of the levels below the root
    std::vector<int64_t> climb_;
    std::string baseText_;  // "/" and the items of `base`
};
