// The label table.
//
// The blocks stand in the order of their bases. Several bases share one list of attribute names.
#include "store/smf_labels.h"

#include <span>

namespace {

using Texts = std::span<const std::string_view>;

constexpr std::string_view Users[] = {"Name", "Type", "Last Login"};
constexpr std::string_view Attributes[] = {
    "R", "ReadOnly",  "H", "Hidden",  "S",  "System",       "A",  "Archive",    "C", "Compressed",
    "E", "Encrypted", "O", "Offline", "Re", "ReparsePoint", "Sp", "SparseFile", "T", "Temporary"};
constexpr size_t PlainAttributes = 8;
constexpr std::string_view Sizes[] = {"Size", "Space", "Files", "Paths", "Last Modified", "Last Accessed"};
constexpr size_t PlainSizes = 4;
constexpr std::string_view WideAttributes[] = {"ReadOnly",
                                               "Hidden",
                                               "System",
                                               "ExecuteOnly",
                                               "Archive",
                                               "Shareable",
                                               "DontSuballocate",
                                               "Transactional",
                                               "Indexed",
                                               "ReadAudit",
                                               "WriteAudit",
                                               "ImmediatePurge",
                                               "RenameInhibit",
                                               "DeleteInhibit",
                                               "CopyInhibit",
                                               "Migrated",
                                               "DontMigrate",
                                               "ImmediateCompress",
                                               "Compressed",
                                               "DontCompress",
                                               "CantCompress",
                                               "Ro",
                                               "H",
                                               "Sy",
                                               "X",
                                               "A",
                                               "Sh",
                                               "Ds",
                                               "T",
                                               "I",
                                               "Ra",
                                               "Wa",
                                               "P",
                                               "Ri",
                                               "Di",
                                               "Ci",
                                               "M",
                                               "Dm",
                                               "Ic",
                                               "Co",
                                               "Dc",
                                               "Cc"};
constexpr std::string_view Trustees[] = {"Trustee", "Rights", "Inherited Rights Filter"};
constexpr std::string_view Rights[] = {"Supervisor", "Read",   "Write",     "Create",
                                       "Erase",      "Modify", "File Scan", "Access Control"};
constexpr std::string_view ShortRights[] = {"S", "R", "W", "C", "E", "M", "F", "A"};
constexpr std::string_view Totals[] = {"Size",         "Space",         "Files",         "Paths",
                                       "Largest File", "Last Modified", "Last Accessed", "Last Deleted"};
constexpr std::string_view Owners[] = {"Owner",       "Size",         "Space",
                                       "Files",       "Largest File", "Last Access",
                                       "Last Modify", "Last Login",   "Owner Type"};
constexpr std::string_view Types[] = {"Type", "Files", "Size", "Space"};
constexpr std::string_view Comparisons[] = {"New", "Common", "Missing", "Net Size", "Net Space"};
constexpr std::string_view Paths[] = {"Name",       "Attributes", "Modified",    "Modified By", "Created",
                                      "Created By", "Archived",   "Archived By", "Name (8.3)"};
constexpr std::string_view Files[] = {"Name",     "Name (8.3)",  "Size",    "Space",      "Attributes",
                                      "Modified", "Modified By", "Created", "Created By", "Accessed"};
constexpr std::string_view Archives[] = {"Archived", "Archived By"};
constexpr std::string_view Extras[] = {"NameSpace",   "EA Data Size", "EA Key Count",
                                       "EA Key Size", "Deleted",      "Deleted By"};

struct Block {
    uint32_t base;
    Texts texts;
};
constexpr Block Blocks[] = {
    {0x69F001, Users},
    {0x707800, Texts(Attributes).first(PlainAttributes)},
    {0x102F000, Texts(Attributes).first(PlainAttributes)},
    {0x111F000, Attributes},
    {0x112F000, Attributes},
    {0x113F000, Sizes},
    {0x121F000, Texts(Attributes).first(PlainAttributes)},
    {0x122F000, Texts(Attributes).first(PlainAttributes)},
    {0x123F000, Texts(Sizes).first(PlainSizes)},
    {0x142F000, WideAttributes},
    {0x147F000, Trustees},
    {0x147F00A, Rights},
    {0x147F014, ShortRights},
    {0x1F0F000, Totals},
    {0x1F0F00A, Owners},
    {0x1F0F014, Types},
    {0x1F3F000, Comparisons},
    {0x601F001, Paths},
    {0x603F001, Files},
    {0x603F00D, Archives},
    {0x603F010, Extras},
};

uint32_t digits(std::string_view text, uint32_t base) noexcept {
    uint32_t value = 0;
    for (char c : text) {
        uint32_t digit = c >= '0' && c <= '9'   ? static_cast<uint32_t>(c - '0')
                         : c >= 'a' && c <= 'f' ? static_cast<uint32_t>(c - 'a' + 10)
                         : c >= 'A' && c <= 'F' ? static_cast<uint32_t>(c - 'A' + 10)
                                                : base;
        if (digit >= base) break;
        value = value * base + digit;
    }
    return value;
}

}  // namespace

std::string_view SMF_LabelText(uint32_t identifier) noexcept {
    for (const Block& block : Blocks)
        if (identifier >= block.base && identifier - block.base < block.texts.size())
            return block.texts[identifier - block.base];
    return {};
}

uint32_t SMF_LabelIdentifier(std::string_view text) noexcept {
    size_t size = text.size();
    if (size == 8 || size == 10) return (digits(text.substr(0, 4), 16) << 16) + digits(text.substr(4), 10);
    bool parted = size > 7 && (text[7] == ':' || (size == 12 && text[4] == ':'));
    if (!parted) return 0;
    uint32_t block = digits(text.substr(0, 4), 16) * 64 + digits(text.substr(5, 2), 10);
    return (block << 10) + digits(text.substr(8), 10);
}
