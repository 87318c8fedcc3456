// Header records, written.
#include "store/smf_headerwriter.h"

#include <cstdlib>

#include "ipe/object/ipe_type.h"
#include "store/smf_encoderstream.h"
#include "store/smf_error.h"
#include "store/smf_file.h"

namespace {

// Shuffles and keys hide nothing; any source will do. `rand` keeps a test repeatable.
uint32_t draw() { return static_cast<uint32_t>(std::rand()); }

void putBigEndian(std::string& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(value >> shift);
}

}  // namespace

SMF_HeaderWriter::SMF_HeaderWriter(SMF_File& file) : SMF_HeaderWriter(&file, nullptr) {}
SMF_HeaderWriter::SMF_HeaderWriter(SMF_EncoderStream& mainStream) : SMF_HeaderWriter(nullptr, &mainStream) {}
SMF_HeaderWriter::SMF_HeaderWriter(SMF_File* file, SMF_EncoderStream* stream) : file_(file), stream_(stream) {
    setNumber(SMF_Key, static_cast<int32_t>(draw()));
}

const std::string& SMF_HeaderWriter::fileName() const {
    return file_ ? file_->name() : stream_->file().name();
}

void SMF_HeaderWriter::misuse(std::string_view message) const {
    SMF_Fail(SMF_Development, message, fileName());
}

void SMF_HeaderWriter::setNumber(int code, int32_t value) {
    Slot* free = nullptr;
    for (Slot& slot : slots_) {
        if (slot.filled && slot.code == code) {
            slot.value = value;
            return;
        }
        if (!slot.filled && !free) free = &slot;
    }
    if (appended_) misuse("Cannot add additional numbers");
    if (!free) misuse("Too many numbers");
    *free = {true, static_cast<uint8_t>(code), value};
}

void SMF_HeaderWriter::setNumber64(int code, int64_t value) {
    setNumber(code, static_cast<int32_t>(value & 0x7FFFFFFF));
    setNumber(code + 1, static_cast<int32_t>(value >> 31 & 0x7FFFFFFF));
}

void SMF_HeaderWriter::setString(int code, std::string_view text) {
    if (appended_) misuse("Cannot update committed strings");
    for (auto& entry : strings_) {
        if (entry.first != code) continue;
        entry.second = text;
        return;
    }
    if (strings_.size() == MaxStrings) misuse("Too many strings");
    strings_.emplace_back(static_cast<uint8_t>(code), text);
}

void SMF_HeaderWriter::setObject(int code, const IPE_Object& value) {
    setString(code, IPE_Object_ToString(value));
}

std::string SMF_HeaderWriter::numbers(int64_t at) const {
    uint32_t key = 0;
    bool haveKey = false;
    for (const Slot& slot : slots_) {
        if (!slot.filled || slot.code != SMF_Key) continue;
        key = static_cast<uint32_t>(slot.value);
        haveKey = true;
    }
    if (!haveKey) misuse("Invalid number code");
    std::string out;
    for (const Slot& slot : slots_) {
        if (!slot.filled) continue;
        out += static_cast<char>(slot.code ^ static_cast<uint8_t>(at + static_cast<int64_t>(out.size())));
        putBigEndian(out, static_cast<uint32_t>(slot.value) ^ (slot.code == SMF_Key ? 0 : key));
    }
    return out;
}

void SMF_HeaderWriter::append() {
    int64_t at = stream_ ? stream_->position() : file_->size();
    for (int i = 0; i < 16; ++i) std::swap(slots_[draw() % MaxNumbers], slots_[draw() % MaxNumbers]);
    std::string out = numbers(at);
    for (const auto& [code, text] : strings_) {
        auto tag = static_cast<uint8_t>(code ^ static_cast<uint8_t>(at + static_cast<int64_t>(out.size())));
        out += static_cast<char>(tag);
        out += static_cast<char>((text.size() < 0xFF ? text.size() : 0xFF) ^ tag);
        if (text.size() >= 0xFF) putBigEndian(out, static_cast<uint32_t>(text.size()));
        for (char c : text) out += static_cast<char>(static_cast<uint8_t>(c) ^ tag);
    }
    out += static_cast<char>(SMF_RecordEnd ^ static_cast<uint8_t>(at + static_cast<int64_t>(out.size())));
    // The root record, at position 0, is updated last of all.
    if (stream_ && at + static_cast<int64_t>(out.size()) > 2 * int64_t{stream_->blockSize()})
        SMF_Fail(nullptr, "String length is larger than 2x block", fileName());
    if (stream_)
        stream_->write(out.data(), out.size());
    else
        file_->write(at, out.data(), out.size());
    home_ = at;
    appended_ = true;
}

void SMF_HeaderWriter::update() {
    if (!appended_) XPK_Raise("SystemError", "update has been called before append").raise();
    std::string out = numbers(home_);
    if (stream_)
        stream_->rewrite(home_, out.data(), out.size());
    else
        file_->write(home_, out.data(), out.size());
}
