// A small store that holds every scheme, for tests that damage it, and the walk that reads all of it.
#pragma once

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store_support.h"

namespace every_codec {

struct Column {
    const char* name;
    int32_t type;
    const char* format;
};
inline const Column columns[] = {
    {"Plain", SMF_TypeI32, ""},   {"Listed", SMF_TypeI32, "D"},   {"Small", SMF_TypeI32, "M"},
    {"Run", SMF_TypeI32, "R"},    {"Wide", SMF_TypeI64, ""},      {"Day", SMF_TypeDate, ""},
    {"Days", SMF_TypeDate, "D"},  {"Clock", SMF_TypeTime, ""},    {"Moment", SMF_TypeDateTime, "D"},
    {"Text", SMF_TypeString, ""}, {"Owner", SMF_TypeString, "D"}, {"File", SMF_TypeString, "F"},
    {"Tree", SMF_TypeTree, ""},   {"Bits", SMF_TypeFlag, ""},     {"BitRuns", SMF_TypeFlag, "D"},
};

// The value of a column in row `i`, from 0, as a script gives it.
inline IPE_Object valueOf(const Column& column, int64_t i) {
    char text[64];
    switch (column.type) {
        case SMF_TypeI32:
            return IPE_Int(column.format[0] == 'R' ? i / 7 : (i * 7919 % 301 - (column.format[0] ? 0 : 150)));
        case SMF_TypeI64: return IPE_Int((i * 1234567891) << i % 20);
        case SMF_TypeDate:
            std::snprintf(text, sizeof text, "%04d-%02d-%02d", static_cast<int>(1990 + i % 40),
                          static_cast<int>(1 + i % 12), static_cast<int>(1 + i / 3 % 28));
            return IPE_String(text);
        case SMF_TypeTime: return IPE_ListOf({IPE_Int(i % 24), IPE_Int(i / 2 % 60), IPE_Int(i / 5 % 60)});
        case SMF_TypeDateTime:
            std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", static_cast<int>(1980 + i % 50),
                          static_cast<int>(1 + i % 12), static_cast<int>(1 + i % 28),
                          static_cast<int>(i % 24), static_cast<int>(i % 60), static_cast<int>(i % 59));
            return IPE_String(text);
        case SMF_TypeTree:
            if (i % 9 == 0) return IPE_NewList();
            return IPE_ListOf({IPE_String("leaf" + std::to_string(i)),
                               IPE_String("sub" + std::to_string(i / 4)), IPE_String("top")});
        case SMF_TypeFlag: return IPE_String(i % 3 == 0 ? "a" : i % 3 == 1 ? "a,c" : "");
        default:
            std::snprintf(text, sizeof text, "%s%d.%s", column.name,
                          static_cast<int>(column.format[0] == 'D' ? i % 150 : i),
                          i % 5 ? "txt" : "very-long-extension");
            return IPE_String(text);
    }
}

inline void fill(SMF_Writer& writer, int64_t rows, uint32_t zero = 20, const char* name = "T") {
    SMF_WriterTable table("memory.smf");
    for (const Column& column : columns) {
        IPE_Object tags = IPE_NewDict();
        tags.as<IPE_DictType>()->setText("Format", IPE_String(column.format));
        if (column.type == SMF_TypeFlag) tags.as<IPE_DictType>()->setText("SN", IPE_String("a;b;c"));
        table.addField(column.name, column.type, tags);
    }
    table.create(name, writer, 4096, zero);
    for (int64_t i = 0; i < rows; ++i) {
        for (size_t c = 0; c < std::size(columns); ++c)
            table.assignObject(static_cast<int64_t>(c), valueOf(columns[c], i));
        table.commit();
    }
}

// Reads every value forward, then some from restart points. Gives the text of all values.
inline std::string readAll(std::unique_ptr<SMF_File> file, int64_t mostRows = INT64_MAX) {
    std::string out;
    SMF_Reader reader;
    reader.open(std::move(file));
    for (const auto& [name, position] : reader.tables()) {
        SMF_ReaderTable table;
        table.connect(reader, name);
        auto fields = static_cast<int64_t>(table.meta().fields.size());
        table.top();
        for (table.next(); table.position() <= std::min(table.rows(), mostRows); table.next())
            for (int64_t f = 0; f < fields; ++f) out += IPE_Object_ToString(table.asObject(f)) + "\t";
        for (int64_t row = std::min(table.rows(), mostRows); row > 0; row -= 17) {
            table.seek(row);
            for (int64_t f = 0; f < fields; ++f) out += IPE_Object_ToString(table.asObject(f)) + "\t";
        }
    }
    return out;
}

}  // namespace every_codec
