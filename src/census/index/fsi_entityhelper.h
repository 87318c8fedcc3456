// FSI_EntityHelper: the users index, the table "Entity": for each entity of the census what the application
// tells about it (GetImageEntitySchema, GetImageEntity).
#pragma once

#include "census/index/fsi_helperindex.h"

class FSI_EntityHelper final : public FSI_HelperIndex {
  public:
    static constexpr const char* TableName = "Entity";
    // Opens, or builds, the index. A reader without a host is an assertion.
    explicit FSI_EntityHelper(FSI_Reader& census);

  private:
    void build(SMF_Writer& writer, FSI_Progress& progress) override;
};
