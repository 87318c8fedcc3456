// storedump: what a store file holds, its rows as text, and whether all of it can be read.
//
// The check does not trust what readers forgive: a block that cannot be decompressed reads as zeros there and
// is a fault here. Values are decoded interval by interval, each from a fresh jump, so that every restart
// point is tried and not only the first.
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ipe/values/ipe_dicttype.h"
#include "runtime/xpk_exception.h"
#include "store/smf_decoderstream.h"
#include "store/smf_file.h"
#include "store/smf_readertable.h"

namespace {

constexpr char Help[] =
    "usage: storedump [OPTION...] FILE\n"
    "\n"
    "Without options: the file's flags, and each table with its options, fields, codecs and streams.\n"
    "\n"
    "  --rows N     print the first N rows of each table, fields separated by tabs\n"
    "  --table T    with --rows: of this table alone\n"
    "  --verify     decode every block, and every value from every restart point; the first fault is "
    "reported\n"
    "               with its place\n"
    "  --help       show this text\n"
    "\n"
    "Exit code: 0, 1 when the file cannot be read or has a fault, 2 for a wrong command line.\n";

struct Wish {
    std::string file;
    std::optional<int64_t> rows;
    std::optional<std::string> table;
    bool verify = false;
};

// A fault with its place, found by --verify.
struct Fault {
    std::string text;
};

std::string messageOf(const XPK_Exception& e) { return e.type() + ": " + e.message(); }

// One line, whatever the text.
std::string plain(std::string_view text) {
    constexpr char Hex[] = "0123456789abcdef";
    std::string out;
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (c == '\\')
            out += "\\\\";
        else if (c == '\t')
            out += "\\t";
        else if (c == '\n')
            out += "\\n";
        else if (byte < 0x20 || byte == 0x7F)
            out += {'\\', 'x', Hex[byte >> 4], Hex[byte & 15]};
        else
            out += c;
    }
    return out;
}

std::string literal(const IPE_Object& value) { return plain(IPE_Object_ToString(value)); }

// The decoders that have streams: the field's own, and the parts of a composite.
struct Column {
    std::string name;
    SMF_FieldDecoder* decoder;
};
std::vector<Column> columnsOf(const SMF_FieldMeta& field) {
    std::vector<Column> columns{{field.name, field.decoder.get()}};
    if (auto* moments = dynamic_cast<SMF_DateTimeDecoder*>(field.decoder.get())) {
        columns.push_back({field.name + ", dates", &moments->dates()});
        columns.push_back({field.name + ", times", &moments->times()});
    }
    return columns;
}

// --- The list.

void listStream(const char* what, SMF_DecoderStream& stream) {
    const char* mode = stream.mode() & SMF_ModeZlib ? "zlib" : stream.mode() & SMF_ModeLz4 ? "lz4" : "plain";
    printf("      %s: %s, %lld blocks of %lld, %lld bytes, %lld in the file\n", what, mode,
           static_cast<long long>(stream.blockCount()), static_cast<long long>(stream.blockSize()),
           static_cast<long long>(stream.length()), static_cast<long long>(stream.bytesInFile()));
}

void listField(const SMF_FieldMeta& field) {
    printf("  field %d \"%s\": %s, codec %s, tags %s\n", field.index, plain(field.name).c_str(),
           std::string(SMF_TypeName(field.type)).c_str(), field.decoder->key().c_str(),
           literal(field.tags).c_str());
    for (const Column& column : columnsOf(field)) {
        SMF_FieldDecoder& decoder = *column.decoder;
        if (decoder.isShared()) continue;
        printf("    %s: codec %s, %lld values, zero interval %lld\n", plain(column.name).c_str(),
               decoder.key().c_str(), static_cast<long long>(decoder.fieldRows()),
               static_cast<long long>(decoder.zeroInterval()));
        if (decoder.extra()) printf("      extra %s\n", literal(decoder.extra()).c_str());
        listStream("data", *decoder.dataStream());
        listStream("jumps", *decoder.jumpStream());
    }
}

void listTable(SMF_ReaderTable& table) {
    const SMF_RecordMeta& meta = table.meta();
    printf("\ntable \"%s\": %lld rows, %zu fields, block size %u, zero interval %u\n",
           plain(meta.tableName).c_str(), static_cast<long long>(table.rows()), meta.fields.size(),
           meta.blockSize, meta.zero);
    if (meta.options.as<IPE_DictType>()->count() > 0) printf("  options %s\n", literal(meta.options).c_str());
    for (const auto& field : meta.fields) listField(*field);
}

void listFile(const SMF_Reader& reader) {
    printf("%s: %lld bytes, %s, compressed option %s, %zu tables\n", plain(reader.name()).c_str(),
           static_cast<long long>(reader.store()->file->size()),
           reader.hasMainStream() ? "columns" : "older layout, rows in one stream",
           reader.compressed() ? "on" : "off", reader.tables().size());
    if (reader.hasMainStream()) listStream("headers", *reader.store()->mainStream);
}

// --- Rows.

void printRows(SMF_ReaderTable& table, int64_t limit) {
    const auto& fields = table.meta().fields;
    printf("# %s\n", plain(table.meta().tableName).c_str());
    for (size_t i = 0; i < fields.size(); ++i) printf("%s%s", i ? "\t" : "", plain(fields[i]->name).c_str());
    printf("\n");
    table.top();
    for (int64_t row = 1; row <= std::min(limit, table.rows()); ++row) {
        table.next();
        for (size_t i = 0; i < fields.size(); ++i)
            printf("%s%s", i ? "\t" : "", plain(table.field(static_cast<int64_t>(i)).asText()).c_str());
        printf("\n");
    }
}

// --- The check.

class Verifier {
  public:
    explicit Verifier(SMF_Reader& reader) : reader_(reader), file_(*reader.store()->file) {}

    void run() {
        if (reader_.hasMainStream()) blocks("the headers", *reader_.store()->mainStream);
        for (const auto& entry : reader_.tables()) {
            const std::string& name = entry.first;
            SMF_ReaderTable table;
            std::string place = "table \"" + plain(name) + "\"";
            guard(place, [&] { table.connect(reader_, name); });
            if (!reader_.hasMainStream()) {
                rows(place, table);
                continue;
            }
            for (const auto& field : table.meta().fields) {
                std::string at = place + ", field \"" + plain(field->name) + "\"";
                std::vector<Column> columns = columnsOf(*field);
                for (const Column& column : columns) {
                    // Only the parts of a composite must know their rows.
                    int64_t own = column.decoder->fieldRows();
                    bool whole = columns.size() > 1 && &column == columns.data();
                    if (own != table.rows() && !(whole && own == 0))
                        throw Fault{at + ": " + std::to_string(own) + " values for " +
                                    std::to_string(table.rows()) + " rows"};
                    streams(at, *column.decoder);
                }
                column(at, *field->decoder, table.rows());
            }
        }
    }
    int64_t values() const noexcept { return values_; }

  private:
    template <class Action>
    void guard(const std::string& place, Action action) {
        try {
            action();
        } catch (const XPK_Exception& e) {
            throw Fault{place + ": " + messageOf(e)};
        }
        if (file_.damage().count > 0) throw Fault{place + ": " + file_.damage().first};
    }

    void blocks(const std::string& place, SMF_DecoderStream& stream) {
        guard(place, [&] { stream.verify(); });
    }

    void streams(const std::string& place, SMF_FieldDecoder& decoder) {
        SMF_DecoderStream *data = nullptr, *jumps = nullptr;
        guard(place, [&] {
            data = decoder.dataStream();
            jumps = decoder.jumpStream();
        });
        blocks(place, *data);
        blocks(place, *jumps);
    }

    void column(const std::string& place, SMF_FieldDecoder& decoder, int64_t rows) {
        int64_t interval = decoder.zeroInterval();
        for (int64_t first = 1; first <= rows; first += interval) {
            decoder.load(0);
            for (int64_t row = first; row <= std::min(rows, first + interval - 1); ++row, ++values_) {
                try {
                    decoder.load(row);
                } catch (const XPK_Exception& e) {
                    throw Fault{place + ", row " + std::to_string(row) + ": " + messageOf(e)};
                }
            }
        }
    }

    // Older layout: whole rows, again from each restart point.
    void rows(const std::string& place, SMF_ReaderTable& table) {
        int64_t interval = table.meta().zero ? table.meta().zero : std::max<int64_t>(table.rows(), 1);
        for (int64_t first = 1; first <= table.rows(); first += interval) {
            int64_t row = first;
            try {
                table.top();
                table.seek(first);
                while (++row < std::min(table.rows() + 1, first + interval)) table.next();
                values_ += (row - first) * static_cast<int64_t>(table.meta().fields.size());
            } catch (const XPK_Exception& e) {
                throw Fault{place + ", row " + std::to_string(row) + ": " + messageOf(e)};
            }
            guard(place, [] {});
        }
    }

    SMF_Reader& reader_;
    SMF_File& file_;
    int64_t values_ = 0;
};

// --- The command line.

int misuse(const std::string& text) {
    fprintf(stderr, "storedump: %s\n\n%s", text.c_str(), Help);
    return 2;
}

// 0, or the exit code of a command line that is done with.
std::optional<int> parse(int argc, char** argv, Wish& wish) {
    for (int i = 1; i < argc; ++i) {
        std::string_view word = argv[i];
        bool more = i + 1 < argc;
        if (word == "--help" || word == "-h") {
            fputs(Help, stdout);
            return 0;
        } else if (word == "--verify") {
            wish.verify = true;
        } else if (word == "--rows") {
            char* end = nullptr;
            if (!more) return misuse("--rows wants a number");
            wish.rows = strtoll(argv[++i], &end, 10);
            if (*end || *wish.rows < 0 || !*argv[i]) return misuse("--rows wants a number");
        } else if (word == "--table") {
            if (!more) return misuse("--table wants a name");
            wish.table = argv[++i];
        } else if (word.starts_with("--")) {
            return misuse("unknown option '" + std::string(word) + "'");
        } else if (!wish.file.empty()) {
            return misuse("one file at a time");
        } else {
            wish.file = word;
        }
    }
    if (wish.file.empty()) return misuse("no file is named");
    if (wish.table && !wish.rows) return misuse("--table goes with --rows");
    return std::nullopt;
}

int run(const Wish& wish) {
    SMF_Reader reader;
    reader.open(wish.file);
    if (wish.verify) {
        Verifier verifier(reader);
        verifier.run();
        printf("%s: no fault, %lld values\n", plain(wish.file).c_str(),
               static_cast<long long>(verifier.values()));
    }
    if (!wish.rows && !wish.verify) listFile(reader);
    if (wish.table && reader.location(*wish.table) == -1)
        throw Fault{"no table \"" + plain(*wish.table) + "\""};
    for (const auto& entry : reader.tables()) {
        if (wish.table ? entry.first != *wish.table : wish.verify && !wish.rows) continue;
        SMF_ReaderTable table;
        table.connect(reader, entry.first);
        if (wish.rows)
            printRows(table, *wish.rows);
        else
            listTable(table);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Wish wish;
    if (std::optional<int> code = parse(argc, argv, wish)) return *code;
    XPK_ThreadScope thread(true);
    try {
        return run(wish);
    } catch (const Fault& fault) {
        fprintf(stderr, "%s: %s\n", plain(wish.file).c_str(), fault.text.c_str());
    } catch (const XPK_Exception& e) {
        fprintf(stderr, "%s: %s\n", plain(wish.file).c_str(), messageOf(e).c_str());
    }
    return 1;
}
