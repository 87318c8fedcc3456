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
        uint32_t done = run_.fill(array(), 0, rows);
        while (done < rows) {
            if (entry_ == PageEntries) done = decodeSingles(done, rows);
            batch_.count = done;
            if (done == rows) break;
            if (entry_ == PageEntries) {
                // The entries count as used up until the page is known to be good.
                in().read(page_, SMF_NumberPage);
                if (look(page_).faults) corrupt("Time decoder has detected illegal data");
                entry_ = 0;
            }
            done = decodePage(done, rows);
        }
        batch_.count = done;
    }

    // Whole pages of runs of one, as far as they lie at hand: the usual case, and the one that must be fast.
    uint32_t decodeSingles(uint32_t done, uint32_t rows) {
        const uint8_t* at = in().cursor();
        const uint8_t* limit = in().limit();
        SMF_TimeValue* out = array();
        for (; rows - done >= PageEntries && limit - at >= SMF_NumberPage; at += SMF_NumberPage) {
            PageLook page = look(at);
            if (page.faults | page.others) break;
            std::memcpy(reinterpret_cast<unsigned char*>(out + done), page.times, sizeof page.times);
            done += PageEntries;
        }
        in().advanceTo(at);
        return done;
    }

    uint32_t decodePage(uint32_t done, uint32_t rows) {
        SMF_RunRest run;
        unsigned entry = entry_;
        for (; entry < PageEntries && done < rows; ++entry) {
            uint32_t word = SMF_LoadWord(page_ + EntrySize * entry);
            run = {word & 0xFF, word >> 8};
            if (run.left == 0) [[unlikely]] {
                batch_.count = done;
                SMF_IllegalData(fileName());
            }
            done = run.fill(array(), done, rows);
        }
        entry_ = entry;
        run_ = run;
        return done;
    }

    // A page, two entries at a time.
    struct PageLook {
        uint64_t times[PageEntries / 2];  // without their counts
        uint64_t faults = 0;              // not 0: an hour above 24, a minute or second above 60
        uint64_t others = 0;              // not 0: a count that is not 1
    };
    static PageLook look(const uint8_t* page) {
        constexpr uint64_t Low7 = 0x7F7F7F7F7F7F7F7F;
        // Each byte's limit taken from 0x7F: a sum with the top bit set lies above the limit.
        constexpr uint64_t Limits = 0x4343670043436700, Tops = 0x8080800080808000;
        constexpr uint64_t Counts = 0x000000FF000000FF, One = 0x0000000100000001;
        PageLook out;
        for (unsigned i = 0; i < PageEntries / 2; ++i) {
            uint64_t pair;
            std::memcpy(&pair, page + 8 * i, 8);
            out.faults |= (((pair & Low7) + Limits) | pair) & Tops;
            out.others |= (pair & Counts) ^ One;
            out.times[i] = (pair & ~Counts) >> 8;
        }
        return out;
    }

    SMF_RunRest run_;
    unsigned entry_ = PageEntries;
    uint8_t page_[SMF_NumberPage];
};

const SMF_EncoderRegistration encoder("GSAE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoder("GSAD", SMF_MakeDecoder<Decoder>);

}  // namespace
