// The paths index.
//
// The text of a path is that of its parent with a name behind it, so the text of the open branch is kept and
// cut back as the walk goes up.
#include "census/index/fsi_pathnamehelper.h"

#include <vector>

#include "ipe/values/ipe_dicttype.h"
#include "runtime/stacks/epa_vstackgang.h"
#include "store/fields/smf_i32field.h"

namespace {

const FSI_HelperIndex::Kind PathsIndex{'P', 14, "progress.building_path_index", "Indexing Paths - ${0}%",
                                       FSI_PathNameHelper::TableName};

// The path of the row that the walk stands at.
class Branch {
  public:
    Branch(const std::vector<std::string>& base, bool masked) : masked_(masked), base_(base.size()) {
        text_ = "/";
        for (const std::string& item : base) text_.append(item).append("/");
    }
    // The first row is the root, whatever its parent and name say.
    void enter(int32_t number, int32_t parent, std::string_view name) {
        if (open_.empty()) {
            open_.push_back({number, text_.size()});
            return;
        }
        while (open_.back().number != parent) {
            open_.pop_back();
            XPK_Assert(!open_.empty());
        }
        XPK_Assert(open_.size() < EPA_VStackBase::Levels);
        text_.resize(open_.back().end);
        if (masked_ && levels() >= FSI_ClearLevels)
            text_ += SMF_PathMask(name);
        else
            text_ += name;
        text_ += '/';
        open_.push_back({number, text_.size()});
    }
    // Above the current directory's own, with it.
    size_t levels() const noexcept { return open_.size() - 1 + base_; }
    const std::string& text() const noexcept { return text_; }

  private:
    struct Level {
        int32_t number;
        size_t end;  // of the text
    };
    bool masked_;
    size_t base_;
    std::string text_;
    std::vector<Level> open_;
};

std::string optionsKey(const FSI_Reader& census) {
    std::string key = census.isSet("hide_paths") ? "~H1" : "";
    for (const std::string& item : census.base()) key += FSI_IndexFiles::itemKey(item);
    return key;
}

}  // namespace

FSI_PathNameHelper::FSI_PathNameHelper(FSI_Reader& census) : FSI_HelperIndex(census, PathsIndex) {
    openIndex(optionsKey(census));
    guarded([&] {
        table_.connect(store(), TableName);
        path_.connect(table_, "Path");
        path_.meta();  // raises when the column is missing
    });
}

std::string_view FSI_PathNameHelper::path(int64_t number) {
    if (number < 1 || number > table_.rows()) return {};
    return guarded([&] {
        if (number != table_.position()) table_.seek(number);
        return path_.get();
    });
}

void FSI_PathNameHelper::build(SMF_Writer& writer, FSI_Progress& progress) {
    SMF_ReaderTable paths;
    paths.connect(census(), "Path");
    SMF_I32 number, parent, owner, group, mode;
    SMF_String name;
    number.connect(paths, "Number"), parent.connect(paths, "Parent"), name.connect(paths, "Name");
    owner.connect(paths, "Owner"), group.connect(paths, "Group"), mode.connect(paths, "Mode");
    progress.start(kind().key, kind().text, paths.rows());

    SMF_WriterTable table(writer.fileName());
    SMF_I32 outNumber, outOwner, outGroup, outMode, levels, length;
    SMF_String text;
    outNumber.connect(table, "Number", "S"), outOwner.connect(table, "Owner", "M");
    outGroup.connect(table, "Group", "M"), outMode.connect(table, "Mode", "M");
    levels.connect(table, "Levels", "M"), length.connect(table, "Length", "M");
    text.connect(table, "Path", "S");
    table.meta().fields[static_cast<size_t>(text.index())]->setTag("style", IPE_String("pathname"));
    table.create(TableName, writer, 32768, 8);

    Branch branch(census().base(), census().isSet("hide_paths"));
    paths.top();
    for (paths.next(); paths.position() <= paths.rows(); paths.next()) {
        FSI_RequirePathRow(census(), number.get(), paths.position());
        branch.enter(number.get(), parent.get(), name.get());
        outNumber.set(number.get()), outOwner.set(owner.get());
        outGroup.set(group.get()), outMode.set(mode.get());
        levels.set(static_cast<int32_t>(branch.levels()));
        length.set(static_cast<int32_t>(branch.text().size()));
        text.set(branch.text());
        table.commit();
        progress.tick();
    }
}
