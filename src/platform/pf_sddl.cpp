// One pass over the text with a cursor; every step consumes or fails, so hostile text costs no more than its
// length.

#include "platform/pf_sddl.h"

#include <cerrno>
#include <charconv>

#include "platform/pf_sid.h"

namespace platform {

namespace {

constexpr size_t kLongest = 65535;
constexpr size_t kFields = 6;

struct Right {
    char name[3];
    uint32_t mask;
};

constexpr Right kRights[] = {
    {"GA", 0x10000000}, {"GR", 0x80000000}, {"GW", 0x40000000}, {"GX", 0x20000000}, {"RC", 0x20000},
    {"SD", 0x10000},    {"WD", 0x40000},    {"WO", 0x80000},    {"FA", 0x1F01FF},   {"FR", 0x120089},
    {"FW", 0x120116},   {"FX", 0x1200A0},   {"KA", 0xF003F},    {"KR", 0x20019},    {"KW", 0x20006},
    {"KX", 0x20019},    {"CC", 0x1},        {"DC", 0x2},        {"LC", 0x4},        {"SW", 0x8},
    {"RP", 0x10},       {"WP", 0x20},       {"DT", 0x40},       {"LO", 0x80},       {"CR", 0x100},
};

class Cursor {
  public:
    explicit Cursor(std::string_view text) : rest_(text) {}

    bool done() const { return rest_.empty(); }
    bool atSection() const { return rest_.size() >= 2 && rest_[1] == ':'; }

    char section() {
        char letter = rest_[0];
        rest_.remove_prefix(2);
        return letter;
    }

    bool trustee(std::string& sid) {
        size_t length = sidLength(rest_);
        if (length == 0) length = 2;
        if (!sidOfTrustee(rest_.substr(0, length), sid)) return false;
        rest_.remove_prefix(length);
        return true;
    }

    bool list(SddlList& list) {
        while (!done() && rest_[0] != '(' && !atSection()) {
            if (!((rest_[0] >= 'A' && rest_[0] <= 'Z') || rest_[0] == '_')) return false;
            list.flags.push_back(rest_[0]);
            rest_.remove_prefix(1);
        }
        while (!done() && rest_[0] == '(') {
            if (!entry(list.entries.emplace_back())) return false;
        }
        return done() || atSection();
    }

  private:
    bool entry(SddlEntry& entry) {
        size_t close = rest_.find(')');
        if (close == std::string_view::npos) return false;
        std::string_view inside = rest_.substr(1, close - 1);
        rest_.remove_prefix(close + 1);
        std::string trustee;
        std::string* fields[kFields] = {&entry.type,   &entry.flags,         &entry.rights,
                                        &entry.object, &entry.inheritObject, &trustee};
        for (size_t i = 0; i < kFields; ++i) {
            size_t cut = inside.find(';');
            if ((cut == std::string_view::npos) != (i + 1 == kFields)) return false;
            *fields[i] = inside.substr(0, cut);
            inside.remove_prefix(i + 1 == kFields ? inside.size() : cut + 1);
        }
        return !entry.type.empty() && entry.type.find('(') == std::string::npos &&
               entry.flags.size() % 2 == 0 && sidOfTrustee(trustee, entry.trustee);
    }

    std::string_view rest_;
};

}  // namespace

int parseSddl(std::string_view text, Sddl& sddl) {
    sddl = Sddl();
    if (text.empty() || text.size() > kLongest) return EINVAL;
    Cursor cursor(text);
    while (!cursor.done()) {
        if (!cursor.atSection()) return EINVAL;
        char letter = cursor.section();
        if (letter == 'O' || letter == 'G') {
            auto& slot = letter == 'O' ? sddl.owner : sddl.group;
            if (slot || !cursor.trustee(slot.emplace())) return EINVAL;
        } else if (letter == 'D' || letter == 'S') {
            auto& slot = letter == 'D' ? sddl.dacl : sddl.sacl;
            if (slot || !cursor.list(slot.emplace())) return EINVAL;
        } else {
            return EINVAL;
        }
    }
    return 0;
}

bool sddlRights(std::string_view rights, uint32_t& mask) {
    mask = 0;
    if (!rights.empty() && rights[0] >= '0' && rights[0] <= '9') {
        int base = 10;
        if (rights.size() > 1 && rights[0] == '0') {
            bool hex = rights[1] == 'x' || rights[1] == 'X';
            base = hex ? 16 : 8;
            rights.remove_prefix(hex ? 2 : 1);
        }
        auto [stop, error] = std::from_chars(rights.data(), rights.data() + rights.size(), mask, base);
        return error == std::errc() && stop == rights.data() + rights.size();
    }
    for (; rights.size() >= 2; rights.remove_prefix(2)) {
        bool found = false;
        for (const Right& row : kRights) {
            if (rights.substr(0, 2) != row.name) continue;
            mask |= row.mask;
            found = true;
        }
        if (!found) return false;
    }
    return rights.empty();
}

}  // namespace platform
