#pragma once

// Owner, group and access of files as security descriptors in text.
//
// Owner and group are "O:S-1-22-1-<uid>" and "G:S-1-22-2-<gid>". The access list is the mode and, where there
// is one, the POSIX access list (acl(5)), in this order: the owner, named users, the owning group, named
// groups, the others as "WD"; a folder's default list follows with the flags OICIIO and "CO", "CG" for the
// owner and group to be. Permissions are those in effect (the POSIX mask is applied) and read FR, FW, FX or,
// for all three, FA. An entry of the mode without permissions is left out; a named one has the rights 0x0. So
// "D:(A;;FA;;;S-1-22-1-0)" is mode 0700. What getSecurity gives, setSecurity takes, and the next getSecurity
// gives the same text.

#include <string>

#include "platform/pf_sddl.h"

namespace platform {

enum SecurityPart : int {
    kSecurityOwner = 1,
    kSecurityGroup = 2,
    kSecurityDacl = 4,
    kSecuritySacl = 8,
};

// The text of one part. Follows symbolic links. EOPNOTSUPP for the SACL, which Linux has not, or the system's
// errno.
int getSecurity(const std::string& path, SecurityPart part, std::string& sddl);

// Applies one part of a parsed descriptor. EINVAL if the descriptor lacks the part. EOPNOTSUPP for what a
// mode and a POSIX list cannot express: denying and object entries, other inheritance than by both kinds of
// children, rights that are no union of read, write and execute, trustees that are no Linux user or group,
// the SACL. Set-id and sticky bits stay as the system leaves them.
int setSecurity(const std::string& path, SecurityPart part, const Sddl& sddl);

}  // namespace platform
