#include "platform/pf_security.h"

#include <gtest/gtest.h>
#include <sys/acl.h>

#include <cerrno>

#include "platform/pf_files.h"
#include "platform/pf_privileges.h"
#include "platform/pf_sid.h"
#include "scratch.h"

using namespace platform;

namespace {

std::string dacl(const std::string& path) {
    std::string text;
    EXPECT_EQ(getSecurity(path, kSecurityDacl, text), 0);
    return text;
}

int apply(const std::string& path, SecurityPart part, const std::string& text) {
    Sddl sddl;
    if (int error = parseSddl(text, sddl)) return error;
    return setSecurity(path, part, sddl);
}

unsigned mode(const std::string& path) {
    FileDetails details;
    EXPECT_EQ(fileDetails(path, true, details), 0);
    return details.mode & 07777;
}

bool setList(const std::string& path, acl_type_t type, const char* text) {
    acl_t acl = ::acl_from_text(text);
    bool done = acl && ::acl_set_file(path.c_str(), type, acl) == 0;
    ::acl_free(acl);
    return done;
}

}  // namespace

TEST(Sid, TextsAndAliases) {
    uint32_t id = 0;
    EXPECT_TRUE(userOfSid(sidOfUser(4294967294u), id));
    EXPECT_EQ(id, 4294967294u);
    for (const char* bad :
         {"S-1-22-1-", "S-1-22-1-4294967295", "S-1-22-1-99999999999", "S-1-22-1-1x", "S-1-22-1-+1"}) {
        EXPECT_FALSE(userOfSid(bad, id)) << bad;
    }
    EXPECT_EQ(sidLength("S-1-5-32-544G:"), 12u);
    EXPECT_EQ(sidLength("S-1-0x5000000000-1"), 18u);
    for (const char* bad : {"", "S-1-5", "S-2-5-1", "S-1-5-", "S-1-5--1", "S-1-5-4294967296",
                            "S-1-281474976710656-1", "S-1-1-1-1-1-1-1-1-1-1-1-1-1-1-1-1-1-1"})
        EXPECT_EQ(sidLength(bad), 0u) << bad;
    std::string sid;
    EXPECT_TRUE(sidOfAlias("wd", sid));
    EXPECT_EQ(sid, "S-1-1-0");
    EXPECT_STREQ(aliasOfSid("S-1-5-32-544"), "BA");
    EXPECT_FALSE(sidOfTrustee("S-1-1-0x", sid));
}

TEST(Sddl, Parsing) {
    Sddl sddl;
    ASSERT_EQ(
        parseSddl("O:BAG:S-1-22-2-5D:PAI(A;OICI;0x1F01FF;;;WD)(D;;FRFW;;;S-1-22-1-0)S:(AU;SA;FA;;;WD)", sddl),
        0);
    EXPECT_EQ(*sddl.owner, "S-1-5-32-544");
    EXPECT_EQ(*sddl.group, "S-1-22-2-5");
    EXPECT_EQ(sddl.dacl->flags, "PAI");
    ASSERT_EQ(sddl.dacl->entries.size(), 2u);
    EXPECT_EQ(sddl.dacl->entries[0].rights, "0x1F01FF");
    EXPECT_EQ(sddl.dacl->entries[1].trustee, "S-1-22-1-0");
    EXPECT_EQ(sddl.sacl->entries[0].type, "AU");
    for (const char* bad :
         {"", "X", "X:", "D", "O:", "O:ZZ", "O:BAO:BA", "D:D:", "D:(", "D:()", "D:(A;;FA;;;)",
          "D:(A;;FA;;WD)", "D:(A;;FA;;;WD;)", "D:(A;O;FA;;;WD)", "D:(A;;FA;;;WD)x", "D:p(A;;FA;;;WD)",
          "D:(XA;;FX;;;WD;(@User.a == 1))", "O:S-1-5", "D:((A;;FA;;;WD)"})
        EXPECT_EQ(parseSddl(bad, sddl), EINVAL) << bad;
    std::string huge = "D:";
    while (huge.size() < 70000) huge += "(A;;FA;;;WD)";
    EXPECT_EQ(parseSddl(huge, sddl), EINVAL);
    for (auto [text, rights] : {std::pair{"FRFX", 0x1200A9u}, {"0x10", 16u}, {"010", 8u}}) {
        uint32_t mask = 0;
        EXPECT_TRUE(sddlRights(text, mask));
        EXPECT_EQ(mask, rights);
    }
    uint32_t mask = 0;
    for (const char* bad : {"F", "FRX", "QQ", "0x", "0x100000000", "12z"})
        EXPECT_FALSE(sddlRights(bad, mask)) << bad;
}

TEST(Security, EveryModeRoundTrips) {
    Scratch scratch;
    std::string file = scratch.file("file"), owner = sidOfUser(::geteuid());
    for (unsigned bits = 0; bits < 01000; ++bits) {
        ASSERT_EQ(::chmod(file.c_str(), bits), 0);
        std::string text = dacl(file);
        ::chmod(file.c_str(), ~bits & 0777);
        ASSERT_EQ(apply(file, kSecurityDacl, text), 0) << text;
        ASSERT_EQ(mode(file), bits) << text;
        ASSERT_EQ(dacl(file), text);
    }
    ::chmod(file.c_str(), 01604);
    EXPECT_EQ(dacl(file), "D:(A;;FRFW;;;" + owner + ")(A;;FR;;;WD)");
    EXPECT_EQ(apply(file, kSecurityDacl, "D:P(A;;0x1f01ff;;;" + owner + ")(A;;GRGX;;;WD)"), 0);
    EXPECT_EQ(mode(file), 01705u) << "the sticky bit stays";
}

TEST(Security, ListsRoundTrip) {
    Scratch scratch;
    std::string file = scratch.file("file"), folder = scratch / "folder";
    ASSERT_EQ(createDirectory(folder), 0);
    uint32_t me = ::geteuid(), mine = ::getegid();
    struct stat raw;
    ASSERT_EQ(::stat(file.c_str(), &raw), 0);
    mine = raw.st_gid;
    std::string meText = std::to_string(me), mineText = std::to_string(mine);
    std::string lists[] = {
        "u::rwx,u:1000:rw,u:1001:-,g::r,g:100:rwx,m::rwx,o::-",
        "u::rw,u:1000:rwx,g::rwx,m::r,o::r",  // a mask that takes rights away
        "u::-,u:" + meText + ":rw,g::-,g:" + mineText +
            ":r,m::rw,o::-",  // the owner and its group named again
        "u::rwx,u:1000:-,g::-,m::rwx,o::rwx",
    };
    if (!setList(file, ACL_TYPE_ACCESS, lists[0].c_str())) GTEST_SKIP() << "no access lists here";
    for (auto& list : lists) {
        for (auto& path : {file, folder}) {
            ASSERT_TRUE(setList(path, ACL_TYPE_ACCESS, list.c_str())) << list;
            ASSERT_TRUE(path == file || setList(path, ACL_TYPE_DEFAULT, list.c_str()));
            std::string text = dacl(path);
            ASSERT_EQ(apply(path, kSecurityDacl, "D:"), 0);
            ASSERT_EQ(dacl(path), "D:") << "nothing may survive";
            ASSERT_EQ(apply(path, kSecurityDacl, text), 0) << text;
            EXPECT_EQ(dacl(path), text) << list;
        }
    }
    ASSERT_TRUE(setList(file, ACL_TYPE_ACCESS, lists[1].c_str()));
    EXPECT_EQ(dacl(file), "D:(A;;FRFW;;;" + sidOfUser(me) + ")(A;;FR;;;S-1-22-1-1000)(A;;FR;;;" +
                              sidOfGroup(mine) + ")(A;;FR;;;WD)");
    ASSERT_EQ(apply(folder, kSecurityDacl, "D:"), 0);
    ASSERT_TRUE(setList(folder, ACL_TYPE_DEFAULT, "u::-,g::-,o::-"));
    EXPECT_EQ(dacl(folder), "D:(A;OICIIO;0x0;;;CO)");
    EXPECT_EQ(apply(folder, kSecurityDacl, "D:(A;OICI;FA;;;S-1-22-1-1000)"), 0);
    EXPECT_EQ(dacl(folder), "D:(A;;FA;;;S-1-22-1-1000)(A;OICIIO;FA;;;S-1-22-1-1000)");
}

TEST(Security, WhatCannotBeExpressed) {
    Scratch scratch;
    std::string file = scratch.file("file");
    ::chmod(file.c_str(), 0640);
    for (const char* bad :
         {"D:(D;;FA;;;WD)", "D:(A;;FA;;;BA)", "D:(A;;SD;;;WD)", "D:(A;;0x1;;;WD)", "D:(A;ID;FA;;;WD)",
          "D:(A;OICI;FA;;;WD)", "D:(A;;FA;;;WD)(A;;FR;;;WD)", "D:NO_ACCESS_CONTROL",
          "D:(OA;;FA;00000000-0000-0000-0000-000000000000;;WD)", "D:(A;;ZZ;;;WD)", "D:(A;;FA;;;CO)"}) {
        EXPECT_EQ(apply(file, kSecurityDacl, bad), EOPNOTSUPP) << bad;
    }
    EXPECT_EQ(mode(file), 0640u);
    EXPECT_EQ(apply(scratch.path(), kSecurityDacl, "D:(A;OI;FA;;;WD)"), EOPNOTSUPP);
    EXPECT_EQ(apply(file, kSecurityDacl, "O:S-1-22-1-0"), EINVAL);
    EXPECT_EQ(apply(file, kSecurityOwner, "O:BA"), EOPNOTSUPP);
    EXPECT_EQ(apply(file, kSecurityOwner, "O:S-1-22-2-0"), EOPNOTSUPP);
    EXPECT_EQ(apply(file, kSecuritySacl, "S:(AU;SA;FA;;;WD)"), EOPNOTSUPP);
    std::string text;
    EXPECT_EQ(getSecurity(file, kSecuritySacl, text), EOPNOTSUPP);
    EXPECT_EQ(getSecurity(scratch / "missing", kSecurityOwner, text), ENOENT);
    if (::geteuid() == 0) {
        EXPECT_EQ(apply(file, kSecurityOwner, "O:S-1-22-1-12345"), 0);
        EXPECT_EQ(apply(file, kSecurityGroup, "G:S-1-22-2-54321"), 0);
        EXPECT_EQ(asNobody([&] { return apply(file, kSecurityOwner, "O:S-1-22-1-65534"); }), EPERM);
    }
    EXPECT_EQ(getSecurity(file, kSecurityOwner, text), 0);
    uint32_t uid = 0;
    EXPECT_TRUE(userOfSid(text.substr(2), uid));
    EXPECT_EQ(uid, ::geteuid() == 0 ? 12345u : ::geteuid());
}

TEST(Privileges, NamesAndTheThreadsSet) {
    bool enabled = false;
    EXPECT_EQ(setPrivilege("SeNoSuchPrivilege", true), EINVAL);
    EXPECT_EQ(setPrivilege("", true), EINVAL);
    EXPECT_EQ(setPrivilege("SeUndockPrivilege", true), EOPNOTSUPP);
    EXPECT_EQ(asNobody([] { return setPrivilege("SeBackupPrivilege", true); }), EPERM);
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    Scratch scratch;
    std::string file = scratch.file("file");
    ASSERT_EQ(::chown(file.c_str(), 12345, 12345), 0);
    EXPECT_EQ(setPrivilege("seTAKEownershipPrivilege", false), 0);
    EXPECT_EQ(privilegeEnabled("SeTakeOwnershipPrivilege", enabled), 0);
    EXPECT_FALSE(enabled);
    EXPECT_EQ(::chown(file.c_str(), 1, 1), -1);
    EXPECT_EQ(setPrivilege("SeTakeOwnershipPrivilege", true), 0);
    EXPECT_EQ(::chown(file.c_str(), 1, 1), 0);
}
