// Integers travel most significant byte first.
#include "runtime/epa_dataoutput.h"

#include <endian.h>

#include "runtime/xpk_exception.h"

void EPA_DataOutput::writeInt16(int16_t value) {
    uint16_t bytes = htobe16(static_cast<uint16_t>(value));
    sink_.write(&bytes, sizeof bytes);
}

void EPA_DataOutput::writeInt32(int32_t value) {
    uint32_t bytes = htobe32(static_cast<uint32_t>(value));
    sink_.write(&bytes, sizeof bytes);
}

void EPA_DataOutput::writeInt64(int64_t value) {
    uint64_t bytes = htobe64(static_cast<uint64_t>(value));
    sink_.write(&bytes, sizeof bytes);
}

void EPA_DataOutput::writeText(const EPA_String& text) {
    XPK_Assert(text.length() < 32768);
    writeInt16(static_cast<int16_t>(text.length()));
    if (!text.empty()) sink_.write(text.c_str(), text.length());
}

void EPA_DataInput::readBytes(void* buffer, size_t size) {
    char* place = static_cast<char*>(buffer);
    while (size > 0) {
        size_t got = source_.readRaw(place, size);
        if (got == 0) XPK_Raise("IOError", "stream eof").raise();
        place += got;
        size -= got;
    }
}

uint8_t EPA_DataInput::readByte() {
    uint8_t value;
    readBytes(&value, 1);
    return value;
}

int16_t EPA_DataInput::readInt16() {
    uint16_t bytes;
    readBytes(&bytes, sizeof bytes);
    return static_cast<int16_t>(be16toh(bytes));
}

int32_t EPA_DataInput::readInt32() {
    uint32_t bytes;
    readBytes(&bytes, sizeof bytes);
    return static_cast<int32_t>(be32toh(bytes));
}

int64_t EPA_DataInput::readInt64() {
    uint64_t bytes;
    readBytes(&bytes, sizeof bytes);
    return static_cast<int64_t>(be64toh(bytes));
}

std::string EPA_DataInput::readText() {
    int16_t length = readInt16();
    XPK_Assert(length >= 0);
    std::string text(static_cast<size_t>(length), 0);
    if (length > 0) readBytes(text.data(), text.size());
    return text;
}
