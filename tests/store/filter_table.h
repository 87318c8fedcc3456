// A small table with a field of every type, for the tests of filters.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/filters/smf_recordfilter.h"
#include "store/filters/smf_rowsieve.h"
#include "store/smf_file.h"
#include "store/smf_readertable.h"
#include "store/smf_writer.h"

// A file whose bytes are kept when it is closed.
class KeptFile final : public SMF_MemoryFile {
  public:
    explicit KeptFile(std::string& bytes) : SMF_MemoryFile("memory.smf"), bytes_(bytes) {}
    void close() override { bytes_ = content(); }

  private:
    std::string& bytes_;
};

// The bytes of the store. A literal for each row, in the order of the fields; rows behind these are mixed
// from them.
inline std::string filterStore(size_t count = 6) {
    struct Field {
        const char *name, *tags;
        int32_t type;
    };
    static const Field fields[] = {
        {"Name", "{'Format': 'F'}", SMF_TypeString},
        {"Owner", "{'Format': 'D'}", SMF_TypeString},
        {"Count", "{'Format': ''}", SMF_TypeI32},
        {"mode", "{'Format': ''}", SMF_TypeI32},
        {"Size", "{'Format': ''}", SMF_TypeI64},
        {"Space", "{'Format': ''}", SMF_TypeI64},
        {"Day", "{'Format': ''}", SMF_TypeDate},
        {"Other", "{'Format': 'D'}", SMF_TypeDate},
        {"When", "{'Format': 'D'}", SMF_TypeDateTime},
        {"Clock", "{'Format': ''}", SMF_TypeTime},
        {"Attr", "{'Format': '', 'SN': 'R;H;S;A;in'}", SMF_TypeFlag},
        {"Path", "{'Format': '', 'R': 'T'}", SMF_TypeTree},
    };
    static const char* const rows[] = {
        "('report.iso', 'Anna', 5, 420, 10240, 10240, '2006-06-15', '2006-06-15', '2006-06-15 12:30:00', 0, "
        "'R', ['C:', 'music'])",
        "('Report.ISO', 'anna', 12, 448, 5242880, 1, '2006-07-15', '2006-06-15', '2006-07-15 00:00:00', 0, "
        "'R,H', ['C:', 'Music', 'Old'])",
        "('archive.tar.gz', 'bob', 100, 2468, 0, 0, '2006-12-31', '2007-01-01', '2006-12-31 23:59:59', 0, "
        "'', ['D:'])",
        "('README', 'bob', 7, 0, 9999999999, 5, '2005-06-15', '2004-01-01', '2005-06-15 12:30:00', 0, "
        "'A', ['C:', 'docs?', 'music'])",
        "('.profile', '', 0, 511, 1, 2, '', '2006-06-15', '', 0, 'R,H,S,A,in', [])",
        "('a/b/core.x', 'Core', 20, 292, 2, 2, '2006-06-30', '2006-06-30', '2006-06-30 12:30:01', 0, "
        "'in', ['C:', 'caf\\u00c9'])",
    };
    std::string bytes;
    SMF_Writer writer;
    writer.open(std::make_unique<KeptFile>(bytes));
    SMF_WriterTable table("memory.smf");
    for (const Field& field : fields) table.addField(field.name, field.type, parse_literal(field.tags));
    table.create("File", writer, 4096, 1000);
    std::vector<IPE_Object> literals;
    for (const char* row : rows) literals.push_back(parse_literal(row));
    uint32_t random = 1;
    for (size_t i = 0; i < count; ++i) {
        IPE_Object mixed = IPE_NewTuple();
        for (int field = 0; field < static_cast<int>(std::size(fields)); ++field) {
            random = random * 1664525 + 1013904223;
            const IPE_Object& from = literals[i < 6 ? i : (random >> 16) % 6];
            mixed.as<IPE_TupleType>()->append(from.as<IPE_TupleType>()->at(field));
        }
        table.append(mixed);
    }
    writer.close();
    return bytes;
}

struct FilterTable {
    explicit FilterTable(const std::string& bytes) {
        reader.open(std::make_unique<SMF_MemoryFile>("memory.smf", bytes));
        table.connect(reader, "File");
    }
    SMF_Reader reader;
    SMF_ReaderTable table;
};

// The rows that a filter selects, as "1 3 6".
inline std::string rowsOf(SMF_ReaderTable& table, SMF_RecordFilter& filter) {
    std::string rows;
    table.top();
    for (table.next(); table.position() <= table.rows(); table.next()) {
        bool hit = true;
        SMF_Accumulator() = 0;
        if (filter.count() > 0) filter.run(hit);
        if (hit) rows += (rows.empty() ? "" : " ") + std::to_string(table.position());
    }
    // The same rows are found many at a time.
    std::string found;
    SMF_RowSieve sieve;
    const auto& tests = filter.conjunction();
    table.seek(1);
    while (!tests.empty() && sieve.find(table, tests, table.rows())) {
        found += (found.empty() ? "" : " ") + std::to_string(table.position());
        if (table.position() == table.rows()) break;
        table.next();
    }
    if (!tests.empty() && found != rows) {
        std::fprintf(stderr, "row by row: %s; many at a time: %s\n", rows.c_str(), found.c_str());
        std::abort();
    }
    return rows;
}
