// Input from sockets.

#include "runtime/streams/epa_isocketstream.h"

#include "ipe/values/ipe_stringtype.h"

size_t EPA_ISocketStream::readRaw(void* buffer, size_t size) {
    size_t got = socket().receive(buffer, size);
    received_ += static_cast<int64_t>(got);
    return got;
}

void EPA_ISocketStream::seek(int64_t, int) {
    XPK_Raise("RuntimeError", "seekp is not supported on socket streams").raise();
}

IPE_Object EPA_ISocketStream::__call__(const IPE_Arguments& arguments) {
    if (arguments.hasKeyword("bytes")) return EPA_IStream::__call__(arguments);
    if (endGiven_) XPK_Raise("RuntimeError", "the connection has been closed").raise();
    IPE_Object line = EPA_IStream::__call__(arguments);
    // The end is seen only when everything before it has been given.
    endGiven_ = isClosed() && buffered() == 0 && line.as<IPE_StringType>()->bytes() == 0;
    return line;
}

int EPA_ISocketStream::methodNumber(std::string_view name) const {
    return name == "seekp" ? SeekP : EPA_IStream::methodNumber(name);
}

IPE_Object EPA_ISocketStream::__callmethod__(int method, const IPE_Arguments& arguments) {
    if (method == SeekP) seek(0, 0);
    return EPA_IStream::__callmethod__(method, arguments);
}
