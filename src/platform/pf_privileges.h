#pragma once

// Privileges by their Windows names, as capabilities (capabilities(7)) of the calling thread.

#include <string_view>

namespace platform {

// Raises or lowers a privilege: all its capabilities enter or leave the thread's effective set. Names are
// compared without regard to case. 0; EINVAL for a name that is no privilege; EOPNOTSUPP for one that has no
// counterpart on Linux; EPERM if the thread is not permitted one of the capabilities (then none is changed).
int setPrivilege(std::string_view name, bool enabled);

// 0 and whether all capabilities of the privilege are effective; else as above.
int privilegeEnabled(std::string_view name, bool& enabled);

}  // namespace platform
