// SMF_FieldDecoder: turns the bytes of one field's stream back into values.
//
// Values are decoded when they are asked for, in batches: consecutive rows in a flat array that handles read
// inline. A batch never crosses a restart point (a multiple of the zero interval, where a decoder begins
// without any state). How many rows a batch looks ahead follows the reader: few after a jump, more as long as
// it goes forward.
//
// A scheme derives from the class of its value type (SMF_I32Decoder and so on), overrides reset() and
// decodeRows(), and registers itself under its key:
//
//   const SMF_DecoderRegistration registered("ESAD", SMF_MakeDecoder<I64Straight>);
//
// Two layouts use the same decoders. In the current one each field has a data stream of its own and load()
// jumps. In the older one (attach) all fields of a table share one stream, row by row, and next() decodes one
// value each.
//
// A decoder belongs to one thread at a time. Damage raises DatabaseError Corruption with the texts of the
// schemes.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/ipe_object.h"
#include "store/smf_bytecursor.h"
#include "store/smf_format.h"
#include "store/smf_symboltable.h"
#include "store/smf_values.h"

class SMF_DecoderStream;
class SMF_File;
class SMF_HeaderReader;
struct SMF_FieldMeta;

// An open store file: what readers, tables and decoders share. Once `file` is closed, reads raise IOError.
struct SMF_StoreFile {
    SMF_StoreFile();
    ~SMF_StoreFile();
    std::unique_ptr<SMF_File> file;
    std::unique_ptr<SMF_DecoderStream> mainStream;  // null in the older layout
};

// Rows [first, first + count) of a field, numbered from 0.
struct SMF_BatchRange {
    int64_t first = 0;
    uint32_t count = 0;
    bool contains(int64_t row) const noexcept { return static_cast<uint64_t>(row - first) < count; }
};
template <class Value>
struct SMF_Batch : SMF_BatchRange {
    const Value* values = nullptr;
};

class SMF_FieldDecoder {
  public:
    static constexpr uint32_t BatchRows = 2048;
    // Behind a batch's array lie so many values that a loop with wide stores may write over.
    static constexpr uint32_t SpareRows = 8;

    virtual ~SMF_FieldDecoder();
    SMF_FieldDecoder(const SMF_FieldDecoder&) = delete;
    SMF_FieldDecoder& operator=(const SMF_FieldDecoder&) = delete;

    // Clears the scheme's state. Called at each restart point.
    virtual void reset() = 0;
    // Bytes of the scheme's pages; 0 when its values lie in the stream without pages.
    virtual uint32_t pageSize() const noexcept { return 0; }

    // Takes the field's header record. `rows` is the number of rows of the table. Nothing else is read before
    // the first load.
    virtual void connect(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                         const SMF_HeaderReader& header, int64_t rows);
    // Older layout: the stream that all decoders of the table read, which must outlive this object.
    virtual void attach(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                        SMF_DecoderStream& shared);

    // Makes the batch hold row `row`, counted from 1. Row 0 goes back to the start and decodes nothing.
    // Raises what the decode of that very row raises, never the fault of a later one.
    virtual void load(int64_t row);
    // Older layout: decodes the next value, that of row `row` counted from 1. A restart() drops the page in
    // hand.
    virtual void decodeNext(int64_t row);
    virtual void restart();

    const std::string& key() const noexcept { return key_; }
    void setKey(std::string_view key) { key_ = key; }
    int64_t fieldRows() const noexcept { return fieldRows_; }
    int64_t zeroInterval() const noexcept { return zero_; }
    // The codec's extra dictionary, or null.
    const IPE_Object& extra() const noexcept { return extra_; }
    bool isShared() const noexcept { return shared_ != nullptr; }
    // The field's streams, opened if they are not yet. Null in the older layout.
    SMF_DecoderStream* dataStream();
    SMF_DecoderStream* jumpStream();

  protected:
    explicit SMF_FieldDecoder(SMF_BatchRange& batch);

    // Decodes up to `rows` values, at least one, into the batch's array from its start on, and sets
    // batch_.count. When it raises, batch_.count tells the values that are complete.
    virtual void decodeRows(uint32_t rows) = 0;
    // Called before each batch: views given out for the batch before need not live on.
    virtual void beginBatch() {}
    [[noreturn]] void corrupt(std::string_view message) const;
    SMF_ByteCursor& in() noexcept { return *in_; }
    const std::string& fileName() const noexcept;
    const SMF_StoreFile& store() const noexcept { return *store_; }

    SMF_BatchRange& batch_;

  private:
    void open();
    void jumpTo(int64_t bucket);
    void loadRow(int64_t row);

    std::shared_ptr<SMF_StoreFile> store_;
    std::string key_, fieldName_;
    IPE_Object extra_;
    SMF_ByteCursor* in_ = nullptr;
    std::unique_ptr<SMF_DecoderStream> data_, jumps_;
    std::unique_ptr<SMF_PageCursor> pages_;  // older layout, paged schemes
    SMF_DecoderStream* shared_ = nullptr;
    int64_t dataHeader_ = 0, jumpHeader_ = 0;
    int64_t fieldRows_ = 0, rows_ = 0, zero_ = SMF_LeastZeroInterval;
    int64_t bucket_ = -1;
    int64_t next_ = 0;  // the row, from 0, that the cursor stands at
    uint32_t ahead_ = 0;
};

// The decoders of one value type: the batch and its array.
template <class Value>
class SMF_DecoderOf : public SMF_FieldDecoder {
  public:
    const SMF_Batch<Value>& batch() const noexcept { return values_; }

  protected:
    SMF_DecoderOf() : SMF_FieldDecoder(values_), array_(new Value[BatchRows + SpareRows]()) {
        values_.values = array_.get();
    }
    Value* array() noexcept { return array_.get(); }

  private:
    SMF_Batch<Value> values_;
    std::unique_ptr<Value[]> array_;
};
using SMF_I32Decoder = SMF_DecoderOf<int32_t>;
using SMF_I64Decoder = SMF_DecoderOf<int64_t>;
using SMF_DateDecoder = SMF_DecoderOf<SMF_DateValue>;
using SMF_TimeDecoder = SMF_DecoderOf<SMF_TimeValue>;
using SMF_FlagDecoder = SMF_DecoderOf<SMF_FlagValue>;
using SMF_TreeDecoder = SMF_DecoderOf<SMF_TreeValue>;

// A date with a time: a composite of two decoders. Its own batch is always empty.
class SMF_DateTimeDecoder : public SMF_FieldDecoder {
  public:
    SMF_DateTimeDecoder() : SMF_FieldDecoder(none_) {}
    virtual SMF_DateDecoder& dates() noexcept = 0;
    virtual SMF_TimeDecoder& times() noexcept = 0;

  private:
    SMF_BatchRange none_;
};

// Texts. Symbols are numbered from 1 as their texts are met and keep their number for as long as
// symbolEpoch() stays the same, so that a consumer may keep a table by symbol; equal texts have equal
// symbols. An epoch never ends within a batch. No two decoders of the process share an epoch, not even when
// one takes the other's place in memory; none is 0.
class SMF_StringDecoder : public SMF_DecoderOf<SMF_TextValue> {
  public:
    SMF_StringDecoder();
    ~SMF_StringDecoder() override;
    std::string_view symbol(uint32_t id) const noexcept { return symbols_->text(id); }
    uint32_t symbolCount() const noexcept { return static_cast<uint32_t>(symbols_->size()); }
    uint32_t symbolEpoch() const noexcept { return epoch_; }
    // The whole text of a value of the current batch, appended to `out`.
    void appendText(const SMF_TextValue& value, std::string& out) const {
        out.append(value.base, value.length);
        out.append(symbol(value.symbol));
    }

  protected:
    static constexpr size_t ArenaLimit = 1 << 22;
    static constexpr uint32_t NoSymbol = UINT32_MAX;

    // The symbol of a text, made if it is new.
    uint32_t intern(std::string_view text) { return symbols_->idOf(text); }
    // The symbols that the scheme keeps from batch to batch, NoSymbol where it has none. When the table has
    // grown beyond bounds, beginBatch() begins a new epoch and renumbers them.
    virtual std::span<uint32_t> keptSymbols() noexcept { return {}; }
    // A copy that lives as long as the batch.
    std::string_view keep(std::string_view text);
    // The texts made for this batch have reached their limit: it should end after the value in hand.
    bool isFull() const noexcept { return keptBytes_ + symbols_->bytes() - symbolBytes_ >= ArenaLimit; }
    // Makes sure that the bytes up to limit() live as long as the batch; false when they must be copied.
    bool holdSight() { return heldLimit_ == in().limit() || holdBlock(); }
    // The next `size` bytes of the field's data: where they lie, if their block can be held, else copied.
    std::string_view take(size_t size);
    void beginBatch() override;

  private:
    static constexpr size_t PieceSize = 16384;
    static constexpr size_t MostSymbols = 1 << 20;
    static constexpr size_t MostSymbolBytes = 64 << 20;
    bool holdBlock();
    char* keepRoom(size_t size);
    void beginEpoch();

    std::unique_ptr<SMF_SymbolTable> symbols_;
    uint32_t epoch_;
    size_t symbolBytes_ = 0;  // of the table when the batch began
    std::vector<SMF_BlockRef> held_;
    const uint8_t* heldLimit_ = nullptr;  // limit() within the last held block
    // Copied texts: one piece that serves every batch, and those that did not suffice.
    std::unique_ptr<char[]> piece_;
    std::vector<std::unique_ptr<char[]>> morePieces_;
    char* roomNext_ = nullptr;
    size_t roomLeft_ = 0;
    size_t keptBytes_ = 0;
};

// --- Registry.
using SMF_DecoderFactory = std::shared_ptr<SMF_FieldDecoder> (*)();
template <class Decoder, auto... Arguments>
std::shared_ptr<SMF_FieldDecoder> SMF_MakeDecoder() {
    return std::make_shared<Decoder>(Arguments...);
}
// At file scope in the source of a scheme. At most 64.
struct SMF_DecoderRegistration {
    SMF_DecoderRegistration(const char* key, SMF_DecoderFactory factory);
};
// "KSAD" means "ASAD". SystemError "There is no field decoder available for $key".
std::shared_ptr<SMF_FieldDecoder> SMF_CreateDecoder(std::string_view key);
// All registered keys, sorted.
std::vector<std::string> SMF_DecoderKeys();
