// Level tables, opened and made.
//
// Levels near the root are the ones with many rows, so they have larger blocks; a deep tree has hundreds of
// levels with few.
#include "census/index/fsi_pathlevels.h"

#include <cstdio>

#include "ipe/values/ipe_dicttype.h"

namespace {
constexpr int32_t LastWideLevel = 16;
constexpr uint32_t WideBlock = 16384, DeepBlock = 4096, ZeroInterval = 10;
}  // namespace

const std::array<FSI_LevelColumn, FSI_FigureCount> FSI_LevelColumns = {{
    {"PathIndex", "M", false, 0, false, false},      {"PathParent", "M", false, 0, false, false},
    {"PathFiles", "D", true, 1, false, false},       {"PathMatches", "D", true, 1, false, true},
    {"PathDACLs", "D", true, 1, false, false},       {"PathSize", "D", true, 1, false, false},
    {"PathSpace", "D", true, 1, false, false},       {"ChildIndex", "M", false, 0, false, false},
    {"ChildCount", "M", false, 1, false, false},     {"TreePaths", "M", false, 1, true, false},
    {"TreeFiles", "D", true, 1, true, false},        {"TreeMatches", "D", true, 1, true, true},
    {"TreeDACLs", "D", true, 1, true, false},        {"TreeSize", "M", true, 1, true, false},
    {"TreeSpace", "M", true, 1, true, false},        {"TreeMaxCreated", "D", false, 2, true, false},
    {"TreeMaxModified", "D", false, 2, true, false}, {"TreeMaxAccessed", "D", false, 2, true, false},
    {"FileIndex", "M", true, 0, false, false},       {"DACLIndex", "M", true, 0, false, false},
}};

std::string FSI_LevelName(int32_t level) {
    char name[16];
    std::snprintf(name, sizeof name, "_PI%03i", level);
    return name;
}

FSI_LevelTable::FSI_LevelTable(SMF_Reader& store, int32_t level) {
    table_.connect(store, FSI_LevelName(level));
    name_.connect(table_, "Name");
    pathHash_.connect(table_, "PathHash");
    treeHash_.connect(table_, "TreeHash");
    for (size_t i = 0; i < FSI_FigureCount; ++i)
        if (FSI_LevelColumns[i].wide)
            wide_[i].connect(table_, FSI_LevelColumns[i].name);
        else
            narrow_[i].connect(table_, FSI_LevelColumns[i].name);
}

void FSI_LevelTable::seek(int64_t row) {
    if (row < 1) table_.error(SMF_Runtime, "Seek past end of table");
    if (row != table_.position()) table_.seek(row);
}

FSI_LevelWriter::FSI_LevelWriter(SMF_Writer& writer, int32_t level, bool matches, bool digests, bool masked)
    : table_(writer.fileName()) {
    name_.connect(table_, "Name", "D");
    for (size_t i = 0; i < FSI_FigureCount; ++i) {
        const FSI_LevelColumn& column = FSI_LevelColumns[i];
        if (column.ofMatches && !matches) continue;
        if (column.wide)
            wide_[i].connect(table_, column.name, column.format);
        else
            narrow_[i].connect(table_, column.name, column.format);
        if (digests && i == FSI_BeforePathHash) pathHash_.connect(table_, "PathHash", "S");
        if (digests && i == FSI_BeforeTreeHash) treeHash_.connect(table_, "TreeHash", "S");
    }
    if (masked)
        table_.meta().fields[static_cast<size_t>(name_.index())]->setTag("Transform", IPE_String("PathName"));
    table_.create(FSI_LevelName(level), writer, level <= LastWideLevel ? WideBlock : DeepBlock, ZeroInterval);
}
