// FSI_PathLevelBuild: writes the file index in one pass over the tables of a census.
//
// `Path`, `File` and the table of rights are walked side by side, with no seek back: each is sorted by path
// number, and the paths stand in depth-first order. What belongs to the directories on the open branch is
// kept in value stacks; a directory's row is written when the walk leaves it.
//
// A parent that is not on the open branch, or a 513th level, is an assertion; a path that does not stand at
// the row of its number is DatabaseError Corruption.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "census/fsi_recordfilter.h"
#include "census/index/fsi_pathlevels.h"
#include "runtime/stacks/epa_vstackdigest.h"
#include "runtime/stacks/epa_vstackgang.h"
#include "runtime/stacks/epa_vstacknumber.h"

// The files that an index counts in full.
struct FSI_FileSelection {
    explicit FSI_FileSelection(FSI_Reader& census) : filter((table.connect(census, "File", false), table)) {}
    FSI_ReaderTable table;  // `File`
    FSI_RecordFilter filter;
};

class FSI_PathLevelBuild {
  public:
    // `selection` is null for all files. `rights` names the table of rights, empty for none.
    FSI_PathLevelBuild(FSI_Reader& census, SMF_Writer& writer, FSI_FileSelection* selection,
                       const std::string& rights, bool digests);
    ~FSI_PathLevelBuild();
    void run(FSI_Progress& progress, std::string_view key, std::string_view text);

  private:
    class Files;
    class Rights;
    void apply(FSI_Figure figure, int64_t value);
    int64_t current(FSI_Figure figure) const;
    void needLevel(int32_t level);
    int64_t nextRow(int32_t level) const;  // of the table of that level
    void enter(int32_t number, int32_t parent, std::string_view name);
    void count(int32_t number);
    void close();

    FSI_Reader& census_;
    SMF_Writer& writer_;
    const bool matches_, digests_, masked_;
    std::unique_ptr<Files> files_;
    std::unique_ptr<Rights> rights_;
    std::vector<std::unique_ptr<FSI_LevelWriter>> levels_;
    EPA_VStackGang gang_;
    std::array<EPA_VStackI32, FSI_FigureCount> narrow_;  // of each figure one of the two is in the gang
    std::array<EPA_VStackI64, FSI_FigureCount> wide_;
    EPA_VStackDigest fileDigest_, childDigest_;
    std::vector<std::string> names_;  // of the open branch; kept for their room
};
