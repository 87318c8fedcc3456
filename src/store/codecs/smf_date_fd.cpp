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

class Encoder final : public SMF_FieldEncoder {
    void reset() override {
        run_.end(out());
        out().fillPage(SMF_NumberPage);
        table_.clear();
    }
    void encode(SMF_Field& field) override {
        SMF_DateValue date = SMF_StoredDate(static_cast<SMF_DateField&>(field).stored());
        if (run_.hasRoom() && date == date_) return run_.lengthen();
        run_.end(out());
        date_ = date;
        auto place = table_.touch(date.bits());
        uint8_t bytes[5] = {place.index};
        if (place.known) return run_.begin(bytes, 1);
        bytes[0] |= 0x80;
        SMF_PutDate(date, bytes + 1);
        run_.begin(bytes, 5);
    }
    SMF_OpenRun run_;
    SMF_DateValue date_;
    SMF_AgingTable<uint32_t> table_;
};

class Decoder final : public SMF_DateDecoder {
    static constexpr SMF_DateValue Unset{-1, -1, -1};
    static constexpr size_t Longest = 6;

    void reset() override {
        run_.left = 0;
        std::fill(std::begin(table_), std::end(table_), Unset);
    }
    uint32_t pageSize() const noexcept override { return SMF_NumberPage; }

    void decodeRows(uint32_t rows) override {
        uint32_t done = run_.fill(array(), 0, rows, BatchRows);
        while (done < rows) {
            done = decodeAtHand(done, rows);
            batch_.count = done;
            if (done == rows) break;
            readRun();
            done = run_.fill(array(), done, rows, BatchRows);
        }
        batch_.count = done;
    }

    void readRun() {
        uint8_t count = in().readByte(), byte = in().readByte();
        if (count == 0) SMF_IllegalData(fileName());
        SMF_DateValue& entry = table_[byte & 0x7F];
        if (byte >= 0x80) {
            uint8_t bytes[4];
            in().read(bytes, 4);
            SMF_DateValue date = SMF_GetDate(bytes);
            if (const char* fault = SMF_DateFault(date)) corrupt(fault);
            entry = date;
        } else if (entry == Unset) {
            SMF_IllegalData(fileName());
        }
        run_ = {count, entry};
    }

    // As far as whole runs lie at hand; stops in front of one that cannot be.
    uint32_t decodeAtHand(uint32_t done, uint32_t rows) {
        const uint8_t* at = in().cursor();
        const uint8_t* limit = in().limit();
        SMF_RunRest<SMF_DateValue> run;
        while (done < rows && static_cast<size_t>(limit - at) >= Longest) {
            SMF_DateValue& entry = table_[at[1] & 0x7F];
            bool fresh = at[1] >= 0x80;
            SMF_DateValue date = fresh ? SMF_GetDate(at + 2) : entry;
            // An entry that is not set is no date either.
            if (at[0] == 0 || SMF_DateFault(date)) [[unlikely]]
                break;
            entry = date;
            run = {at[0], date};
            at += fresh ? Longest : 2;
            done = run.fill(array(), done, rows, BatchRows);
        }
        if (run.left > 0) run_ = run;
        in().advanceTo(at);
        return done;
    }

    SMF_RunRest<SMF_DateValue> run_;
    SMF_DateValue table_[128];
};

const SMF_EncoderRegistration encoder("FDAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("FDAD", SMF_MakeDecoder<Decoder>);

}  // namespace
