// String dictionary (ADAE, ADAD, ADBE, ADBD): whole texts through a dictionary of 128.
//
// Layout: the index of an entry as one byte, or the index with the high bit set and the new text of the
// entry, which is written as in the straight scheme. No pages. A restart point empties the dictionary.
// Version A holds OEM text for its decoder; both encoders write UTF-8.
#include <array>

#include "store/codecs/smf_agingtable.h"
#include "store/codecs/smf_oemtext.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_StringField> {
    void reset() override { table_.clear(); }
    void check(SMF_Field& value) override {
        check(static_cast<SMF_StringField&>(value).stored(), atRestart());
    }
    void check(std::string_view text, bool isNew) {
        // A text of half a block's size always fits, wherever the stream stands.
        if (text.size() <= out().blockSize() / 2) return;
        if ((isNew || table_.find(text) < 0) && !out().fits(text.size(), 1))
            SMF_Fail(nullptr, "String length is larger than 2x block", fileName());
    }
    void encodeRows(std::span<const std::string_view> values) override {
        for (std::string_view text : values) {
            check(text, false);
            auto place = table_.touch(text);
            out().writeByte(place.byte());
            if (!place.known) out().writeText(text);
        }
    }

    SMF_AgingTable<std::string> table_;
};

class Decoder final : public SMF_StringDecoder {
  public:
    explicit Decoder(bool oem) : oem_(oem) { reset(); }

  private:
    void reset() override { entries_.fill(NoSymbol); }
    std::span<uint32_t> keptSymbols() noexcept override { return entries_; }

    void decodeRows(uint32_t rows) override {
        uint32_t n = 0;
        do {
            batch_.count = n = inSight(n, rows);
            if (n == rows) break;
            array()[n] = {"", 0, next()};
            batch_.count = ++n;
        } while (n < rows && !isFull());
    }

    // References, and new entries of less than 128 bytes that lie wholly in the block.
    uint32_t inSight(uint32_t n, uint32_t rows) {
        SMF_TextValue* out = array();
        const uint8_t* at = in().cursor();
        const uint8_t* limit = in().limit();
        while (n < rows && at < limit) {
            uint8_t code = *at;
            uint32_t symbol = entries_[code];
            size_t size = 1;
            if (symbol == NoSymbol) {
                if (code < 0x80 || oem_ || limit - at < 2 || at[1] >= 0x80 || limit - at < 2 + at[1]) break;
                symbol = intern({reinterpret_cast<const char*>(at + 2), at[1]});
                entries_[code & 0x7F] = symbol;
                size = size_t{2} + at[1];
            }
            out[n++] = {"", 0, symbol};
            at += size;
        }
        in().advanceTo(at);
        return n;
    }

    uint32_t next() {
        uint8_t code = in().readByte();
        if (code < 0x80) {
            if (entries_[code] == NoSymbol) corrupt("String decoder has detected illegal data");
            return entries_[code];
        }
        std::string_view text = take(in().readTextLength());
        if (oem_) text = SMF_FromOem(text, room_);
        return entries_[code & 0x7F] = intern(text);
    }

    const bool oem_;
    // By code: the symbols of the entries, and NoSymbol for the codes of new entries.
    std::array<uint32_t, 256> entries_;
    std::string room_;
};

const SMF_EncoderRegistration encoderA("ADAE", SMF_MakeEncoder<Encoder>);
const SMF_EncoderRegistration encoderB("ADBE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoderA("ADAD", SMF_MakeDecoder<Decoder, true>);
const SMF_DecoderRegistration decoderB("ADBD", SMF_MakeDecoder<Decoder, false>);

}  // namespace
