// Embedded files against the files that cancel them, and libraries loaded on demand.

#include <dlfcn.h>

#include <filesystem>

#include "../ipe/values_testing.h"
#include "../platform/scratch.h"
#include "platform/pf_process.h"
#include "runtime/streams/xpk_resources.h"

namespace {

const std::string Library("raw\0\r\n\xFF bytes", 13);

struct Entries {
    Entries() {
        XPK_RegisterEmbedded("ZLIB1__DLL", Library.data(), Library.size());
        XPK_RegisterEmbedded("NATIVE_X__SO__2", "two", 3);
        XPK_RegisterEmbedded("EMPTY__BIN", nullptr, 0);
    }
};

class Resources : public testing::Test {
  protected:
    Resources() { static Entries entries; }
    // The files that are unpacked while these stand in the current directory.
    std::string unpacked(std::initializer_list<const char*> standing) {
        Scratch current;
        for (const char* name : standing) current.file(name, "mine");
        XPK_UnpackEmbedded(current.path(), target.path());
        std::string names;
        for (const char* name : {"zlib1.dll", "native_x.so.2", "empty.bin"})
            if (std::filesystem::remove(target / name)) names += std::string(name) + " ";
        EXPECT_TRUE(std::filesystem::is_empty(target.path()));
        return names;
    }
    XPK_ThreadScope thread{true};
    Scratch target;
};

TEST_F(Resources, Cancelled) {
    const std::string all = "zlib1.dll native_x.so.2 empty.bin ";
    EXPECT_EQ(XPK_EmbeddedFileName("A_B____C___D_"), "a_b..c._d_");
    EXPECT_EQ(unpacked({}), all);
    EXPECT_EQ(unpacked({"zlib1.def"}), "native_x.so.2 empty.bin ");
    EXPECT_EQ(unpacked({"zlib1.dll"}), "native_x.so.2 empty.bin ");
    EXPECT_EQ(unpacked({"native_x.so.def", "empty.bin"}), "zlib1.dll ");
    // Near misses: other case, other stems, names that only begin alike.
    EXPECT_EQ(unpacked({"ZLIB1.def", "zlib1.DLL", "zlib.def", "zlib1.def.old", "xzlib1.dll", ".def"}), all);
    Scratch current;
    std::filesystem::create_directory(current / "zlib1.def");  // folders cancel nothing
    XPK_UnpackEmbedded(current.path(), target.path());
    EXPECT_TRUE(std::filesystem::exists(target / "zlib1.dll"));
}

TEST_F(Resources, WritesRawBytesAndReplaces) {
    target.file("zlib1.dll", std::string(1000, 'x'));
    std::filesystem::create_hard_link(target / "zlib1.dll", target / "mapped");
    XPK_UnpackEmbedded(Scratch().path(), target.path());
    EXPECT_EQ(slurp(target / "zlib1.dll"), Library);
    EXPECT_EQ(std::filesystem::file_size(target / "empty.bin"), 0u);
    // Whoever had the old file open or mapped keeps it.
    EXPECT_EQ(slurp(target / "mapped"), std::string(1000, 'x'));
}

TEST_F(Resources, FailuresAreNamed) {
    std::string error = raised([&] { XPK_UnpackEmbedded(Scratch().path(), target / "absent"); });
    EXPECT_TRUE(error.starts_with("IOError")) << error;
    EXPECT_NE(error.find("absent/zlib1.dll"), std::string::npos) << error;
    std::filesystem::create_directory(target / "zlib1.dll");
    EXPECT_THROW(XPK_UnpackEmbedded(Scratch().path(), target.path()), XPK_Exception);
    // What was written beside the target is gone again.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(target.path()), {}), 1);
}

std::string loadError(const std::string& name) {
    return raised([&] { XPK_LoadLibrary(name); });
}

TEST_F(Resources, JavaSearchPaths) {
    platform::environmentSet("JAVA_HOME", target / "nowhere");
    void* math = XPK_LoadLibrary("libm.so.6");
    Dl_info place;
    ASSERT_NE(dladdr(dlsym(math, "cos"), &place), 0);
    std::filesystem::create_directory(target / "jre");
    target.file("jre/libjvm-1.so", "no library");
    // Under its own name, for a library that is loaded already would be found by name alone.
    std::filesystem::copy_file(std::filesystem::canonical(place.dli_fname), target / "jre/libjvm-2.so");
    XPK_SetJavaSearchPaths({target / "absent/*.so", target / "jre/other*.so"});
    XPK_AddJavaSearchPath(target / "jre/libjvm-?.so");
    void* java = XPK_LoadLibrary("libjvm.so");
    ASSERT_NE(dladdr(dlsym(java, "cos"), &place), 0);
    EXPECT_NE(std::string(place.dli_fname).find("jre/libjvm-2.so"), std::string::npos) << place.dli_fname;
    // Other libraries are not looked for there.
    EXPECT_EQ(loadError("libjvm-2.so.0"), "RuntimeError: Could not load 'libjvm-2.so.0'");
    EXPECT_EQ(loadError("libno$such.so"), "RuntimeError: Could not load 'libno$such.so'");
    EXPECT_EQ(loadError("/dev/null"), "RuntimeError: Could not load '/dev/null'");
    XPK_SetJavaSearchPaths({});
    if (!std::filesystem::exists("/usr/lib/jvm/default-java")) {
        EXPECT_EQ(loadError("libjvm.so"), "RuntimeError: Could not load 'libjvm.so'");
    }
}

}  // namespace
