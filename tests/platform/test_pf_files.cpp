#include "platform/pf_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include <cerrno>
#include <map>
#include <set>

#include "platform/pf_anchor.h"
#include "platform/pf_dosattrib.h"
#include "platform/pf_listing.h"
#include "platform/pf_paths.h"
#include "platform/pf_streams.h"
#include "scratch.h"

using namespace platform;

namespace {

std::map<std::string, DirectoryEntry> list(const std::string& path, ListingWish wish = {}) {
    std::map<std::string, DirectoryEntry> out;
    EXPECT_EQ(listDirectory(path, wish,
                            [&](const DirectoryEntry& entry) {
                                EXPECT_TRUE(out.emplace(entry.name, entry).second);
                                return true;
                            }),
              0);
    return out;
}

bool hasUserAttributes(const std::string& path) {
    return ::setxattr(path.c_str(), "user.probe", "", 0, 0) == 0;
}

}  // namespace

TEST(Listing, EveryByteValueAndTheLongestNames) {
    Scratch scratch;
    std::set<std::string> names;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/' && byte != '.') names.insert(std::string(1, static_cast<char>(byte)));
    }
    names.insert(std::string(255, 'x'));
    names.insert(std::string(255, '\xFE'));
    for (const std::string& name : names) scratch.file(name, "12");
    auto found = list(scratch.path());
    ASSERT_EQ(found.size(), names.size());
    for (auto& [name, entry] : found) {
        std::string back;
        ASSERT_EQ(names.count(name), 1u);
        ASSERT_EQ(entry.details.size, 2u);
        ASSERT_EQ(pathToBytes(pathToUnits(scratch / name), back), 0);
        ASSERT_EQ(removeFile(back), 0);
    }
    EXPECT_TRUE(list(scratch.path()).empty());
    EXPECT_NE(removeFile(scratch / std::string(256, 'x')), 0);
}

TEST(Listing, KindsOfEntries) {
    Scratch scratch;
    std::string file = scratch.file("file", std::string(5000, 'a'));
    ASSERT_EQ(::link(file.c_str(), (scratch / "second").c_str()), 0);
    ASSERT_EQ(createDirectory(scratch / "folder"), 0);
    ASSERT_EQ(createLink(scratch / "toFolder", "folder"), 0);
    ASSERT_EQ(createLink(scratch / "toFile", "file"), 0);
    ASSERT_EQ(createLink(scratch / "dangling", "no\\where/\xFF"), 0);
    ASSERT_EQ(createLink(scratch / "loop", "loop"), 0);
    ASSERT_EQ(::mkfifo((scratch / ".fifo").c_str(), 0600), 0);
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    snprintf(address.sun_path, sizeof address.sun_path, "%s/socket", scratch.path().c_str());
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(fd);
    scratch.file("locked");
    ::chmod((scratch / "locked").c_str(), 0444);

    auto found = list(scratch.path(), {true, true});
    ASSERT_EQ(found.size(), 10u);
    auto& one = found["file"].details;
    EXPECT_EQ(one.links, 2u);
    EXPECT_EQ(one.inode, found["second"].details.inode);
    EXPECT_EQ(one.size, 5000u);
    EXPECT_EQ(one.space % 512, 0u);
    EXPECT_GE(one.space, 5000u);
    EXPECT_EQ(found["folder"].details.attributes, kAttributeDirectory);
    EXPECT_EQ(found["toFolder"].details.attributes, kAttributeDirectory | kAttributeReparse);
    EXPECT_EQ(found["toFolder"].target, "folder");
    EXPECT_EQ(found["toFile"].details.attributes, 0u);
    EXPECT_EQ(found["dangling"].target, "no\\where/\xFF");
    EXPECT_EQ(found["loop"].details.attributes, 0u);
    EXPECT_EQ(found[".fifo"].details.attributes, kAttributeHidden);
    EXPECT_EQ(found["locked"].details.attributes, kAttributeReadOnly);
    for (auto& [name, entry] : found) {
        EXPECT_EQ(entry.error, 0) << name;
        FileDetails alone;
        EXPECT_EQ(fileDetails(scratch / name, false, alone), 0);
        EXPECT_EQ(alone.attributes, entry.details.attributes) << name;
        EXPECT_EQ(alone.inode, entry.details.inode);
    }
    FileDetails followed;
    EXPECT_EQ(fileDetails(scratch / "toFile", true, followed), 0);
    EXPECT_EQ(followed.inode, one.inode);
    EXPECT_EQ(fileDetails(scratch / "dangling", true, followed), ENOENT);
    EXPECT_TRUE(pathExists(scratch / "dangling"));
    EXPECT_FALSE(isDirectory(scratch / "dangling"));
    EXPECT_TRUE(isDirectory(scratch / "toFolder"));
    EXPECT_NE(list("/")["proc"].details.attributes & kAttributeReparse, 0u) << "the root of a mount";
}

TEST(Listing, FoldersThatMayNotBeReadOrSearched) {
    Scratch scratch;
    ASSERT_EQ(createDirectory(scratch / "closed"), 0);
    ASSERT_EQ(createDirectory(scratch / "blind"), 0);
    scratch.file("blind/inner", "123");
    ::chmod((scratch / "closed").c_str(), 0700);
    ::chmod((scratch / "blind").c_str(), 0744);
    EXPECT_EQ(asNobody([&] {
                  if (listDirectory(scratch / "closed", {}, [](auto&) { return true; }) != EACCES) return 1;
                  int result = 2;
                  int error = listDirectory(scratch / "blind", {}, [&](const DirectoryEntry& entry) {
                      result =
                          entry.name == "inner" && entry.error == EACCES && entry.details.isRegular() ? 0 : 3;
                      return true;
                  });
                  return error ? 4 : result;
              }),
              0);
    DirectoryReader reader;
    EXPECT_EQ(reader.open(scratch / "missing"), ENOENT);
    EXPECT_EQ(reader.open(scratch.file("plain")), ENOTDIR);
    EXPECT_EQ(reader.open(std::string("/tmp\0x", 6)), EINVAL);
}

TEST(Files, PathsBeyondTheKernelsLimit) {
    Scratch scratch;
    std::string path = scratch.path();
    for (int level = 0; level < 45; ++level) {
        path += "/" + std::string(200, static_cast<char>('a' + level % 26));
        ASSERT_EQ(createDirectory(path), 0) << level;
    }
    ASSERT_GT(path.size(), 8192u);
    std::string link = path + "/link", moved = path + "/moved";
    ASSERT_EQ(createLink(link, "x"), 0);
    EXPECT_EQ(list(path).size(), 1u);
    FileDetails details;
    EXPECT_EQ(fileDetails(link, false, details), 0);
    EXPECT_TRUE(details.isLink());
    EXPECT_EQ(renameNoReplace(link, moved), 0);
    EXPECT_EQ(removeFile(moved), 0);
    EXPECT_EQ(setTimes(path, &details.created, nullptr), 0);
    EXPECT_EQ(removeFile(std::string(9000, 'x')), ENAMETOOLONG);
}

TEST(Files, RenameNeverReplaces) {
    Scratch scratch;
    for (auto rename : {renameNoReplace, renameByLink}) {
        std::string a = scratch.file("a", "A"), b = scratch.file("b", "B"), c = scratch / "c";
        EXPECT_EQ(rename(a, b), EEXIST);
        EXPECT_EQ(slurp(b), "B");
        EXPECT_EQ(rename(a, c), 0);
        EXPECT_FALSE(pathExists(a));
        EXPECT_EQ(slurp(c), "A");
        ASSERT_EQ(createDirectory(scratch / "d"), 0);
        ASSERT_EQ(createDirectory(scratch / "e"), 0);
        EXPECT_EQ(rename(scratch / "d", scratch / "e"), EEXIST) << "not even an empty folder";
        EXPECT_EQ(rename(scratch / "d", scratch / "d/inside"), EINVAL);
        EXPECT_EQ(rename(scratch / "d", scratch / "f"), 0);
        ASSERT_EQ(createLink(scratch / "g", "nowhere"), 0);
        EXPECT_EQ(rename(c, scratch / "g"), EEXIST) << "a dangling link is a name that is taken";
        EXPECT_EQ(rename(scratch / "g", scratch / "h"), 0);
        EXPECT_EQ(rename(scratch / "missing", scratch / "x"), ENOENT);
        for (const char* name : {"e", "f"}) EXPECT_EQ(removeDirectory(scratch / name), 0);
        for (const char* name : {"b", "c", "h"}) EXPECT_EQ(removeFile(scratch / name), 0);
        EXPECT_TRUE(list(scratch.path()).empty());
    }
}

TEST(Files, Attributes) {
    Scratch scratch;
    std::string file = scratch.file("file");
    FileDetails details;
    EXPECT_EQ(setAttributes(file, kAttributeReadOnly), 0);
    ASSERT_EQ(fileDetails(file, false, details), 0);
    EXPECT_EQ(details.mode & 0777, 0444u);
    EXPECT_EQ(details.attributes, kAttributeReadOnly);
    EXPECT_EQ(setAttributes(file, 0), 0);
    ASSERT_EQ(fileDetails(file, false, details), 0);
    EXPECT_EQ(details.mode & 0777, 0644u);
    if (!hasUserAttributes(file)) GTEST_SKIP() << "no extended attributes here";
    EXPECT_EQ(setAttributes(file, kAttributeSystem | kAttributeArchive), 0);
    ASSERT_EQ(fileDetails(file, false, details), 0);
    EXPECT_EQ(details.attributes, kAttributeSystem | kAttributeArchive);

    // A record as a file server writes it: version 4, attributes valid, archive and offline, two times.
    std::string record("\0\0\4\0\4\0\0\0\x51\0\0\0\x20\x10\0\0abcdefghijklmnop", 32);
    ASSERT_EQ(::setxattr(file.c_str(), kDosAttribName, record.data(), record.size(), 0), 0);
    ASSERT_EQ(fileDetails(file, false, details), 0);
    EXPECT_EQ(details.attributes, kAttributeArchive | kAttributeOffline);
    EXPECT_EQ(setAttributes(file, kAttributeArchive), 0);
    char value[64];
    ssize_t size = ::getxattr(file.c_str(), kDosAttribName, value, sizeof value);
    record[13] = 0;
    EXPECT_EQ(std::string(value, size), record) << "only the attribute word changes";
}

TEST(Files, DosAttribForms) {
    const std::string first("\0\0\1\0\1\0\0\0\x04\0\0\0", 12);
    const std::string third("0x20\0\0\3\0\3\0\0\0\x11\0\0\0\x07\0\0\0", 20);
    const std::pair<std::string, uint32_t> rows[] = {
        {"0x22", 0x22}, {std::string("0x6\0", 4), 6}, {third, 7}, {first, 4}};
    uint32_t bits = 0;
    for (auto& [text, want] : rows) {
        EXPECT_TRUE(parseDosAttrib(text, bits));
        EXPECT_EQ(bits, want);
    }
    std::string invalid = third;
    invalid[12] = 0x10;  // the attribute word is not valid
    for (const std::string& bad :
         {invalid, std::string("0x"), std::string("22"), std::string("0xZZ"), std::string("0x123456789")})
        EXPECT_FALSE(parseDosAttrib(bad, bits)) << bad;
    for (size_t cut = 0; cut < first.size(); ++cut) EXPECT_FALSE(parseDosAttrib(first.substr(0, cut), bits));
    EXPECT_EQ(patchDosAttrib("junk", 0x24), "0x24");
}

TEST(Files, TimesStreamsAndSpace) {
    Scratch scratch;
    std::string file = scratch.file("file");
    FileDetails before, after;
    ASSERT_EQ(fileDetails(file, false, before), 0);
    FileTime old{-86400, 5};
    EXPECT_EQ(setTimes(file, &old, nullptr), 0);
    ASSERT_EQ(fileDetails(file, false, after), 0);
    EXPECT_EQ(after.modified.seconds, -86400);
    EXPECT_EQ(after.accessed.seconds, before.accessed.seconds);
    EXPECT_EQ(after.created.seconds, before.created.seconds);
    std::vector<std::string> names{"stale"};
    EXPECT_EQ(listStreams(file, names), 0);
    EXPECT_TRUE(names.empty());
    if (hasUserAttributes(file)) {
        for (const char* name :
             {"user.DosStream.Zone.Identifier:$DATA", "user.DOSATTRIB", "user.mime_type"}) {
            ASSERT_EQ(::setxattr(file.c_str(), name, "v", 1, 0), 0);
        }
        EXPECT_EQ(listStreams(file, names), 0);
        EXPECT_EQ(names, (std::vector<std::string>{"Zone.Identifier", "mime_type", "probe"}));
    }
    SpaceInfo space;
    EXPECT_EQ(spaceInfo("/tmp", space), 0);
    EXPECT_GE(space.free, space.freeToCaller);
    struct statvfs raw;
    ASSERT_EQ(::statvfs("/tmp", &raw), 0);
    EXPECT_EQ(space.total, raw.f_blocks * raw.f_frsize);
}
