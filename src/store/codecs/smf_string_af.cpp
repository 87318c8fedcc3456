// File name (AFAE, AFAD, AFBE, AFBD): a base of its own and an extension out of a dictionary.
//
// Layout, in pages of 1,024 bytes: the length of the base (below 0x80 one byte, else the low 8 bits with the
// high bit set and then the length shifted right by 7), the base, and the code of the extension: 0 for none,
// an entry from 1 to 127, or an entry with the high bit set, which is given a new text (length byte, bytes).
// Values follow each other without gap and cross pages; a restart point begins a new page and empties the
// dictionary. Version A holds OEM text for its decoder; both encoders write UTF-8.
#include <algorithm>
#include <array>

#include "store/codecs/smf_agingtable.h"
#include "store/codecs/smf_oemtext.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

constexpr uint32_t PageSize = 1024;
constexpr size_t LongestExtension = 14;
constexpr size_t LongestBase = 0x7FFF;   // what two length bytes hold
constexpr size_t LongestOemBase = 4096;  // what the decoder of version A takes
constexpr size_t PieceSize = 4096;       // written at once: never more than a block

struct Name {
    std::string_view base, extension;
    explicit Name(std::string_view text) : base(text) {
        size_t dot = text.rfind('.');
        if (dot == std::string_view::npos) return;
        size_t behind = text.size() - dot - 1;
        if (behind == 0 || behind > LongestExtension) return;
        base = text.substr(0, dot);
        extension = text.substr(dot + 1);
    }
};

class Encoder final : public SMF_EncoderFor<SMF_StringField> {
  public:
    explicit Encoder(bool oem) : longest_(oem ? LongestOemBase : LongestBase) {}

  private:
    void reset() override {
        out().fillPage(PageSize);
        extensions_.clear();
    }
    void check(SMF_Field& value) override { check(static_cast<SMF_StringField&>(value).stored()); }
    void check(std::string_view text) const {
        if (text.size() > longest_ && Name(text).base.size() > longest_)
            SMF_Fail(SMF_Runtime, "The text is too long for the encoder", fileName());
    }
    void encodeRows(std::span<const std::string_view> values) override {
        for (std::string_view text : values) {
            check(text);
            Name name(text);
            putBase(name.base);
            putExtension(name.extension);
        }
    }
    void putBase(std::string_view base) {
        size_t length = base.size();
        if (length < 0x80) return out().writeText(base);
        out().writeByte(static_cast<uint8_t>(length | 0x80));
        out().writeByte(static_cast<uint8_t>(length >> 7));
        for (size_t done = 0; done < length; done += PieceSize)
            out().write(base.data() + done, std::min(length - done, PieceSize));
    }
    void putExtension(std::string_view extension) {
        if (extension.empty()) return out().writeByte(0);
        auto place = extensions_.touch(extension);
        out().writeByte(place.byte());
        if (!place.known) out().writeText(extension);
    }

    const size_t longest_;
    SMF_AgingTable<std::string, 1, 127> extensions_;
};

class Decoder final : public SMF_StringDecoder {
  public:
    explicit Decoder(bool oem) : oem_(oem) { reset(); }

  private:
    void reset() override {
        entries_.fill(NoSymbol);
        entries_[0] = 0;
    }
    uint32_t pageSize() const noexcept override { return PageSize; }
    std::span<uint32_t> keptSymbols() noexcept override { return entries_; }

    void decodeRows(uint32_t rows) override {
        uint32_t n = 0;
        do {
            if (!oem_ && holdSight()) n = inSight(n, rows);
            batch_.count = n;
            if (n == rows) break;
            array()[n] = next();
            batch_.count = ++n;
        } while (n < rows && !isFull());
    }

    // Values with a short base and a known extension that surely lie in the block.
    uint32_t inSight(uint32_t n, uint32_t rows) {
        constexpr ptrdiff_t Longest = 1 + 255 + 1;  // whatever the first byte says
        SMF_TextValue* out = array();
        const uint8_t* at = in().cursor();
        const uint8_t* limit = in().limit();
        while (n < rows && limit - at >= Longest) {
            uint32_t length = *at;
            uint32_t symbol = entries_[at[1 + length]];
            if (length >= 0x80 || symbol == NoSymbol) break;
            out[n++] = {reinterpret_cast<const char*>(at + 1), length, symbol};
            at += 2 + length;
        }
        in().advanceTo(at);
        return n;
    }

    SMF_TextValue next() {
        uint32_t length = in().readByte();
        if (length >= 0x80) length = in().readByte() * 0x80u + (length & 0x7F);
        if (oem_ && length > LongestOemBase) corrupt("String decoder has detected illegal data");
        std::string_view base = take(length);
        if (oem_) {
            std::string_view utf8 = SMF_FromOem(base, room_);
            if (utf8.data() != base.data()) base = keep(utf8);
        }
        uint32_t symbol = extension(in().readByte());
        return {base.data(), static_cast<uint32_t>(base.size()), symbol};
    }

    uint32_t extension(uint8_t code) {
        if (code < 0x80) {
            if (entries_[code] == NoSymbol)
                corrupt(oem_ ? "String_AFAD decoder has detected illegal data"
                             : "String_AFBD decoder has detected illegal data");
            return entries_[code];
        }
        std::string_view bytes = take(in().readByte());
        if (oem_) bytes = SMF_FromOem(bytes, room_);
        text_.assign(1, '.').append(bytes);
        uint32_t symbol = intern(text_);
        // Code 0 means no extension, whatever a file gives to entry 0.
        if (code != 0x80) entries_[code & 0x7F] = symbol;
        return symbol;
    }

    const bool oem_;
    // By code: 0 and the symbols of the entries, and NoSymbol for the codes of new entries.
    std::array<uint32_t, 256> entries_;
    std::string room_, text_;
};

const SMF_EncoderRegistration encoderA("AFAE", SMF_MakeEncoder<Encoder, true>);
const SMF_EncoderRegistration encoderB("AFBE", SMF_MakeEncoder<Encoder, false>);
const SMF_DecoderRegistration decoderA("AFAD", SMF_MakeDecoder<Decoder, true>);
const SMF_DecoderRegistration decoderB("AFBD", SMF_MakeDecoder<Decoder, false>);

}  // namespace
