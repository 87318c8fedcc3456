// Collations. The library calls them for every comparison of a sort, so `tree` keeps its two buffers.
#include "ipe_sqlite/ipe_sqlite_collations.h"

#include <sqlite3.h>

#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_wholetext.h"
#include "platform/pf_collation.h"
#include "runtime/epa_shutdown.h"

namespace {

std::string_view viewOf(int size, const void* text) {
    return {static_cast<const char*>(text), static_cast<size_t>(size)};
}

int signOf(int64_t order) { return order < 0 ? -1 : order > 0 ? 1 : 0; }

// Both characters are ASCII and so never part of another.
std::string_view exchanged(std::string_view text, std::string& buffer) {
    buffer.assign(text);
    for (char& c : buffer)
        if (c == '/')
            c = ' ';
        else if (c == ' ')
            c = '/';
    return buffer;
}

int compareTrees(void* collation, int leftSize, const void* left, int rightSize, const void* right) {
    try {
        return static_cast<IPE_Sqlite_TreeCollation*>(collation)->compare(viewOf(leftSize, left),
                                                                          viewOf(rightSize, right));
    } catch (...) {
        // No memory for the buffers; there is no way to say so from here.
        return signOf(viewOf(leftSize, left).compare(viewOf(rightSize, right)));
    }
}

int compareByScript(void*, int leftSize, const void* left, int rightSize, const void* right) {
    static IPE_StringType* const name = IPE_StringType::intern("sql_collate");
    IPE_Frame* frame = IPE_CurrentFrame();
    // A sort looks at no flag between its comparisons.
    if (!frame || !XPK_IsRunning()) return 0;
    try {
        IPE_Object function(frame->globals->dictionary().findName(name));
        if (!function) function = IPE_Object(frame->interpreter->root().dictionary().findName(name));
        if (!function) return 0;
        IPE_Object order = IPE_CallScript(function, IPE_WholeText(viewOf(leftSize, left)),
                                          IPE_WholeText(viewOf(rightSize, right)));
        return order ? signOf(order->__int__()) : 0;
    } catch (...) {
        // The library takes no error from a collation: a failure counts as equality.
        return 0;
    }
}

}  // namespace

int IPE_Sqlite_TreeCollation::compare(std::string_view left, std::string_view right) {
    left = exchanged(left, left_);
    right = exchanged(right, right_);
    int order = 0;
    if (platform::collate(0, left, right, platform::CollateIgnoreCase, order) != 0)
        return signOf(left.compare(right));
    return order;
}

int IPE_Sqlite_TreeCollation::publish(sqlite3* handle) {
    return sqlite3_create_collation_v2(handle, "tree", SQLITE_UTF8, this, compareTrees, nullptr);
}

int IPE_Sqlite_PublishClosure(sqlite3* handle) {
    return sqlite3_create_collation_v2(handle, "closure", SQLITE_UTF8, nullptr, compareByScript, nullptr);
}
