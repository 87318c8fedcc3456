// Decoding of SDDL for scripts. More lenient than the platform's parser, which must know what it applies:
// here any entry type, flag and right passes as text. A conditional entry has a parenthesised seventh field,
// so the end of an entry is found by counting.

#include "ipe/nt/ipe_sddl.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_sid.h"

namespace {

constexpr size_t kControlsLongest = 63;
constexpr size_t kFields = 6;

IPE_Object pairs(std::string_view text) {
    IPE_Object list = IPE_NewList();
    for (size_t i = 0; i < text.size(); i += 2)
        list.as<IPE_ListType>()->append(IPE_String(text.substr(i, 2)));
    return list;
}

IPE_Object rights(std::string_view text) {
    if (text.substr(0, 2) != "0x") return pairs(text);
    uint32_t value = 0;
    auto [stop, error] = std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
    XPK_Assert(error == std::errc() && stop == text.data() + text.size());
    return IPE_ListOf({IPE_Int(value)});
}

IPE_Object trustee(std::string_view text) {
    std::string sid;
    if (!platform::sidOfTrustee(text, sid)) {
        XPK_ThrowSystemError("ConvertStringSecurityDescriptorToSecurityDescriptor", EINVAL);
    }
    return IPE_String(sid);
}

// The place behind the parenthesis that closes the one at the start, npos if it stays open.
size_t closing(std::string_view text) {
    size_t depth = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '(') ++depth;
        if (text[i] == ')' && --depth == 0) return i + 1;
    }
    return std::string_view::npos;
}

IPE_Object entryOf(std::string_view inside, const IPE_Object& controls) {
    std::array<std::string_view, kFields> fields;
    for (std::string_view& field : fields) {
        size_t cut = inside.find(';');
        field = inside.substr(0, cut);
        inside = cut == std::string_view::npos ? std::string_view() : inside.substr(cut + 1);
    }
    IPE_Object entry = IPE_NewDict();
    IPE_Dict_Set(entry, "controls", controls);
    IPE_Dict_Set(entry, "type", IPE_String(fields[0]));
    IPE_Dict_Set(entry, "flags", pairs(fields[1]));
    IPE_Dict_Set(entry, "rights", rights(fields[2]));
    IPE_Dict_Set(entry, "trustee", trustee(fields[5]));
    return entry;
}

}  // namespace

void IPE_DecodeSddl(std::string_view text, const IPE_Object& list) {
    size_t colon = text.find(':');
    XPK_Assert(colon != std::string_view::npos);
    text.remove_prefix(colon + 1);
    size_t open = std::min(text.find('('), text.size());
    XPK_Assert(open <= kControlsLongest);
    IPE_Object controls = IPE_String(text.substr(0, open));
    for (text.remove_prefix(open); !text.empty();) {
        size_t end = closing(text);
        XPK_Assert(end != std::string_view::npos);
        list.as<IPE_ListType>()->append(entryOf(text.substr(1, end - 2), controls));
        size_t next = text.find('(', end);
        text.remove_prefix(next == std::string_view::npos ? text.size() : next);
    }
}
