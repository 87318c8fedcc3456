// path_index: where the selected trees stand in the table Path, for callers that page through them.
//
// Trees are runs of the table: the row of a tree's directory and the rows that follow it. Nothing is written;
// the list goes to the statement's attribute `results`, where it has one, and back to the caller.
#include "census/reports/fsi_report.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

class PathIndex final : public FSI_Report {
  public:
    static constexpr int Version = 1;
    explicit PathIndex(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        bool ranges = textOption("mode", "pathrange") == "pathrange";
        std::vector<FSI_Selection> trees = selections(levels());
        IPE_Object list = IPE_NewList();
        if (ranges)
            for (const FSI_Selection& tree : trees) append(list, tree);
        giveResults(list);
        return list;
    }

  private:
    static void append(const IPE_Object& list, const FSI_Selection& tree) {
        IPE_Object range = IPE_NewDict();
        range.as<IPE_DictType>()->setText("pathStart", IPE_Int(tree.number));
        range.as<IPE_DictType>()->setText("pathCount", IPE_Int(tree.treePaths));
        auto* items = list.as<IPE_ListType>();
        items->append(IPE_TupleOf(
            {IPE_String(tree.text), IPE_String(IPE_Object_ToString(range)), IPE_Int(items->count())}));
    }

    // A function answers None for an attribute that it lacks, other callables raise.
    bool hasResults() const {
        try {
            IPE_Object attribute = statement()->__getattr__(IPE_String("results"), 1);
            return attribute && !attribute.is<IPE_NoneType>();
        } catch (const XPK_Exception& missing) {
            if (missing.type() != "AttributeNotFoundException") throw;
            return false;
        }
    }

    void giveResults(const IPE_Object& list) const {
        if (hasResults()) IPE_CallScriptMethod(statement(), "results", IPE_Arguments(&list, 1));
    }
};

const FSI_ReportRegistration registered("fsi_report.storage.path_index", "storage.path_index",
                                        FSI_CallReport<PathIndex>);

}  // namespace
