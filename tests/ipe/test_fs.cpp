// Paths, listings and names of the built-in function fs, whose program `filesystem` tells the rest.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <set>

#include "../platform/scratch.h"
#include "ipe/nt/ipe_dirtyutf16type.h"
#include "ipe/nt/ipe_fs.h"
#include "ipe/nt/ipe_path.h"
#include "ipe/nt/ipe_versioninfo.h"
#include "platform/pf_files.h"
#include "values_testing.h"

namespace {

using Fs = ValuesTest;

IPE_Object fs(std::string_view name, std::initializer_list<IPE_Object> arguments = {}) {
    std::vector<IPE_Object> all{S(name)};
    all.insert(all.end(), arguments);
    return IPE_Fs(IPE_Arguments(all.data(), static_cast<int>(all.size())));
}

IPE_Object Dirty(std::u16string units) { return IPE_New<IPE_DirtyUTF16Type>(std::move(units)); }

IPE_Object item(const IPE_Object& dict, std::string_view key) { return IPE_Dict_Get(dict, key); }

std::set<std::string> keysOf(const IPE_Object& dict) {
    std::set<std::string> names;
    IPE_List keys(dict.as<IPE_DictType>()->keys());
    for (int i = 0; i < keys.count(); ++i) names.insert(str(keys[i]));
    return names;
}

using Names = std::set<std::string>;

// "RuntimeError: CreateDirectory (2) ..." up to the number.
std::string failure(std::string_view name, std::initializer_list<IPE_Object> arguments) {
    std::string text = raised([&] { fs(name, arguments); });
    return text.substr(0, text.find(')') + 1);
}

TEST_F(Fs, PathForms) {
    EXPECT_EQ(str(fs("path_to_string", {T({S("a"), Dirty(u"\u00e9\xDCFF")})})), "a\\\u00e9\U0010FFF04DCFF");
    EXPECT_EQ(IPE_PathBytes(L({S("a/b"), Dirty(u"x\xDC5Cy\xDCFF")}), "Open"), "a/b/x\\y\xFF");
    EXPECT_EQ(IPE_PathBytes(L({S("a"), S("b"), S("c")}), "Open", 2), "a/b");
    EXPECT_EQ(IPE_PathText(L({}), -1), "");
    // The bytes of a letter one by one do not open the letter.
    EXPECT_EQ(failure("erase", {Dirty(u"\xDCC3\xDCA9")}), "RuntimeError: DeleteFile (84)");
}

TEST_F(Fs, DirtyNames) {
    IPE_Object a = Dirty(u"x\xDC80"), b = Dirty(u"x\xDC80"), c = Dirty(u"x\xDC81");
    EXPECT_EQ(a->__cmp__(b), 0);
    EXPECT_EQ(a->__hash__(), b->__hash__());
    EXPECT_EQ(a->__cmp__(c), -1);
    EXPECT_EQ(c->__cmp__(a), 1);
    EXPECT_NE(Dirty(u"x")->__cmp__(S("x")), 0);
    EXPECT_TRUE(IPE_Object_Copy(a) == a);
    EXPECT_EQ(str(a), "x\U0010FFF04DC80");
    EXPECT_EQ(repr(L({a})), repr(L({S("x\U0010FFF04DC80")})));
    EXPECT_EQ(a->__len__(), 2);
    IPE_Object dict = D({{a, I(1)}});
    EXPECT_EQ(dict->__getitem__(b)->__int__(), 1);
}

TEST_F(Fs, EveryListedNameCanBeErasedAndRenamed) {
    Scratch scratch;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/' && byte != '.') scratch.file(std::string(1, static_cast<char>(byte)), "12");
    }
    IPE_List files(fs("ls_files", {L({S(scratch.path()), S("*")})}));
    ASSERT_EQ(files.count(), 253);
    for (int i = 0; i < files.count(); ++i) {
        IPE_Tuple row(files[i]);
        ASSERT_EQ(row.count(), 3);
        EXPECT_EQ(row[2]->__int__(), 2);
        IPE_Object from = L({S(scratch.path()), row[1]}), to = L({S(scratch.path()), S("moved")});
        fs("rename", {from, to});
        fs("rename", {to, from});
        ASSERT_EQ(fs("erase", {from})->__int__(), 1) << str(row[1]);
    }
    EXPECT_EQ(IPE_List(fs("ls_files", {L({S(scratch.path()), S("*")})})).count(), 0);
}

TEST_F(Fs, DetailsTellKindsApart) {
    Scratch scratch;
    scratch.file("File.TXT", std::string(5000, 'x'));
    ::link((scratch / "File.TXT").c_str(), (scratch / "twin").c_str());
    ::mkdir((scratch / "folder").c_str(), 0750);
    ASSERT_EQ(::symlink("folder", (scratch / "junction").c_str()), 0);
    ASSERT_EQ(::symlink("File.TXT", (scratch / "shortcut").c_str()), 0);
    ASSERT_EQ(::symlink("no\\where", (scratch / "dangling").c_str()), 0);
    IPE_Object all = S(scratch / "*");
    IPE_Object plain = fs("ls_details", {all});
    EXPECT_EQ(keysOf(item(plain, "file")), (Names{"File.TXT", "twin", "shortcut", "dangling"}));
    EXPECT_EQ(keysOf(item(plain, "path")), Names{"folder"});
    EXPECT_EQ(keysOf(item(plain, "hard")), Names{"junction"});
    EXPECT_TRUE(keysOf(item(plain, "soft")).empty());
    IPE_Object resolved = fs("ls_details", {all, D({{S("resolve_links"), IPE_True()}})});
    EXPECT_EQ(keysOf(item(resolved, "file")), (Names{"File.TXT", "twin"}));
    EXPECT_EQ(str(item(item(item(resolved, "soft"), "shortcut"), "target")), "File.TXT");
    IPE_Object target = item(item(item(resolved, "soft"), "dangling"), "target");
    EXPECT_EQ(IPE_PathBytes(target, "Open"), "no\\where");

    IPE_Object record = item(item(plain, "file"), "File.TXT");
    struct stat raw;
    ASSERT_EQ(::stat((scratch / "File.TXT").c_str(), &raw), 0);
    std::map<std::string, int64_t> numbers{
        {"size", 5000},        {"space", raw.st_blocks * 512}, {"links", 2},          {"device", raw.st_dev},
        {"inode", raw.st_ino}, {"owner", raw.st_uid},          {"mode", raw.st_mode}, {"is_offline", 0}};
    for (auto& [key, value] : numbers) EXPECT_EQ(IPE_Dict_GetInt64(record, key), value) << key;
    EXPECT_EQ(str(item(record, "target")), "");
    std::tm local;
    ::localtime_r(&raw.st_mtime, &local);
    EXPECT_EQ(repr(item(record, "modified")),
              repr(T({I(local.tm_year + 1900), I(local.tm_mon + 1), I(local.tm_mday), I(local.tm_hour),
                      I(local.tm_min), I(local.tm_sec)})));
    // The pattern: case does not count, a separator of either kind, no match, and a name that is all of it.
    EXPECT_EQ(keysOf(item(fs("ls_details", {S(scratch / "f*.txt")}), "file")), Names{"File.TXT"});
    EXPECT_EQ(keysOf(item(fs("ls_details", {S(scratch.path() + "\\TW?N")}), "file")), Names{"twin"});
    EXPECT_TRUE(keysOf(item(fs("ls_details", {S(scratch / "none")}), "file")).empty());
    EXPECT_EQ(failure("ls_details", {S(scratch / "missing/*")}), "RuntimeError: FindFirstFile (2)");
    EXPECT_EQ(repr(fs("ls_paths", {S(scratch / "fold*")})), "['folder']");
    EXPECT_EQ(IPE_List(fs("ls_paths", {all})).count(), 2) << "a link to a folder is one";
    EXPECT_EQ(IPE_List(fs("ls_files", {all})).count(), 4);
    EXPECT_EQ(IPE_Dict_GetInt64(item(item(fs("ls_details", {S("/*")}), "hard"), "proc"), "links") > 0, true);
}

TEST_F(Fs, WhatNoScriptCanMake) {
    Scratch scratch;
    ::setenv("QUILL_TEST_VARIABLE", "a\xFF", 1);
    EXPECT_EQ(str(fs("get_env", {S("QUILL_TEST_VARIABLE")})), "a\U0010FFF02FF");
    std::string here;
    ASSERT_EQ(platform::currentDirectory(here), 0);
    EXPECT_EQ(IPE_PathBytes(fs("pwd"), "Open"), here);
    std::string file = scratch.file("file");
    if (::geteuid() == 0) {
        EXPECT_EQ(failure("get_security", {S(file), L({S("sacl")})}), "RuntimeError: GetFileSecurity (95)");
    }
    platform::FileDetails details;
    platform::FileTime late{int64_t{30828 - 1970} * 31556952, 0};
    if (platform::setTimes(file, &late, nullptr) == 0 && platform::fileDetails(file, false, details) == 0 &&
        details.modified.seconds == late.seconds) {
        IPE_List rows(fs("ls_files", {S(file)}));
        EXPECT_EQ(IPE_Tuple(IPE_Tuple(rows[0])[0])[0]->__int__(), 9999);
    }
}

TEST_F(Fs, VersionInfo) {
    Scratch scratch;
    IPE_VersionInfo none(S(scratch.file("text", "plain")));
    EXPECT_EQ(none.info().as<IPE_DictType>()->count(), 0);
    IPE_VersionInfo missing(S(scratch / "missing"));
    EXPECT_EQ(raised([&] { missing.info(); }).substr(0, 36), "RuntimeError: GetFileVersionInfo (2)");
}

}  // namespace
