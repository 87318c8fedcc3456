// Failures of sockets: named exceptions by code.
//
// A failed call raises an exception whose type is the name of its code, such as WSAETIMEDOUT, with the number
// `errno` (the code) and the string `function` as its listed fields. A code outside the table raises
// SocketError "[Errno $errno] from function '$function'".
#pragma once

#include <string_view>

#include "runtime/xpk_exception.h"

[[noreturn]] void EPA_RaiseSocketError(int code, const char* function,
                                       XPK_Place where = XPK_Place::current());
// Nothing for 0, otherwise raises the error that the system's `error` stands for.
void EPA_CheckSocket(int error, const char* function, XPK_Place where = XPK_Place::current());

// Makes one call of the platform under its name and raises what it fails with.
template <class Call>
void EPA_SocketCall(const char* function, Call call, XPK_Place where = XPK_Place::current()) {
    int error;
    {
        XPK_ApiScope api(function, where.file, where.line);
        error = call();
    }
    EPA_CheckSocket(error, function, where);
}

// ValueError "I/O operation on closed socket".
[[noreturn]] void EPA_RaiseClosedSocket(XPK_Place where = XPK_Place::current());
