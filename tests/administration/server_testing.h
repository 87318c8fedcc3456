// Real servers in a tree of their own: the program under bin/, its application under ipe/, and unit files and
// control sockets apart from the machine's.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "../platform/scratch.h"
#include "platform/pf_process.h"

// Waits for something to come true; a minute is for machines under load.
template <class Condition>
bool await(Condition condition) {
    for (int i = 0; i < 6000; ++i, usleep(10'000))
        if (condition()) return true;
    return false;
}

// Script lines that note in the working directory that they ran.
inline constexpr char Serving[] =
    "out = open(\"ready\", \"w\")\n"
    "out.write(\"ready\")\n"
    "out.close()\n";

class ServerTree : public testing::Test {
  protected:
    struct Result {
        int code = -1;  // exit code; -2 ended by a signal
        std::string out, err;
    };

    void SetUp() override {
        namespace fs = std::filesystem;
        for (const char* folder : {"bin", "ipe", "units", "elsewhere"}) fs::create_directory(tree / folder);
        std::error_code refused;
        fs::create_hard_link(QUILL_SERVER, program, refused);
        if (refused) fs::copy_file(QUILL_SERVER, program);
        platform::environmentSet("QUILL_UNIT_DIR", tree / "units");
        platform::environmentSet("QUILL_RUNTIME_DIR", tree / "run");
        platform::environmentSet("QUILL_SYSTEMD_BUS", "off");
    }

    void TearDown() override { endHard(); }

    // Only after a failed check is there something to end.
    void endHard() {
        if (child <= 0) return;
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        child = code = -1;
    }

    // The application: the module `startup` with these lines.
    void application(const std::string& lines) { tree.file("ipe/startup.py", "class startup:\n\n" + lines); }

    void start(std::vector<std::string> arguments, const std::string& folder = "elsewhere") {
        child = fork();
        ASSERT_GE(child, 0);
        if (child > 0) return;
        int none = open("/dev/null", O_RDONLY);
        int out = open((tree / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = open((tree / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (chdir((tree / folder).c_str()) != 0 || dup2(none, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0)
            _exit(126);
        std::vector<char*> words{const_cast<char*>(program.c_str())};
        for (std::string& argument : arguments) words.push_back(argument.data());
        words.push_back(nullptr);
        execv(program.c_str(), words.data());
        _exit(127);
    }

    bool ended() {
        int status = 0;
        if (child <= 0 || waitpid(child, &status, WNOHANG) != child) return child <= 0;
        child = -1;
        code = WIFEXITED(status) ? WEXITSTATUS(status) : -2;
        return true;
    }

    Result finish() {
        EXPECT_TRUE(await([&] { return ended(); })) << "the server does not end";
        endHard();
        return {code, slurp(tree / "out"), slurp(tree / "err")};
    }

    Result run(std::vector<std::string> arguments, const std::string& folder = "elsewhere") {
        start(std::move(arguments), folder);
        return finish();
    }

    bool awaitFile(const std::string& name, const std::string& text) {
        return await([&] { return slurp(tree / name).find(text) != std::string::npos; });
    }

    Scratch tree;
    const std::string program = tree / "bin/quillsrv";
    pid_t child = -1;
    int code = -1;
};
