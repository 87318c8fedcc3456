// The users index.
//
// The application decides what a user or group is shown as; it is asked once for the columns and then once
// for each entity.
#include "census/index/fsi_entityhelper.h"

#include <vector>

#include "census/fsi_lists.h"
#include "census/fsi_readertable.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_stringfield.h"

namespace {

const FSI_HelperIndex::Kind UsersIndex{'U', 10, "progress.building_user_index", "Indexing Users - ${0}%",
                                       FSI_EntityHelper::TableName};

std::string optionsKey(const FSI_Reader& census) {
    std::string key = census.isSet("hide_users") ? "~H1" : "";
    for (const std::string& item : census.base()) key += FSI_IndexFiles::itemKey(item);
    return key;
}

bool isNothing(const IPE_Object& value) { return value.isNull() || value.is<IPE_NoneType>(); }

// A text column of the application's, declared.
struct Column {
    std::string name;
    int32_t index;
};

Column declare(SMF_WriterTable& table, const IPE_Object& description) {
    auto* entry = PyDict_SafeCast(description);
    Column column{IPE_Dict_GetString(description, "name"), 0};
    IPE_Object tags = IPE_NewDict(), format(entry->findText("format")), style(entry->findText("style"));
    IPE_Dict_Set(tags, "Format", isNothing(format) ? IPE_String("S") : IPE_Object_AsString(format));
    if (!isNothing(style)) IPE_Dict_Set(tags, "style", IPE_Object_AsString(style));
    column.index = table.addField(column.name, SMF_TypeString, tags);
    return column;
}

}  // namespace

FSI_EntityHelper::FSI_EntityHelper(FSI_Reader& census) : FSI_HelperIndex(census, UsersIndex) {
    XPK_Assert(census.host() != nullptr);
    openIndex(optionsKey(census));
}

void FSI_EntityHelper::build(SMF_Writer& writer, FSI_Progress& progress) {
    FSI_ReaderTable entities;
    entities.connect(census(), TableName, false);
    progress.start(kind().key, kind().text, entities.rows());

    SMF_WriterTable table(writer.fileName());
    SMF_I32 number, source;
    source.connect(entities, "Number");
    number.connect(table, "Number", "S");
    std::vector<Column> columns;
    for (const IPE_Object& item :
         FSI_ItemsOf(census().apiCall("GetImageEntitySchema", {}), "columns of GetImageEntitySchema"))
        columns.push_back(declare(table, item));
    SMF_String security;
    security.connect(table, "Security", "S");
    table.create(TableName, writer, 16384, 8);

    const bool hidden = census().isSet("hide_users");
    while (entities.advance()) {
        IPE_Object entity = entities.fieldsAsDict();
        if (hidden) IPE_Dict_Set(entity, "Number", IPE_Int(1));
        IPE_Object answer = census().apiCall("GetImageEntity", {entity, census().options()});
        auto* values = PyDict_SafeCast(answer);
        number.set(source.get());
        for (const Column& column : columns) {
            // A field that Lua left out is nil there.
            IPE_Object value(values->findText(column.name));
            if (isNothing(value))
                table.field(column.index).reset();
            else
                table.assignObject(column.index, value);
        }
        table.commit();
        progress.tick();
    }
}
