#include "platform/pf_copy.h"

#include <acl/libacl.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/acl.h>
#include <sys/resource.h>
#include <sys/xattr.h>

#include <cerrno>
#include <csignal>

#include "platform/pf_files.h"
#include "platform/pf_listing.h"
#include "scratch.h"

using namespace platform;

namespace {

size_t count(const std::string& path) {
    size_t entries = 0;
    EXPECT_EQ(listDirectory(path, {}, [&](auto&) { return ++entries, true; }), 0);
    return entries;
}

FileDetails details(const std::string& path) {
    FileDetails out;
    EXPECT_EQ(fileDetails(path, false, out), 0) << path;
    return out;
}

}  // namespace

TEST(Copy, KeepsContentModeTimesAttributesAndReplaces) {
    Scratch scratch;
    std::string content(3000000, 'q'), from = scratch.file("from", content), to = scratch.file("to", "old");
    ::chmod(from.c_str(), 0640);
    ::setxattr(from.c_str(), "user.note", "kept", 4, 0);
    FileTime old{1000000000, 123456789};
    setTimes(from, &old, &old);
    acl_t acl = ::acl_from_text("u::rw,u:1234:r,g::-,m::r,o::-");
    bool lists = ::acl_set_file(from.c_str(), ACL_TYPE_ACCESS, acl) == 0;
    uint64_t last = 0;
    ASSERT_EQ(copyFile(from, to, [&](uint64_t done) { return last = done, true; }), 0);
    EXPECT_EQ(last, content.size());
    EXPECT_EQ(slurp(to), content);
    EXPECT_EQ(details(to).mode, details(from).mode);
    setTimes(from, &old, &old);
    EXPECT_EQ(details(to).modified.seconds, old.seconds);
    EXPECT_EQ(details(to).modified.nanoseconds, old.nanoseconds);
    if (lists) {
        acl_t copied = ::acl_get_file(to.c_str(), ACL_TYPE_ACCESS);
        EXPECT_EQ(::acl_cmp(acl, copied), 0);
        ::acl_free(copied);
    }
    ::acl_free(acl);
    char value[8] = {};
    if (::getxattr(from.c_str(), "user.note", value, 8) == 4) {
        EXPECT_EQ(::getxattr(to.c_str(), "user.note", value, 8), 4);
    }
    ASSERT_EQ(createLink(scratch / "link", "to"), 0);
    std::string other = scratch.file("other", "new");
    EXPECT_EQ(copyFile(other, scratch / "link"), 0);
    EXPECT_TRUE(details(scratch / "link").isLink());
    EXPECT_EQ(slurp(to), "new") << "a symbolic link names the file to replace";
    EXPECT_EQ(count(scratch.path()), 4u) << "no drafts left";
}

TEST(Copy, HolesAndKernelFiles) {
    Scratch scratch;
    std::string from = scratch.file("sparse", "head");
    ASSERT_EQ(::truncate(from.c_str(), 64 << 20), 0);
    int fd = ::open(from.c_str(), O_WRONLY);
    ASSERT_EQ(::pwrite(fd, "mid", 3, 32 << 20), 3);
    ::close(fd);
    ASSERT_EQ(copyFile(from, scratch / "copy"), 0);
    EXPECT_EQ(details(scratch / "copy").size, 64u << 20);
    EXPECT_LE(details(scratch / "copy").space, details(from).space + (1u << 20));
    EXPECT_EQ(std::system(("cmp -s " + from + " " + (scratch / "copy")).c_str()), 0);
    ASSERT_EQ(copyFile("/proc/self/mountinfo", scratch / "table"), 0) << "claims to be empty";
    EXPECT_GT(details(scratch / "table").size, 0u);
    ASSERT_EQ(copyFile(scratch.file("empty"), scratch / "empty2"), 0);
    EXPECT_EQ(details(scratch / "empty2").size, 0u);
}

TEST(Copy, Refusals) {
    Scratch scratch;
    std::string file = scratch.file("file", "x");
    ASSERT_EQ(createDirectory(scratch / "folder"), 0);
    ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::link(file.c_str(), (scratch / "twin").c_str()), 0);
    const std::tuple<const char*, const char*, int> rows[] = {
        {"file", "file", EINVAL},   {"file", "twin", EINVAL},    {"file", "folder", EISDIR},
        {"folder", "new", EISDIR},  {"fifo", "new", EOPNOTSUPP}, {"file", "fifo", EOPNOTSUPP},
        {"missing", "new", ENOENT}, {"file", "no/new", ENOENT}};
    for (auto [from, to, error] : rows)
        EXPECT_EQ(copyFile(scratch / from, scratch / to), error) << from << " " << to;
    EXPECT_EQ(copyFile(file, "/dev/null"), EOPNOTSUPP);
    std::string kept = scratch.file("kept", "old");
    EXPECT_EQ(copyFile(file, kept, [](uint64_t) { return false; }), ECANCELED);
    EXPECT_EQ(slurp(kept), "old");
    EXPECT_EQ(count(scratch.path()), 5u);
}

TEST(Copy, FullTargetLeavesTheOldFile) {
    Scratch scratch;
    ::chmod(scratch.path().c_str(), 0777);
    std::string from = scratch.file("from", std::string(2 << 20, 'a')), to = scratch.file("to", "old");
    EXPECT_EQ(asNobody([&] {
                  rlimit limit{1 << 20, 1 << 20};
                  ::signal(SIGXFSZ, SIG_IGN);
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  return copyFile(from, to);
              }),
              EFBIG);
    EXPECT_EQ(slurp(to), "old");
    EXPECT_EQ(count(scratch.path()), 2u);
}

TEST(Copy, SetIdBitsDoNotPassToAnotherOwner) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    Scratch scratch;
    std::string from = scratch.file("from", "#!");
    ASSERT_EQ(::chown(from.c_str(), 12345, 12345), 0);
    ASSERT_EQ(::chmod(from.c_str(), 06755), 0);
    ASSERT_EQ(copyFile(from, scratch / "to"), 0);
    EXPECT_EQ(details(scratch / "to").mode & 07777, 0755u);
}

TEST(Move, AcrossFileSystems) {
    Scratch here, there("/dev/shm");
    if (details(here.path()).device == details(there.path()).device) GTEST_SKIP() << "one file system";
    std::string from = here.file("from", "content");
    bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(from.c_str(), 12345, 23456), 0);
    }
    ::chmod(from.c_str(), 04711);
    FileTime old{1000000000, 5};
    setTimes(from, &old, &old);
    EXPECT_EQ(renameNoReplace(from, there / "to"), EXDEV);
    std::string taken = there.file("taken", "old");
    EXPECT_EQ(moveFile(from, taken), EEXIST);
    EXPECT_EQ(slurp(taken), "old");
    ASSERT_EQ(moveFile(from, there / "to"), 0);
    EXPECT_FALSE(pathExists(from));
    FileDetails moved = details(there / "to");
    EXPECT_EQ(moved.uid, root ? 12345u : ::geteuid());
    EXPECT_EQ(moved.mode & 07777, 04711u);
    EXPECT_EQ(moved.modified.seconds, old.seconds);
    ASSERT_EQ(createLink(here / "link", "no\xFFwhere"), 0);
    ASSERT_EQ(moveFile(here / "link", there / "link"), 0);
    std::string target;
    EXPECT_EQ(readLink(there / "link", target), 0);
    EXPECT_EQ(target, "no\xFFwhere");
    ASSERT_EQ(createDirectory(here / "folder"), 0);
    EXPECT_EQ(moveFile(here / "folder", there / "folder"), EXDEV);
    std::string busy = here.file("busy", std::string(100000, 'b'));
    EXPECT_EQ(moveFile(busy, there / "busy",
                       [&](uint64_t done) {
                           if (done) std::ofstream(busy, std::ios::app) << "more";
                           return true;
                       }),
              EBUSY);
    EXPECT_TRUE(pathExists(busy));
    EXPECT_EQ(count(there.path()), 3u);
    EXPECT_EQ(count(here.path()), 2u);
}
