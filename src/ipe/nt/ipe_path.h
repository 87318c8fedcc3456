// Path values: the forms in which scripts give a path, and the bytes that the system gets.
//
// A path is a string (taken whole), an IPE_DirtyUTF16Type, or a list or tuple of those, joined with one
// backslash. Both '\' and '/' separate. Anything else raises TypeError.
#pragma once

#include <string>
#include <string_view>

#include "ipe/object/ipe_type.h"

// The path as UTF-16 units; of a list the first `limit` components, -1 for all.
std::u16string IPE_PathUnits(const IPE_Object& path, int limit = -1);
// The number of components, 1 for a single value.
int IPE_PathCount(const IPE_Object& path);
// The same as text, sanitised where it is no text.
std::string IPE_PathText(const IPE_Object& path, int limit = -1);
// The same as a system path. A path that the system cannot have raises the platform error under `api`.
std::string IPE_PathBytes(const IPE_Object& path, const char* api, int limit = -1);

// A name or path of the system as a value: a string if it is text without a backslash, else an
// IPE_DirtyUTF16Type. Either can be given back.
IPE_Object IPE_PathValue(std::string_view bytes);

// Raises the platform error under `api`, with the path's text as the field `path`. Nothing when `error` is 0.
void IPE_ThrowPathError(const char* api, int error, const IPE_Object& path, int limit = -1);
