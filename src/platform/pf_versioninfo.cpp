// Version texts of PE and ELF files.
//
// Both formats are mazes of offsets under the control of whoever wrote the file, so the reader follows one
// path (first resource, first language) instead of walking trees, checks each offset against the block it
// points into, and moves strictly forward through lists. Cost is bounded by the limits below whatever the
// file claims.

#include "platform/pf_versioninfo.h"

#include <algorithm>
#include <cerrno>

#include "platform/pf_bytefile.h"
#include "platform/pf_notejson.h"
#include "platform/pf_paths.h"

namespace platform {

namespace {

constexpr size_t kResourceLongest = 1u << 20;
constexpr size_t kNoteLongest = 64u << 10;
constexpr unsigned kHeaderLimit = 4096;  // section headers of a PE file, program headers of an ELF file
constexpr unsigned kEntryLimit = 4096;   // entries of one resource folder
constexpr uint32_t kVersionResource = 16;
constexpr uint32_t kPackageNote = 0xCAFE1A7E;

// --- PE ---

struct PeSections {
    std::string headers;
    unsigned count = 0;

    // File position of `size` bytes at the virtual address, false if no section holds them.
    bool locate(uint32_t address, uint32_t size, uint64_t& at) const {
        ByteView view(headers);
        for (unsigned i = 0; i < count; ++i) {
            uint64_t start = view.number(i * 40 + 12, 4), length = view.number(i * 40 + 16, 4);
            if (address < start || address - start > length || size > length - (address - start)) continue;
            at = view.number(i * 40 + 20, 4) + (address - start);
            return true;
        }
        return false;
    }
};

class PeReader {
  public:
    PeReader(ByteFile& file, VersionStrings& strings) : file_(file), strings_(strings) {}

    void read(uint64_t header) {
        std::string block;
        if (!file_.read(header, 24, block) || block.substr(0, 4) != std::string("PE\0\0", 4)) return;
        ByteView view(block);
        sections_.count = static_cast<unsigned>(view.number(6, 2));
        size_t optional = view.number(20, 2);
        if (sections_.count > kHeaderLimit || !file_.read(header + 24, optional, block)) return;
        if (!file_.read(header + 24 + optional, sections_.count * 40u, sections_.headers)) return;
        ByteView options(block);
        size_t folders = options.number(0, 2) == 0x20B ? 112 : 96;
        if (options.number(folders - 4, 4) <= 2) return;
        root_ = static_cast<uint32_t>(options.number(folders + 16, 4));
        uint32_t at = 0, size = 0;
        if (root_ && find(at, size) && size <= kResourceLongest && load(at, size, block)) version(block);
    }

  private:
    bool load(uint32_t address, uint32_t size, std::string& block) {
        uint64_t at = 0;
        return sections_.locate(address, size, at) && file_.read(at, size, block);
    }

    // One step through a resource folder at `offset` from the root: the entry with `id`, or the first for 0.
    // The high bit of the result marks a folder.
    bool step(uint32_t offset, uint32_t id, uint32_t& next) {
        std::string block;
        if (offset > UINT32_MAX - root_ - 16 || !load(root_ + offset, 16, block)) return false;
        uint32_t named = static_cast<uint32_t>(ByteView(block).number(12, 2));
        uint32_t count = named + static_cast<uint32_t>(ByteView(block).number(14, 2));
        if (count == 0 || count > kEntryLimit || !load(root_ + offset + 16, count * 8, block)) return false;
        ByteView view(block);
        for (uint32_t i = id ? named : 0; i < count; ++i) {
            if (id && view.number(i * 8, 4) != id) continue;
            next = static_cast<uint32_t>(view.number(i * 8 + 4, 4));
            return true;
        }
        return false;
    }

    // Type, name, language, data.
    bool find(uint32_t& address, uint32_t& size) {
        constexpr uint32_t kFolder = 0x80000000;
        uint32_t at = 0;
        if (!step(0, kVersionResource, at) || !(at & kFolder)) return false;
        if (!step(at & ~kFolder, 0, at) || !(at & kFolder)) return false;
        if (!step(at & ~kFolder, 0, at) || (at & kFolder)) return false;
        std::string block;
        if (at > UINT32_MAX - root_ || !load(root_ + at, 16, block)) return false;
        address = static_cast<uint32_t>(ByteView(block).number(0, 4));
        size = static_cast<uint32_t>(ByteView(block).number(4, 4));
        return true;
    }

    // A record of the version resource: length, length of value, kind, key in UTF-16, value, children, each
    // of the last three aligned to 4 bytes from the start of the resource.
    struct Record {
        size_t end = 0;
        size_t value = 0;
        size_t valueSize = 0;
        std::string key;
    };

    static size_t align(size_t at) { return (at + 3) & ~size_t{3}; }

    static std::string text(ByteView view, size_t& at, size_t end) {
        std::u16string units;
        for (; at + 2 <= end; at += 2) {
            char16_t unit = static_cast<char16_t>(view.number(at, 2));
            if (unit == 0) {
                at += 2;
                break;
            }
            units.push_back(unit);
        }
        std::string out;
        for (size_t i = 0; i < units.size(); ++i) {
            char32_t code = units[i];
            bool pair =
                (code & 0xFC00) == 0xD800 && i + 1 < units.size() && (units[i + 1] & 0xFC00) == 0xDC00;
            if (pair) code = 0x10000 + ((code & 0x3FF) << 10) + (units[++i] & 0x3FFu);
            appendUtf8(out, (code & 0xFFFFF800) == 0xD800 ? 0xFFFD : code);
        }
        return out;
    }

    // Reads the record at `at` that must end by `limit`.
    static bool record(ByteView view, size_t at, size_t limit, Record& record) {
        if (at + 6 > limit) return false;
        size_t length = view.number(at, 2);
        if (length < 6 || length > limit - at) return false;
        record.end = at + length;
        record.valueSize = view.number(at + 2, 2);
        size_t place = at + 6;
        record.key = text(view, place, record.end);
        record.value = std::min(align(place), record.end);
        return true;
    }

    template <typename Visit>
    static void children(ByteView view, size_t at, size_t end, Visit visit) {
        Record child;
        while (record(view, at, end, child)) {
            visit(child);
            at = align(child.end);
        }
    }

    void version(const std::string& block) {
        ByteView view(block);
        Record root;
        if (!record(view, 0, block.size(), root) || root.key != "VS_VERSION_INFO") return;
        size_t first = align(std::min(root.value + root.valueSize, root.end));
        children(view, first, root.end, [&](const Record& info) {
            if (info.key != "StringFileInfo" || !strings_.empty()) return;
            bool taken = false;
            children(view, info.value, info.end, [&](const Record& table) {
                if (taken) return;
                taken = true;
                children(view, table.value, table.end, [&](const Record& entry) {
                    size_t at = entry.value;
                    if (!entry.key.empty()) strings_.emplace(entry.key, text(view, at, entry.end));
                });
            });
        });
    }

    ByteFile& file_;
    VersionStrings& strings_;
    PeSections sections_;
    uint32_t root_ = 0;
};

// --- ELF ---

class ElfReader {
  public:
    ElfReader(ByteFile& file, VersionStrings& strings) : file_(file), strings_(strings) {}

    void read(const std::string& head) {
        bool wide = head[4] == 2, big = head[5] == 2;
        std::string block;
        if (!file_.read(0, wide ? 64 : 52, block)) return;
        ByteView view(block, big);
        uint64_t table = view.number(wide ? 32 : 28, wide ? 8 : 4);
        size_t size = view.number(wide ? 54 : 42, 2), count = view.number(wide ? 56 : 44, 2);
        if (size < (wide ? 56u : 32u) || size > 256 || count > kHeaderLimit) return;
        if (!file_.read(table, size * count, block)) return;
        std::string note;
        for (size_t i = 0; i < count && strings_.empty(); ++i) {
            ByteView row(std::string_view(block).substr(i * size, size), big);
            if (row.number(0, 4) != 4) continue;  // PT_NOTE
            uint64_t at = row.number(wide ? 8 : 4, wide ? 8 : 4),
                     length = row.number(wide ? 32 : 16, wide ? 8 : 4);
            uint64_t step = row.number(wide ? 48 : 28, wide ? 8 : 4) == 8 ? 8 : 4;
            if (length <= kNoteLongest && file_.read(at, length, note)) notes(note, big, step);
        }
    }

  private:
    void notes(const std::string& block, bool big, uint64_t step) {
        ByteView view(block, big);
        auto align = [step](uint64_t at) { return (at + step - 1) & ~(step - 1); };
        for (uint64_t at = 0; view.has(at, 12);) {
            uint64_t nameSize = view.number(at, 4), size = view.number(at + 4, 4),
                     type = view.number(at + 8, 4);
            uint64_t content = align(at + 12 + nameSize);
            if (!view.has(at + 12, nameSize) || !view.has(content, size)) return;
            bool package =
                type == kPackageNote && view.part(at + 12, nameSize) == std::string_view("FDO\0", 4);
            if (package) {
                std::string_view json = view.part(content, size);
                parseNoteJson(json.substr(0, json.find('\0')), strings_);
                return;
            }
            at = align(content + size);
        }
    }

    ByteFile& file_;
    VersionStrings& strings_;
};

}  // namespace

int readVersionStrings(const std::string& path, VersionStrings& strings) {
    strings.clear();
    ByteFile file;
    if (int error = file.open(path)) return error;
    std::string head;
    if (!file.read(0, 64, head)) return file.error();
    if (head.substr(0, 4) == "\177ELF") {
        ElfReader(file, strings).read(head);
    } else if (head.substr(0, 2) == "MZ") {
        PeReader(file, strings).read(ByteView(head).number(60, 4));
    }
    return file.error();
}

}  // namespace platform
