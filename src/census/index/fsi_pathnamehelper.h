// FSI_PathNameHelper: the paths index, the table "PathName": one row for each path, with its full text.
#pragma once

#include <string>
#include <string_view>

#include "census/index/fsi_helperindex.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_readertable.h"

class FSI_PathNameHelper final : public FSI_HelperIndex {
  public:
    static constexpr const char* TableName = "PathName";
    // Opens, or builds, the index.
    explicit FSI_PathNameHelper(FSI_Reader& census);

    // The text of path `number`: "/", each level's name and "/". Empty for a number that is none. Valid until
    // the next call.
    std::string_view path(int64_t number);
    int64_t rows() const noexcept { return table_.rows(); }

  private:
    void build(SMF_Writer& writer, FSI_Progress& progress) override;

    SMF_ReaderTable table_;
    SMF_String path_;
};
