// Tree (ISAE, ISAD, ISBE, ISBD): runs of paths, each a leaf and a branch, by two dictionaries.
//
// Layout: a run is a count from 1 to 250 and a value. A value without components is one byte 0. Any other is
// its leaf, told by the string rule, and its branch: the index of a branch entry, or the index with the high
// bit set, the number of components, and each by the string rule. The leaf is the last component with the
// reversed flag, else the first; the branch is the rest, in order.
//
// The string rule: the index of a string entry, or the index with the high bit set and the new text of the
// entry, written as in the straight scheme. Texts below 64 bytes live in entries 1 to 119, longer ones in 120
// to 127; nothing is replaced there. When a zone is full, a new text goes to entry 0, which holds one text at
// a time. Branch entries give way in the order in which they were filled: a hit makes none younger. A branch
// entry holds the numbers of strings, so one that names entry 0 means whatever text stands there now.
//
// No pages. A restart point empties both dictionaries. Version A holds OEM text for its decoder, and its
// encoder never extends a run that begins at position 0 of the stream.
#include <algorithm>
#include <array>

#include "store/codecs/smf_oemtext.h"
#include "store/codecs/smf_treetables.h"
#include "store/fields/smf_treefield.h"
#include "store/smf_error.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_fieldencoder.h"

namespace {

using Parts = std::span<const std::string_view>;

constexpr uint32_t LongestRun = 250;
constexpr size_t Entries = SMF_TreeEntries;
constexpr size_t MostInBranch = SMF_TreeField::MostComponents - 1;
constexpr size_t PieceSize = 4096;  // written at once: never more than a block

class Encoder final : public SMF_FieldEncoder {
  public:
    explicit Encoder(bool oem) : noRun_(oem ? 0 : -1), runAt_(noRun_) {}

  private:
    void reset() override {
        closeRun();
        runAt_ = noRun_;
        strings_.clear();
        branches_.clear();
    }

    void check(SMF_Field& value) override {
        for (std::string_view part : static_cast<SMF_TreeField&>(value).stored())
            if (part.size() > size_t{2} * out().blockSize() || part.size() >= SMF_TextLimit)
                SMF_Fail(nullptr, "String length is larger than 2x block", fileName());
    }

    void encode(SMF_Field& value) override {
        auto& field = static_cast<SMF_TreeField&>(value);
        Parts parts = field.stored();
        if (runAt_ != noRun_ && count_ < LongestRun && std::ranges::equal(parts, previous_)) {
            ++count_;
            return;
        }
        closeRun();
        runAt_ = out().position();
        count_ = 1;
        out().writeByte(1);
        remember(parts);
        if (parts.empty()) return out().writeByte(0);
        bool reversed = field.data().reversed;
        emit(reversed ? parts.back() : parts.front());
        writeBranch(reversed ? parts.first(parts.size() - 1) : parts.subspan(1));
        // A value of many long texts may have pushed its count out of reach: it stays at 1.
        if (!out().reaches(runAt_)) runAt_ = noRun_;
    }

    void closeRun() {
        if (runAt_ == noRun_ || count_ == 1) return;
        auto byte = static_cast<uint8_t>(count_);
        out().rewrite(runAt_, &byte, 1);
    }

    void remember(Parts parts) {
        previousText_.clear();
        for (std::string_view part : parts) previousText_.append(part);
        previous_.clear();
        size_t at = 0;
        for (std::string_view part : parts) {
            previous_.emplace_back(previousText_.data() + at, part.size());
            at += part.size();
        }
    }

    uint8_t emit(std::string_view text) {
        bool isNew;
        uint8_t entry = strings_.place(text, isNew);
        if (!isNew) {
            out().writeByte(entry);
            return entry;
        }
        out().writeByte(entry | 0x80);
        if (text.size() <= PieceSize) {
            out().writeText(text);
            return entry;
        }
        size_t length = text.size();
        for (; length >= 0x80; length >>= 7) out().writeByte(static_cast<uint8_t>(length | 0x80));
        out().writeByte(static_cast<uint8_t>(length));
        for (size_t done = 0; done < text.size(); done += PieceSize)
            out().write(text.data() + done, std::min(text.size() - done, PieceSize));
        return entry;
    }

    void writeBranch(Parts parts) {
        SMF_BranchIds known;
        for (std::string_view part : parts) {
            int entry = strings_.find(part);
            if (entry < 0) break;
            known.add(static_cast<uint8_t>(entry));
        }
        if (known.count == parts.size())
            if (int entry = branches_.find(known); entry >= 0)
                return out().writeByte(static_cast<uint8_t>(entry));
        out().writeByte(branches_.next() | 0x80);
        out().writeByte(static_cast<uint8_t>(parts.size()));
        SMF_BranchIds ids;
        for (std::string_view part : parts) ids.add(emit(part));
        branches_.fillNext(ids);
    }

    const int64_t noRun_;
    int64_t runAt_;
    uint32_t count_ = 0;
    std::string previousText_;
    std::vector<std::string_view> previous_;
    SMF_TreeStrings strings_;
    SMF_TreeBranches branches_;
};

// --- Reading.

// The values of a batch point into the texts of the string entries. A text that is replaced is kept aside
// until the batch is over; what the run in hand still needs of it moves on to the next batch.
class Decoder final : public SMF_TreeDecoder {
  public:
    explicit Decoder(bool oem) : oem_(oem) {}

    void connect(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                 const SMF_HeaderReader& header, int64_t rows) override {
        reversed_ = SMF_TreeData(field).reversed;
        SMF_TreeDecoder::connect(std::move(store), field, header, rows);
    }
    void attach(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                SMF_DecoderStream& shared) override {
        reversed_ = SMF_TreeData(field).reversed;
        SMF_TreeDecoder::attach(std::move(store), field, shared);
    }

  private:
    struct Text {
        std::unique_ptr<char[]> bytes;
        std::string_view view;
        bool isSet = false;
    };
    struct Branch {
        SMF_BranchIds ids;
        bool isSet = false;
    };
    static constexpr size_t BatchBytes = 1 << 22;  // of texts kept aside: the batch ends then
    static constexpr size_t ChunkViews = 4096;

    void reset() override {
        remaining_ = 0;
        for (Text& text : texts_) text.isSet = false;
        for (Branch& branch : branches_) branch.isSet = false;
    }

    void decodeRows(uint32_t rows) override {
        uint32_t n = 0;
        do {
            if (remaining_ == 0) {
                batch_.count = n;
                uint8_t count = in().readByte();
                if (count == 0) illegal();
                readValue();
                remaining_ = count;
            }
            uint32_t equal = std::min<uint32_t>(remaining_, rows - n);
            std::fill_n(array() + n, equal, value_);
            remaining_ -= equal;
            n += equal;
        } while (n < rows && asideBytes_ < BatchBytes);
        batch_.count = n;
    }

    void readValue() {
        uint8_t code = in().readByte();
        value_ = {};
        if (code == 0) return;
        std::string_view leaf = texts_[string(code)].view;
        uint8_t index = in().readByte();
        if (index < 0x80) {
            const Branch& branch = branches_[index];
            if (!branch.isSet) illegal();
            uint8_t count = branch.ids.count;
            std::string_view* parts = room(count + 1u);
            for (uint8_t i = 0; i < count; ++i) parts[!reversed_ + i] = texts_[branch.ids.ids[i]].view;
            finish(parts, count, leaf);
            return;
        }
        uint8_t count = in().readByte();
        if (count > MostInBranch) corrupt("Field decoder has detected illegal data");
        Branch& branch = branches_[index & 0x7F];
        branch.isSet = false;
        branch.ids.count = 0;
        std::string_view* parts = room(count + 1u);
        for (uint8_t i = 0; i < count; ++i) {
            uint8_t id = string(in().readByte());
            branch.ids.add(id);
            parts[!reversed_ + i] = texts_[id].view;
        }
        branch.isSet = true;
        finish(parts, count, leaf);
    }

    void finish(std::string_view* parts, uint8_t inBranch, std::string_view leaf) {
        parts[reversed_ ? inBranch : 0] = leaf;
        value_ = {parts, inBranch + 1u};
        roomLeft_ -= inBranch + 1u;
        roomNext_ += inBranch + 1u;
    }

    // The string entry of a code, its new text read.
    uint8_t string(uint8_t code) {
        uint8_t entry = code & 0x7F;
        Text& text = texts_[entry];
        if (code >= 0x80)
            readText(text);
        else if (!text.isSet)
            illegal();
        return entry;
    }

    void readText(Text& text) {
        uint32_t size = in().readTextLength();
        if (size > in().remaining()) illegal();
        text.isSet = false;
        textBytes_ -= text.view.size();
        if (text.bytes) {
            asideBytes_ += text.view.size();
            aside_.push_back(std::move(text));
        }
        text.view = {};
        // Blocks that a table names again and again could fill every entry with the longest text.
        if (textBytes_ + size > SMF_TextLimit) illegal();
        text.bytes = std::make_unique_for_overwrite<char[]>(size);
        in().read(text.bytes.get(), size);
        text.view = {text.bytes.get(), size};
        if (oem_) convert(text);
        textBytes_ += text.view.size();
        text.isSet = true;
    }

    static void convert(Text& text) {
        std::string room;
        std::string_view utf8 = SMF_FromOem(text.view, room);
        if (utf8.data() == text.view.data()) return;
        text.bytes = std::make_unique_for_overwrite<char[]>(utf8.size());
        std::memcpy(text.bytes.get(), utf8.data(), utf8.size());
        text.view = {text.bytes.get(), utf8.size()};
    }

    // Room for so many views, until the batch is over.
    std::string_view* room(size_t count) {
        if (count > roomLeft_) {
            if (chunk_ == chunks_.size())
                chunks_.push_back(std::make_unique_for_overwrite<std::string_view[]>(ChunkViews));
            roomNext_ = chunks_[chunk_++].get();
            roomLeft_ = ChunkViews;
        }
        return roomNext_;
    }

    void beginBatch() override {
        if (remaining_ == 0) value_ = {};
        // The run in hand goes on: its parts, and those of its texts that no entry holds any more.
        std::array<std::string_view, SMF_TreeField::MostComponents> parts;
        std::copy_n(value_.parts, value_.count, parts.begin());
        std::erase_if(aside_, [&](const Text& text) {
            return std::none_of(parts.begin(), parts.begin() + value_.count,
                                [&](std::string_view part) { return part.data() == text.view.data(); });
        });
        asideBytes_ = 0;
        chunk_ = 0;
        roomLeft_ = 0;
        if (value_.count == 0) return;
        std::string_view* again = room(value_.count);
        std::copy_n(parts.begin(), value_.count, again);
        value_.parts = again;
        roomNext_ += value_.count;
        roomLeft_ -= value_.count;
    }

    [[noreturn]] void illegal() const { SMF_IllegalData(fileName()); }

    const bool oem_;
    bool reversed_ = false;
    std::array<Text, Entries> texts_;
    size_t textBytes_ = 0;  // of the views of texts_
    std::array<Branch, Entries> branches_;
    uint32_t remaining_ = 0;
    SMF_TreeValue value_;  // of the run in hand

    std::vector<Text> aside_;
    size_t asideBytes_ = 0;
    std::vector<std::unique_ptr<std::string_view[]>> chunks_;
    size_t chunk_ = 0;  // in use
    std::string_view* roomNext_ = nullptr;
    size_t roomLeft_ = 0;
};

const SMF_EncoderRegistration encoderA("ISAE", SMF_MakeEncoder<Encoder, true>);
const SMF_EncoderRegistration encoderB("ISBE", SMF_MakeEncoder<Encoder, false>);
const SMF_DecoderRegistration decoderA("ISAD", SMF_MakeDecoder<Decoder, true>);
const SMF_DecoderRegistration decoderB("ISBD", SMF_MakeDecoder<Decoder, false>);

}  // namespace
