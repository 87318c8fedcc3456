// Whole store files: opened, every table read forward and from restart points, every block decompressed.
#include "fuzz_target.h"
#include "store/smf_decoderstream.h"
#include "store/smf_file.h"
#include "store/smf_readertable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SMF_SetDamageLog([](const std::string&) {});
    constexpr int64_t MostRows = 300;
    fuzzRun([&] {
        SMF_Reader reader;
        reader.open(
            std::make_unique<SMF_MemoryFile>("fuzz", std::string(reinterpret_cast<const char*>(data), size)));
        for (const auto& [name, position] : reader.tables()) {
            fuzzRun([&, &table = name] {
                SMF_ReaderTable cursor;
                cursor.connect(reader, table);
                size_t fields = cursor.meta().fields.size();
                int64_t rows = std::min(cursor.rows(), MostRows);
                cursor.top();
                int faults = 60;
                for (cursor.next(); cursor.position() <= rows && faults > 0; cursor.next())
                    for (size_t f = 0; f < fields; ++f)
                        faults -= !fuzzRun([&] { cursor.field(static_cast<int64_t>(f)).asText(); });
                for (int64_t row = rows; row > 0; row -= 1 + row / 3) {
                    fuzzRun([&] { cursor.seek(row); });
                    for (size_t f = 0; f < fields; ++f)
                        fuzzRun([&] { cursor.asObject(static_cast<int64_t>(f)); });
                }
            });
        }
    });
    return 0;
}
