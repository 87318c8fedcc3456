// Block streams: the header record at the start is part of the input, and so are the blocks.
#include <algorithm>

#include "fuzz_target.h"
#include "store/smf_decoderstream.h"
#include "store/smf_file.h"
#include "store/smf_headerreader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SMF_SetDamageLog([](const std::string&) {});
    SMF_MemoryFile file("fuzz", std::string(reinterpret_cast<const char*>(data), size));
    fuzzRun([&] {
        SMF_HeaderReader record;
        record.read(file, 0);
        SMF_DecoderStream stream(file, record, "fuzz");
        if (stream.length() == 0) return;
        std::string text;
        int64_t step = std::max<int64_t>(stream.length() / 20, 1);
        for (int64_t at = 0; at < stream.length(); at += step) {
            fuzzRun([&] {
                stream.seek(at);
                char bytes[100];
                stream.read(bytes, std::min<size_t>(sizeof bytes, static_cast<size_t>(stream.remaining())));
            });
            fuzzRun([&] {
                stream.seek(at);
                if (stream.remaining() < 1 << 20) stream.readText(text);
            });
        }
    });
    return 0;
}
