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

class Encoder final : public SMF_EncoderFor<SMF_TimeField> {
    void reset() override {
        run_.end(out());
        out().fillPage(SMF_NumberPage);
    }
    void encodeRows(std::span<const SMF_TimeValue> values) override {
        for (const SMF_TimeValue& value : values) {
            uint32_t time = storedTime(value);
            if (run_.hasRoom() && time == time_) {
                run_.lengthen();
                continue;
            }
            run_.end(out());
            time_ = time;
            run_.begin(time, 3);
        }
    }
    // Hour, minute and second as a word, low byte first. What cannot be a time is stored as zero.
    static uint32_t storedTime(const SMF_TimeValue& time) {
        auto hour = static_cast<uint8_t>(time.hour), minute = static_cast<uint8_t>(time.minute),
             second = static_cast<uint8_t>(time.second);
        bool possible = (hour <= 23) & (minute <= 60) & (second <= 60);
        return possible ? hour | uint32_t{minute} << 8 | uint32_t{second} << 16 : 0;
    }
    SMF_OpenRun run_;
    uint32_t time_ = 0;
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
