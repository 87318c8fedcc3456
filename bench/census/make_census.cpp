// Writes the census of the reports' benchmark, and the same rows as CSV for its peers.
//
//   make_census FILE.smf PATHS.csv FILES.csv [--files N]      either CSV may be "-" for none
//
// The files are those of the store's benchmark; their folders form a tree of 1 to 9 levels, the same for
// every number of files up to five million and larger in proportion beyond.
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "generator.h"
#include "runtime/xpk_threadstate.h"
#include "store/fields/smf_datetimefield.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_writer.h"

namespace {

struct Folder {
    int32_t parent = 0, levels = 0, last = 0;
    std::string name, text;
};

// Numbers from 1, depth first.
std::vector<Folder> makeTree(int32_t count) {
    std::vector<Folder> folders(static_cast<size_t>(count) + 1);
    std::vector<int32_t> branch;
    uint64_t state = 7;
    auto draw = [&] { return (state = state * 6364136223846793005u + 1442695040888963407u) >> 33; };
    for (int32_t n = 1; n <= count; ++n) {
        Folder& folder = folders[static_cast<size_t>(n)];
        if (n == 1) {
            folder.name = folder.text = "/";
        } else {
            while (branch.size() > 8 || (branch.size() > 1 && draw() % 5 < 2)) branch.pop_back();
            folder.parent = branch.back();
            folder.levels = static_cast<int32_t>(branch.size());
            static const char* const words[] = {"team",   "Project", "archive", "data",
                                                "Photos", "work",    "old"};
            folder.name = words[draw() % 7] + std::to_string(n);
            folder.text = folders[static_cast<size_t>(folder.parent)].text + folder.name + "/";
        }
        branch.push_back(n);
        for (int32_t open : branch) folders[static_cast<size_t>(open)].last = n;
    }
    return folders;
}

void writeFolders(SMF_Writer& writer, const std::vector<Folder>& folders) {
    SMF_WriterTable table(writer.fileName());
    SMF_I32 number, parent, owner, group, mode;
    SMF_String name;
    number.connect(table, "Number", "S"), parent.connect(table, "Parent", "M");
    name.connect(table, "Name", "F"), owner.connect(table, "Owner", "D");
    group.connect(table, "Group", "D"), mode.connect(table, "Mode", "D");
    table.create("Path", writer, 32768, 1000);
    for (size_t n = 1; n < folders.size(); ++n) {
        number.set(static_cast<int32_t>(n)), parent.set(folders[n].parent), name.set(folders[n].name);
        owner.set(1 + static_cast<int32_t>(n % bench::Owners)), group.set(1), mode.set(0755);
        table.commit();
    }
}

void writeFiles(SMF_Writer& writer, bench::Generator& generator, std::FILE* csv) {
    SMF_WriterTable table(writer.fileName());
    SMF_I32 path, owner;
    SMF_String name;
    SMF_I64 size, space;
    SMF_DateTime created, modified, accessed;
    path.connect(table, "PathNumber", "R"), name.connect(table, "Name", "F");
    size.connect(table, "Size", "S"), space.connect(table, "Space", "S");
    created.connect(table, "Created", "D"), modified.connect(table, "Modified", "D");
    accessed.connect(table, "Accessed", "D"), owner.connect(table, "Owner", "D");
    table.create("File", writer, 131072, 1000);
    bench::File file;
    while (generator.next(file)) {
        path.set(file.folder), name.set(file.name), size.set(file.size), space.set(file.space);
        created.set(bench::Generator::moment(file.created));
        modified.set(bench::Generator::moment(file.modified));
        accessed.set(bench::Generator::moment(file.accessed)), owner.set(file.owner + 1);
        table.commit();
        if (csv)
            std::fprintf(csv, "%d,%s,%lld,%lld,%lld,%lld,%lld,%d\n", file.folder, file.name.c_str(),
                         static_cast<long long>(file.size), static_cast<long long>(file.space),
                         static_cast<long long>(file.created), static_cast<long long>(file.modified),
                         static_cast<long long>(file.accessed), file.owner + 1);
    }
}

void writeEntities(SMF_Writer& writer) {
    SMF_WriterTable table(writer.fileName());
    SMF_I32 number;
    SMF_String type, name, fullName;
    SMF_I64 id;
    number.connect(table, "Number", "S"), type.connect(table, "Type", "D"), id.connect(table, "ID", "S");
    name.connect(table, "Name", "S"), fullName.connect(table, "FullName", "S");
    table.create("Entity", writer, 16384, 10);
    for (int n = 0; n < bench::Owners; ++n) {
        number.set(n + 1), type.set("user"), id.set(1000 + n), name.set(bench::Generator::ownerName(n));
        fullName.set("");
        table.commit();
    }
}

std::FILE* openCsv(const char* path, const char* header) {
    if (std::strcmp(path, "-") == 0) return nullptr;
    std::FILE* csv = std::fopen(path, "w");
    if (!csv) throw std::runtime_error(path);
    std::fputs(header, csv);
    return csv;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    XPK_ThreadScope thread(true);
    int64_t files = argc > 5 ? std::atoll(argv[5]) : bench::Files;
    bench::Generator generator(files);
    std::vector<Folder> folders = makeTree(bench::Folders);
    if (std::FILE* csv = openCsv(argv[2], "number,parent,last,levels,name,path\n")) {
        for (size_t n = 1; n < folders.size(); ++n)
            std::fprintf(csv, "%zu,%d,%d,%d,%s,%s\n", n, folders[n].parent, folders[n].last,
                         folders[n].levels, folders[n].name.c_str(), folders[n].text.c_str());
        std::fclose(csv);
    }
    std::FILE* csv = openCsv(argv[3], "path,name,size,space,created,modified,accessed,owner\n");
    SMF_Writer writer;
    writer.open(argv[1]);
    writeFolders(writer, folders);
    writeFiles(writer, generator, csv);
    writeEntities(writer);
    writer.close();
    if (csv) std::fclose(csv);
}
