// What encoders share, and their registry.
#include "store/smf_fieldencoder.h"

#include <algorithm>
#include <map>

#include "store/smf_fieldmeta.h"
#include "store/smf_file.h"

SMF_FieldEncoder::~SMF_FieldEncoder() = default;

const std::string& SMF_FieldEncoder::fileName() const noexcept { return data_->file().name(); }

void SMF_FieldEncoder::connect(const SMF_EncoderContext& context, const SMF_FieldMeta& field) {
    zero_ = std::max(context.zero, SMF_LeastZeroInterval);
    data_ = std::make_unique<SMF_EncoderStream>(context.file, &context.mainStream, context.zlib,
                                                context.blockSize);
    jumps_ = std::make_unique<SMF_EncoderStream>(context.file, &context.mainStream, context.zlib,
                                                 SMF_JumpBlockSize);
    header_ = std::make_unique<SMF_HeaderWriter>(context.mainStream);
    header_->setString(SMF_FieldName, field.name);
    header_->setObject(SMF_FieldTags, field.tags);
    // A file names the decoder: the last letter changes from E to D.
    header_->setString(SMF_CodecKey, key_.substr(0, 3) + "D");
    if (!extra_.isNull()) header_->setObject(SMF_CodecExtra, extra_);
    header_->setNumber64(SMF_NextField, 0);
    header_->setNumber(SMF_FieldType, field.type);
    header_->setNumber64(SMF_FieldRows, 0);
    header_->setNumber64(SMF_DataStream, data_->header().home());
    header_->setNumber64(SMF_JumpStream, jumps_->header().home());
    header_->setNumber(SMF_FieldZero, static_cast<int32_t>(zero_));
    header_->append();
}

size_t SMF_FieldEncoder::beginRows() {
    if (atRestart()) {
        nextRestart_ += zero_;
        reset();
        jumps_->writeLittle64(static_cast<uint64_t>(data_->position()));
    }
    return static_cast<size_t>(nextRestart_ - rows_);
}

void SMF_FieldEncoder::store(SMF_Field& value) {
    beginRows();
    encode(value);
    ++rows_;
}

void SMF_FieldEncoder::close() {
    reset();
    data_->finish();
    jumps_->finish();
    header_->setNumber64(SMF_FieldRows, rows_);
    header_->update();
}

namespace {
constexpr size_t MostEncoders = 64;
constexpr size_t MostFormat = 24;
std::map<std::string, SMF_EncoderFactory, std::less<>>& encoders() {
    static std::map<std::string, SMF_EncoderFactory, std::less<>> table;
    return table;
}
}  // namespace

SMF_EncoderRegistration::SMF_EncoderRegistration(const char* key, SMF_EncoderFactory factory) {
    XPK_Assert(encoders().size() < MostEncoders);
    encoders()[key] = factory;
}

std::shared_ptr<SMF_FieldEncoder> SMF_CreateEncoder(std::string_view key) {
    auto found = encoders().find(key);
    if (found == encoders().end()) return nullptr;
    std::shared_ptr<SMF_FieldEncoder> encoder = found->second();
    encoder->setKey(key);
    return encoder;
}

std::shared_ptr<SMF_FieldEncoder> SMF_ChooseEncoder(const SMF_FieldMeta& field) {
    std::string schemes = field.tagText("Format").substr(0, MostFormat) + "S";
    std::string key;
    for (char scheme : schemes) {
        key = {static_cast<char>('A' + field.type), scheme};
        for (char version = 'D'; version >= 'A'; --version)
            if (auto encoder = SMF_CreateEncoder(key + version + 'E')) return encoder;
    }
    XPK_Raise("SystemError", "There is no field encoder available for $key").string("key", key).raise();
}

std::vector<std::string> SMF_EncoderKeys() {
    std::vector<std::string> keys;
    for (const auto& entry : encoders()) keys.push_back(entry.first);
    return keys;
}
