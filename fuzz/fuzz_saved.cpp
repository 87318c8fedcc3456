// The reader of saved values; what it accepts must save to something it reads again.
#include <cstring>

#include "fuzz_target.h"
#include "ipe/values/ipe_savedreader.h"

namespace {

struct Source : EPA_ByteSource {
    const uint8_t* data;
    size_t size;
    size_t readRaw(void* buffer, size_t wanted) override {
        size_t got = wanted < size ? wanted : size;
        memcpy(buffer, data, got);
        data += got;
        size -= got;
        return got;
    }
};

struct Sink : EPA_ByteSink {
    std::string bytes;
    void write(const void* data, size_t size) override { bytes.append(static_cast<const char*>(data), size); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzRun([&] {
        Source source;
        source.data = data;
        source.size = size;
        EPA_DataInput in(source);
        IPE_Object value = IPE_ReadSaved(in);
        Sink sink;
        EPA_DataOutput out(sink);
        value->save(out);
        Source again;
        again.data = reinterpret_cast<const uint8_t*>(sink.bytes.data());
        again.size = sink.bytes.size();
        EPA_DataInput second(again);
        IPE_ReadSaved(second);
    });
    return 0;
}
