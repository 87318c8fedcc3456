// Stores, made.
#include "store/smf_writer.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/smf_error.h"
#include "store/smf_file.h"

SMF_Writer::SMF_Writer() = default;
SMF_Writer::~SMF_Writer() = default;

std::string_view SMF_Writer::fileName() const noexcept { return name_; }

void SMF_Writer::open(std::string_view path) { open(SMF_Create(path)); }

void SMF_Writer::open(const EPA_FileName& path) { open(SMF_Create(path)); }

void SMF_Writer::open(std::unique_ptr<SMF_File> file) {
    tables_.clear();
    root_.reset();
    fileHeader_.reset();
    main_ = nullptr;
    file_ = nullptr;
    failed_ = false;
    ++opened_;
    name_ = file->name();
    auto header = std::make_unique<SMF_HeaderWriter>(*file);
    header->setNumber(SMF_FileVersion, 3);
    header->setNumber(SMF_FileFlags, 0);
    header->setNumber(SMF_OldNextTable, 0);
    header->setNumber64(SMF_MainStream, 0);
    header->append();
    auto main = std::make_unique<SMF_EncoderStream>(*file, nullptr, true, SMF_MainBlockSize);
    header->setNumber64(SMF_MainStream, main->header().home());
    auto root = std::make_unique<SMF_HeaderWriter>(*main);
    root->setNumber64(SMF_NextTable, 0);
    root->append();
    file_ = std::move(file);
    fileHeader_ = std::move(header);
    main_ = std::move(main);
    root_ = std::move(root);
}

void SMF_Writer::requireUsable() const {
    if (!file_) SMF_Fail(SMF_Runtime, "Not connected", name_);
    if (failed_) SMF_Fail(SMF_Runtime, "The store is incomplete since an earlier failure", name_);
}

SMF_EncoderContext SMF_Writer::context(const SMF_RecordMeta& meta) {
    return {*file_, *main_, meta.zlib, meta.blockSize, meta.zero};
}

void SMF_Writer::addTable(const std::shared_ptr<SMF_RecordMeta>& meta) {
    if (tables_.size() >= SMF_MaxTables) SMF_Fail(SMF_Runtime, "writer.MaxTables exceded", name_);
    SMF_HeaderWriter& before = tables_.empty() ? *root_ : *tables_.back()->header;
    tables_.push_back(meta);
    before.setNumber64(SMF_NextTable, meta->header->home());
}

void SMF_Writer::close() {
    if (!file_) return;
    // Whatever happens, the file is closed, and named complete only by the very last write.
    struct Closer {
        SMF_Writer& writer;
        ~Closer() {
            writer.tables_.clear();
            writer.root_.reset();
            writer.fileHeader_.reset();
            writer.main_ = nullptr;
            writer.file_ = nullptr;
        }
    } closer{*this};
    if (failed_) {
        file_->close();
        requireUsable();
    }
    for (const auto& table : tables_) table->close();
    root_->update();
    main_->finish();
    file_->flush();
    fileHeader_->setNumber(SMF_FileFlags, compressed_ ? 2 : 0);
    fileHeader_->update();
    file_->close();
}

// --- Tables.

SMF_WriterTable::SMF_WriterTable(std::string_view fileName) {
    data_.meta = std::make_shared<SMF_RecordMeta>(fileName);
}

void SMF_WriterTable::error(const char* type, std::string_view message) const {
    SMF_Fail(type, message, data_.meta ? std::string_view(data_.meta->fileName) : "");
}

void SMF_WriterTable::create(std::string_view name, SMF_Writer& writer, uint32_t blockSize,
                             uint32_t zeroInterval) {
    if (writer_) error(SMF_Runtime, "The table exists already");
    finishCreate(name, writer, blockSize, zeroInterval);
}

void SMF_WriterTable::finishCreate(std::string_view name, SMF_Writer& writer, uint32_t blockSize,
                                   uint32_t zeroInterval) {
    writer.requireUsable();
    if (writer.tables_.size() >= SMF_MaxTables)
        SMF_Fail(SMF_Runtime, "writer.MaxTables exceded", writer.fileName());
    SMF_RecordMeta& meta = this->meta();
    meta.fileName = writer.fileName();
    meta.setName(name);
    meta.blockSize = blockSize;
    meta.zero = zeroInterval;
    meta.zlib = writer.compressed();
    meta.complete = true;
    meta.chooseEncoders();
    rebuild();
    // Tags and defaults may be objects of a script, whose text forms may have closed the writer meanwhile.
    writer.requireUsable();
    meta.write(writer.context(meta));
    writer.addTable(data_.meta);
    writer_ = &writer;
    opened_ = writer.opened_;
}

void SMF_WriterTable::requireOpen() const {
    if (!writer_ || opened_ != writer_->opened_) error(SMF_Runtime, "Not connected");
    writer_->requireUsable();
}

namespace {

IPE_Object entryOf(const IPE_Object& dictionary, std::string_view key) {
    return IPE_Object(PyDict_SafeCast(dictionary)->findText(key));
}

int64_t integerOf(const IPE_Object& dictionary, std::string_view key) {
    IPE_Object value = entryOf(dictionary, key);
    XPK_Assert(value.is<IPE_IntType>());
    return value.as<IPE_IntType>()->value;
}

}  // namespace

void SMF_WriterTable::createFromSchema(std::string_view name, const IPE_Object& schema, SMF_Writer& writer) {
    if (writer_) error(SMF_Runtime, "The table exists already");
    data_.meta = std::make_shared<SMF_RecordMeta>(writer.fileName());
    IPE_Tuple pair(schema);
    IPE_List fields(pair[1]);
    const IPE_Object& sizes = pair[0];
    for (int32_t i = 0; i < fields.count(); ++i) {
        int64_t type = integerOf(fields[i], "type");
        IPE_Object label = entryOf(fields[i], "name"), tags = entryOf(fields[i], "tags");
        XPK_Assert(!label.isNull() && type >= INT32_MIN && type <= INT32_MAX);
        meta().addField(static_cast<int32_t>(type), IPE_Object_Text(label), tags);
    }
    int64_t size = integerOf(sizes, "size"), zero = integerOf(sizes, "zero");
    XPK_Assert(size >= 0 && size <= SMF_MaxBlockSize && zero >= 0 && zero <= INT32_MAX);
    if (IPE_Object options = entryOf(sizes, "tags"); !options.isNull()) {
        auto* dict = PyDict_SafeCast(options);
        for (uint32_t i = 0; i < dict->slots(); ++i)
            if (IPE_Type* key = dict->keyAt(i))
                meta().setOption(IPE_Object_Text(IPE_Object(key)),
                                 IPE_Object_AsString(IPE_Object(dict->valueAt(i))));
    }
    finishCreate(name, writer, static_cast<uint32_t>(size), static_cast<uint32_t>(zero));
}

void SMF_WriterTable::commit() {
    requireOpen();
    SMF_RecordMeta& meta = *data_.meta;
    meta.check(data_);
    try {
        meta.store(data_);
    } catch (...) {
        writer_->failed_ = true;
        throw;
    }
}

void SMF_WriterTable::commitRows(std::span<SMF_ColumnValues* const> columns, size_t count) {
    requireOpen();
    XPK_Assert(columns.size() == data_.meta->fields.size());
    try {
        data_.meta->storeRows(data_, columns, count);
    } catch (...) {
        writer_->failed_ = true;
        throw;
    }
}

void SMF_WriterTable::append(const IPE_Object& values) {
    requireOpen();
    if (!values.is<IPE_TupleType>()) PyList_SafeCast(values);
    auto* items = static_cast<IPE_SequenceType*>(values.get());
    for (size_t i = 0; i < data_.fields.size(); ++i) {
        // An item's text form may be a script's own, which may change the list.
        if (static_cast<int32_t>(i) >= items->count())
            XPK_Raise("IndexError", "list index out of range").raise();
        IPE_Object item = items->at(static_cast<int32_t>(i));
        data_.fields[i]->assignObject(item);
    }
    commit();
}
