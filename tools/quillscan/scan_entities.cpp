// Names of accounts and groups.
#include "scan_entities.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <vector>

namespace quillscan {

namespace {

constexpr size_t FirstRoom = 4096, MostRoom = 1 << 24;  // a group's record lists its members

// What `look` (getpwuid_r or getgrgid_r) finds, in memory that grows until it fits; null when there is
// nothing.
template <class Record, class Look>
Record* record(Look look, uint32_t id, Record& room, std::vector<char>& text) {
    for (text.resize(FirstRoom); text.size() <= MostRoom; text.resize(text.size() * 4)) {
        Record* found = nullptr;
        int error = look(id, &room, text.data(), text.size(), &found);
        if (error == EINTR) continue;
        if (error != ERANGE) return error ? nullptr : found;
    }
    return nullptr;
}

}  // namespace

int32_t Entities::look(Kind& kind, bool isGroup, uint32_t id) {
    auto [known, isNew] = kind.numbers.try_emplace(id, count_ + 1);
    kind.lastId = id;
    kind.last = known->second;
    if (!isNew) return known->second;
    EntityRow row{++count_, isGroup, id, std::to_string(id), {}};
    std::vector<char> text;
    if (isGroup) {
        struct group room;
        if (const struct group* found = record(getgrgid_r, id, room, text)) row.name = found->gr_name;
    } else {
        struct passwd room;
        if (const struct passwd* found = record(getpwuid_r, id, room, text)) {
            row.name = found->pw_name;
            std::string_view gecos = found->pw_gecos ? found->pw_gecos : "";
            row.fullName = gecos.substr(0, gecos.find(','));
        }
    }
    met_(row);
    return row.number;
}

}  // namespace quillscan
