// What decoders share: streams, jumps and batches; symbols and kept texts; the registry.
#include "store/smf_fielddecoder.h"

#include <algorithm>
#include <atomic>
#include <map>

#include "store/smf_decoderstream.h"
#include "store/smf_error.h"
#include "store/smf_fieldmeta.h"
#include "store/smf_file.h"
#include "store/smf_headerreader.h"

namespace {
constexpr uint32_t LeastAhead = 16;  // rows decoded together after a jump
}

SMF_StoreFile::SMF_StoreFile() = default;
SMF_StoreFile::~SMF_StoreFile() = default;

SMF_FieldDecoder::SMF_FieldDecoder(SMF_BatchRange& batch) : batch_(batch) {}
SMF_FieldDecoder::~SMF_FieldDecoder() = default;

void SMF_FieldDecoder::connect(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                               const SMF_HeaderReader& header, int64_t rows) {
    store_ = std::move(store);
    fieldName_ = field.name;
    rows_ = rows;
    fieldRows_ = header.number64(SMF_FieldRows);
    dataHeader_ = header.number64(SMF_DataStream);
    jumpHeader_ = header.number64(SMF_JumpStream);
    zero_ = header.number(SMF_FieldZero);
    if (zero_ <= 0) SMF_CorruptHeader(fileName());
    if (header.has(SMF_CodecExtra)) extra_ = header.dictionary(SMF_CodecExtra);
}

void SMF_FieldDecoder::attach(std::shared_ptr<SMF_StoreFile> store, const SMF_FieldMeta& field,
                              SMF_DecoderStream& shared) {
    store_ = std::move(store);
    fieldName_ = field.name;
    shared_ = &shared;
    if (uint32_t size = pageSize()) {
        pages_ = std::make_unique<SMF_PageCursor>(shared, size);
        in_ = pages_.get();
    } else {
        in_ = &shared;
    }
}

const std::string& SMF_FieldDecoder::fileName() const noexcept {
    static const std::string none;
    return store_ && store_->file ? store_->file->name() : none;
}

void SMF_FieldDecoder::corrupt(std::string_view message) const {
    SMF_Fail(SMF_Corruption, message, fileName());
}

void SMF_FieldDecoder::open() {
    if (data_ || shared_) return;
    SMF_HeaderReader header;
    header.read(*store_->mainStream, dataHeader_);
    auto data = std::make_unique<SMF_DecoderStream>(*store_->file, header, "field " + fieldName_);
    header.read(*store_->mainStream, jumpHeader_);
    jumps_ = std::make_unique<SMF_DecoderStream>(*store_->file, header, "jumps of field " + fieldName_);
    data_ = std::move(data);
    in_ = data_.get();
}

SMF_DecoderStream* SMF_FieldDecoder::dataStream() {
    if (store_ && store_->mainStream) open();
    return data_.get();
}

SMF_DecoderStream* SMF_FieldDecoder::jumpStream() {
    if (store_ && store_->mainStream) open();
    return jumps_.get();
}

void SMF_FieldDecoder::load(int64_t row) {
    if (shared_) {
        // The row was decoded by the step that led to it, unless that raised.
        if (row > 0 && !batch_.contains(row - 1)) SMF_IllegalData(fileName());
        return;
    }
    if (row <= 0) {
        bucket_ = -1;
        next_ = 0;
        batch_.count = 0;
        return;
    }
    if (!batch_.contains(row - 1)) loadRow(row - 1);
}

void SMF_FieldDecoder::jumpTo(int64_t bucket) {
    bucket_ = -1;
    XPK_Assert(bucket <= jumps_->length() / 8);  // the product could overflow
    jumps_->seek(bucket * 8);
    auto position = static_cast<int64_t>(jumps_->readLittle(8));
    data_->seek(position);
    reset();
    next_ = bucket * zero_;
    bucket_ = bucket;
}

void SMF_FieldDecoder::loadRow(int64_t row) {
    open();
    int64_t bucket = row / zero_;
    ahead_ = row == next_ ? std::min(std::max(ahead_, LeastAhead) * 2, BatchRows) : LeastAhead;
    if (bucket != bucket_ || row < next_) jumpTo(bucket);
    int64_t end = std::max(row + 1, std::min((bucket + 1) * zero_, rows_));
    while (next_ <= row) {
        auto wanted =
            static_cast<uint32_t>(std::min({end - next_, row - next_ + ahead_, int64_t{BatchRows}}));
        batch_.first = next_;
        batch_.count = 0;
        beginBatch();
        try {
            decodeRows(wanted);
        } catch (...) {
            // A fault behind the row asked for is raised when its own row is asked for.
            bucket_ = -1;
            if (batch_.contains(row)) return;
            batch_.count = 0;
            throw;
        }
        next_ += batch_.count;
    }
}

void SMF_FieldDecoder::restart() {
    if (pages_) pages_->drop();
    batch_.count = 0;
    reset();
}

void SMF_FieldDecoder::decodeNext(int64_t row) {
    batch_.first = row - 1;
    batch_.count = 0;
    beginBatch();
    decodeRows(1);
}

// --- Texts.

namespace {
uint32_t newEpoch() noexcept {
    static std::atomic<uint32_t> last{0};
    uint32_t epoch;
    do epoch = ++last;
    while (epoch == 0);
    return epoch;
}
}  // namespace

SMF_StringDecoder::SMF_StringDecoder() : symbols_(std::make_unique<SMF_SymbolTable>()), epoch_(newEpoch()) {}
SMF_StringDecoder::~SMF_StringDecoder() = default;

char* SMF_StringDecoder::keepRoom(size_t size) {
    if (size > roomLeft_) {
        if (!roomNext_ && size <= PieceSize) {
            if (!piece_) piece_ = std::make_unique_for_overwrite<char[]>(PieceSize);
            roomNext_ = piece_.get();
            roomLeft_ = PieceSize;
        } else {
            size_t piece = std::max(size, PieceSize);
            morePieces_.push_back(std::make_unique_for_overwrite<char[]>(piece));
            roomNext_ = morePieces_.back().get();
            roomLeft_ = piece;
        }
    }
    char* room = roomNext_;
    roomNext_ += size;
    roomLeft_ -= size;
    keptBytes_ += size;
    return room;
}

std::string_view SMF_StringDecoder::keep(std::string_view text) {
    if (text.empty()) return {};
    char* room = keepRoom(text.size());
    std::memcpy(room, text.data(), text.size());
    return {room, text.size()};
}

bool SMF_StringDecoder::holdBlock() {
    SMF_BlockRef block = in().hold();
    if (!block) return false;
    // The first block is in memory anyway; more of them count as texts made.
    if (!held_.empty()) keptBytes_ += block->size;
    held_.push_back(std::move(block));
    heldLimit_ = in().limit();
    return true;
}

std::string_view SMF_StringDecoder::take(size_t size) {
    if (size == 0) return {};
    in().require();
    if (static_cast<size_t>(in().limit() - in().cursor()) >= size && holdSight()) return in().view(size);
    if (static_cast<int64_t>(size) > in().remaining()) SMF_IllegalData(fileName());
    char* room = keepRoom(size);
    in().read(room, size);
    return {room, size};
}

void SMF_StringDecoder::beginEpoch() {
    auto symbols = std::make_unique<SMF_SymbolTable>();
    std::span<uint32_t> kept = keptSymbols();
    std::vector<uint32_t> renumbered(kept.begin(), kept.end());  // out of memory leaves the old ones
    for (uint32_t& symbol : renumbered)
        if (symbol != NoSymbol) symbol = symbols->idOf(symbols_->text(symbol));
    std::ranges::copy(renumbered, kept.begin());
    symbols_ = std::move(symbols);
    epoch_ = newEpoch();
}

void SMF_StringDecoder::beginBatch() {
    held_.clear();
    heldLimit_ = nullptr;
    morePieces_.clear();
    roomNext_ = nullptr;
    roomLeft_ = keptBytes_ = 0;
    if (symbols_->size() > MostSymbols || symbols_->bytes() > MostSymbolBytes) beginEpoch();
    // Blocks that a table names again and again could fill every entry with the longest text.
    if (symbols_->bytes() > SMF_TextLimit) SMF_IllegalData(fileName());
    symbolBytes_ = symbols_->bytes();
}

// --- Registry.

namespace {
constexpr size_t MostDecoders = 64;
std::map<std::string, SMF_DecoderFactory, std::less<>>& decoders() {
    static std::map<std::string, SMF_DecoderFactory, std::less<>> table;
    return table;
}
}  // namespace

SMF_DecoderRegistration::SMF_DecoderRegistration(const char* key, SMF_DecoderFactory factory) {
    XPK_Assert(decoders().size() < MostDecoders);
    decoders()[key] = factory;
}

std::shared_ptr<SMF_FieldDecoder> SMF_CreateDecoder(std::string_view key) {
    auto found = decoders().find(key == "KSAD" ? "ASAD" : key);
    if (found == decoders().end())
        XPK_Raise("SystemError", "There is no field decoder available for $key").string("key", key).raise();
    std::shared_ptr<SMF_FieldDecoder> decoder = found->second();
    decoder->setKey(found->first);
    return decoder;
}

std::vector<std::string> SMF_DecoderKeys() {
    std::vector<std::string> keys;
    for (const auto& entry : decoders()) keys.push_back(entry.first);
    return keys;
}
