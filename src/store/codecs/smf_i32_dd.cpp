// I32 dictionary (DDAE, DDAD): the values of an interval by number.
//
// Layout: no pages. A byte below 0x80 names an entry; a byte from 0x80 up is followed by 4 bytes, low byte
// first, which are the value and go to entry byte - 0x80. A restart point begins with an empty dictionary.
#include "store/codecs/smf_agingtable.h"
#include "store/codecs/smf_runs.h"
#include "store/fields/smf_i32field.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_I32Field> {
    void reset() override { table_.clear(); }
    void encodeRows(std::span<const int32_t> values) override {
        for (int32_t number : values) {
            auto value = static_cast<uint32_t>(number);
            auto place = table_.touch(value);
            out().writeByte(place.byte());
            if (!place.known) out().writeLittle32(value);
        }
    }
    SMF_AgingTable<uint32_t> table_;
};

class Decoder final : public SMF_I32Decoder {
    static constexpr int64_t Unset = INT64_MIN;
    static constexpr size_t Longest = 5;

    void reset() override { std::fill(std::begin(table_), std::end(table_), Unset); }

    void decodeRows(uint32_t rows) override {
        uint32_t done = 0;
        while (done < rows) {
            done = decodeAtHand(done, rows);
            batch_.count = done;
            if (done == rows) break;
            uint8_t byte = in().readByte();
            if (byte >= 0x80) table_[byte & 0x7F] = static_cast<int32_t>(in().readLittle(4));
            if (table_[byte & 0x7F] == Unset) SMF_IllegalData(fileName());
            array()[done++] = static_cast<int32_t>(table_[byte & 0x7F]);
        }
        batch_.count = done;
    }

    // As far as whole values lie at hand; stops in front of an entry that is not set.
    uint32_t decodeAtHand(uint32_t done, uint32_t rows) {
        const uint8_t* at = in().cursor();
        const uint8_t* limit = in().limit();
        int32_t* out = array();
        while (done < rows && static_cast<size_t>(limit - at) >= Longest) {
            uint8_t byte = *at;
            if (byte < 0x80) {
                if (table_[byte] == Unset) [[unlikely]]
                    break;
                out[done++] = static_cast<int32_t>(table_[byte]);
                ++at;
            } else {
                auto value = static_cast<int32_t>(SMF_LoadWord(at + 1));
                table_[byte & 0x7F] = value;
                out[done++] = value;
                at += Longest;
            }
        }
        in().advanceTo(at);
        return done;
    }

    int64_t table_[128];
};

const SMF_EncoderRegistration encoder("DDAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("DDAD", SMF_MakeDecoder<Decoder>);

}  // namespace
