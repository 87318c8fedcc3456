// Date dictionary (FDAE, FDAD): runs of dates that have numbers, in pages of 32 bytes.
//
// Layout: a count byte from 1 to 250, then an index byte: below 0x80 it names an entry, from 0x80 up the 4
// bytes of a date follow and go to entry byte - 0x80. Runs cross pages. A restart point begins a new page, a
// new run and an empty dictionary. A run that goes on does not touch its entry.
#include "store/codecs/smf_agingtable.h"
#include "store/codecs/smf_datebytes.h"
#include "store/codecs/smf_runs.h"
#include "store/codecs/smf_varint.h"
#include "store/fields/smf_datefield.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_DateField> {
    void reset() override {
        run_.end(out());
        out().fillPage(SMF_NumberPage);
        table_.clear();
    }
    void encodeRows(std::span<const SMF_DateValue> values) override {
        for (const SMF_DateValue& value : values) {
            uint32_t date = SMF_StoredDate(value);
            if (run_.hasRoom() && date == date_) {
                run_.lengthen();
                continue;
            }
            run_.end(out());
            date_ = date;
            auto place = table_.touch(date);
            run_.begin(place.byte() | uint64_t{date} << 8, place.known ? 1 : 5);
        }
    }
    SMF_OpenRun run_;
    uint32_t date_ = 0;
    SMF_AgingTable<uint32_t> table_;
};

class Decoder final : public SMF_DateDecoder {
    static constexpr uint32_t Unset = 0xFFFFFFFF;  // no date
    static constexpr size_t Longest = 6;

    void reset() override {
        run_.left = 0;
        std::fill(std::begin(table_), std::end(table_), Unset);
    }
    uint32_t pageSize() const noexcept override { return SMF_NumberPage; }

    void decodeRows(uint32_t rows) override {
        uint32_t done = run_.fill(array(), 0, rows);
        while (done < rows) {
            done = decodeAtHand(done, rows);
            batch_.count = done;
            if (done == rows) break;
            readRun();
            done = run_.fill(array(), done, rows);
        }
        batch_.count = done;
    }

    void readRun() {
        uint8_t count = in().readByte(), byte = in().readByte();
        if (count == 0) SMF_IllegalData(fileName());
        uint32_t& entry = table_[byte & 0x7F];
        if (byte >= 0x80) {
            auto word = static_cast<uint32_t>(in().readLittle(4));
            if (!SMF_IsDate(word)) corrupt(SMF_DateFault(word));
            entry = word;
        } else if (entry == Unset) {
            SMF_IllegalData(fileName());
        }
        run_ = {count, entry};
    }

    // As far as whole runs lie at hand; stops in front of one that cannot be.
    uint32_t decodeAtHand(uint32_t done, uint32_t rows) {
        const uint8_t* at = in().cursor();
        const uint8_t* limit = in().limit();
        SMF_DateValue* out = array();
        SMF_RunRest run;
        while (done < rows && static_cast<size_t>(limit - at) >= Longest) {
            unsigned count = at[0], code = at[1];
            uint32_t word;
            if (code < 0x80) {
                word = table_[code];
                if (word == Unset || count == 0) [[unlikely]]
                    break;
                at += 2;
            } else {
                word = SMF_LoadWord(at + 2);
                if (!SMF_IsDate(word) || count == 0) [[unlikely]]
                    break;
                table_[code & 0x7F] = word;
                at += Longest;
            }
            run = {count, word};
            done = run.fill(out, done, rows);
        }
        if (run.left > 0) run_ = run;
        in().advanceTo(at);
        return done;
    }

    SMF_RunRest run_;
    uint32_t table_[128];
};

const SMF_EncoderRegistration encoder("FDAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("FDAD", SMF_MakeDecoder<Decoder>);

}  // namespace
