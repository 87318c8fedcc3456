// Reading and patching of `user.DOSATTRIB`.
//
// The record is located, not unpacked: only the position of the attribute word matters, and a patch must keep
// what another writer stored beside it. The value comes from any user who may write the file, so each step is
// bounded by the value's size.

#include "platform/pf_dosattrib.h"

#include <charconv>
#include <cstdio>
#include <optional>

namespace platform {

namespace {

uint32_t little(std::string_view value, size_t at, size_t bytes) {
    uint32_t word = 0;
    for (size_t i = bytes; i-- > 0;) word = word << 8 | static_cast<uint8_t>(value[at + i]);
    return word;
}

struct Place {
    size_t attributes = 0;
    size_t flags = 0;  // position of the word of valid flags, 0 if the version has none
};

std::optional<Place> findRecord(std::string_view value) {
    size_t end = value.find('\0');
    if (end == std::string_view::npos) return std::nullopt;
    size_t version = (end + 2) & ~size_t{1};
    if (version + 4 > value.size()) return std::nullopt;
    uint32_t number = little(value, version, 2);
    size_t words = (version + 4 + 3) & ~size_t{3};
    if (number == 1 || number == 2 || number == 0xFFFF) {
        if (words + 4 > value.size()) return std::nullopt;
        return Place{words, 0};
    }
    if (number < 3 || number > 5 || words + 8 > value.size()) return std::nullopt;
    return Place{words + 4, words};
}

bool parseText(std::string_view value, uint32_t& attributes) {
    if (value.substr(0, 2) != "0x" && value.substr(0, 2) != "0X") return false;
    const char* first = value.data() + 2;
    const char* last = value.data() + value.size();
    auto [stop, error] = std::from_chars(first, last, attributes, 16);
    return error == std::errc() && (stop == last || *stop == '\0');
}

}  // namespace

bool parseDosAttrib(std::string_view value, uint32_t& attributes) {
    if (auto place = findRecord(value)) {
        if (place->flags && !(little(value, place->flags, 4) & 1)) return false;
        attributes = little(value, place->attributes, 4);
        return true;
    }
    return parseText(value, attributes);
}

std::string patchDosAttrib(std::string_view value, uint32_t attributes) {
    auto place = findRecord(value);
    if (!place) {
        char text[16];
        std::snprintf(text, sizeof text, "0x%x", attributes);
        return text;
    }
    std::string record(value);
    for (int i = 0; i < 4; ++i) record[place->attributes + i] = static_cast<char>(attributes >> (8 * i));
    if (place->flags) record[place->flags] = static_cast<char>(record[place->flags] | 1);
    return record;
}

}  // namespace platform
