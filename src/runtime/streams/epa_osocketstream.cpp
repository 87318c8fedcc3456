// Output to sockets.
//
// Small writes fill up the last chunk; a flush joins the chunks and sends once. Files go out in blocks, and
// what waits is sent every few blocks, so the memory is bounded whatever the size of the file. Such a send,
// which nobody asked for, may end inside a character; where text is converted, the beginning of that one
// waits on.

#include "runtime/streams/epa_osocketstream.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "components/netcode.h"
#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_dicttype.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_unicode.h"
#include "runtime/streams/epa_hostlookup.h"
#include "runtime/streams/epa_istream.h"

namespace {

constexpr size_t FileBlock = 8096;
constexpr size_t FileFlushAbove = 8 * FileBlock;

enum Method { Reset, Insert, SendFile, SendBase64, SeekP };
constexpr struct {
    const char* name;
    Method method;
} Methods[] = {{"reset", Reset},
               {"insert", Insert},
               {"sendfile", SendFile},
               {"sendbase64", SendBase64},
               {"seekp", SeekP}};

constinit EPA_SendSourceOpener fileOpener = nullptr;

class StreamSource final : public EPA_SendSource {
  public:
    explicit StreamSource(EPA_IStream& stream) : stream_(stream) {}
    int64_t seek(int64_t offset, int origin) override {
        stream_.seek(offset, origin);
        return stream_.tell();
    }
    size_t read(void* buffer, size_t size) override { return stream_.readSome(buffer, size); }

  private:
    EPA_IStream& stream_;
};

// Bytes at the end that begin a character and do not finish it.
size_t cutOff(std::string_view text) {
    for (size_t i = 1; i <= std::min<size_t>(3, text.size()); ++i) {
        auto byte = static_cast<unsigned char>(text[text.size() - i]);
        if ((byte & 0xC0) == 0x80) continue;
        size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return length > i ? i : 0;
    }
    return 0;
}

std::unique_ptr<EPA_SendSource> sourceOf(const IPE_Object& value) {
    std::unique_ptr<EPA_SendSource> source;
    if (auto* stream = dynamic_cast<EPA_IStream*>(value.get()))
        source = std::make_unique<StreamSource>(*stream);
    else if (fileOpener)
        source = fileOpener(value);
    if (!source) XPK_Raise("RuntimeError", "Object is not an file instance").raise();
    return source;
}

}  // namespace

void EPA_SetSendSourceOpener(EPA_SendSourceOpener opener) { fileOpener = opener; }

void EPA_OSocketStream::append(std::string_view bytes) {
    pending_ += bytes.size();
    for (size_t taken; !bytes.empty(); bytes.remove_prefix(taken)) {
        if (chunks_.empty() || chunks_.back().count == ChunkSize) {
            chunks_.push_back({nullptr, 0});
            heap_.allocate(ChunkSize, chunks_.back().bytes);
        }
        Chunk& chunk = chunks_.back();
        taken = std::min(bytes.size(), ChunkSize - chunk.count);
        std::memcpy(chunk.bytes + chunk.count, bytes.data(), taken);
        chunk.count += taken;
    }
}

void EPA_OSocketStream::write(const void* bytes, size_t size) {
    total_ += size;
    append({static_cast<const char*>(bytes), size});
    if (autoFlush_ && pending_ > AutoFlushAbove) sendPending(true);
}

void EPA_OSocketStream::drop() {
    heap_.reset();
    chunks_.clear();
    pending_ = 0;
}

void EPA_OSocketStream::flush() { sendPending(false); }

void EPA_OSocketStream::sendPending(bool moreFollows) {
    if (chunks_.empty()) return;
    std::string whole;
    whole.reserve(pending_);
    for (const Chunk& chunk : chunks_) whole.append(chunk.bytes, chunk.count);
    drop();
    if (!convert_) {
        socket().send(whole.data(), whole.size());
        return;
    }
    if (moreFollows) {
        size_t kept = cutOff(whole);
        append(std::string_view(whole).substr(whole.size() - kept));
        whole.resize(whole.size() - kept);
    }
    EPA_Unicode unicode;
    unicode.setUtf8(whole);
    std::string_view native = unicode.native();
    socket().send(native.data(), native.size());
}

void EPA_OSocketStream::reset() {
    drop();
    total_ = 0;
}

void EPA_OSocketStream::close() {
    if (std::exchange(closed_, true)) return;
    flush();
}

void EPA_OSocketStream::seek(int64_t, int) {
    XPK_Raise("RuntimeError", "seekp is not supported on socket streams").raise();
}

void EPA_OSocketStream::shutdownSending() {
    flush();
    closed_ = true;
    int side = socket().data().shutdownMode;
    socket().drain(side == -1 ? static_cast<int>(platform::SocketSide::Send) : side);
}

void EPA_OSocketStream::insert(std::string_view text) {
    if (!isOpen()) XPK_Raise("RuntimeError", "Socket is closed!").raise();
    socket().send(text.data(), text.size());
}

void EPA_OSocketStream::sendFile(const IPE_Object& value) {
    std::unique_ptr<EPA_SendSource> source = sourceOf(value);
    int64_t left = source->seek(0, SEEK_END);
    source->seek(0, SEEK_SET);
    flush();
    char block[FileBlock];
    while (left > 0) {
        if (!XPK_IsRunning()) EPA_RaiseSystemExit();
        size_t got = source->read(block, static_cast<size_t>(std::min<int64_t>(left, FileBlock)));
        if (got == 0) XPK_Raise("IOError", "stream eof").raise();
        write(block, got);
        left -= static_cast<int64_t>(got);
        if (pending_ > FileFlushAbove) sendPending(true);
    }
    flush();
}

void EPA_OSocketStream::sendBase64(std::string_view text, const IPE_Object& headers,
                                   bool writeContentLength) {
    std::string bytes;
    if (int error = NetCode_Decode(NetCodeBase64, text, bytes))
        XPK_Raise("ValueError", "Unable to decode the text (error $code)").number("code", error).raise();
    if (headers) {
        auto* dict = PyDict_SafeCast(headers);
        for (uint32_t i = 0; i < dict->slots(); ++i) {
            IPE_Object key(dict->keyAt(i));
            if (!key) continue;
            IPE_Object item(dict->valueAt(i));
            write(IPE_Object_Text(key));
            write(": ");
            write(IPE_Object_Text(item));
            write("\r\n");
        }
    }
    if (writeContentLength) write("Content-Length: " + std::to_string(bytes.size()) + "\r\n\r\n");
    flush();
    write(bytes);
    flush();
}

IPE_Object EPA_OSocketStream::__getattr__(const IPE_Object& key, int depth) {
    std::string_view name = key->c_str();
    for (auto& row : Methods)
        if (name == row.name) return IPE_MethodOf(this, row.method);
    return EPA_OStream::__getattr__(key, depth);
}

IPE_Object EPA_OSocketStream::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case Reset:
            arguments.check("", "reset");
            reset();
            break;
        case Insert:
            arguments.check("s", "insert");
            insert(arguments.text(0));
            break;
        case SendFile:
            arguments.check("o|o", "sendfile");
            sendFile(arguments[0]);
            break;
        case SendBase64:
            arguments.check("s|o", "sendbase64");
            sendBase64(arguments.text(0), arguments.at(1), arguments.hasKeyword("writecontentlength"));
            break;
        case SeekP: seek(0, SEEK_SET); break;
        default: break;
    }
    return {};
}
