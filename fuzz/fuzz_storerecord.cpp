// Header records at the start of a file, and the chains of pairs that they lead to.
#include "fuzz_target.h"
#include "store/smf_file.h"
#include "store/smf_headerreader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SMF_MemoryFile file("fuzz", std::string(reinterpret_cast<const char*>(data), size));
    SMF_HeaderReader record;
    fuzzRun([&] {
        record.read(file, 0);
        for (int code : {SMF_OldOptions, SMF_OldTags, SMF_OldDirectory})
            fuzzRun([&] { record.chain(code, file, nullptr); });
        for (int code : {SMF_MainStream, SMF_StreamLength, SMF_TableRows})
            fuzzRun([&] { record.number64(code); });
        for (int code : {SMF_TableOptions, SMF_FieldTags, SMF_CodecExtra})
            fuzzRun([&] { record.dictionary(code); });
    });
    return 0;
}
