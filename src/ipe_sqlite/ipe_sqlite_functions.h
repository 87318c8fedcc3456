// Script functions as SQL functions.
//
// Arguments arrive by storage class: integers, floats, strings, None; BLOBs are left out. A result goes back
// when it is a string, a float or an integer; None and anything else give NULL. What a function raises
// becomes the statement's error, with the message as its text, "failed!" when there is none; SystemExit
// leaves the statement as it is.
#pragma once

#include <string>

#include "ipe/object/ipe_type.h"

struct sqlite3;
struct sqlite3_value;
class IPE_Sqlite_Connection;

// One function that a script has published. Belongs to its connection, and outlives its use by the library.
struct IPE_Sqlite_Function {
    std::string name;
    int arguments = 0;  // -1: any number
    IPE_Object scalar;  // or null, and then step and final are set
    IPE_Object step, final;
    IPE_Sqlite_Connection* connection = nullptr;

    // A result of the library.
    //
    // Each group of an aggregate has a state, a fresh code object equal to `final` with an empty __dict__, on
    // which step(state, ...) keeps what it likes; final(state) gives the result, also of a group without
    // rows.
    int publish(sqlite3* handle);
};

// The SQL function `get(x)`: the text form of what `__get__(x)` gives, a function that the running script
// sees by that name. Without one the statement's error is "No __get__ function found". A result of the
// library.
int IPE_Sqlite_PublishGet(sqlite3* handle, IPE_Sqlite_Connection* connection);
