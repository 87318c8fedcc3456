// EPA_IStream: the input side of the byte channels, native and for scripts.
//
// A channel is read by line or by count through one block buffer. Calling a stream from a script reads: with
// the keyword `bytes` exactly so many (below 1,048,576, else an assertion; a source that ends first raises
// IOError "stream eof"), otherwise one line with the limits of EPA_LineLimits under the names `maxlength`,
// `maxloops`, `assertoneof`. Methods: readlines(), copytofile(name, count).
//
// All streams share the type name "IStream"; the concrete class is found by dynamic_cast. A stream belongs to
// one thread at a time.
#pragma once

#include <cstdint>
#include <memory>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"
#include "runtime/epa_dataoutput.h"
#include "runtime/epa_stringbuffer.h"

struct EPA_LineLimits {
    int64_t maxLength = 0;     // bytes of a line, 0 for no limit: IOLineLengthError "readline > maxlength"
    int64_t maxLoops = 0;      // low-level reads for a line: IOLineLoopsError "loops > maxloops"
    bool assertOnEof = false;  // no line end before the end of the source: IOReachedEOFError
    static EPA_LineLimits of(const IPE_Arguments& arguments);
};

class EPA_IStream : public IPE_Type, public EPA_ByteSource {
  public:
    static const char TypeName[];
    static constexpr int64_t ExactLimit = 1048576;
    static constexpr size_t BlockSize = 131073;
    static constexpr size_t CopyBlock = 131072;

    // --- What a concrete stream is made of.
    virtual bool isEof() = 0;     // no more data can come
    virtual bool isClosed() = 0;  // the underlying source has ended
    // At least one byte, or 0 for none; then isClosed tells whether to ask again. Errors are the channel's
    // own.
    size_t readRaw(void* buffer, size_t size) override = 0;
    virtual void seek(int64_t offset, int origin) = 0;  // SEEK_SET, SEEK_CUR, SEEK_END
    virtual int64_t tell() = 0;

    // --- Buffered reading.
    // Replaces `line` by the next line without its end. CR is dropped wherever it stands, LF ends the line.
    // At the end of the source gives what there is, also nothing.
    void readLine(EPA_StringBuffer& line, const EPA_LineLimits& limits = {});
    // Exactly `size` bytes, or IOError "stream eof".
    void readExact(void* buffer, size_t size);
    // Some bytes, first those in the buffer; 0 at the end of the source.
    size_t readSome(void* buffer, size_t size);
    // True at the end of the source, which may take a read to find out.
    bool atEnd();
    // New list of the lines left.
    IPE_Object readLines(const EPA_LineLimits& limits);
    // Creates the file and copies `count` bytes. Ends early when the process shuts down.
    void copyToFile(const IPE_Object& name, int64_t count);

    IPE_Object __call__(const IPE_Arguments& arguments) override;
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  protected:
    enum Method { ReadLines, CopyToFile, SeekP, TellP };
    EPA_IStream() : IPE_Type(TypeName) {}
    // The number of a method for __callmethod__, or -1.
    virtual int methodNumber(std::string_view name) const;

    size_t buffered() const noexcept { return end_ - cursor_; }
    // Forgets the buffer, after a seek.
    void dropBuffer() noexcept {
        cursor_ = end_ = 0;
        eof_ = false;
    }
    // Bytes have been taken by buffered reads: from then on all reading goes through the buffer first.
    bool started() const noexcept { return started_; }

  private:
    // Takes bytes from the block up to the end of the line. True when the line is complete.
    bool takeLine(EPA_StringBuffer& line, int64_t maxLength);
    // One low-level read into the empty block; false when the source has ended.
    bool refill();

    std::unique_ptr<char[]> block_;
    size_t cursor_ = 0;
    size_t end_ = 0;
    bool eof_ = false;
    bool started_ = false;
    EPA_StringBuffer line_;
};
