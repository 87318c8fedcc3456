// Flag dictionary (HDAE, HDAD): runs of values out of a dictionary of 128.
//
// Layout: a run is a count from 1 to 250 and the index of an entry, or the index with the high bit set and
// the entry's new bytes. No pages. A restart point ends the run and empties the dictionary. A run that begins
// at position 0 of the stream is never extended.
#include <algorithm>
#include <array>

#include "store/codecs/smf_agingtable.h"
#include "store/fields/smf_flagfield.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

constexpr uint32_t LongestRun = 250;
constexpr size_t Entries = 128;

struct FlagHash {
    uint32_t operator()(const SMF_FlagValue& value) const noexcept {
        return SMF_KeyHash()(
            std::string_view(reinterpret_cast<const char*>(value.bytes), sizeof value.bytes));
    }
};

class Encoder final : public SMF_EncoderFor<SMF_FlagField> {
    void connect(const SMF_EncoderContext& context, const SMF_FieldMeta& field) override {
        bytes_ = static_cast<size_t>(SMF_FlagData(field).bytes);
        SMF_EncoderFor::connect(context, field);
    }
    void reset() override {
        closeRun();
        runAt_ = 0;
        table_.clear();
    }

    void encodeRows(std::span<const SMF_FlagValue> values) override {
        for (const SMF_FlagValue& value : values) {
            if (runAt_ != 0 && count_ < LongestRun && value == previous_) {
                ++count_;
                continue;
            }
            put(value);
        }
    }
    // Bits behind the bytes of the field are not stored and tell nothing apart.
    void put(const SMF_FlagValue& value) {
        SMF_FlagValue flags, before;
        std::copy_n(value.bytes, bytes_, flags.bytes);
        std::copy_n(previous_.bytes, bytes_, before.bytes);
        previous_ = value;
        if (runAt_ != 0 && count_ < LongestRun && flags == before) {
            ++count_;
            return;
        }
        closeRun();
        runAt_ = out().position();
        count_ = 1;
        out().writeByte(1);
        auto place = table_.touch(flags);
        out().writeByte(place.byte());
        if (!place.known) out().write(flags.bytes, bytes_);
    }

    void closeRun() {
        if (runAt_ == 0 || count_ == 1) return;
        auto byte = static_cast<uint8_t>(count_);
        out().rewrite(runAt_, &byte, 1);
    }

    size_t bytes_ = 1;
    int64_t runAt_ = 0;  // 0: none that may be extended
    uint32_t count_ = 0;
    SMF_FlagValue previous_;
    SMF_AgingTable<SMF_FlagValue, 0, 127, FlagHash> table_;
};

class Decoder final : public SMF_FlagDecoder {
    void connect(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                 const SMF_HeaderReader& header, int64_t rows) override {
        bytes_ = static_cast<size_t>(SMF_FlagData(field).bytes);
        SMF_FlagDecoder::connect(std::move(store), field, header, rows);
    }
    void attach(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                SMF_DecoderStream& shared) override {
        bytes_ = static_cast<size_t>(SMF_FlagData(field).bytes);
        SMF_FlagDecoder::attach(std::move(store), field, shared);
    }
    void reset() override {
        remaining_ = 0;
        isSet_.fill(false);
    }

    void decodeRows(uint32_t rows) override {
        uint32_t n = 0;
        while (n < rows) {
            if (remaining_ == 0) {
                batch_.count = n;
                uint8_t count = in().readByte();
                if (count == 0) SMF_IllegalData(fileName());
                entry_ = entry();
                remaining_ = count;
            }
            uint32_t equal = std::min(remaining_, rows - n);
            std::fill_n(array() + n, equal, values_[entry_]);
            remaining_ -= equal;
            n += equal;
        }
        batch_.count = n;
    }

    uint8_t entry() {
        uint8_t code = in().readByte();
        uint8_t entry = code & 0x7F;
        if (code >= 0x80) {
            in().read(values_[entry].bytes, bytes_);
            isSet_[entry] = true;
        } else if (!isSet_[entry]) {
            SMF_IllegalData(fileName());
        }
        return entry;
    }

    size_t bytes_ = 1;
    uint32_t remaining_ = 0;
    uint8_t entry_ = 0;
    std::array<SMF_FlagValue, Entries> values_;
    std::array<bool, Entries> isSet_{};
};

const SMF_EncoderRegistration encoder("HDAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("HDAD", SMF_MakeDecoder<Decoder>);

}  // namespace
