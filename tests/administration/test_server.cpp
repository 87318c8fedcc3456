// The served and the one-shot run, as a person meets them: signals, exit codes, error texts, folders.

#include "server_testing.h"

namespace {

class Server : public ServerTree {};

TEST_F(Server, ServesUntilASignalWhichLeavesTheExitCode) {
    const std::pair<int, const char*> rows[] = {
        {SIGTERM, ""},
        {SIGINT, ""},
        {SIGTERM, "while True:\n    pass\n"}};  // the last during the start program
    for (const auto& [signal, rest] : rows) {
        application(std::string("global_set(\"__rc\", 7)\n") + Serving + rest);
        start({});
        ASSERT_TRUE(awaitFile("bin/ready", "ready"));
        kill(child, SIGHUP);
        usleep(200'000);
        EXPECT_FALSE(ended()) << "a hangup ended the server";
        kill(child, signal);
        Result result = finish();
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.err, "");
        std::filesystem::remove(tree / "bin/ready");
    }
}

TEST_F(Server, ScriptEndsItWithItsExitCode) {
    const std::pair<const char*, int> rows[] = {
        {"global_set(\"__rc\", 42)\nsys_exit()\nwhile True:\n    pass\n", 42},
        {"global_set(\"__rc\", 4294967299)\nsys_exit()\n", 3},  // 32 bits
        {"sys_exit()\n", 0}};
    for (const auto& [lines, code] : rows) {
        application(lines);
        Result result = run({"--standalone"});
        EXPECT_EQ(std::to_string(result.code) + result.err, std::to_string(code));
    }
}

TEST_F(Server, ErrorsOfTheStartAreShownWithTheirPlace) {
    // Source that the script loads shows both places.
    tree.file("bin/bad.py", "class bad:\nx = \"open\n");
    const struct {
        std::string source;
        std::vector<std::string> shown;
    } rows[] = {{"class startup:\n\nglobal_set(\"__rc\", 9)\n\ndef f(x):\n    raise Broken, \"no milk with "
                 "\" + x\n\nf(\"tea\")\n",
                 {"Broken: no milk with tea", "startup.py (6)\n", "raise Broken"}},
                {"class startup:\n\nx = 1\ny = \"open\n", {"startup.py", "(4)"}},
                {"class startup:\n\ninterpreter(\"load\", \"bad.py\")\n",
                 {"\nbad.py (2)\n", "startup.py (3)\ninterpreter"}},
                {"class other:\nx = 1\n", {"ImportError"}},
                {"", {"IOError: [Errno 2] No such file or directory: '", "ipe/startup.py'"}}};
    for (auto& row : rows) {
        tree.file("ipe/startup.py", row.source);
        if (row.source.empty()) std::filesystem::remove(tree / "ipe/startup.py");
        Result result = run({});
        EXPECT_EQ(result.code, 0);
        for (auto& text : row.shown) EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
    }
}

std::string custom(const std::string& text) {
    return "class startup_custom:\nout = open(\"/dev/stdout\", \"a\")\nout.write(\"" + text +
           "\")\nglobal_set(\"__rc\", 5)\n";
}

TEST_F(Server, CustomRunFindsItsFile) {
    tree.file("bin/both.py", custom("working"));
    tree.file("elsewhere/both.py", custom("entry"));
    tree.file("elsewhere/only here.py", custom("blanks"));
    // The working directory, which is the program's, comes before the directory of entry.
    EXPECT_EQ(run({"--custom", "both.py"}).out, "working");
    Result result = run({"--custom", "only", "here.py"});
    EXPECT_EQ(result.out, "blanks");
    EXPECT_EQ(result.code, 5);
    EXPECT_EQ(run({"--standalone", "--custom=" + (tree / "elsewhere/both.py")}).out, "entry");
    result = run({"--custom", "absent.py"});
    EXPECT_NE(result.err.find("'absent.py'"), std::string::npos) << result.err;
    EXPECT_EQ(result.code, 0);
}

TEST_F(Server, ScriptsSeeHowTheyWereStarted) {
    const std::string tell =
        "out = open(\"/dev/stdout\", \"a\")\n"
        "out.write(global_get(\"startup_type\", \"unset\") + \" \" + global_get(\"__program_args\") + \" "
        "\")\n"
        "if len(global_get(\"osversion_underlying\")) > len(global_get(\"osversion_emulated\")): "
        "out.write(\"known\")\n";
    application(tell + "sys_exit()\n");
    EXPECT_EQ(run({"--depth", "3"}).out, "py [\"--depth\", \"3\"] known");
    tree.file("bin/tell.py", "class startup_custom:\n" + tell);
    EXPECT_EQ(run({"/usr", "--custom", "tell.py"}).out, "unset [\"/usr\", \"--custom\", \"tell.py\"] known");
}

TEST_F(Server, CustomRunEndsByItsScriptOrASignal) {
    tree.file("bin/fails.py", "class startup_custom:\nglobal_set(\"__rc\", 6)\nabsent()\n");
    Result result = run({"--custom", "fails.py"});
    EXPECT_EQ(result.code, 0);  // the exception passes by the reading of __rc
    EXPECT_NE(result.err.find("fails.py (3)\n"), std::string::npos) << result.err;

    tree.file("bin/exits.py",
              "class startup_custom:\nglobal_set(\"__rc\", 6)\nsys_exit()\nif True:\n    absent()\n");
    result = run({"--custom", "exits.py"});
    EXPECT_EQ(result.code, 6);
    EXPECT_EQ(result.err, "");

    tree.file("bin/loops.py", std::string("class startup_custom:\nglobal_set(\"__rc\", 6)\n") + Serving +
                                  "while True:\n    pass\n");
    start({"--custom", "loops.py"});
    ASSERT_TRUE(awaitFile("bin/ready", "ready"));
    kill(child, SIGTERM);
    EXPECT_EQ(finish().code, 0);
}

TEST_F(Server, WorkingDirectory) {
    application(std::string(Serving) + "sys_exit()\n");
    std::filesystem::create_directory(tree / "data");
    std::filesystem::create_directory_symlink("../data", program + ".LNK");
    run({});
    EXPECT_EQ(slurp(tree / "data/ready"), "ready");
    // A link to anything else falls back to the program's own directory.
    std::filesystem::remove(program + ".LNK");
    tree.file("bin/quillsrv.LNK", tree / "data");
    run({});
    EXPECT_EQ(slurp(tree / "bin/ready"), "ready");
    EXPECT_FALSE(std::filesystem::exists(tree / "elsewhere/ready"));
}

TEST_F(Server, HelpVersionAndMistypedOptions) {
    Result result = run({"--help"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out.find("usage: quillsrv"), 0u);
    EXPECT_EQ(run({"--version"}).out, "quillsrv " QUILL_VERSION "\n");
    // Behind --custom they are part of the file's name.
    EXPECT_NE(run({"--custom", "absent.py", "--version"}).err.find("'absent.py --version'"),
              std::string::npos);
    application("sys_exit()\n");
    EXPECT_NE(run({"--instal"}).err.find("'--instal' is no option"), std::string::npos);
    EXPECT_NE(run({"--stand-alone=1"}).err.find("is --standalone meant?"), std::string::npos);
    EXPECT_EQ(run({"--standalone", "--quiet", "--once", "-x", "word"}).err, "");  // the script's own
}

}  // namespace
