// Failures of the store.
#include "store/smf_error.h"

void SMF_Fail(const char* type, std::string_view message, std::string_view fileName, SMF_ErrorFields fields,
              XPK_Place where) {
    XPK_Raise raise("DatabaseError", message, where);
    if (type) raise.string("type", type);
    raise.string("filename", fileName);
    for (const auto& [name, value] : fields) raise.string(name, value);
    raise.raise();
}

void SMF_CorruptHeader(std::string_view fileName, XPK_Place where) {
    SMF_Fail(SMF_Corruption, "The database has a corrupt header", fileName, {}, where);
}

void SMF_IllegalData(std::string_view fileName, XPK_Place where) {
    SMF_Fail(SMF_Corruption, "Record reader has detected illegal data", fileName, {}, where);
}
