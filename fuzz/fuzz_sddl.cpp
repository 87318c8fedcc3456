// Texts of security descriptors, into script values and into the platform's own form.
#include "fuzz_target.h"
#include "ipe/nt/ipe_sddl.h"
#include "ipe/values/ipe_containers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzRun([&] {
        IPE_Object list = IPE_NewList();
        IPE_DecodeSddl(fuzzText(data, size), list);
        IPE_Object_ToString(list);
    });
    return 0;
}
