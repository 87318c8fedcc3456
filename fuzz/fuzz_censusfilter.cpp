// Any text as a query over the files of a small census: paths, foreign rows, properties, figures, scripts.
#include "../tests/census/filter_census.h"
#include "fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096) return 0;
    fuzzRun([&] {
        static const FilterCensus census(3, 12, 3);
        static FSI_Reader reader(censusOptions(census.folder.file()), census.host());
        // A table with its schema is dear; only a query that declares fields spoils it.
        static std::unique_ptr<FSI_ReaderTable> kept;
        static size_t fields = 0;
        if (!kept || kept->meta().fields.size() != fields) {
            kept = std::make_unique<FSI_ReaderTable>();
            kept->connect(reader, "File", true);
            fields = kept->meta().fields.size();
        }
        FSI_ReaderTable& table = *kept;
        FSI_RecordFilter filter(table);
        IPE_Object options = IPE_NewDict();
        options.as<IPE_DictType>()->setText("epoch", IPE_String("20150601"));
        filter.compileFor(fuzzText(data, size), options, options);
        for (table.top(); table.advance();) filter.accepts();
    });
    return 0;
}
