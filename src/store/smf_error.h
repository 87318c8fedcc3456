// Failures of the store: DatabaseError with the parameters `type` and `filename`.
#pragma once

#include <initializer_list>
#include <string_view>
#include <utility>

#include "runtime/xpk_exception.h"

// The values of `type`. A failure may also have none: null.
inline constexpr const char* SMF_Runtime = "Runtime";
inline constexpr const char* SMF_Corruption = "Corruption";
inline constexpr const char* SMF_Development = "Development";

using SMF_ErrorFields = std::initializer_list<std::pair<const char*, std::string_view>>;

// Raises DatabaseError. `fields` are those that the message names with `$`, beside type and filename.
[[noreturn]] void SMF_Fail(const char* type, std::string_view message, std::string_view fileName,
                           SMF_ErrorFields fields = {}, XPK_Place where = XPK_Place::current());
// Corruption "The database has a corrupt header".
[[noreturn]] void SMF_CorruptHeader(std::string_view fileName, XPK_Place where = XPK_Place::current());
// Corruption "Record reader has detected illegal data".
[[noreturn]] void SMF_IllegalData(std::string_view fileName, XPK_Place where = XPK_Place::current());
