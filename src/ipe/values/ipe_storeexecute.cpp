// The atomic store operations by their script names.
//
// A table holds name, argument spec and function of each; arguments begin behind the operation's name.
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_store.h"

namespace {

using Arguments = const IPE_Arguments&;

struct Operation {
    std::string_view name;
    const char* spec;
    IPE_Object (*run)(IPE_Store& store, Arguments a);
};

// Operations that give nothing give a null handle.
const Operation operations[] = {
    {"inc", "s", [](IPE_Store& s, Arguments a) { return s.add(a[0], 1); }},
    {"dec", "s", [](IPE_Store& s, Arguments a) { return s.add(a[0], -1); }},
    {"inc_less_than", "ss",
     [](IPE_Store& s, Arguments a) { return IPE_Object(IPE_Bool(s.incrementBelow(a[0], a[1]))); }},
    {"set_if_exists", "so",
     [](IPE_Store& s, Arguments a) { return IPE_Object(IPE_Bool(s.setIfExists(a[0], a[1]))); }},
    {"list_append", "so", [](IPE_Store& s, Arguments a) { return s.append(a[0], a[1]), IPE_Object(); }},
    {"list_remove", "so",
     [](IPE_Store& s, Arguments a) { return IPE_Object(IPE_Bool(s.removeItem(a[0], a[1]))); }},
    {"dict_list_append", "soo",
     [](IPE_Store& s, Arguments a) { return s.appendAt(a[0], a[1], a[2]), IPE_Object(); }},
    {"dict_list_remove", "soo",
     [](IPE_Store& s, Arguments a) { return IPE_Object(IPE_Bool(s.removeItemAt(a[0], a[1], a[2]))); }},
    {"dict_get", "so|o",
     [](IPE_Store& s, Arguments a) {
         IPE_Object value = s.getKey(a[0], a[1]);
         return value ? value : a.at(2);
     }},
    {"dict_set", "soo", [](IPE_Store& s, Arguments a) { return s.setKey(a[0], a[1], a[2]), IPE_Object(); }},
    {"dict_del", "so", [](IPE_Store& s, Arguments a) { return s.removeKey(a[0], a[1]), IPE_Object(); }},
    {"dict_item_add", "soi", [](IPE_Store& s, Arguments a) { return s.addToKey(a[0], a[1], a[2]); }},
    {"dict_keys", "s", [](IPE_Store& s, Arguments a) { return s.keys(a[0]); }},
    {"bulk_set", "o", [](IPE_Store& s, Arguments a) { return s.bulkSet(a[0]), IPE_Object(); }},
    {"timestamp", "", [](IPE_Store&, Arguments) { return IPE_Int(IPE_Store::timestamp()); }},
};

}  // namespace

IPE_Object IPE_Store::execute(const IPE_Arguments& arguments) {
    arguments.check("s|", "execute");
    std::string_view name = arguments.text(0);
    for (const Operation& operation : operations) {
        if (operation.name != name) continue;
        IPE_Arguments rest = arguments.from(1);
        rest.check(operation.spec, operation.name.data());
        IPE_Object result = operation.run(*this, rest);
        return result ? result : IPE_None();
    }
    XPK_Raise("RuntimeError", "Unknown store operation $name").string("name", name).raise();
}
