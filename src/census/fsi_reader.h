// FSI_Reader: an open census, its options, the application's Lua state and the helper indexes.
//
// Options are a script dictionary: `fsi` names the census file; `epoch`, `view`, `hide_paths`, `hide_users`,
// `calc_digests` and `base` are read where they matter. The application answers through the function
// `api_call` in its Lua state (the host): ResolveTableScript, ListMyColumns, ResolveIncludeScript,
// GetImageEntitySchema, GetImageEntity. Without a host every stored field is visible and no table has a
// schema script.
//
// Helper indexes are opened, or built, on first use and live as long as the reader. A reader, its tables and
// its indexes belong to one thread at a time.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ipe/engines/ipe_lua.h"
#include "store/smf_reader.h"

class FSI_EntityHelper;
class FSI_PathLevelHelper;
class FSI_PathNameHelper;

class FSI_Reader final : public SMF_Reader {
  public:
    // `options` is a DictType, kept as it is; `host` an IPE_Lua, anything else counts as no host. Opens the
    // file of option `fsi` at once: KeyError without that option, the errors of SMF_Reader::open.
    FSI_Reader(const IPE_Object& options, const IPE_Object& host);
    ~FSI_Reader();

    // Closes, forgets the indexes and opens another census; the option `fsi` becomes its path. Tables that
    // are connected keep the indexes that they have used, but look up nothing more (FSI_ReaderTable).
    void reopen(const IPE_Object& path);
    // Closes and forgets the indexes.
    void shut();
    // Counts the censuses that were opened or closed here.
    int64_t generation() const noexcept { return generation_; }

    const IPE_Object& options() const noexcept { return options_; }
    IPE_Object option(std::string_view name) const;  // null when absent
    // Absent, None, 0, empty and the texts "0" and "false" are not set.
    bool isSet(std::string_view name) const;
    // The items of option `base` as texts; empty when absent.
    std::vector<std::string> base() const;
    std::string_view path() const noexcept { return name(); }

    IPE_Lua* host() const noexcept;  // null without one
    const IPE_Object& hostObject() const noexcept { return host_; }
    // Calls the host's `api_call`. RuntimeError of IPE_Lua::call when the host has none; XPK_Assert without a
    // host.
    IPE_Object apiCall(std::string_view name, std::initializer_list<IPE_Object> arguments) const;

    FSI_EntityHelper& entityHelper() { return *shareEntities(); }
    FSI_PathNameHelper& pathNameHelper() { return *sharePathNames(); }
    // The file index over all files, without a filter.
    FSI_PathLevelHelper& pathLevelHelper() { return *sharePathLevels(); }
    // The same for those who keep them; they stay usable until the reader dies.
    const std::shared_ptr<FSI_EntityHelper>& shareEntities();
    const std::shared_ptr<FSI_PathNameHelper>& sharePathNames();
    const std::shared_ptr<FSI_PathLevelHelper>& sharePathLevels();

  private:
    IPE_Object options_, host_;
    int64_t generation_ = 0;
    std::shared_ptr<FSI_EntityHelper> entities_;
    std::shared_ptr<FSI_PathNameHelper> pathNames_;
    std::shared_ptr<FSI_PathLevelHelper> pathLevels_;
};
