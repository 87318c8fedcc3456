// Each decoder on any bytes. The first byte picks the decoder, the second the layout of the field and its
// restart interval; the rest is the field's data as it stands behind the compression.
#include "../tests/store/plain_store.h"
#include "fuzz_target.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_file.h"
#include "store/smf_readertable.h"

namespace {

constexpr int64_t Rows = 600;

// A store of one field with this decoder key and data.
std::string storeOf(const std::string& key, const std::string& content, int64_t zero, bool reversed) {
    plain::File file;
    file.bytes.resize(72);
    std::string main, jumps;
    for (int64_t row = 0; row < Rows; row += zero) {
        // Restart points spread over the data, on whole pages.
        auto at = static_cast<int64_t>(content.size()) * row / Rows / 32 * 32;
        jumps += plain::little(static_cast<uint64_t>(at), 8);
    }
    auto place = [&](const plain::Record& record) {
        auto at = static_cast<int64_t>(main.size());
        main += record.at(at);
        return at;
    };
    place(plain::Record().number64(66, 0));
    int64_t data = place(file.stream(content, 0, 4096)), jump = place(file.stream(jumps, 0, 4096));
    auto header = [&](const std::string& codec, int type) {
        plain::Record record;
        record.number64(70, 0).number(131, type).number64(76, Rows).number64(72, data).number64(74, jump);
        record.number(136, static_cast<int32_t>(zero)).text(220, "F").text(221, codec);
        return record.text(222, std::string("{'SN': 'a;b;c;d;e;f;g;h', 'R': '") + (reversed ? "T'}" : "F'}"));
    };
    plain::Record field = header(key, key[0] - 'A');
    if (key == "JDAD") {
        int64_t dates = place(header("FDAD", 5)), times = place(header("GSAD", 6));
        field.text(223, "{'Dates': " + std::to_string(dates) + ", 'Times': " + std::to_string(times) + "}");
    }
    int64_t first = place(field);
    plain::Record table;
    table.number(109, 0).number64(68, Rows).number64(70, first).number64(66, 0).number(
        107, static_cast<int32_t>(zero));
    int64_t at = place(table.number(110, 4096).text(210, "T").text(211, "{}"));
    std::string root = plain::Record().number64(66, at).at(0);
    main.replace(0, root.size(), root);
    std::string mainHeader = file.stream(main, 0, 0x10000).at(31);
    file.bytes.replace(31, mainHeader.size(), mainHeader);
    std::string fileHeader = plain::Record().number(1, 3).number(2, 0).number(106, 0).number64(60, 31).at(0);
    file.bytes.replace(0, fileHeader.size(), fileHeader);
    return file.bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SMF_SetDamageLog([](const std::string&) {});
    static const std::vector<std::string> keys = SMF_DecoderKeys();
    if (size < 3) return 0;
    static const int64_t intervals[] = {10, 100, Rows, 4 * Rows};
    std::string bytes =
        storeOf(keys[data[0] % keys.size()], std::string(reinterpret_cast<const char*>(data + 2), size - 2),
                intervals[data[1] % 4], data[1] & 4);
    fuzzRun([&] {
        SMF_Reader reader;
        reader.open(std::make_unique<SMF_MemoryFile>("fuzz", bytes));
        SMF_ReaderTable table;
        table.connect(reader, "T");
        // Most inputs fail at most rows; a few faults tell as much as all of them.
        int faults = 4;
        table.top();
        for (table.next(); table.position() <= table.rows() && faults > 0; table.next())
            faults -= !fuzzRun([&] { table.field(0).asText(); });
        faults = 4;
        for (int64_t row = Rows; row > 0 && faults > 0; row -= 31) {
            table.seek(row);
            faults -= !fuzzRun([&] { table.asObject(0); });
        }
    });
    return 0;
}
