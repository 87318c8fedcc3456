// Processor faults in native code that a script called: the script catches them by name, and the dump lies
// there. Each case runs in a process of its own, whose exit code tells the outcome.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <thread>

#include "../platform/scratch.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_programloader.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_numbers.h"
#include "platform/pf_crash.h"
#include "platform/pf_process.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_threadmanager.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_translator.h"

namespace {

volatile int zero = 0;

[[gnu::noinline]] int overflow(int depth) {
    volatile char frame[4096];
    frame[depth % 4096] = static_cast<char>(depth);
    return depth < zero ? depth : overflow(depth + 1) + frame[0];
}

// fault(kind): makes the fault of that name.
IPE_Object makeFault(const IPE_Arguments& arguments) {
    XPK_TraceScope scope;
    XPK_TraceString(scope.state(), "asked", arguments.text(0));
    std::string_view kind = arguments.text(0);
    if (kind == "read") return IPE_Int(*reinterpret_cast<volatile int*>(16 + zero));
    if (kind == "divide") return IPE_Int(1 / zero);
    if (kind == "stack") return IPE_Int(overflow(1));
    if (kind == "illegal") __asm__ volatile("ud2");
    return {};
}

class Translator : public testing::Test {
  protected:
    void SetUp() override {
#if defined(QUILL_SANITIZED) || defined(__clang__) || !defined(__x86_64__)
        GTEST_SKIP() << "faults are not thrown in this build";
#endif
    }

    // Runs `work` as a fresh process with a runtime, in the scratch folder.
    int inProcess(const std::function<int()>& work) {
        pid_t child = fork();
        if (child == 0) {
            if (chdir(scratch.path().c_str()) != 0) _exit(120);
            platform::setDumpName(scratch / "dump");
            XPK_InstallTranslator();
            XPK_ThreadScope thread(true);
            XPK_InitPools();
            int result = 121;
            try {
                EPA_LifeCycle::control(true);
                IPE_ModuleRegistry::registerNative("test.fault", "fault", makeFault);
                result = work();
            } catch (const XPK_Exception& exception) {
                fprintf(stderr, "%s: %s\n", exception.type().c_str(), exception.message().c_str());
            }
            EPA_LifeCycle::shutdown();
            _exit(result);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    static std::string run(const std::string& lines) {
        load_source_text("", "class main:\n\nfrom test.fault import fault\n" + lines, "main.py");
        IPE_Interpreter().run("main");
        return IPE_GlobalStore().get("result")->c_str();
    }

    // Bytes of each dump, which is removed; faults of one second share a name.
    std::vector<uintmax_t> dumps() {
        std::vector<uintmax_t> sizes;
        for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
            if (entry.path().extension() != ".dmp" || entry.file_size() <= 4096) continue;
            sizes.push_back(entry.file_size());
            std::filesystem::remove(entry.path());
        }
        return sizes;
    }

    Scratch scratch;
};

TEST_F(Translator, ScriptsCatchFaultsByName) {
    EXPECT_EQ(inProcess([] {
                  std::string result =
                      run("result = []\n"
                          "for kind in [\"read\", \"divide\", \"stack\", \"illegal\"]:\n"
                          "    try:\n"
                          "        fault(kind)\n"
                          "    except ACCESS_VIOLATION, e:\n"
                          "        result.append(\"read\")\n"
                          "    except INT_DIVIDE_BY_ZERO, e:\n"
                          "        result.append(\"divide\")\n"
                          "    except STACK_OVERFLOW, e:\n"
                          "        result.append(\"stack\")\n"
                          "    except ILLEGAL_INSTRUCTION, e:\n"
                          "        result.append(\"illegal\")\n"
                          "global_set(\"result\", result.join(\",\"))\n");
                  fprintf(stderr, "%s\n", result.c_str());
                  return result == "read,divide,stack,illegal" ? 0 : 1;
              }),
              0);
    EXPECT_GE(dumps().size(), 1u);
}

TEST_F(Translator, TheExceptionTellsWhatAndWhere) {
    EXPECT_EQ(inProcess([this] {
                  std::ofstream told(scratch / "told");
                  try {
                      run("x = 3\nfault(\"read\")\n");
                  } catch (const XPK_Exception& exception) {
                      const XPK_ExceptionRecord& record = exception.record();
                      auto entry = [&](const char* key) {
                          return IPE_Dict_GetString(exception.details(), key, "");
                      };
                      told << record.type << "|" << record.file << "|" << record.line << "|"
                           << record.fieldList.empty() << "|" << *record.findString("asked") << "|"
                           << entry("file") << "|" << entry("line") << "|" << exception.message() << "|"
                           << *record.findString("dmp_file");
                  }
                  return 0;
              }),
              0);
    std::string told =
        std::regex_replace(slurp(scratch / "told"), std::regex("0x0*[0-9A-F]{5,}\\.|dump_[^|]*\\.dmp"), "*");
    EXPECT_EQ(
        told,
        "ACCESS_VIOLATION||0|1|read|main.py|5|Exception (0xC0000005) at address * Unable to read location: "
        "0x00000010|" +
            (scratch / "*"));
}

TEST_F(Translator, WorkersAndAFullTrace) {
    EXPECT_EQ(inProcess([] {
                  static std::atomic<int> outcome{0};
                  EPA_ThreadManager::instance().release();
                  EPA_ThreadManager::instance().start(
                      [](EPA_ThreadPassportImpl& passport) {
                          passport.announce("ipe_%i");
                          XPK_TraceScope scope;
                          for (int i = 0; i < XPK_Trace::EntryLimit; ++i)
                              XPK_TraceString(scope.state(), "filler", "");
                          try {
                              *reinterpret_cast<volatile int*>(16 + zero) = 1;
                          } catch (const XPK_Exception& exception) {
                              bool right = exception.type() == "ACCESS_VIOLATION" &&
                                           exception.message().find("Unable to write") != std::string::npos;
                              outcome = right ? 1 : 2;
                          }
                      },
                      nullptr);
                  while (outcome == 0) usleep(1000);
                  return outcome == 1 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(dumps().size(), 1u);
}

}  // namespace
