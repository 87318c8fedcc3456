// Any text as a query over a table with a field of every type, compiled and run on its rows.
#include "../tests/store/filter_table.h"
#include "fuzz_target.h"
#include "ipe/values/ipe_containers.h"

namespace {

struct Context final : SMF_FilterContext {
    IPE_Object apiCall(std::string_view name, const std::vector<IPE_Object>& arguments) override {
        if (name == "text") return IPE_String("report");
        IPE_Object list = IPE_NewList();
        for (const IPE_Object& argument : arguments) list.as<IPE_ListType>()->append(argument);
        return list;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096) return 0;
    fuzzRun([&] {
        static const std::string store = filterStore();
        FilterTable open(store);
        Context context;
        SMF_RecordFilter filter(open.table, &context);
        filter.setVariable("date_epoch", IPE_String("20060701"));
        IPE_Object tokens = IPE_NewList();
        filter.compile(fuzzText(data, size), tokens);
        rowsOf(open.table, filter);
    });
    return 0;
}
