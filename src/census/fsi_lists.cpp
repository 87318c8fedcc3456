// Lists out of Lua.
#include "census/fsi_lists.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"

std::vector<IPE_Object> FSI_ItemsOf(const IPE_Object& value, const char* what) {
    if (value.isNull() || value.is<IPE_NoneType>()) return {};
    if (value.is<IPE_ListType>() || value.is<IPE_TupleType>()) {
        auto* sequence = value.as<IPE_SequenceType>();
        sequence->count();  // raises for one that has been cleared
        return sequence->items();
    }
    std::vector<IPE_Object> items;
    bool whole = value.is<IPE_DictType>();
    int32_t count = whole ? value.as<IPE_DictType>()->count() : 0;
    items.reserve(static_cast<size_t>(count));
    for (int32_t i = 1; whole && i <= count; ++i) {
        IPE_Type* item = value.as<IPE_DictType>()->find(IPE_Int(i));
        if (item) items.emplace_back(item);
        whole = item != nullptr;
    }
    if (!whole) XPK_Raise("TypeError", "Require a list of $what").string("what", what).raise();
    return items;
}

std::vector<std::string> FSI_TextsOf(const IPE_Object& value, const char* what) {
    std::vector<std::string> texts;
    for (const IPE_Object& item : FSI_ItemsOf(value, what)) texts.push_back(IPE_Object_Text(item));
    return texts;
}
