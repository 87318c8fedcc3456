// EPA_OSocketStream: an output stream over a socket; EPA_Socket's get_ostream makes it.
//
// What is written waits in chunks until a flush, which sends it at once as a whole. The keyword `shutdown` of
// a call flushes, ends the sending direction and waits until the peer has ended too (EPA_Socket::drain; a
// socket whose mode is -1 ends its sending side). Script methods beside the call:
//   reset()                 drops what waits
//   insert(text)            sends the text ahead of what waits
//   sendfile(source)        sends the whole of a file object or an input stream
//   sendbase64(text, headers, writecontentlength=)   sends what the text decodes to, after the lines
//                           "Key: value" of a dictionary and, with the keyword, "Content-Length: N" and an
//                           empty line
//   seekp()                 RuntimeError "seekp is not supported on socket streams"
// Errors of the socket pass through. A failed flush drops what waited: nobody knows how much has gone.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "runtime/epa_stringheap.h"
#include "runtime/streams/epa_ostream.h"
#include "runtime/streams/epa_socket.h"

class EPA_OSocketStream final : public EPA_OStream {
  public:
    static constexpr size_t HeapBlock = 8096;
    static constexpr size_t ChunkSize = 4088;
    static constexpr size_t AutoFlushAbove = 8192;

    explicit EPA_OSocketStream(EPA_Socket& socket) : socket_(&socket), heap_(HeapBlock) {}

    // Text is UTF-8 and is sent in the code page of the process. Off at first.
    void setConvert(bool convert) noexcept { convert_ = convert; }
    // Flush when more than AutoFlushAbove bytes wait. Off at first.
    void setAutoFlush(bool autoFlush) noexcept { autoFlush_ = autoFlush; }
    uint64_t total() const noexcept { return total_; }  // bytes written since the start or the last reset
    size_t pending() const noexcept { return pending_; }

    bool isOpen() override { return !closed_ && socket().isOpen(); }
    void flush() override;
    void reset() override;
    void close() override;  // flushes; the connection stays
    void seek(int64_t offset, int origin) override;
    int64_t tell() override { return static_cast<int64_t>(total_); }
    void write(const void* bytes, size_t size) override;
    using EPA_OStream::write;
    void shutdownSending() override;
    // RuntimeError "Socket is closed!".
    void insert(std::string_view text);
    // RuntimeError "Object is not an file instance"; IOError "stream eof" when the source gets shorter
    // meanwhile; SystemExit when the process ends.
    void sendFile(const IPE_Object& source);
    // `headers` is a dictionary or null. ValueError for text that is not Base64, before anything is written.
    void sendBase64(std::string_view text, const IPE_Object& headers, bool writeContentLength);

    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    struct Chunk {
        char* bytes;
        size_t count;
    };
    EPA_Socket& socket() const noexcept { return *socket_.as<EPA_Socket>(); }
    void append(std::string_view bytes);
    void drop();
    void sendPending(bool moreFollows);

    IPE_Object socket_;
    EPA_StringHeap heap_;
    std::vector<Chunk> chunks_;
    uint64_t total_ = 0;
    size_t pending_ = 0;
    bool convert_ = false;
    bool autoFlush_ = false;
    bool closed_ = false;
};

// A file that can be sent: input streams, and the file objects of a higher floor, which registers its opener
// from a static initialiser. The opener gives null for a value that is no file; what it gives lives no longer
// than the value.
class EPA_SendSource {
  public:
    virtual ~EPA_SendSource() = default;
    virtual int64_t seek(int64_t offset, int origin) = 0;  // the new position
    virtual size_t read(void* buffer, size_t size) = 0;    // 0 at the end
};
using EPA_SendSourceOpener = std::unique_ptr<EPA_SendSource> (*)(const IPE_Object& value);
void EPA_SetSendSourceOpener(EPA_SendSourceOpener opener);
