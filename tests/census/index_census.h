// A plain recount of a census's file index, for the tests of the indexes.
#pragma once

#include "census/fsi_reader.h"
#include "census/index/fsi_entityhelper.h"
#include "census/index/fsi_pathlevelhelper.h"
#include "census/index/fsi_pathnamehelper.h"
#include "census_support.h"
#include "ipe/values/ipe_containers.h"
#include "runtime/epa_digest.h"
#include "store/smf_readertable.h"

using FileTest = std::function<bool(const ModelFile&)>;

struct RecountedPath {
    int32_t level = 0;
    int64_t row = 1;
    std::array<int64_t, FSI_FigureCount> figures{};
    std::string pathHash, treeHash;
    IPE_Object files = IPE_NewList(), children = IPE_NewList();  // what the digests are made of
};

inline std::string digestOfPairs(const IPE_Object& list) {
    if (list->__len__() == 0) return {};
    list.as<IPE_ListType>()->sort(false);
    unsigned char bytes[20];
    EPA_Sha1(IPE_Object_Text(list), bytes);
    return EPA_HexText({reinterpret_cast<const char*>(bytes), 20}, false).substr(32);
}

// By number; 0 stands for "none". `accept` is null for an index without a filter.
inline std::vector<RecountedPath> recount(const ModelCensus& census, const FileTest& accept = nullptr) {
    std::vector<RecountedPath> all(census.paths.size() + 1);
    std::map<int32_t, int64_t> rows;
    int64_t fileRow = 1, rightRow = 1;
    for (size_t n = 1; n < all.size(); ++n) {
        const ModelPath& path = census.paths[n - 1];
        const auto parent = static_cast<size_t>(n > 1 ? path.parent : 0);
        all[n].level = n > 1 ? all[parent].level + 1 : 0;
        all[n].row = ++rows[all[n].level];
        auto& own = all[n].figures;
        own[FSI_PathIndex] = static_cast<int64_t>(n);
        own[FSI_PathParent] = static_cast<int64_t>(parent);
        own[FSI_ChildIndex] = rows[all[n].level + 1] + 1;
        own[FSI_FileIndex] = fileRow;
        own[FSI_DACLIndex] = census.rightsTable.empty() ? 0 : rightRow;
        if (n > 1) ++all[parent].figures[FSI_ChildCount];
        int64_t matches = 0, size = 0, space = 0, latest[3] = {};
        for (const ModelFile& file : path.files) {
            if (accept && !accept(file)) continue;
            ++matches, size += file.size, space += file.space;
            const SMF_DateTimeValue* moments[] = {&file.created, &file.modified, &file.accessed};
            for (int i = 0; i < 3; ++i)
                latest[i] = std::max(latest[i], SMF_TimeOfDateTime(moments[i]->date, moments[i]->time));
            int64_t modified = SMF_TimeOfDateTime(file.modified.date, file.modified.time);
            all[n].files.as<IPE_ListType>()->append(
                IPE_TupleOf({IPE_String(file.name), IPE_ListOf({IPE_Int(file.size), IPE_Int(modified)})}));
        }
        auto files = static_cast<int64_t>(path.files.size()),
             rights = static_cast<int64_t>(path.rights.size());
        if (census.rightsTable.empty()) rights = 0;
        fileRow += files, rightRow += rights;
        own[FSI_PathFiles] = files, own[FSI_PathDACLs] = rights;
        own[FSI_PathMatches] = accept ? matches : 0;
        own[FSI_PathSize] = size, own[FSI_PathSpace] = space;
        for (size_t up = n; up > 0; up = static_cast<size_t>(up > 1 ? census.paths[up - 1].parent : 0)) {
            auto& tree = all[up].figures;
            tree[FSI_TreePaths] += up != n;
            tree[FSI_TreeFiles] += files, tree[FSI_TreeDACLs] += rights;
            tree[FSI_TreeMatches] += accept ? matches : 0;
            tree[FSI_TreeSize] += size, tree[FSI_TreeSpace] += space;
            for (size_t i = 0; i < 3; ++i)
                tree[FSI_TreeMaxCreated + i] = std::max(tree[FSI_TreeMaxCreated + i], latest[i]);
        }
    }
    for (size_t n = all.size() - 1; n > 0; --n) {
        all[n].pathHash = digestOfPairs(all[n].files);
        unsigned char bytes[20];
        EPA_Sha1(all[n].pathHash + digestOfPairs(all[n].children), bytes);
        all[n].treeHash = EPA_HexText({reinterpret_cast<const char*>(bytes), 20}, false).substr(32);
        const ModelPath& path = census.paths[n - 1];
        if (n > 1)
            all[static_cast<size_t>(path.parent)].children.as<IPE_ListType>()->append(
                IPE_TupleOf({IPE_String(path.name), IPE_String(all[n].treeHash)}));
    }
    return all;
}

// Compares an open index with the recount, number by number in a mixed order.
inline void expectIndex(FSI_PathLevelHelper& index, const ModelCensus& census,
                        const FileTest& accept = nullptr) {
    std::vector<RecountedPath> all = recount(census, accept);
    ASSERT_EQ(index.paths(), static_cast<int64_t>(census.paths.size()));
    for (size_t i = 1; i < all.size(); ++i) {
        size_t n = i % 3 ? i : all.size() - i;
        ASSERT_TRUE(index.locateNumber(static_cast<int64_t>(n)));
        const RecountedPath& path = all[n];
        EXPECT_EQ(index.depth(), path.level);
        EXPECT_EQ(index.row(), path.row);
        for (int f = 0; f < FSI_FigureCount; ++f)
            ASSERT_EQ(index.figure(static_cast<FSI_Figure>(f)), path.figures[static_cast<size_t>(f)])
                << "figure " << f << " of path " << n;
        EXPECT_EQ(index.pathText(), n == 1 ? "/" : census.textOf(n));
        EXPECT_EQ(index.pathHash(), index.hasDigests() ? path.pathHash : "");
        EXPECT_EQ(index.treeHash(), index.hasDigests() ? path.treeHash : "");
        std::string children, expected;
        for (const auto& child : index.children()) {
            EXPECT_EQ(child.level, path.level + 1);
            EXPECT_TRUE(index.locateRow(child.level, child.row));
            EXPECT_EQ(child.childCount, index.figure(FSI_ChildCount));
            EXPECT_EQ(child.childIndex, index.figure(FSI_ChildIndex));
            children += std::to_string(index.number()) + child.name + " ";
        }
        for (size_t c = n + 1; c < all.size(); ++c)
            if (census.paths[c - 1].parent == static_cast<int32_t>(n))
                expected += std::to_string(c) + census.paths[c - 1].name + " ";
        EXPECT_EQ(children, expected);
        ASSERT_TRUE(index.locateText(census.textOf(n), true));
        EXPECT_EQ(index.number(), static_cast<int64_t>(n));
    }
}

// The files whose names hold `part`, in the folder.
inline std::vector<std::string> filesWith(const CensusFolder& folder, const std::string& part) {
    std::vector<std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator(folder.folder))
        if (entry.path().filename().string().find(part) != std::string::npos) out.push_back(entry.path());
    return out;
}
