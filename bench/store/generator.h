// The table of the store's benchmark: 5 million files in 54,325 folders, the same at every run of one seed.
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "store/fields/smf_datetimefield.h"

namespace bench {

inline constexpr int64_t Files = 5'000'000;
inline constexpr int32_t Folders = 54'325;
inline constexpr int Owners = 200;
inline constexpr int64_t Epoch = 1104537600;  // 2005-01-01 00:00:00 UTC
inline constexpr int64_t Span = 631152000;    // twenty years

struct File {
    int32_t folder = 0;
    std::string name;
    int64_t size = 0, space = 0;
    int64_t created = 0, modified = 0, accessed = 0;  // seconds since 1970, UTC
    int owner = 0;
};

class Generator {
  public:
    explicit Generator(int64_t files = Files) : files_(files) {
        // Folders hold very different numbers of files: weights fall like those of words in a text.
        double total = 0;
        std::vector<double> weights(Folders);
        for (double& weight : weights) total += weight = std::pow(1 + draw() % 2000, 0.8);
        double used = 0;
        for (int32_t i = 0; i < Folders; ++i) {
            used += weights[static_cast<size_t>(i)];
            ends_.push_back(static_cast<int64_t>(static_cast<double>(files_) * used / total));
        }
        ends_.back() = files_;
    }

    int64_t files() const { return files_; }

    // The next file; folders come in order.
    bool next(File& file) {
        if (row_ == files_) return false;
        while (row_ >= ends_[static_cast<size_t>(folder_)]) ++folder_;
        ++row_;
        file.folder = folder_ + 1;
        name(file.name);
        file.size = static_cast<int64_t>(std::exp(unit() * std::log(1e10)));
        file.space = (file.size + 4095) / 4096 * 4096;
        file.created = Epoch + static_cast<int64_t>(unit() * static_cast<double>(Span));
        file.modified =
            file.created + static_cast<int64_t>(unit() * static_cast<double>(Epoch + Span - file.created));
        file.accessed =
            file.modified + static_cast<int64_t>(unit() * static_cast<double>(Epoch + Span - file.modified));
        // The files of one folder mostly have one owner.
        file.owner = draw() % 8 ? static_cast<int>(hash(static_cast<uint64_t>(folder_)) % Owners)
                                : static_cast<int>(draw() % Owners);
        return true;
    }

    static std::string ownerName(int owner) { return "ACME\\user" + std::to_string(1000 + owner); }
    // A path of 2 to 8 names, in the order of the folder's number.
    static std::string folderName(int32_t folder) {
        std::string path = word(static_cast<uint64_t>(folder) / 4096);
        uint64_t rest = static_cast<uint64_t>(folder);
        for (uint64_t level = 0, depth = 1 + hash(rest) % 7; level < depth; ++level)
            path += std::string(".") + word(hash(rest / (1u << (12 - level)) + level)) +
                    std::to_string(rest >> (12 - level) & 15);
        return path;
    }

    static SMF_DateTimeValue moment(int64_t seconds) {
        // Civil date of a day number, after H. Hinnant, "chrono-compatible low-level date algorithms".
        int64_t days = seconds / 86400, clock = seconds % 86400, z = days + 719468;
        int64_t era = z / 146097, doe = z - era * 146097;
        int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365,
                doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
        int64_t mp = (5 * doy + 2) / 153, month = mp < 10 ? mp + 3 : mp - 9;
        SMF_DateTimeValue value;
        value.date = {static_cast<int8_t>(doy - (153 * mp + 2) / 5 + 1), static_cast<int8_t>(month),
                      static_cast<int16_t>(yoe + era * 400 + (month <= 2))};
        value.time = {static_cast<int8_t>(clock / 3600), static_cast<int8_t>(clock / 60 % 60),
                      static_cast<int8_t>(clock % 60)};
        return value;
    }

  private:
    // splitmix64 (S. Vigna).
    static uint64_t hash(uint64_t x) {
        x += 0x9E3779B97F4A7C15u;
        x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9u;
        x = (x ^ x >> 27) * 0x94D049BB133111EBu;
        return x ^ x >> 31;
    }
    uint64_t draw() { return hash(state_++) >> 8; }
    double unit() { return static_cast<double>(draw() >> 3) / static_cast<double>(uint64_t{1} << 53); }

    static const char* word(uint64_t n) {
        static const char* const words[] = {
            "report",  "draft",  "invoice", "photo",  "budget", "notes",  "backup", "minutes",
            "summary", "data",   "image",   "scan",   "letter", "plan",   "model",  "export",
            "design",  "review", "log",     "index",  "config", "readme", "master", "copy",
            "final",   "old",    "project", "client", "team",   "audit",  "sales",  "survey"};
        return words[n % 32];
    }

    void name(std::string& out) {
        static const char* const extensions[] = {"txt", "doc", "docx", "xls", "xlsx", "pdf",  "jpg", "JPG",
                                                 "png", "gif", "tif",  "mp3", "mp4",  "avi",  "zip", "gz",
                                                 "log", "xml", "html", "css", "js",   "json", "csv", "dat",
                                                 "bak", "tmp", "exe",  "dll", "PDF",  "iso"};
        out = word(draw());
        if (draw() % 2) out.append(draw() % 2 ? "_" : " ").append(word(draw()));
        if (draw() % 4) out += std::to_string(draw() % 10000);
        uint64_t pick = draw();
        if (pick % 50 == 0) return;  // no extension
        out.append(".").append(extensions[std::min<uint64_t>(pick / 64 % 30, pick / 4096 % 30)]);
    }

    int64_t files_;
    uint64_t state_ = 42;
    int64_t row_ = 0;
    int32_t folder_ = 0;
    std::vector<int64_t> ends_;
};

}  // namespace bench
