// The entry's decisions that need no process of their own: service names from the program's path, options
// from the command line.

#include <gtest/gtest.h>

#include "entry.h"

namespace {

const std::string Defaults = "Quillbrook_Server|Quillbrook Server";

TEST(ServiceNames, FromTheProgramsPath) {
    const std::pair<std::string, std::string> rows[] = {
        {"/opt/Quillbrook North Site/bin/quillsrv",
         "Quillbrook_North_Site_Server|Quillbrook North Site Server"},
        {"C:\\Quillbrook North Site\\quillsrv.exe",
         "Quillbrook_North_Site_Server|Quillbrook North Site Server"},
        // The first folder counts, and it wins over a tilde.
        {"/Quillbrook A/Quillbrook B/x~C.exe", "Quillbrook_A_Server|Quillbrook A Server"},
        // The text is there but no separator follows: not even the tilde is looked at.
        {"/opt/Quillbrook North~Site.exe", Defaults},
        {"/opt/Quillbrook/bin/quillsrv", Defaults},
        {"/opt/MyQuillbrook A/Quillbrook B/q", "Quillbrook_B_Server|Quillbrook B Server"},
        {"/opt/quillsrv~North Site.exe", "North_Site|North Site"},
        {"/opt/quillsrv~a~b.1.exe", "a~b.1|a~b.1"},
        {"quillsrv~Bare.exe", "Bare|Bare"},
        {"/opt/quillsrv~North Site", Defaults},
        {"/opt/v1.2/quillsrv~North", Defaults},
        {"/opt/a~b/quillsrv.exe", Defaults},
        {"/opt/quillsrv~.exe", Defaults},
        {"", Defaults},
        // Long names are cut, and keep whole characters.
        {"/opt/x~" + std::string(300, 'a') + ".exe", std::string(255, 'a') + "|" + std::string(255, 'a')},
        {"/opt/x~" + std::string(254, 'a') + "\xC3\xA4" + "b.exe",
         std::string(254, 'a') + "|" + std::string(254, 'a')}};
    for (auto& [program, names] : rows) {
        std::string name = "Quillbrook_Server", displayName = "Quillbrook Server";
        deriveServiceNames(program, name, displayName);
        EXPECT_EQ(name + "|" + displayName, names) << program;
    }
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
