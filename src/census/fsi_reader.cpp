// A census, opened.
//
// The helper indexes are shared with the tables that use them: a table may outlast the reader's going on to
// another census, and then reads what it has begun with.
#include "census/fsi_reader.h"

#include "census/fsi_lists.h"
#include "census/index/fsi_entityhelper.h"
#include "census/index/fsi_pathlevelhelper.h"
#include "census/index/fsi_pathnamehelper.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

FSI_Reader::FSI_Reader(const IPE_Object& options, const IPE_Object& host) : options_(options) {
    PyDict_SafeCast(options);
    if (IPE_LuaOf(host)) host_ = host;
    open(EPA_FileNameOf(IPE_Dict_Get(options_, "fsi")));
}

FSI_Reader::~FSI_Reader() = default;

void FSI_Reader::shut() {
    ++generation_;
    entities_.reset();
    pathNames_.reset();
    pathLevels_.reset();
    close();
}

void FSI_Reader::reopen(const IPE_Object& path) {
    EPA_FileName name = EPA_FileNameOf(path);
    shut();
    IPE_Dict_Set(options_, "fsi", path);
    open(name);
}

// --- Options.

IPE_Object FSI_Reader::option(std::string_view name) const {
    return IPE_Object(options_.as<IPE_DictType>()->findText(name));
}

bool FSI_Reader::isSet(std::string_view name) const {
    IPE_Object value = option(name);
    if (value.isNull() || value.is<IPE_NoneType>()) return false;
    if (auto* text = value.tryAs<IPE_StringType>())
        return !text->view().empty() && text->view() != "0" && text->view() != "false";
    if (value.is<IPE_ListType>() || value.is<IPE_TupleType>() || value.is<IPE_DictType>())
        return value->__len__() > 0;
    return value->__nonzero__();
}

std::vector<std::string> FSI_Reader::base() const { return FSI_TextsOf(option("base"), "base items"); }

// --- The application.

IPE_Lua* FSI_Reader::host() const noexcept { return IPE_LuaOf(host_); }

IPE_Object FSI_Reader::apiCall(std::string_view name, std::initializer_list<IPE_Object> arguments) const {
    XPK_Assert(host() != nullptr);
    std::vector<IPE_Object> all{IPE_String(name)};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return host()->call("api_call", IPE_Arguments(all.data(), static_cast<int>(all.size())));
}

// --- Indexes.

const std::shared_ptr<FSI_EntityHelper>& FSI_Reader::shareEntities() {
    if (!entities_) entities_ = std::make_shared<FSI_EntityHelper>(*this);
    return entities_;
}

const std::shared_ptr<FSI_PathNameHelper>& FSI_Reader::sharePathNames() {
    if (!pathNames_) pathNames_ = std::make_shared<FSI_PathNameHelper>(*this);
    return pathNames_;
}

const std::shared_ptr<FSI_PathLevelHelper>& FSI_Reader::sharePathLevels() {
    if (!pathLevels_) {
        auto levels = std::make_shared<FSI_PathLevelHelper>(*this);
        levels->open({});
        pathLevels_ = std::move(levels);
    }
    return pathLevels_;
}
