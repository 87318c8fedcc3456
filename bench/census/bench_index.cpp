// The indexes' benchmark: the store benchmark's files as a census, its indexes built, opened and asked.
//
//   bench_index write FILE [--files N]    a census with PathDACL, folders up to 8 deep
//   bench_index run FILE [--rounds N]     prints {"question": best, ...}: milliseconds, "_us" and "_ns" apart
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

#include "../store/generator.h"
#include "census/fsi_reader.h"
#include "census/index/fsi_pathlevelhelper.h"
#include "census/index/fsi_pathnamehelper.h"
#include "ipe/values/ipe_dicttype.h"
#include "runtime/xpk_exception.h"
#include "store/fields/smf_i64field.h"
#include "store/smf_writer.h"

namespace {

using bench::Generator;
using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

void writePaths(SMF_Writer& writer, const std::string& file) {
    SMF_WriterTable paths(file), rights(file);
    SMF_I32 number, parent, owner, group, mode, path, entity;
    SMF_String name;
    number.connect(paths, "Number", "S"), parent.connect(paths, "Parent", "M"),
        name.connect(paths, "Name", "D");
    owner.connect(paths, "Owner", "D"), group.connect(paths, "Group", "D"), mode.connect(paths, "Mode", "D");
    paths.create("Path", writer, 0x10000, 1000);
    path.connect(rights, "Path", "R"), entity.connect(rights, "Entity", "D");
    rights.create("PathDACL", writer, 0x10000, 1000);
    std::mt19937 random(1);
    std::vector<int32_t> branch;
    for (int32_t i = 1; i <= bench::Folders; ++i) {
        while (branch.size() > 1 && (branch.size() > 8 || random() % 8 < 3)) branch.pop_back();
        number.set(i), parent.set(branch.empty() ? 0 : branch.back());
        name.set("folder" + std::to_string(i)), owner.set(1), group.set(2), mode.set(0755);
        paths.commit();
        branch.push_back(i);
        for (int32_t k = 0; k < 3; ++k) path.set(i), entity.set(k), rights.commit();
    }
}

int write(const std::string& file, int64_t files) {
    SMF_Writer writer;
    writer.open(file);
    writePaths(writer, file);
    SMF_WriterTable table(file);
    SMF_I32 path;
    SMF_String name;
    SMF_I64 size, space;
    SMF_DateTime moments[3];
    path.connect(table, "PathNumber", "R"), name.connect(table, "Name", "F");
    size.connect(table, "Size", ""), space.connect(table, "Space", "");
    moments[0].connect(table, "Created", "D"), moments[1].connect(table, "Modified", "D");
    moments[2].connect(table, "Accessed", "D");
    table.create("File", writer, 0x40000, 20000);
    Generator generator(files);
    for (bench::File row; generator.next(row); table.commit()) {
        path.set(row.folder), name.set(row.name), size.set(row.size), space.set(row.space);
        moments[0].set(Generator::moment(row.created)), moments[1].set(Generator::moment(row.modified));
        moments[2].set(Generator::moment(row.accessed));
    }
    writer.close();
    return 0;
}

// Calls `ask` `times` times and prints the time of one, the best of `rounds`.
template <class Ask>
void measure(const char* name, int rounds, int64_t times, double unit, Ask ask) {
    double best = 1e300;
    for (int i = 0; i < rounds; ++i) {
        auto begin = Clock::now();
        ask();
        best = std::min(best, msSince(begin));
    }
    std::printf(", \"%s\": %.3f", name, best * unit / static_cast<double>(times));
}

int run(const std::string& file, int rounds) {
    IPE_Object options = IPE_NewDict();
    options.as<IPE_DictType>()->setText("fsi", IPE_String(file));
    auto forget = [&](const char* part) {
        for (const auto& entry :
             std::filesystem::directory_iterator(std::filesystem::path(file).parent_path()))
            if (entry.path().string().find(part) != std::string::npos) std::filesystem::remove(entry.path());
    };
    auto openLevels = [&](const char* filter) {
        FSI_Reader reader(options, {});
        FSI_PathLevelHelper(reader).open(filter);
    };
    auto openNames = [&] { FSI_Reader(options, {}).pathNameHelper(); };
    std::printf("{\"rounds\": %d", rounds);
    measure("file index", rounds, 1, 1, [&] { forget(":~F"), openLevels(""); });
    measure("file index, filtered", rounds, 1, 1, [&] { forget("~F"), openLevels("Size >= 5MB"); });
    openLevels("");
    measure("paths index", rounds, 1, 1, [&] { forget(":~P"), openNames(); });
    measure("open file index", rounds, 1, 1, [&] { openLevels(""); });
    measure("open paths index", rounds, 1, 1, openNames);

    FSI_Reader reader(options, {});
    FSI_PathLevelHelper& index = reader.pathLevelHelper();
    const int64_t paths = index.paths();
    int64_t sum = 0;
    measure("locate numbers in order_ns", rounds, paths, 1e6, [&] {
        for (int64_t n = 1; n <= paths; ++n) sum += index.locateNumber(n);
    });
    measure("tree size in order_ns", rounds, paths, 1e6, [&] {
        for (int64_t n = 1; n <= paths; ++n) sum += index.locateNumber(n), sum += index.figure(FSI_TreeSize);
    });
    std::string text;
    measure("path text in order_ns", rounds, paths, 1e6, [&] {
        for (int64_t n = 1; n <= paths; ++n)
            index.locateNumber(n), index.pathText(text), sum += text.size() > 0;
    });
    std::mt19937 random(2);
    std::vector<std::string> texts;
    for (int i = 0; i < 1000; ++i) {
        index.locateNumber(1 + static_cast<int64_t>(random()) % paths);
        texts.push_back(index.pathText());
    }
    measure("locate texts_us", rounds, 1000, 1e3, [&] {
        for (const std::string& path : texts) sum += index.locateText(path, true);
    });
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    std::printf(", \"paths\": %lld, \"peak MB\": %ld, \"check\": %lld}\n", static_cast<long long>(paths),
                usage.ru_maxrss / 1024, static_cast<long long>(sum));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    auto number = [&](const char* option, int64_t absent) {
        for (int i = 3; i + 1 < argc; ++i)
            if (std::strcmp(argv[i], option) == 0) return static_cast<int64_t>(std::atoll(argv[i + 1]));
        return absent;
    };
    try {
        if (argc >= 3 && std::strcmp(argv[1], "write") == 0)
            return write(argv[2], number("--files", bench::Files));
        if (argc >= 3 && std::strcmp(argv[1], "run") == 0)
            return run(argv[2], static_cast<int>(number("--rounds", 3)));
    } catch (const XPK_Exception& fault) {
        std::fprintf(stderr, "%s: %s\n", fault.type().c_str(), fault.message().c_str());
        return 1;
    }
    std::fprintf(stderr, "usage: bench_index write|run FILE [--files N] [--rounds N]\n");
    return 2;
}
