// Time (GSAE, GSAD): runs of times, in pages of 8 entries.
//
// Layout: an entry is a count byte from 1 to 250, hour, minute and second. Every page is 32 bytes; a restart
// point begins a new page, and the entries of the old one that were not used are zero. The decoder checks a
// page as a whole when it comes to it.
#include "store/codecs/smf_runs.h"
#include "store/codecs/smf_varint.h"
#include "store/fields/smf_timefield.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

constexpr unsigned EntrySize = 4, PageEntries = SMF_NumberPage / EntrySize;

class Encoder final : public SMF_FieldEncoder {
    void reset() override {
        run_.end(out());
        out().fillPage(SMF_NumberPage);
    }
    void encode(SMF_Field& field) override {
        SMF_TimeValue time = storedTime(static_cast<SMF_TimeField&>(field).stored());
        if (run_.hasRoom() && time == time_) return run_.lengthen();
        run_.end(out());
        time_ = time;
        uint8_t bytes[3] = {static_cast<uint8_t>(time.hour), static_cast<uint8_t>(time.minute),
                            static_cast<uint8_t>(time.second)};
        run_.begin(bytes, 3);
    }
    // What cannot be a time is stored as zero.
    static SMF_TimeValue storedTime(const SMF_TimeValue& time) {
        bool possible = time.hour >= 0 && time.hour <= 23 && time.minute >= 0 && time.minute <= 60 &&
                        time.second >= 0 && time.second <= 60;
        return possible ? SMF_TimeValue{time.hour, time.minute, time.second} : SMF_TimeValue();
    }
    SMF_OpenRun run_;
    SMF_TimeValue time_;
};

class Decoder final : public SMF_TimeDecoder {
    void reset() override {
        run_.left = 0;
        entry_ = PageEntries;
    }
    uint32_t pageSize() const noexcept override { return SMF_NumberPage; }

    void decodeRows(uint32_t rows) override {
        uint32_t done = run_.fill(array(), 0, rows, BatchRows);
        while (done < rows) {
            batch_.count = done;
            if (entry_ == PageEntries) {
                // The entry counts as used up until the page is known to be good.
                in().read(page_, SMF_NumberPage);
                if (!isGood(page_)) corrupt("Time decoder has detected illegal data");
                entry_ = 0;
            }
            done = decodePage(done, rows);
        }
        batch_.count = done;
    }

    uint32_t decodePage(uint32_t done, uint32_t rows) {
        while (entry_ < PageEntries && done < rows) {
            const uint8_t* at = page_ + EntrySize * entry_;
            if (at[0] == 0) [[unlikely]] {
                batch_.count = done;
                SMF_IllegalData(fileName());
            }
            run_ = {at[0],
                    {static_cast<int8_t>(at[1]), static_cast<int8_t>(at[2]), static_cast<int8_t>(at[3])}};
            ++entry_;
            done = run_.fill(array(), done, rows, BatchRows);
        }
        return done;
    }

    static bool isGood(const uint8_t* page) {
        bool bad = false;
        for (unsigned i = 0; i < SMF_NumberPage; i += EntrySize)
            bad |= (page[i + 1] > 24) | (page[i + 2] > 60) | (page[i + 3] > 60);
        return !bad;
    }

    SMF_RunRest<SMF_TimeValue> run_;
    unsigned entry_ = PageEntries;
    uint8_t page_[SMF_NumberPage];
};

const SMF_EncoderRegistration encoder("GSAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("GSAD", SMF_MakeDecoder<Decoder>);

}  // namespace
