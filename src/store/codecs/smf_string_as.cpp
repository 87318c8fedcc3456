// String straight (ASAE, ASAD, ASBE, ASBD): each text with its length before it.
//
// Layout: the length in groups of 7 bits, low group first, and the bytes. No pages, no state. Version A holds
// OEM text for its decoder; both encoders write UTF-8.
#include "store/codecs/smf_oemtext.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

class Encoder final : public SMF_EncoderFor<SMF_StringField> {
    void check(SMF_Field& value) override { check(static_cast<SMF_StringField&>(value).stored()); }
    void check(std::string_view text) {
        // A text of half a block's size always fits, wherever the stream stands.
        if (text.size() > out().blockSize() / 2 && !out().fits(text.size()))
            SMF_Fail(nullptr, "String length is larger than 2x block", fileName());
    }
    void encodeRows(std::span<const std::string_view> values) override {
        for (std::string_view text : values) {
            check(text);
            out().writeText(text);
        }
    }
};

class Decoder final : public SMF_StringDecoder {
  public:
    explicit Decoder(bool oem) : oem_(oem) {}

  private:
    void reset() override {}

    void decodeRows(uint32_t rows) override {
        uint32_t n = 0;
        do {
            if (!oem_ && holdSight()) n = inSight(n, rows);
            batch_.count = n;
            if (n == rows) break;
            std::string_view text = take(in().readTextLength());
            if (oem_) text = converted(text);
            array()[n] = {text.data(), static_cast<uint32_t>(text.size()), 0};
            batch_.count = ++n;
        } while (n < rows && !isFull());
    }

    // Texts of less than 128 bytes that lie wholly in the block.
    uint32_t inSight(uint32_t n, uint32_t rows) {
        SMF_TextValue* out = array();
        const uint8_t* at = in().cursor();
        const uint8_t* limit = in().limit();
        while (n < rows && at < limit) {
            uint32_t length = *at;
            if (length >= 0x80 || length >= static_cast<size_t>(limit - at)) break;
            out[n++] = {reinterpret_cast<const char*>(at + 1), length, 0};
            at += 1 + length;
        }
        in().advanceTo(at);
        return n;
    }

    std::string_view converted(std::string_view text) {
        std::string_view utf8 = SMF_FromOem(text, room_);
        return utf8.data() == text.data() ? text : keep(utf8);
    }

    const bool oem_;
    std::string room_;
};

const SMF_EncoderRegistration encoderA("ASAE", SMF_MakeEncoder<Encoder>);
const SMF_EncoderRegistration encoderB("ASBE", SMF_MakeEncoder<Encoder>);
const SMF_DecoderRegistration decoderA("ASAD", SMF_MakeDecoder<Decoder, true>);
const SMF_DecoderRegistration decoderB("ASBD", SMF_MakeDecoder<Decoder, false>);

}  // namespace
