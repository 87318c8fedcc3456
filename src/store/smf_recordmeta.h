// SMF_RecordMeta: the description of a table: its name, options and fields.
//
// Built field by field, then complete. Belongs to one thread until it is complete; read-only after that,
// except for the row count of a writer and the cache of names. At most 128 fields.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "runtime/ipe_object.h"
#include "store/smf_fieldmeta.h"

class SMF_ColumnValues;
class SMF_HeaderReader;
class SMF_HeaderWriter;
struct SMF_EncoderContext;
struct SMF_RecordData;
struct SMF_StoreFile;

struct SMF_RecordMeta {
    explicit SMF_RecordMeta(std::string_view fileName);
    ~SMF_RecordMeta();

    std::string fileName;
    std::string tableName;
    IPE_Object options;  // a DictType, never null
    std::vector<std::shared_ptr<SMF_FieldMeta>> fields;
    bool complete = false;
    std::unique_ptr<SMF_HeaderWriter> header;  // writer side: the table header record
    bool zlib = false;
    uint32_t blockSize = 0;
    uint32_t zero = 0;
    int64_t rows = 0;

    // Sets the table's name and empties the cache of names.
    void setName(std::string_view name);
    // The new field's index. Runtime "Too many fields".
    int32_t addField(int32_t type, std::string_view name, const IPE_Object& tags);
    // By name without regard to case, in the user's locale; null when absent.
    std::shared_ptr<SMF_FieldMeta> findField(std::string_view name);
    // -1 when absent, or, if required, Runtime "$field is not a property on $table objects."
    int32_t indexOf(std::string_view name, bool required);
    // Runtime "Field index out of range".
    const std::string& nameOf(int64_t index) const;
    void setOption(std::string_view key, const IPE_Object& value);

    // Reads the table header's numbers and its chain of fields; every decoder connects. For more than 128
    // fields Corruption "Record reader has detected > 128 fields".
    void load(const SMF_HeaderReader& header, const std::shared_ptr<SMF_StoreFile>& store);
    // Gives every field its encoder, by its type and tags.
    void chooseEncoders();
    // Makes the table header and the field headers, and appends them all.
    void write(const SMF_EncoderContext& context);
    // Raises for a value that no encoder takes, with nothing stored.
    void check(const SMF_RecordData& record) const;
    // Gives each field's value to its encoder and counts the row.
    void store(SMF_RecordData& record);
    // The same for `count` rows, with a column for each field.
    void storeRows(SMF_RecordData& record, std::span<SMF_ColumnValues* const> columns, size_t count);
    // Closes the encoders and updates the table header. Nothing when nothing was written.
    void close();

  private:
    std::unordered_map<std::string, int32_t> names_;
};
// 0 to 128, as read from a file; else Corruption "Record reader has detected illegal data".
int32_t SMF_CheckedType(int32_t type, std::string_view fileName);
