// The store's benchmark: writes the table, answers the questions through handles, and prints the table as CSV
// for the peers. bench/store.py runs it beside them and compares answers and times.
//
//   bench_store write FILE [--zlib] [--files N]   prints {"seconds": S, "bytes": B, "rows": N}
//   bench_store csv FILE [--files N]              CSV with a header line
//   bench_store query FILE [--rounds N]           prints {"question": {"ms": best, "answer": text}, ...}
#include <sys/stat.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <unordered_map>

#include "generator.h"
#include "runtime/xpk_exception.h"
#include "store/fields/smf_datetimefield.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_stringfield.h"
#include "store/fields/smf_treefield.h"
#include "store/filters/smf_textmatcher.h"
#include "store/smf_readertable.h"
#include "store/smf_writer.h"

namespace {

using bench::Generator;

struct Columns {
    SMF_I32 folder;
    SMF_String name, owner;
    SMF_I64 size, space;
    SMF_DateTime created, modified, accessed;

    void connect(SMF_Record& table) {
        folder.connect(table, "PathNumber", "R");
        name.connect(table, "Name", "F");
        size.connect(table, "Size", "");
        space.connect(table, "Space", "");
        created.connect(table, "Created", "D");
        modified.connect(table, "Modified", "D");
        accessed.connect(table, "Accessed", "D");
        owner.connect(table, "Owner", "D");
    }
};

double secondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

int write(const char* path, bool zlib, int64_t files) {
    // The rows are made before the clock starts.
    std::vector<bench::File> rows(static_cast<size_t>(files));
    Generator generator(files);
    for (bench::File& row : rows) generator.next(row);
    std::vector<std::string> owners;
    for (int i = 0; i < bench::Owners; ++i) owners.push_back(Generator::ownerName(i));

    auto begin = std::chrono::steady_clock::now();
    SMF_Writer writer;
    writer.open(path);
    writer.setCompressed(zlib);
    SMF_WriterTable paths(path), table(path);
    SMF_Tree tree;
    tree.connect(paths, "PathName", "");
    paths.create("Path", writer, 0x10000, 1000);
    for (int32_t i = 1; i <= bench::Folders; ++i) {
        tree.set(Generator::folderName(i));
        paths.commit();
    }
    Columns c;
    c.connect(table);
    table.create("File", writer, 0x40000, 20000);
    for (const bench::File& row : rows) {
        c.folder.set(row.folder);
        c.name.set(row.name);
        c.size.set(row.size);
        c.space.set(row.space);
        c.created.set(Generator::moment(row.created));
        c.modified.set(Generator::moment(row.modified));
        c.accessed.set(Generator::moment(row.accessed));
        c.owner.set(owners[static_cast<size_t>(row.owner)]);
        table.commit();
    }
    writer.close();
    double seconds = secondsSince(begin);
    struct stat status {};
    ::stat(path, &status);
    std::printf("{\"seconds\": %.3f, \"bytes\": %lld, \"rows\": %lld}\n", seconds,
                static_cast<long long>(status.st_size), static_cast<long long>(files));
    return 0;
}

int csv(const char* path, int64_t files) {
    std::FILE* out = std::fopen(path, "w");
    if (!out) return 1;
    std::fprintf(out, "path,name,size,space,created,modified,accessed,owner\n");
    Generator generator(files);
    bench::File row;
    while (generator.next(row))
        std::fprintf(out, "%d,%s,%lld,%lld,%lld,%lld,%lld,%s\n", row.folder, row.name.c_str(),
                     static_cast<long long>(row.size), static_cast<long long>(row.space),
                     static_cast<long long>(row.created), static_cast<long long>(row.modified),
                     static_cast<long long>(row.accessed), Generator::ownerName(row.owner).c_str());
    return std::fclose(out) ? 1 : 0;
}

// Calls `body(row, count)` for stretches of rows that all spans can give; `size` of the shortest one counts.
template <class Body>
void eachStretch(SMF_ReaderTable& table, Body body) {
    for (int64_t row = 1, rows = table.rows(); row <= rows;) {
        table.seek(row);
        row += static_cast<int64_t>(body());
    }
}

std::string sums(SMF_ReaderTable& table, Columns& c) {
    int64_t size = 0, space = 0;
    eachStretch(table, [&] {
        auto a = c.size.span();
        auto b = c.space.span(a.size());
        for (size_t i = 0; i < b.size(); ++i) size += a[i], space += b[i];
        return b.size();
    });
    return std::to_string(size) + " " + std::to_string(space);
}

// A table by symbol of a text column, kept as long as the symbols are.
template <class Value>
class BySymbol {
  public:
    // Makes the values of all symbols that are new; before a stretch of rows is looked at.
    template <class Make>
    const Value* follow(const SMF_StringDecoder& decoder, Make make) {
        if (epoch_ != decoder.symbolEpoch()) {
            epoch_ = decoder.symbolEpoch();
            values_.clear();
        }
        while (values_.size() < decoder.symbolCount())
            values_.push_back(make(decoder.symbol(static_cast<uint32_t>(values_.size()))));
        return values_.data();
    }

  private:
    uint32_t epoch_ = 0;
    std::vector<Value> values_;
};

std::string lower(std::string_view text) {
    std::string out(text);
    for (char& ch : out)
        if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch + 32);
    return out;
}

std::string byExtension(SMF_ReaderTable& table, Columns& c) {
    struct Group {
        int64_t count = 0, size = 0, space = 0;
    };
    std::map<std::string, size_t> index;
    std::vector<Group> groups;
    BySymbol<uint32_t> bySymbol;
    const SMF_StringDecoder& names = *c.name.decoder();
    auto groupOf = [&](std::string_view symbol) {
        auto [at, added] =
            index.try_emplace(lower(symbol.empty() ? symbol : symbol.substr(1)), groups.size());
        if (added) groups.emplace_back();
        return static_cast<uint32_t>(at->second);
    };
    eachStretch(table, [&] {
        auto a = c.size.span();
        auto b = c.space.span(a.size());
        auto n = c.name.span(b.size());
        const uint32_t* groupOfSymbol = bySymbol.follow(names, groupOf);
        for (size_t i = 0; i < n.size(); ++i) {
            Group& group = groups[groupOfSymbol[n[i].symbol]];
            ++group.count;
            group.size += a[i];
            group.space += b[i];
        }
        return n.size();
    });
    std::string out;
    for (const auto& [name, group] : index)
        out += name + " " + std::to_string(groups[group].count) + " " + std::to_string(groups[group].size) +
               " " + std::to_string(groups[group].space) + "\n";
    return out;
}

std::string byDay(SMF_ReaderTable& table, Columns& c) {
    std::vector<int64_t> days(13 * 32 * 100);
    eachStretch(table, [&] {
        auto d = c.modified.dates();
        auto a = c.size.span(d.size());
        for (size_t i = 0; i < a.size(); ++i)
            days[static_cast<size_t>(((d[i].year - 1970) * 13 + d[i].month) * 32 + d[i].day)] += a[i];
        return a.size();
    });
    int64_t check = 0, count = 0;
    for (size_t i = 0; i < days.size(); ++i)
        if (days[i]) ++count, check ^= days[i];
    return std::to_string(count) + " days " + std::to_string(check);
}

// The 200 largest jpg files of twenty owners, modified since 2015. Cheap columns first; the name is looked at
// last.
std::string largest(SMF_ReaderTable& table, Columns& c) {
    constexpr size_t Wanted = 200;
    std::vector<std::pair<int64_t, int64_t>> heap;  // size, -row: a min-heap of the best
    auto less = [](const auto& x, const auto& y) { return x > y; };
    BySymbol<char> ownerWanted, extensionWanted;
    auto owner = [](std::string_view name) {
        return static_cast<char>(name.size() > 9 && name[name.size() - 1] == '7');
    };
    auto extension = [](std::string_view symbol) { return static_cast<char>(lower(symbol) == ".jpg"); };
    SMF_DateValue since{1, 1, 2015};
    eachStretch(table, [&] {
        auto a = c.size.span();
        auto d = c.modified.dates(a.size());
        auto o = c.owner.span(d.size());
        auto n = c.name.span(o.size());
        const char* owners = ownerWanted.follow(*c.owner.decoder(), owner);
        const char* extensions = extensionWanted.follow(*c.name.decoder(), extension);
        int64_t first = table.position();
        int64_t least = heap.size() < Wanted ? -1 : heap.front().first;
        for (size_t i = 0; i < n.size(); ++i) {
            if (a[i] < least || d[i].year < since.year) continue;
            if (!owners[o[i].symbol] || !extensions[n[i].symbol]) continue;
            std::pair<int64_t, int64_t> entry{a[i], -(first + static_cast<int64_t>(i))};
            if (heap.size() == Wanted) {
                if (!(entry > heap.front())) continue;
                std::pop_heap(heap.begin(), heap.end(), less);
                heap.back() = entry;
            } else {
                heap.push_back(entry);
            }
            std::push_heap(heap.begin(), heap.end(), less);
            if (heap.size() == Wanted) least = heap.front().first;
        }
        return n.size();
    });
    std::sort(heap.rbegin(), heap.rend());
    std::string out;
    for (const auto& [size, row] : heap) {
        table.seek(-row);
        out += std::to_string(size) + " " + std::string(c.name.get()) + "\n";
    }
    return out;
}

std::string matches(SMF_ReaderTable& table, Columns& c, const char* pattern, bool ignoreCase) {
    SMF_TextMatcher matcher(pattern, ignoreCase);
    int64_t count = 0;
    table.top();
    for (table.next(); table.position() <= table.rows(); table.next()) count += matcher.matches(c.name);
    return std::to_string(count);
}

// All rows of one directory: the rows are sorted by it, so it is found by bisection over restart points.
std::string oneFolder(SMF_ReaderTable& table, Columns& c) {
    constexpr int32_t Wanted = 31'337;
    int64_t low = 0, high = table.rows();  // first row of the folder lies behind low, at or before high
    while (high - low > 1) {
        int64_t middle = low + (high - low) / 2;
        table.seek(middle);
        (c.folder.get() < Wanted ? low : high) = middle;
    }
    int64_t count = 0, size = 0, letters = 0;
    for (table.seek(high - 1), table.next(); table.position() <= table.rows() && c.folder.get() == Wanted;
         table.next()) {
        ++count;
        size += c.size.get();
        letters += static_cast<int64_t>(c.name.get().size());
    }
    return std::to_string(count) + " " + std::to_string(size) + " " + std::to_string(letters);
}

void quote(const std::string& text) {
    std::putchar('"');
    for (char ch : text) {
        if (ch == '\n')
            std::fputs("\\n", stdout);
        else if (ch == '"' || ch == '\\')
            std::printf("\\%c", ch);
        else
            std::putchar(ch);
    }
    std::putchar('"');
}

int query(const char* path, int rounds, const char* only) {
    SMF_Reader reader;
    SMF_ReaderTable table;
    reader.open(path);
    table.connect(reader, "File");
    Columns c;
    c.connect(table);
    const std::pair<const char*, std::function<std::string()>> questions[] = {
        {"sums", [&] { return sums(table, c); }},
        {"largest", [&] { return largest(table, c); }},
        {"extensions", [&] { return byExtension(table, c); }},
        {"days", [&] { return byDay(table, c); }},
        {"substring", [&] { return matches(table, c, "invoice", false); }},
        {"substring_nocase", [&] { return matches(table, c, "PHOTO", true); }},
        {"regex", [&] { return matches(table, c, "^(report|draft).*[0-9]{3}\\.pdf$", false); }},
        {"folder", [&] { return oneFolder(table, c); }},
    };
    std::printf("{");
    const char* separator = "";
    for (const auto& [name, ask] : questions) {
        if (only && std::strcmp(only, name) != 0) continue;
        double best = 1e9;
        std::string answer;
        for (int i = 0; i < rounds; ++i) {
            auto begin = std::chrono::steady_clock::now();
            answer = ask();
            best = std::min(best, secondsSince(begin));
        }
        std::printf("%s\"%s\": {\"ms\": %.2f, \"answer\": ", separator, name, best * 1000);
        quote(answer);
        std::printf("}");
        separator = ",\n ";
    }
    std::printf("}\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    XPK_ThreadScope thread(true);
    const char* command = argc > 2 ? argv[1] : "";
    bool zlib = false;
    int64_t files = bench::Files;
    int rounds = 5;
    const char* only = nullptr;
    for (int i = 3; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--zlib")) zlib = true;
        if (!std::strcmp(argv[i], "--files") && i + 1 < argc) files = std::atoll(argv[++i]);
        if (!std::strcmp(argv[i], "--rounds") && i + 1 < argc) rounds = std::atoi(argv[++i]);
        if (!std::strcmp(argv[i], "--only") && i + 1 < argc) only = argv[++i];
    }
    try {
        if (!std::strcmp(command, "write")) return write(argv[2], zlib, files);
        if (!std::strcmp(command, "csv")) return csv(argv[2], files);
        if (!std::strcmp(command, "query")) return query(argv[2], rounds, only);
    } catch (const XPK_Exception& e) {
        std::fprintf(stderr, "%s: %s\n", e.type().c_str(), e.message().c_str());
        return 1;
    }
    std::fprintf(
        stderr,
        "usage: bench_store write|csv|query FILE [--zlib] [--files N] [--rounds N] [--only QUESTION]\n");
    return 2;
}
