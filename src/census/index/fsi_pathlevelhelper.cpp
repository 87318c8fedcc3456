// The file index, read.
//
// Numbers go through the jump table, which holds a level and a row for each. Texts go down from the root
// through lists of children, which are kept by the directory's number up to a total of MostChildren; when
// there are more, all are dropped and those in use come back. Path texts grow along the branch that was shown
// last, so that a walk in order reads one name for each directory.
#include "census/index/fsi_pathlevelhelper.h"

#include <algorithm>
#include <array>

#include "census/index/fsi_pathlevelbuild.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_digest.h"

namespace {

const FSI_HelperIndex::Kind FileIndex{'F', 16, "progress.building_file_index", "Indexing Files - ${0}%",
                                      FSI_JumpTable};

std::string lowerOf(std::string_view text) {
    bool plain = true, changes = false;
    for (char c : text) {
        plain = plain && static_cast<signed char>(c) >= 0;
        changes = changes || (c >= 'A' && c <= 'Z');
    }
    if (plain && !changes) return std::string(text);
    try {
        return IPE_Object_Text(IPE_String(text).as<IPE_StringType>()->lower());
    } catch (const XPK_Exception&) {  // bytes that are no text
        std::string out(text);
        for (char& c : out)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        return out;
    }
}

// Calls `take` with each component of a path; empty ones are skipped.
template <class Take>
void eachComponent(std::string_view text, Take take) {
    for (size_t begin = 0; begin < text.size();) {
        size_t end = std::min(text.find('/', begin), text.size());
        if (end > begin) take(text.substr(begin, end - begin));
        begin = end + 1;
    }
}

}  // namespace

// The children of a directory, with where their names lead.
struct FSI_PathLevelHelper::ChildList {
    std::vector<Child> children;
    std::unordered_map<std::string_view, size_t> exact;
    std::unordered_map<std::string, size_t> lower;  // made on first need

    const Child* find(const Component& wanted);
};

struct FSI_PathLevelHelper::Component {
    std::string_view text;
    mutable std::string lowered;  // made on first need
    const std::string& lower() const {
        if (lowered.empty()) lowered = lowerOf(text);
        return lowered;
    }
};

const FSI_PathLevelHelper::Child* FSI_PathLevelHelper::ChildList::find(const Component& wanted) {
    if (auto found = exact.find(wanted.text); found != exact.end()) return &children[found->second];
    if (lower.empty())
        for (size_t i = 0; i < children.size(); ++i) lower.try_emplace(lowerOf(children[i].name), i);
    auto found = lower.find(wanted.lower());
    return found == lower.end() ? nullptr : &children[found->second];
}

FSI_PathLevelHelper::FSI_PathLevelHelper(FSI_Reader& census) : FSI_HelperIndex(census, FileIndex) {}
FSI_PathLevelHelper::~FSI_PathLevelHelper() = default;

// --- Opening.

std::string FSI_PathLevelHelper::filterKey(std::string_view text, const IPE_Object& options) const {
    std::string hashed(text);
    // Ages count from the epoch, so the same text selects other files with another one.
    if (lowerOf(text).find("within") != std::string::npos) {
        IPE_Object epoch;
        if (options.is<IPE_DictType>()) epoch = IPE_Object(options.as<IPE_DictType>()->findText("epoch"));
        if (epoch.isNull() || epoch.is<IPE_NoneType>()) epoch = census().option("epoch");
        hashed += "\n" + (epoch.isNull() ? std::string() : IPE_Object_Text(epoch));
    }
    unsigned char bytes[20];
    EPA_Sha1(hashed, bytes);
    return "~F" + EPA_HexText({reinterpret_cast<const char*>(bytes), sizeof bytes}, true);
}

void FSI_PathLevelHelper::open(std::string_view filter, const IPE_Object& options,
                               const IPE_Object& keywords) {
    leave();
    levels_.clear();
    levelZero_ = nullptr;
    lists_.clear();
    listed_ = 0;
    branch_.clear();
    branchText_.clear();
    filtered_ = !filter.empty();
    digests_ = census().isSet("calc_digests");
    masked_ = census().isSet("hide_paths");
    base_ = census().base();
    baseText_ = "/";
    for (const std::string& item : base_) baseText_.append(item).append("/");
    rightsTable_.clear();
    for (const char* name : {"Rights", "PathDACL"})
        if (census().location(name) >= 0) rightsTable_ = name;

    std::string key = digests_ ? "~D1" : "";
    bool reusable = true;
    if (filtered_) {
        key += filterKey(filter, options);
        selection_ = std::make_unique<FSI_FileSelection>(census());
        reusable = selection_->filter.compileFor(filter, options, keywords);
    }
    struct Release {
        std::unique_ptr<FSI_FileSelection>& selection;
        ~Release() { selection = nullptr; }
    } release{selection_};
    openIndex(key, reusable);
    guarded([&] {
        jump_.connect(store(), FSI_JumpTable);
        jumpDepth_.connect(jump_, "Depth");
        jumpIndex_.connect(jump_, "Index");
        levelZero_ = &level(0);
    });
}

void FSI_PathLevelHelper::build(SMF_Writer& writer, FSI_Progress& progress) {
    FSI_PathLevelBuild work(census(), writer, selection_.get(), rightsTable_, digests_);
    work.run(progress, kind().key, kind().text);
}

FSI_LevelTable& FSI_PathLevelHelper::level(int32_t level) {
    XPK_Assert(level >= 0 && level < MostLevels);
    const auto at = static_cast<size_t>(level);
    if (at >= levels_.size()) levels_.resize(at + 1);
    if (!levels_[at]) levels_[at] = std::make_unique<FSI_LevelTable>(store(), level);
    return *levels_[at];
}

FSI_LevelTable& FSI_PathLevelHelper::here() {
    FSI_LevelTable& table = level(level_);
    table.seek(row_);
    return table;
}

// --- Making a directory current.

void FSI_PathLevelHelper::leave() noexcept {
    level_ = 0;
    row_ = 0;
}

bool FSI_PathLevelHelper::locateNumber(int64_t number) {
    leave();
    if (number < 1 || number > jump_.rows()) return false;
    return guarded([&] {
        jump_.seek(number);
        int32_t depth = jumpDepth_.get();
        int64_t index = jumpIndex_.get();
        if (depth < 0 || depth >= MostLevels || index < 1) SMF_IllegalData(store().name());
        level_ = depth;
        row_ = index;
        return true;
    });
}

bool FSI_PathLevelHelper::locateRow(int32_t level, int64_t row) {
    if (level == 0 && row > 1) return locateNumber(row);
    leave();
    if (level < 0 || level >= MostLevels || row < 1) return false;
    if (store().location(FSI_LevelName(level)) < 0) return false;
    return guarded([&] {
        if (row > this->level(level).rows()) return false;
        level_ = level;
        row_ = row;
        return true;
    });
}

bool FSI_PathLevelHelper::locate(const IPE_Object& value, bool raise) {
    if (value.is<IPE_StringType>()) return locateText(value.as<IPE_StringType>()->view(), raise);
    bool found;
    if (value.is<IPE_TupleType>() || value.is<IPE_ListType>()) {
        const auto* pair = value.as<IPE_SequenceType>();
        if (pair->count() != 2 || !pair->at(0).is<IPE_IntType>() || !pair->at(1).is<IPE_IntType>())
            XPK_Raise("TypeError", "A path is a number, a pair of level and row, or a text").raise();
        int64_t first = pair->at(0)->__int__();
        found = first >= 0 && first < MostLevels
                    ? locateRow(static_cast<int32_t>(first), pair->at(1)->__int__())
                    : (leave(), false);
    } else if (value.is<IPE_IntType>()) {
        found = locateNumber(value->__int__());
    } else {
        XPK_Raise("TypeError", "A path is a number, a pair of level and row, or a text").raise();
    }
    return found || fail(raise ? IPE_Object_Text(value) : std::string(), raise);
}

bool FSI_PathLevelHelper::fail(std::string_view text, bool raise) {
    leave();
    if (raise)
        XPK_Raise("PathNotFoundException", "The path ($name) does not exist").string("name", text).raise();
    return false;
}

bool FSI_PathLevelHelper::locateText(std::string_view text, bool raise) {
    leave();
    if (text.starts_with('\\') && text != "\\")
        XPK_Raise("DevelopmentError", "Path $name passed to locate()").string("name", text).raise();
    if (text == "\\") text = "/";
    if (guarded([&] { return findText(text); })) return true;
    return fail(text, raise);
}

// A text may begin with the items of `base`, as the texts do that are shown.
void FSI_PathLevelHelper::skipBase(std::vector<Component>& components) const {
    size_t matched = 0;
    bool same = true;
    for (const std::string& item : base_)
        eachComponent(item, [&](std::string_view part) {
            same = same && matched < components.size() &&
                   (components[matched].text == part || components[matched].lower() == lowerOf(part));
            ++matched;
        });
    if (same) components.erase(components.begin(), components.begin() + static_cast<std::ptrdiff_t>(matched));
}

bool FSI_PathLevelHelper::findText(std::string_view text) {
    level_ = 0;
    row_ = 1;
    if (!base_.empty()) {
        std::vector<Component> components;
        eachComponent(text, [&](std::string_view part) { components.push_back({part, {}}); });
        skipBase(components);
        return std::all_of(components.begin(), components.end(),
                           [&](const Component& component) { return enterChild(component); });
    }
    bool found = true;
    eachComponent(text, [&](std::string_view part) { found = found && enterChild({part, {}}); });
    return found;
}

// --- Children.

bool FSI_PathLevelHelper::enterChild(const Component& wanted) {
    FSI_LevelTable& table = here();
    if (table.figure(FSI_ChildCount) > MostChildren) return searchChildren(wanted);
    const Child* child = childList().find(wanted);
    if (!child) return false;
    level_ = child->level;
    row_ = child->row;
    return true;
}

// Without a list: the first exact name, else the first that is equal in lower case.
bool FSI_PathLevelHelper::searchChildren(const Component& wanted) {
    FSI_LevelTable& table = here();
    int64_t first = table.figure(FSI_ChildIndex), end = first + table.figure(FSI_ChildCount), match = 0;
    FSI_LevelTable& below = level(level_ + 1);
    for (int64_t row = first; row < end; ++row) {
        below.seek(row);
        std::string_view name = below.name();
        bool exact = name == wanted.text;
        if (exact || (match == 0 && lowerOf(name) == wanted.lower())) match = row;
        if (exact) break;
    }
    if (match == 0) return false;
    ++level_;
    row_ = match;
    return true;
}

void FSI_PathLevelHelper::readChildren(ChildList& list) {
    FSI_LevelTable& table = here();
    int64_t first = table.figure(FSI_ChildIndex), count = table.figure(FSI_ChildCount);
    if (count == 0) return;
    FSI_LevelTable& below = level(level_ + 1);
    if (count < 0 || first < 1 || first + count - 1 > below.rows()) SMF_IllegalData(store().name());
    list.children.reserve(static_cast<size_t>(count));
    for (int64_t row = first; row < first + count; ++row) {
        below.seek(row);
        list.children.push_back({std::string(below.name()), level_ + 1, row, below.figure(FSI_ChildIndex),
                                 below.figure(FSI_ChildCount)});
    }
}

FSI_PathLevelHelper::ChildList& FSI_PathLevelHelper::childList() {
    int64_t number = row_ ? here().figure(FSI_PathIndex) : 0;
    if (number == 0) XPK_Raise("DevelopmentException", "Unable to locate the path index").raise();
    if (auto known = lists_.find(number); known != lists_.end()) return *known->second;
    auto list = std::make_unique<ChildList>();
    readChildren(*list);
    auto count = static_cast<int64_t>(list->children.size());
    if (listed_ + count > MostChildren) {
        lists_.clear();
        listed_ = 0;
    }
    // Only once the vector is complete do the names stay where they are.
    for (size_t i = 0; i < list->children.size(); ++i) list->exact.try_emplace(list->children[i].name, i);
    listed_ += count;
    return *lists_.emplace(number, std::move(list)).first->second;
}

const std::vector<FSI_PathLevelHelper::Child>& FSI_PathLevelHelper::children() {
    return guarded([&]() -> const std::vector<Child>& { return childList().children; });
}

// --- The current directory.

int64_t FSI_PathLevelHelper::figure(FSI_Figure figure) {
    if (row_ == 0) return 0;
    return guarded([&] { return here().figure(figure); });
}

std::string_view FSI_PathLevelHelper::shownName(int32_t level, std::string_view stored) {
    bool clear = !masked_ || level == 0 || level + static_cast<int32_t>(base_.size()) <= FSI_ClearLevels;
    shownName_ = clear ? std::string(stored) : SMF_PathMask(stored);
    return shownName_;
}

std::string_view FSI_PathLevelHelper::name() {
    if (row_ == 0) return {};
    return guarded([&] { return shownName(level_, here().name()); });
}

std::string FSI_PathLevelHelper::pathHash() {
    if (row_ == 0) return {};
    return guarded([&] { return here().pathHash(); });
}

std::string FSI_PathLevelHelper::treeHash() {
    if (row_ == 0) return {};
    return guarded([&] { return here().treeHash(); });
}

// Makes the branch that of the current directory: up to the first directory that it has in common with the
// one before, then down again with the names.
void FSI_PathLevelHelper::followBranch() {
    climb_.clear();
    int32_t at = level_;
    int64_t row = row_;
    while (at > 0 &&
           (static_cast<size_t>(at) >= branch_.size() || branch_[static_cast<size_t>(at)].row != row)) {
        climb_.push_back(row);
        FSI_LevelTable& table = level(at);
        table.seek(row);
        int64_t parent = table.figure(FSI_PathParent);
        if (parent < 1 || parent > jump_.rows()) SMF_IllegalData(store().name());
        jump_.seek(parent);
        row = jumpIndex_.get();
        --at;
        if (jumpDepth_.get() != at) SMF_IllegalData(store().name());
    }
    if (at == 0) branch_.assign(1, {1, 0});
    branch_.resize(static_cast<size_t>(at) + 1);
    branchText_.resize(branch_.back().end);
    for (; !climb_.empty(); climb_.pop_back()) {
        FSI_LevelTable& table = level(++at);
        table.seek(climb_.back());
        branchText_.append(shownName(at, table.name())).append("/");
        branch_.push_back({climb_.back(), branchText_.size()});
    }
}

void FSI_PathLevelHelper::pathText(std::string& out, bool withBase) {
    out.clear();
    if (row_ == 0) return;
    guarded([&] { followBranch(); });
    out = withBase ? std::string_view(baseText_) : std::string_view("/");
    out += branchText_;
}
