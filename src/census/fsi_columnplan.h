// FSI_ColumnPlan: how the value of one column is reached: stored, worked out by an index, or found through a
// number in another table. FSI_ReaderTable makes plans out of the tags `FTable`, `FMode` and `FShow`.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "runtime/ipe_object.h"

class FSI_ReaderTable;

// Kinds as numbers; scripts never see them.
enum FSI_PlanKind : int32_t {
    FSI_PlanStored = 0,
    FSI_PlanForeign = 2,   // by number, with a cache
    FSI_PlanOneToOne = 3,  // by number
    FSI_PlanProperty = 4,  // by number and name: rows (number, ..., name, value)
    FSI_PlanPath = 5,      // a row of Path, or of Root for the root
    FSI_PlanSize = 100,
    FSI_PlanSpace = 101,
    FSI_PlanFiles = 102,
    FSI_PlanDepth = 150,
    FSI_PlanTreeSize = 200,
    FSI_PlanTreeSpace = 201,
    FSI_PlanTreeFiles = 202,
    FSI_PlanLastCreated = 210,
    FSI_PlanLastModified = 211,
    FSI_PlanLastAccessed = 212,
    FSI_PlanPathText = 300,
    FSI_PlanUncText = 301,
};

struct FSI_ColumnPlan {
    int32_t kind = FSI_PlanStored;
    int32_t index = -1;                             // the field of this table
    FSI_ReaderTable* table = nullptr;               // the foreign table; null for the kinds without one
    int32_t shown = -1;                             // the field shown there
    FSI_ReaderTable* rootTable = nullptr;           // kind 5: the census's Root, or null
    int32_t rootShown = -1;                         // kind 5: the field shown in Root, or -1
    bool masked = false;                            // kind 5: a text that `hide_paths` hides
    std::string property;                           // kind 4: the name looked for
    IPE_Object empty;                               // the value for number 0
    std::unordered_map<int64_t, IPE_Object> cache;  // kind 2
    // Figures and path texts: the value shown last, which the files of one folder share.
    int64_t lastNumber = 0;
    IPE_Object lastValue;
    // What get_header tells.
    std::string type, style, label;

    bool isFigure() const noexcept { return kind >= 100 && kind < 300; }
    bool isPathText() const noexcept { return kind == FSI_PlanPathText || kind == FSI_PlanUncText; }
};
