// The built-in function fs and the values around it, against a real tree.
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
#include "ipe/object/ipe_moduletype.h"
#include "platform/pf_files.h"
#include "values_testing.h"

namespace {

using Fs = ValuesTest;

IPE_Object fs(std::string_view name, std::initializer_list<IPE_Object> arguments = {},
              IPE_Object keywords = {}) {
    std::vector<IPE_Object> all{S(name)};
    all.insert(all.end(), arguments);
    return IPE_Fs(IPE_Arguments(all.data(), static_cast<int>(all.size()), keywords));
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

// A native callable that notes what it is called with.
std::vector<std::string> noted;
IPE_Object note(const IPE_Arguments& arguments) {
    noted.push_back(str(arguments[0]));
    return {};
}

TEST_F(Fs, PathForms) {
    EXPECT_EQ(str(fs("path_to_string", {L({S("C:"), S("dir"), S("file")})})), "C:\\dir\\file");
    EXPECT_EQ(str(fs("path_to_string", {T({S("a"), Dirty(u"\u00e9\xDCFF")})})), "a\\\u00e9\U0010FFF04DCFF");
    EXPECT_EQ(IPE_PathBytes(L({S("a/b"), Dirty(u"x\xDC5Cy\xDCFF")}), "Open"), "a/b/x\\y\xFF");
    EXPECT_EQ(IPE_PathBytes(L({S("a"), S("b"), S("c")}), "Open", 2), "a/b");
    EXPECT_EQ(IPE_PathText(L({}), -1), "");
    EXPECT_EQ(raised([] { fs("path_to_string", {I(5)}); }),
              "TypeError: Require a 'StringType' but given a 'IntType'");
    EXPECT_EQ(raised([] { fs("no_such"); }), "RuntimeError: Unknown fs command: no_such");
    EXPECT_EQ(raised([] { fs("rename", {S("a")}); }), "TypeError: fs requires 3 arguments, 2 given");
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

TEST_F(Fs, MakeAndRemoveLevels) {
    Scratch scratch;
    noted.clear();
    IPE_Object on = D({{S("on_create"), IPE_New<IPE_BridgeType>(note)}});
    IPE_Object path = L({S(scratch.path()), S("a"), S("b"), S("c")});
    EXPECT_TRUE(fs("mkdir", {path}, on).isNull());
    EXPECT_EQ(noted, (std::vector<std::string>{scratch.path() + "\\a", scratch.path() + "\\a\\b",
                                               scratch.path() + "\\a\\b\\c"}));
    noted.clear();
    fs("mkdir", {path}, on);
    EXPECT_TRUE(noted.empty()) << "nothing new";
    fs("mkdir", {S(scratch / "a/d")}, on);
    EXPECT_EQ(noted, std::vector<std::string>{scratch / "a/d"});
    fs("mkdir", {L({S(""), S(scratch.path().substr(1)), S("e"), S("f")})});
    EXPECT_TRUE(platform::isDirectory(scratch / "e/f"));
    EXPECT_EQ(failure("mkdir", {S(scratch / "x/y")}), "RuntimeError: CreateDirectory (2)")
        << "one level only";
    scratch.file("file");
    try {
        fs("mkdir", {L({S(scratch.path()), S("file"), S("y")})});
        FAIL();
    } catch (const XPK_Exception& e) {
        ASSERT_TRUE(e.record().findString("path"));
        EXPECT_EQ(*e.record().findString("path"), scratch.path() + "\\file\\y");
    }
    ::chmod((scratch / "a/b/c").c_str(), 0555);
    for (const char* name : {"a/b/c", "missing", "file/below"})
        EXPECT_TRUE(fs("rmdir", {S(scratch / name)}).isNull());
    EXPECT_FALSE(platform::pathExists(scratch / "a/b/c"));
    EXPECT_EQ(failure("rmdir", {S(scratch / "a")}), "RuntimeError: RemoveDirectory (39)");
    ASSERT_EQ(::symlink("a", (scratch / "junction").c_str()), 0);
    fs("rmdir", {S(scratch / "junction")});
    EXPECT_FALSE(platform::pathExists(scratch / "junction"));
    EXPECT_TRUE(platform::isDirectory(scratch / "a/b"));
}

TEST_F(Fs, FilesAndLinks) {
    Scratch scratch;
    IPE_Object a = S(scratch.file("a", "one")), b = S(scratch.file("b", "two")), c = S(scratch / "c");
    EXPECT_EQ(failure("rename", {a, b}), "RuntimeError: MoveFile (17)");
    EXPECT_TRUE(fs("copy", {a, b}).isNull());
    EXPECT_EQ(slurp(scratch / "b"), "one");
    EXPECT_EQ(failure("copy", {S(scratch / "missing"), b}), "RuntimeError: CopyFile (2)");
    fs("rename", {a, c});
    EXPECT_EQ(fs("erase", {a})->__int__(), 0);
    EXPECT_EQ(failure("erase", {a, I(1)}), "RuntimeError: DeleteFile (2)");
    EXPECT_EQ(failure("erase", {S(scratch.path())}), "RuntimeError: DeleteFile (21)");
    EXPECT_EQ(fs("erase", {c, I(1)})->__int__(), 1);
    fs("ln_soft", {S(scratch / "link"), S("b")});
    EXPECT_EQ(slurp(scratch / "link"), "one");
    EXPECT_EQ(failure("ln_soft", {S(scratch / "link"), S("b")}), "RuntimeError: ipPersistFile->Save (17)");
    EXPECT_EQ(failure("ls_streams", {S(scratch / "missing")}), "RuntimeError: CreateFile (2)");
    EXPECT_EQ(repr(fs("ls_streams", {b})), "[]");
}

TEST_F(Fs, Times) {
    Scratch scratch;
    std::string file = scratch.file("file");
    platform::FileDetails before, after;
    ASSERT_EQ(platform::fileDetails(file, false, before), 0);
    IPE_Object date = T({I(2001), I(2), I(28), I(23), I(59), I(58)});
    fs("set_times", {S(file), D({{S("modified"), date}})});
    IPE_List rows(fs("ls_files", {S(scratch / "*")}));
    EXPECT_EQ(repr(IPE_Tuple(rows[0])[0]), repr(date));
    ASSERT_EQ(platform::fileDetails(file, false, after), 0);
    EXPECT_EQ(after.created.seconds, before.created.seconds);
    EXPECT_EQ(after.accessed.seconds, before.accessed.seconds);
    EXPECT_EQ(failure("set_times", {S(file), D({{S("created"), date}, {S("accessed"), date}})}),
              "RuntimeError: SetFileTime (95)");
    ASSERT_EQ(platform::fileDetails(file, false, before), 0);
    EXPECT_EQ(before.accessed.seconds, after.modified.seconds) << "the others are set all the same";
    for (const IPE_Object& bad :
         {T({I(2001), I(2), I(29), I(0), I(0), I(0)}), T({I(2001), I(13), I(1), I(0), I(0), I(0)}),
          T({I(1600), I(1), I(1), I(0), I(0), I(0)}), T({I(2001)}), S("x"),
          T({I(2001), I(1), I(1), I(0), I(0), S("0")})}) {
        EXPECT_EQ(failure("set_times", {S(file), D({{S("modified"), bad}})}),
                  "RuntimeError: SystemTimeToFileTime (22)");
    }
    EXPECT_EQ(failure("set_times", {S(scratch / "missing"), D({})}), "RuntimeError: CreateFile (2)");
    fs("set_times", {S(file), D({{S("modified"), T({I(2000), I(2), I(29), I(0), I(0), I(0)})}})});
    platform::FileTime late{int64_t{30828 - 1970} * 31556952, 0};
    if (platform::setTimes(file, &late, nullptr) == 0 && platform::fileDetails(file, false, after) == 0 &&
        after.modified.seconds == late.seconds) {
        IPE_List again(fs("ls_files", {S(scratch / "*")}));
        EXPECT_EQ(IPE_Tuple(IPE_Tuple(again[0])[0])[0]->__int__(), 9999);
    }
}

TEST_F(Fs, Security) {
    Scratch scratch;
    std::string file = scratch.file("file");
    ::chmod(file.c_str(), 0640);
    IPE_Object parts = L({S("owner"), S("group"), S("dacl")});
    IPE_Object texts = fs("get_security", {S(file), parts});
    EXPECT_EQ(IPE_Dict_GetString(texts, "owner"), "O:S-1-22-1-" + std::to_string(::geteuid()));
    fs("set_security", {S(file), D({{S("dacl"), S("D:(A;;FR;;;WD)")}})});
    struct stat raw;
    ::stat(file.c_str(), &raw);
    EXPECT_EQ(raw.st_mode & 0777, 04u);
    fs("set_security", {S(file), texts});
    ::stat(file.c_str(), &raw);
    EXPECT_EQ(raw.st_mode & 0777, 0640u);
    EXPECT_EQ(repr(fs("get_security", {S(file), parts})), repr(texts));
    EXPECT_EQ(failure("set_security", {S(file), D({{S("dacl"), S("D:(A")}})}),
              "RuntimeError: ConvertStringSecurityDescriptorToSecurityDescriptor (22)");
    EXPECT_EQ(failure("set_security", {S(file), D({{S("dacl"), S("D:(D;;FA;;;WD)")}})}),
              "RuntimeError: SetNamedSecurityInfo (95)");
    EXPECT_EQ(failure("set_security", {S(file), D({{S("other"), S("")}})}),
              "RuntimeError: SetNamedSecurityInfo (22)");
    EXPECT_EQ(failure("get_security", {S(scratch / "missing"), parts}), "RuntimeError: GetFileSecurity (2)");
    EXPECT_EQ(failure("set_privilege", {S("SeNothing"), IPE_True()}),
              "RuntimeError: LookupPrivilegeValue (22)");
    EXPECT_EQ(failure("set_privilege", {S("SeUndockPrivilege"), IPE_True()}),
              "RuntimeError: AdjustTokenPrivileges (95)");
    if (::geteuid() == 0) {
        EXPECT_EQ(failure("get_security", {S(file), L({S("sacl")})}), "RuntimeError: GetFileSecurity (95)");
    }
}

TEST_F(Fs, DecodeSddl) {
    IPE_Object list = fs("decode_sddl", {S("D:PAI(A;OICI;0x1F01FF;;;WD)(OA;;FAX;a;b;S-1-22-1-7)")});
    ASSERT_EQ(IPE_List(list).count(), 2);
    IPE_Object first = IPE_List(list)[0], second = IPE_List(list)[1];
    EXPECT_EQ(str(item(first, "controls")), "PAI");
    EXPECT_EQ(repr(item(first, "flags")), repr(L({S("OI"), S("CI")})));
    EXPECT_EQ(repr(item(first, "rights")), "[2032127]");
    EXPECT_EQ(str(item(first, "trustee")), "S-1-1-0");
    EXPECT_EQ(str(item(second, "type")), "OA");
    EXPECT_EQ(repr(item(second, "rights")), repr(L({S("FA"), S("X")})));
    EXPECT_EQ(str(item(second, "trustee")), "S-1-22-1-7");
    IPE_Object both = fs("decode_sddl", {L({S("D:(A;;FA;;;BA)"), S("S:(AU;SA;FA;;;WD)"), S("O:BA")})});
    EXPECT_EQ(IPE_List(both).count(), 2);
    EXPECT_EQ(IPE_List(fs("decode_sddl", {S("D:(XA;;FX;;;WD;(@User.a==(1)))(A;;FA;;;WD)")})).count(), 2);
    for (const char* bad :
         {"", "D", "D:(A;;FA;;;WD", "D:(A;;0x;;;WD)", "D:(A;;0x123456789;;;WD)",
          "D:0123456789012345678901234567890123456789012345678901234567890123(A;;FA;;;WD)"}) {
        EXPECT_EQ(raised([&] { fs("decode_sddl", {S(bad)}); }).substr(0, 14), "AssertionError") << bad;
    }
    EXPECT_EQ(failure("decode_sddl", {S("D:(A;;FA;;;ZZ)")}),
              "RuntimeError: ConvertStringSecurityDescriptorToSecurityDescriptor (22)");
    std::string nested = "D:" + std::string(200000, '(');
    EXPECT_EQ(raised([&] { fs("decode_sddl", {S(nested)}); }).substr(0, 14), "AssertionError");
}

TEST_F(Fs, System) {
    EXPECT_EQ(str(item(fs("fsinfo", {S("/proc")}), "type")), "proc");
    EXPECT_EQ(failure("fsinfo", {S("/no/such")}), "RuntimeError: GetVolumeInformation (2)");
    EXPECT_GE(IPE_Dict_GetInt64(fs("fsstat", {S("/")}), "TotalBytes"),
              IPE_Dict_GetInt64(fs("fsstat", {S("/")}), "FreeBytes"));
    std::string guid = str(fs("guid")), other = str(fs("guid"));
    EXPECT_EQ(guid.size(), 36u);
    EXPECT_NE(guid, other);
    EXPECT_EQ(guid[14], '4');
    EXPECT_EQ(guid.find_first_not_of("0123456789ABCDEF-"), std::string::npos);
    IPE_Object name = S("QUILL_TEST_VARIABLE");
    EXPECT_EQ(raised([&] { fs("get_env", {name}); }), "ERROR_ENVVAR_NOT_FOUND: GetEnvironmentVariable");
    EXPECT_EQ(fs("get_env", {name, I(5)})->__int__(), 5);
    fs("set_env", {name, S("v\\alue")});
    EXPECT_EQ(str(fs("get_env", {name, I(5)})), "v\\alue");
    ::setenv("QUILL_TEST_VARIABLE", "a\xFF", 1);
    EXPECT_EQ(str(fs("get_env", {name})), "a\U0010FFF02FF");
    fs("set_env", {name, S(std::string(32766, 'x'))});
    EXPECT_EQ(str(fs("get_env", {name})).size(), 32766u);
    fs("set_env", {name, S(std::string(32767, 'x'))});
    EXPECT_EQ(raised([&] { fs("get_env", {name}); }), "ERROR_ENVVAR_TOO_LARGE: GetEnvironmentVariable");
    fs("set_env", {name});
    EXPECT_EQ(str(fs("get_env", {name, S("gone")})), "gone");
    EXPECT_EQ(failure("set_env", {S("a=b"), S("c")}), "RuntimeError: SetEnvironmentVariable (22)");
    std::string here;
    ASSERT_EQ(platform::currentDirectory(here), 0);
    EXPECT_EQ(IPE_PathBytes(fs("pwd"), "Open"), here);
}

TEST_F(Fs, VersionInfo) {
    Scratch scratch;
    IPE_VersionInfo none(S(scratch.file("text", "plain")));
    EXPECT_EQ(none.info().as<IPE_DictType>()->count(), 0);
    IPE_VersionInfo missing(S(scratch / "missing"));
    EXPECT_EQ(raised([&] { missing.info(); }).substr(0, 36), "RuntimeError: GetFileVersionInfo (2)");
}

}  // namespace
