// Stores, opened.
#include "store/smf_reader.h"

#include <unordered_set>

#include "store/smf_decoderstream.h"
#include "store/smf_error.h"
#include "store/smf_file.h"

namespace {
constexpr int32_t FlagCompressed = 2, FlagDirectory = 1;

int64_t decimal(const std::string& text, const std::string& fileName) {
    char* end = nullptr;
    errno = 0;
    long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end || errno) SMF_CorruptHeader(fileName);
    return value;
}
}  // namespace

void SMF_Reader::open(std::string_view path) {
    close();
    open(SMF_OpenForReading(path));
}

void SMF_Reader::open(const EPA_FileName& path) {
    close();
    open(SMF_OpenForReading(path));
}

void SMF_Reader::open(std::unique_ptr<SMF_File> file) {
    close();
    name_ = file->name();
    store_ = std::make_shared<SMF_StoreFile>();
    store_->file = std::move(file);
    try {
        readDirectory();
    } catch (...) {
        close();
        throw;
    }
}

void SMF_Reader::close() {
    if (store_) store_->file->close();
    store_ = nullptr;
    tables_.clear();
    places_.clear();
    compressed_ = false;
}

const std::shared_ptr<SMF_StoreFile>& SMF_Reader::store() const {
    if (!store_) SMF_Fail(SMF_Runtime, "Not connected", name_);
    return store_;
}

void SMF_Reader::readHeader(SMF_HeaderReader& header, int64_t position) const {
    if (store()->mainStream)
        header.read(*store_->mainStream, position);
    else
        header.read(*store_->file, position);
}

int64_t SMF_Reader::location(std::string_view name) const {
    auto found = places_.find(std::string(name));
    return found == places_.end() ? -1 : tables_[found->second].second;
}

// A name that comes twice keeps its place and takes the later position, as a dictionary does.
void SMF_Reader::enter(const std::string& name, int64_t position) {
    auto [place, isNew] = places_.try_emplace(name, tables_.size());
    if (isNew)
        tables_.emplace_back(name, position);
    else
        tables_[place->second].second = position;
}

void SMF_Reader::readDirectory() {
    SMF_File& file = *store_->file;
    SMF_HeaderReader header, record;
    header.read(file, 0);
    int32_t flags = header.number(SMF_FileFlags);
    compressed_ = flags & FlagCompressed;
    std::unordered_set<int64_t> seen;
    auto once = [&](int64_t position) {
        if (!seen.insert(position).second) SMF_CorruptHeader(name_);
    };
    // Records that lie within each other's names could make far more of a file than it holds.
    auto enterRecord = [&](int64_t position, int64_t& left) {
        const std::string& name = record.string(SMF_TableName);
        left -= static_cast<int64_t>(name.size());
        if (left < 0) SMF_CorruptHeader(name_);
        enter(name, position);
    };
    if (header.has(SMF_MainStream)) {
        SMF_HeaderReader main;
        main.read(file, header.number64(SMF_MainStream));
        store_->mainStream = std::make_unique<SMF_DecoderStream>(file, main, "the main stream");
        record.read(*store_->mainStream, 0);
        int64_t left = store_->mainStream->length();
        for (int64_t at = record.number64(SMF_NextTable); at != 0; at = record.number64(SMF_NextTable)) {
            once(at);
            record.read(*store_->mainStream, at);
            enterRecord(at, left);
        }
    } else if (flags & FlagDirectory) {
        for (const auto& [name, position] : header.chain(SMF_OldDirectory, file, nullptr))
            enter(name, decimal(position, name_));
    } else {
        int32_t at = header.number(SMF_OldNextTable);
        if (at == 0) SMF_Fail(SMF_Runtime, "The database file is empty", name_);
        int64_t left = file.size();
        for (; at != -1; at = record.number(SMF_OldNextTable)) {
            once(at);
            record.read(file, at);
            enterRecord(at, left);
        }
    }
}
