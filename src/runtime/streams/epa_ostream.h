// EPA_OStream: the output side of the byte channels, native and for scripts.
//
// Calling a stream from a script writes the text of each argument; a true keyword `flush` flushes then, a
// true keyword `shutdown` ends the sending direction. All streams share the type name "OStream"; the concrete
// class is found by dynamic_cast. A stream belongs to one thread at a time.
#pragma once

#include <cstdint>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"
#include "runtime/epa_dataoutput.h"

class EPA_OStream : public IPE_Type, public EPA_ByteSink {
  public:
    static const char TypeName[];

    virtual bool isOpen() = 0;
    void flush() override = 0;
    virtual void reset() = 0;  // drops what is pending
    virtual void close() = 0;
    virtual void seek(int64_t offset, int origin) = 0;
    virtual int64_t tell() = 0;
    // Takes all bytes or raises.
    void write(const void* bytes, size_t size) override = 0;
    void write(std::string_view text) { write(text.data(), text.size()); }
    // No more will be sent. Flushes where there is no other direction.
    virtual void shutdownSending() { flush(); }

    IPE_Object __call__(const IPE_Arguments& arguments) override;

  protected:
    EPA_OStream() : IPE_Type(TypeName) {}
};
