// SMF_Writer: a store file under construction, and SMF_WriterTable, one of its tables.
//
// A store is written once, front to back. Its file header names the main stream only after close(), so a file
// whose writer stopped before is refused by every reader. After a failure in a commit the store takes no more
// rows and cannot be closed: the file stays incomplete and is its owner's to discard. A writer and its tables
// belong to one thread.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/streams/epa_fileerror.h"
#include "store/smf_fieldencoder.h"
#include "store/smf_record.h"

class SMF_WriterTable;

class SMF_Writer {
  public:
    SMF_Writer();
    ~SMF_Writer();

    void open(std::string_view path);
    void open(const EPA_FileName& path);
    void open(std::unique_ptr<SMF_File> file);
    // Finishes every table and the file. Nothing on a writer that is not open.
    void close();
    bool isOpen() const noexcept { return file_ != nullptr; }
    // zlib blocks instead of LZ4, for the tables made from here on.
    void setCompressed(bool on) noexcept { compressed_ = on; }
    bool compressed() const noexcept { return compressed_; }
    std::string_view fileName() const noexcept;

  private:
    friend class SMF_WriterTable;
    // Links the table's header into the chain. Runtime "writer.MaxTables exceded".
    void addTable(const std::shared_ptr<SMF_RecordMeta>& meta);
    SMF_EncoderContext context(const SMF_RecordMeta& meta);
    void requireUsable() const;

    std::unique_ptr<SMF_File> file_;
    std::unique_ptr<SMF_HeaderWriter> fileHeader_, root_;
    std::unique_ptr<SMF_EncoderStream> main_;
    std::vector<std::shared_ptr<SMF_RecordMeta>> tables_;
    bool compressed_ = false;
    bool failed_ = false;
    uint64_t opened_ = 0;  // counts the files, so that a table of an earlier one is told from a current one
    std::string name_;
};

class SMF_WriterTable final : public SMF_Record {
  public:
    bool isWriter() const noexcept override { return true; }
    [[noreturn]] void error(const char* type, std::string_view message) const override;

    // The native path: fields are declared through handles first (SMF_FieldHandle::connect), then this.
    // `writer` must be open and outlive the table.
    SMF_WriterTable() = default;
    explicit SMF_WriterTable(std::string_view fileName);
    void create(std::string_view name, SMF_Writer& writer, uint32_t blockSize, uint32_t zeroInterval);
    // The script path: the pair that a reader table's schema gives. Missing or wrong entries are assertions.
    void createFromSchema(std::string_view name, const IPE_Object& schema, SMF_Writer& writer);

    // Stores the current values as the next record. Values keep for the next one. Runtime "Not connected"
    // before the table is created and once its file is closed.
    void commit();
    // Assigns the items of a list or tuple to the fields, then commits. Too few items: IndexError "list index
    // out of range", with nothing stored.
    void append(const IPE_Object& values);

    // Stores the next `count` records, whose values columns give, one for each field (smf_rowbuffer.h). A
    // value that cannot be stored is a failure too.
    void commitRows(std::span<SMF_ColumnValues* const> columns, size_t count);

  private:
    void finishCreate(std::string_view name, SMF_Writer& writer, uint32_t blockSize, uint32_t zeroInterval);
    void requireOpen() const;
    SMF_Writer* writer_ = nullptr;
    uint64_t opened_ = 0;  // the writer's file that this table is part of
};
