// The entry's decisions that need no process of their own: service names from the program's path, options
// from the command line.

#include <gtest/gtest.h>

#include "entry.h"

namespace {

struct Names {
    std::string name = "Quillbrook_Server", displayName = "Quillbrook Server";
    explicit Names(const std::string& program) { deriveServiceNames(program, name, displayName); }
    std::string both() const { return name + "|" + displayName; }
};

const char Defaults[] = "Quillbrook_Server|Quillbrook Server";

TEST(ServiceNames, FolderOfTheProduct) {
    EXPECT_EQ(Names("/opt/Quillbrook North Site/bin/quillsrv").both(),
              "Quillbrook_North_Site_Server|Quillbrook North Site Server");
    EXPECT_EQ(Names("C:\\Quillbrook North Site\\quillsrv.exe").both(),
              "Quillbrook_North_Site_Server|Quillbrook North Site Server");
    // The first folder counts, and it wins over a tilde.
    EXPECT_EQ(Names("/Quillbrook A/Quillbrook B/x~C.exe").name, "Quillbrook_A_Server");
    // The text is there but no separator follows: not even the tilde is looked at.
    EXPECT_EQ(Names("/opt/Quillbrook North~Site.exe").both(), Defaults);
    EXPECT_EQ(Names("/opt/Quillbrook/bin/quillsrv").both(), Defaults);
    EXPECT_EQ(Names("/opt/MyQuillbrook North/bin/quillsrv").both(), Defaults);
    EXPECT_EQ(Names("/opt/MyQuillbrook A/Quillbrook B/q").name, "Quillbrook_B_Server");
}

TEST(ServiceNames, Tilde) {
    EXPECT_EQ(Names("/opt/quillsrv~North Site.exe").both(), "North_Site|North Site");
    EXPECT_EQ(Names("/opt/quillsrv~a~b.1.exe").both(), "a~b.1|a~b.1");
    EXPECT_EQ(Names("quillsrv~Bare.exe").name, "Bare");
    for (const char* none : {"/opt/quillsrv~North Site", "/opt/v1.2/quillsrv~North", "/opt/a.b~North",
                             "/opt/a~b/quillsrv.exe", "/opt/quillsrv~.exe", "/opt/quillsrv", ""})
        EXPECT_EQ(Names(none).both(), Defaults) << none;
}

TEST(ServiceNames, LongNamesKeepWholeCharacters) {
    std::string longName = "x~" + std::string(254, 'a') + "\xC3\xA4" + "b.exe";
    EXPECT_EQ(Names("/opt/" + longName).name, std::string(254, 'a'));
    EXPECT_EQ(Names("/opt/x~" + std::string(300, 'a') + ".exe").displayName.size(), 255u);
}

TEST(Options, FoundAnywhere) {
    std::string& line = entryState().commandLine;
    line = "--install --username=site\\quill --password=\"x y\" --quiet";
    EXPECT_TRUE(hasOption("--install"));
    EXPECT_FALSE(hasOption("--start"));
    EXPECT_EQ(optionText("--username", 11).substr(0, 10), "site\\quill");
    line = "--restart--started";
    EXPECT_TRUE(hasOption("--start"));
    line = "--standalone --custom /srv/my script.py --depth 3";
    EXPECT_EQ(optionText("--custom", 9), "/srv/my script.py --depth 3");
    for (const char* empty : {"--custom", "--custom ", "", "custom"}) {
        line = empty;
        EXPECT_EQ(optionText("--custom", 9), "") << empty;
    }
    line.clear();
}

}  // namespace
