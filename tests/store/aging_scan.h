// The dictionaries of the encoders told as a scan, for the tests of the table and of the codecs.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Entries First to Last with their ages, scanned.
struct AgingScan {
    struct Entry {
        std::string key;
        int64_t age = 0;
    };
    AgingScan(size_t first, size_t last) : first(first), entries(last + 1) {}
    std::pair<int, bool> touch(const std::string& key) {
        ++tick;
        size_t lowest = first;
        for (size_t i = first; i < entries.size(); ++i) {
            if (entries[i].age == 0) {
                lowest = i;
                break;
            }
            if (entries[i].key == key) {
                entries[i].age = tick;
                return {static_cast<int>(i), true};
            }
            if (entries[i].age < entries[lowest].age) lowest = i;
        }
        entries[lowest] = {key, tick};
        return {static_cast<int>(lowest), false};
    }
    size_t first;
    std::vector<Entry> entries;
    int64_t tick = 0;
};
