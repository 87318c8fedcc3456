// The log: records that native code and scripts add, handed to the script queue `logger` once a second.
//
//   IPE_Log("dev", 40, "Block buffer is full");
//
// A record is a dictionary with `name` (the channel), `levelno`, `pathname`, `lineno`, `excinfo`, `msg` and
// `args`. Any thread may log; nothing here waits for a disk or a peer. Records that no queue takes go to the
// debug stream.
#pragma once

#include <string_view>

#include "ipe/object/ipe_type.h"
#include "runtime/xpk_exception.h"

// Stores the place of the next record in the thread's state; true when logging is wanted, which it is from
// the start of the logger's component to its stop.
bool IPE_SetLogContext(std::string_view channel, int level, std::string_view path, int line);
// Adds a record at the place that was stored. `arguments` is a tuple, or null for none.
void IPE_LogMessage(std::string_view message, const IPE_Object& arguments = {});
// Both at once. Never raises: a record that memory is lacking for is dropped.
void IPE_Log(std::string_view channel, int level, std::string_view message,
             XPK_Place where = XPK_Place::current()) noexcept;
