// The module object.
//
// One object serves all threads, so what scripts may change lies in a store, which has a lock, and the
// dictionary that the interpreter reads without one holds nothing but the method.
#include "ipe_sqlite/ipe_sqlite.h"

#include <sqlite3.h>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_store.h"
#include "ipe_sqlite/ipe_sqlite_connection.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/streams/epa_fileerror.h"

const char IPE_Sqlite::TypeName[] = "IPE_Sqlite";

namespace {

using Guard = EPA_LockScope<EPA_Lock>;

// Guards the handle only.
EPA_Lock sharedLock;
IPE_Object sharedModule;

enum { MethodConnect };
constexpr std::string_view MethodName = "connect";

}  // namespace

IPE_Sqlite::IPE_Sqlite() : IPE_ModuleType(TypeName), values_(IPE_New<IPE_Store>()) {
    bindMethods({{"connect", MethodConnect}});
    attributes_->markShared();
    for (uint32_t i = 0; i < attributes_->slots(); ++i)
        if (attributes_->keyAt(i)) attributes_->valueAt(i)->markShared();
    values_.counted()->markShared();
    markShared();
    values().set("apilevel", IPE_String("2.0"));
    values().set("threadsafety", IPE_String("1"));
    values().set("paramstyle", IPE_String("qmark,named"));
    values().set("libversion", IPE_String("3.32.2"));
    values().set("engineversion", IPE_String(sqlite3_libversion()));
    values().set("busytimeout", IPE_Int(BusyTimeout));
    values().set("busypolltime", IPE_Int(BusyPollTime));
}

IPE_Object IPE_Sqlite::shared() {
    Guard guard(sharedLock);
    if (!sharedModule) sharedModule = IPE_New<IPE_Sqlite>();
    return sharedModule;
}

IPE_Store& IPE_Sqlite::values() const noexcept { return *values_.as<IPE_Store>(); }

int64_t IPE_Sqlite::setting(std::string_view name, int64_t absent) {
    IPE_Object value = values().get(name);
    return value ? value->__int__() : absent;
}

IPE_Object IPE_Sqlite::connect(const IPE_Object& path) {
    // The names that mean no file are the library's own.
    std::string_view text = PyString_SafeCast(path)->view();
    std::string name(text);
    if (!text.empty() && text != ":memory:") {
        EPA_FileName file = EPA_FileNameOf(path);
        if (file.error)
            XPK_Raise("RuntimeError", "Failed to connect/open database '$databasename': $errormsg")
                .string("databasename", text)
                .string("errormsg", XPK_DecodeError(file.error))
                .raise();
        name = file.bytes;
    }
    IPE_Object connection = IPE_New<IPE_Sqlite_Connection>(IPE_Object(this), name, text);
    connection->__bind__();
    return connection;
}

IPE_Object IPE_Sqlite::__callmethod__(int method, const IPE_Arguments& arguments) {
    if (method != MethodConnect) return {};
    arguments.check("s", "connect");
    return connect(arguments[0]);
}

IPE_Object IPE_Sqlite::__getattr__(const IPE_Object& key, int depth) {
    if (key->is_text(MethodName)) return IPE_ModuleType::__getattr__(key, depth);
    return values().get(key);
}

void IPE_Sqlite::__setattr__(const IPE_Object& key, const IPE_Object& value) {
    IPE_Object plain = key->is_text(MethodName) ? IPE_Object() : IPE_Object_Copy(value);
    if (!plain) return IPE_Type::__setattr__(key, value);
    values().set(key, plain);
}

void IPE_Sqlite::__delattr__(const IPE_Object& key) {
    if (key->is_text(MethodName)) return IPE_Type::__delattr__(key);
    values().remove(key);
}

IPE_Object IPE_Sqlite::__dir__() {
    IPE_Object names = values().names();
    names.as<IPE_ListType>()->append(IPE_String(MethodName));
    return names;
}

void IPE_Sqlite::__import__(const IPE_Object& target) {
    IPE_Object names = __dir__();
    for (const IPE_Object& name : names.as<IPE_ListType>()->items())
        if (IPE_Object value = __getattr__(name, 0)) target->__setattr__(name, value);
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("", "create");
    return IPE_Sqlite::shared();
}

const IPE_NativeModule registered("ipe.sqlite", "create", create, "IPE_Globals");

// Scripts have let go of their connections before the component goes down.
EPA_Component component([](bool up, const char*, void*) {
    if (up) return;
    IPE_Object last;
    Guard guard(sharedLock);
    last.swap(sharedModule);
});

}  // namespace
