// EPA_DataOutput and EPA_DataInput: the big-endian binary encoding over a byte channel.
//
// Both are written against the two small interfaces below, which the streams implement, so that values can
// save themselves without knowing a stream. Texts carry a 16-bit length and no terminator; a text of 32,768
// bytes or more is an assertion.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "runtime/epa_string.h"

// Where bytes go. write raises the channel's own error when it cannot take all of them.
class EPA_ByteSink {
  public:
    virtual ~EPA_ByteSink() = default;
    virtual void write(const void* bytes, size_t size) = 0;
    virtual void flush() {}
};

// Where bytes come from. readRaw gives at least one byte, or 0 at the end.
class EPA_ByteSource {
  public:
    virtual ~EPA_ByteSource() = default;
    virtual size_t readRaw(void* buffer, size_t size) = 0;
};

class EPA_DataOutput {
  public:
    explicit EPA_DataOutput(EPA_ByteSink& sink) : sink_(sink) {}
    virtual ~EPA_DataOutput() = default;
    virtual void flush() { sink_.flush(); }
    virtual void writeBool(bool value) { writeByte(value ? 1 : 0); }
    virtual void writeByte(uint8_t value) { sink_.write(&value, 1); }
    virtual void writeInt32(int32_t value);
    virtual void writeInt64(int64_t value);
    virtual void writeInt16(int16_t value);
    virtual void writeText(const char* text) { writeText(EPA_String(text)); }
    virtual void writeText(const EPA_String& text);
    void writeBytes(const void* bytes, size_t size) { sink_.write(bytes, size); }

  private:
    EPA_ByteSink& sink_;
};

// Each read loops until it has its full count and raises IOError "stream eof" when the source ends first.
class EPA_DataInput {
  public:
    explicit EPA_DataInput(EPA_ByteSource& source) : source_(source) {}
    uint8_t readByte();
    int16_t readInt16();
    int32_t readInt32();
    int64_t readInt64();
    std::string readText();
    void readBytes(void* buffer, size_t size);

  private:
    EPA_ByteSource& source_;
};
