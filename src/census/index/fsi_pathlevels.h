// The level tables of the file index: their columns, and FSI_LevelTable, one of them open.
//
// Level n, 0 for the root, is the table "_PI" and n in three digits. It has a row for each directory at that
// depth in walk order, so that the children of a directory are neighbours.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "census/index/fsi_pathlevelhelper.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_readertable.h"
#include "store/smf_writer.h"

// How a column of figures is stored and how it comes about along the walk. Unchangeable: the names, the
// widths and the order, which is that of FSI_Figure, are those of the files.
struct FSI_LevelColumn {
    const char* name;
    const char* format;
    bool wide;       // I64, else I32
    int8_t mode;     // of the value stack: 0 latest, 1 sum, 2 maximum
    bool rolls;      // a closing directory gives its value to the one above
    bool ofMatches;  // only in an index with a filter
};
extern const std::array<FSI_LevelColumn, FSI_FigureCount> FSI_LevelColumns;

std::string FSI_LevelName(int32_t level);
inline constexpr const char* FSI_JumpTable = "-PathJump";
// Behind which columns the digests stand.
inline constexpr FSI_Figure FSI_BeforePathHash = FSI_PathSpace, FSI_BeforeTreeHash = FSI_TreeSpace;

class FSI_LevelTable {
  public:
    FSI_LevelTable(SMF_Reader& store, int32_t level);

    int64_t rows() const noexcept { return table_.rows(); }
    // Below 1 is as bad as behind the last row: Runtime "Seek past end of table".
    void seek(int64_t row);
    // Of the current row; 0 for a column that the index does not have.
    int64_t figure(FSI_Figure figure) const {
        const auto at = static_cast<size_t>(figure);
        if (FSI_LevelColumns[at].wide) return wide_[at].isConnected() ? wide_[at].get() : 0;
        return narrow_[at].get();
    }
    std::string_view name() const { return name_.get(); }  // as stored
    std::string pathHash() const { return text(pathHash_); }
    std::string treeHash() const { return text(treeHash_); }

  private:
    static std::string text(const SMF_String& handle) {
        return handle.isConnected() ? std::string(handle.get()) : std::string();
    }
    SMF_ReaderTable table_;
    SMF_String name_, pathHash_, treeHash_;
    std::array<SMF_I32, FSI_FigureCount> narrow_;
    std::array<SMF_I64, FSI_FigureCount> wide_;
};

// One level under construction.
class FSI_LevelWriter {
  public:
    // `masked` gives the names the tag Transform.
    FSI_LevelWriter(SMF_Writer& writer, int32_t level, bool matches, bool digests, bool masked);

    int64_t rows() const noexcept { return rows_; }
    void set(FSI_Figure figure, int64_t value) const {
        const auto at = static_cast<size_t>(figure);
        if (FSI_LevelColumns[at].wide)
            wide_[at].set(value);
        else
            narrow_[at].set(static_cast<int32_t>(value));
    }
    void setName(std::string_view name) const { name_.set(name); }
    void setHashes(std::string_view path, std::string_view tree) const {
        pathHash_.set(path);
        treeHash_.set(tree);
    }
    void commit() {
        table_.commit();
        ++rows_;
    }

  private:
    SMF_WriterTable table_;
    SMF_String name_, pathHash_, treeHash_;
    std::array<SMF_I32, FSI_FigureCount> narrow_;
    std::array<SMF_I64, FSI_FigureCount> wide_;
    int64_t rows_ = 0;
};
