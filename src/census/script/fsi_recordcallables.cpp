// Rows for the scripts of row walks.
#include "census/script/fsi_recordcallables.h"

#include "store/smf_error.h"

const char FSI_ReaderTable_GetRecordAsDict::TypeName[] = "FSI_ReaderTable_GetRecordAsDict";
const char FSI_ReaderTable_GetRecordAsList::TypeName[] = "FSI_ReaderTable_GetRecordAsList";

FSI_ReaderTable& FSI_RecordCallable::table() const {
    if (!table_) SMF_Fail(SMF_Runtime, "Not connected", "");
    return *table_;
}

IPE_Object FSI_ReaderTable_GetRecordAsDict::__call__(const IPE_Arguments& arguments) {
    return table().recordAsDict();
}

IPE_Object FSI_ReaderTable_GetRecordAsList::__call__(const IPE_Arguments& arguments) {
    return table().recordAsList();
}

FSI_RecordCallables::FSI_RecordCallables(FSI_ReaderTable& table)
    : asDict_(IPE_New<FSI_ReaderTable_GetRecordAsDict>(table)),
      asList_(IPE_New<FSI_ReaderTable_GetRecordAsList>(table)) {}

FSI_RecordCallables::~FSI_RecordCallables() {
    asDict_.as<FSI_RecordCallable>()->detach();
    asList_.as<FSI_RecordCallable>()->detach();
}
