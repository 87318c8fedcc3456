#pragma once

// Helpers of the file tests: a scratch folder and a child process without privileges.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>

// A folder of its own, removed at the end with all that stands in it.
class Scratch {
  public:
    explicit Scratch(const char* base = "/tmp") {
        std::string pattern = std::string(base) + "/quill-test-XXXXXX";
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp");
        path_ = pattern;
        ::chmod(path_.c_str(), 0755);
    }
    ~Scratch() {
        std::string command = "chmod -R u+rwx '" + path_ + "' 2>/dev/null; rm -rf '" + path_ + "'";
        if (std::system(command.c_str()) != 0) std::abort();
    }
    Scratch(const Scratch&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    std::string file(const std::string& name, const std::string& content = "") const {
        std::string path = *this / name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

  private:
    std::string path_;
};

inline std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream out;
    out << in.rdbuf();
    return out.str();
}

// Runs `work` in a child as an ordinary user and gives its result (0 to 255), -1 if the child did not end so.
inline int asNobody(const std::function<int()>& work) {
    pid_t child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(255);
        ::_exit(work());
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}
