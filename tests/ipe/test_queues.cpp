// Script queues with their workers, the script timers, the log, and all of them under stress.
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>

#include "../runtime/managed_threads.h"
#include "ipe/builtins/ipe_logger.h"
#include "ipe/language/ipe_exceptiontype.h"
#include "ipe/language/ipe_programloader.h"
#include "ipe/threads/ipe_scriptpulse.h"
#include "ipe/threads/ipe_thread.h"
#include "ipe/values/ipe_exceptiondetails.h"
#include "ipe/values/ipe_globals.h"

namespace {

using namespace std::chrono_literals;

std::mutex notesLock;
std::vector<std::string> noted;
std::atomic<int> calls;

// What the jobs of the tests tell: a text to keep, or only that they ran.
IPE_Object note(const IPE_Arguments& arguments) {
    ++calls;
    if (arguments.size() == 0) return {};
    std::lock_guard guard(notesLock);
    noted.push_back(IPE_Object_Text(arguments[0]));
    return {};
}

std::vector<std::string> notes() {
    std::lock_guard guard(notesLock);
    return noted;
}

constexpr char Modules[] = R"(
class threads.note:
import test.note
def job(job):
    test.note.note(str(job))
class threads.count:
import test.note
def job(job):
    test.note.note()
class threads.own:
import test.note
def job(job, settings):
    job.here = settings.word
    settings.word = "changed"
    test.note.note(str(thread_get("job")) + str(len(thread_get())))
    thread_set("job", "mine")
    test.note.note(str(thread_get("job")) + str(get_value_from_shared_storage_on_all_passports("job")))
class threads.hold:
import test.note
def job(job):
    job.mine = True
    test.note.note("holds")
    timeout().sleep(60000)
class threads.faulty:
import test.note
def job(job):
    if job.fail: raise Odd, "no good"
    test.note.note("fine")
class threads.broken:
import test.note
test.note.note("imported")
raise Odd, "top level"
class threads.jobless:
pass
class threads.mixed:
import test.note
runs = 0
def job(job):
    test.note.note()
    _G.runs = runs + 1
    global_execute("inc", "runs")
    global_set("table", {"list": [job.number, "text", 2.5], "job": job})
    copy = global_get("table")
    copy.list.append(runs)
    thread_set("last", copy)
    get_value_from_shared_storage_on_all_passports("job")
)";

class Queues : public ManagedThreads {
  protected:
    void SetUp() override {
        IPE_InitSingletons();
        IPE_SetStackReporter(IPE_ReportStack);
        ManagedThreads::SetUp();
        IPE_StartGlobals();
        IPE_Thread::create();
        IPE_Logger::start();
        IPE_ModuleRegistry::registerNative("test.note", "note", note);
        load_source_text("", Modules, "queues.py");
        noted.clear();
        calls = 0;
    }
    void TearDown() override {
        stop();
        IPE_Logger::stop();
        IPE_Thread::destroy();
        IPE_StopGlobals();
        ManagedThreads::TearDown();
    }
    void stop() {
        request_shutdown();
        manager().stop();
        EXPECT_EQ(used(), 1);
    }
    IPE_Thread& registry() { return IPE_Thread::instance(); }
    IPE_ThreadQueue& queue(std::string_view name, IPE_Object settings = IPE_NewDict()) {
        return *registry().queue(name, settings).as<IPE_ThreadQueue>();
    }
    static std::string figures(IPE_ThreadQueue& queue) {
        auto f = queue.figures();
        return std::to_string(f.priority) + " " + std::to_string(f.threads) + " " +
               std::to_string(f.waiting) + " " + std::to_string(f.entered);
    }
};

TEST_F(Queues, RegistryAndSettings) {
    EXPECT_EQ(raised([&] { IPE_EnqueueJob("note", I(1)); }), "RuntimeError: Queue does not exist");
    IPE_Object settings = D({{S("module"), S("other.module")}});
    IPE_Object made = registry().queue("note", settings);
    IPE_Dict_Set(settings, "module", S("changed"));
    EXPECT_EQ(made.as<IPE_ThreadQueue>()->module(), "other.module");
    EXPECT_EQ(queue("plain").module(), "threads.plain");
    EXPECT_TRUE(registry().queue("note", settings) == made);
    EXPECT_EQ(raised([&] { made.as<IPE_ThreadQueue>()->enqueue({}); }),
              "RuntimeError: Null object passed to IPE_Object_Copy");
    call(made, "enqueue", {made});  // a queue may travel in a job
    EXPECT_TRUE(made.as<IPE_ThreadQueue>()->drain().at(0) == made);

    IPE_ThreadQueue& full = queue("full");
    for (size_t i = 0; i < IPE_ThreadQueue::MaximumJobs; ++i) full.enqueue(IPE_True());
    EXPECT_EQ(raised([&] { full.enqueue(IPE_True()); }), "RuntimeError: Queue is full");
    EXPECT_EQ(full.drain().size(), IPE_ThreadQueue::MaximumJobs);
    full.enqueue(IPE_True());
    EXPECT_EQ(full.figures().waiting, 1);
}

TEST_F(Queues, JobsRunInOrderOnceReleased) {
    IPE_ThreadQueue& q = queue("note");
    IPE_Object job = L({S("first")});
    q.enqueue(job);
    job.as<IPE_ListType>()->append(S("later"));
    q.setPriority(-1);
    q.setThreads(1);
    for (int i = 0; i < 1000; ++i) q.enqueue(I(i));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(figures(q), "-1 1 1001 1001");
    EXPECT_EQ(calls, 0);
    manager().release();
    untilTrue([] { return calls == 1001; });
    EXPECT_EQ(notes()[0], "[\"first\"]");
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(notes()[static_cast<size_t>(i + 1)], std::to_string(i));
    EXPECT_EQ(figures(q), "-1 1 0 1001");
}

TEST_F(Queues, TheJobIsAThreadVariable) {
    manager().release();
    IPE_ThreadQueue& own = queue("own", D({{S("settings"), D({{S("word"), S("given")}})}}));
    own.setThreads(1);
    for (int i = 0; i < 2; ++i) own.enqueue(IPE_NewDict());
    untilTrue([] { return calls == 4; });
    for (size_t i = 0; i < 4; i += 2) {
        EXPECT_EQ(notes()[i], "{\"here\": \"given\"}1");  // nothing is left of the job before
        EXPECT_EQ(notes()[i + 1], "mine[\"mine\"]");
    }
    // Other threads see the job as it was queued.
    IPE_ThreadQueue& hold = queue("hold");
    hold.setThreads(1);
    hold.enqueue(D({{S("id"), I(5)}}));
    untilTrue([] { return calls == 5; });
    IPE_Object list = IPE_NewList();
    manager().collect(S("job"), list);
    EXPECT_EQ(repr(list), "[{'id': 5}]");
}

TEST_F(Queues, ErrorsAreLoggedAndTheWorkerGoesOn) {
    manager().release();
    queue("logger", D({{S("module"), S("threads.note")}}));
    for (const char* name : {"faulty", "broken", "jobless", "missing"}) queue(name).setThreads(1);
    queue("faulty").enqueue(D({{S("fail"), IPE_True()}}));
    queue("faulty").enqueue(D({{S("fail"), IPE_False()}}));
    for (int i = 0; i < 2; ++i) queue("broken").enqueue(I(1));  // imported anew for each
    for (const char* name : {"jobless", "missing"}) queue(name).enqueue(I(1));
    std::string text;
    untilTrue([&] {
        IPE_Logger::find().as<IPE_Logger>()->pulse();
        for (const IPE_Object& job : queue("logger").drain()) text += repr(job);
        int records = 0;
        for (size_t at = 0; (at = text.find("'msg'", at)) != std::string::npos; ++at) ++records;
        return records == 5;
    });
    for (const char* part :
         {"Queue faulty: Odd: no good", "Queue broken: Odd: top level", "Queue jobless: AttributeError: job",
          "Queue missing: ImportError: threads.missing", "'pathname': 'queues.py'", "'levelno': 40"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
    untilTrue([] { return calls == 3; });
}

TEST_F(Queues, ThreadsUpAndDownWithoutLosingSlots) {
    manager().release();
    IPE_ThreadQueue& q = queue("count");
    int ends = 0;
    const std::pair<int, int> wanted[] = {{0, 1}, {65, 64}, {-3, 1}, {2, 2}, {64, 64}, {2, 2}};
    for (int round = 0; ends < 2000; ++round) {
        const auto [ask, get] = wanted[round % 6];
        ends += std::max(0, q.figures().threads - get);
        q.setThreads(ask);
        q.enqueue(I(round));
        untilTrue([&, get = get] { return used() == 1 + get && q.figures().threads == get; });
    }
    // Too many for the slots: those that fit work, and the count is the truth.
    for (const char* name : {"a", "b"}) queue(name).setThreads(64);
    q.setThreads(64);
    EXPECT_EQ(raised([&] { queue("d").setThreads(64); }), "ApplicationError: Too many threads");
    EXPECT_EQ(queue("d").figures().threads, 63);
    q.setThreads(1);
    untilTrue([&] { return used() < 200; });
    queue("d").setThreads(64);
    EXPECT_EQ(queue("d").figures().threads, 64);
}

TEST_F(Queues, ManyThreadsEnqueue) {
    manager().release();
    IPE_ThreadQueue& q = queue("count");
    q.setThreads(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&q] {
            XPK_ThreadScope scope(false);
            IPE_Object job = D({{S("text"), S("some text of this thread")}, {S("list"), L({I(1000)})}});
            for (int i = 0; i < 3000; ++i) {
                q.enqueue(job);
                if (i % 512 == 0) std::this_thread::sleep_for(1ms);
            }
        });
    for (std::thread& thread : threads) thread.join();
    untilTrue([] { return calls == 24000; });
    EXPECT_EQ(figures(q), "0 4 0 24000");
}

TEST_F(Queues, StopsPromptlyAtAnyMoment) {
    std::mt19937 random(7);
    for (int round = 0; round < 20; ++round) {
        if (round % 5 != 0) manager().release();
        for (const char* name : {"count", "hold", "mixed", "faulty"}) queue(name).setThreads(4);
        std::atomic<bool> stopping{false};
        std::thread load([&] {
            XPK_ThreadScope scope(false);
            for (int i = 0; !stopping; ++i) {
                queue("count").enqueue(I(i));
                queue("mixed").enqueue(D({{S("number"), I(i)}}));
                if (i % 20 == 0) queue("hold").enqueue(IPE_NewDict());
                if (i % 50 == 0) std::this_thread::sleep_for(1ms);
            }
        });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
        auto begin = std::chrono::steady_clock::now();
        stop();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
        stopping = true;
        load.join();
        TearDown();
        SetUp();
    }
}

TEST_F(Queues, TimersAndLog) {
    EXPECT_EQ(raised(IPE_PulseOne), "RuntimeError: Queue does not exist");
    for (const char* name : {"pulse_1", "pulse_7", "pulse_31"}) queue(name);
    IPE_PulseOne();
    IPE_PulseSeven();
    IPE_PulseThirtyOne();
    for (const char* name : {"pulse_1", "pulse_7", "pulse_31"})
        EXPECT_EQ(repr(queue(name).drain().at(0)), "{}");

    IPE_Object handle = IPE_Logger::find();
    IPE_Logger& logger = *handle.as<IPE_Logger>();
    EXPECT_EQ(raised([&] { logger.add({}); }), "RuntimeError: addrecord recieved a null argument!");
    IPE_Log("dev", 40, "nobody takes this");
    logger.pulse();
    IPE_ThreadQueue& q = queue("logger");
    logger.pulse();
    EXPECT_EQ(q.figures().entered, 0);  // nothing pending, and what was is gone
    call(handle, "addrecord", {D({{S("msg"), S("of a script")}})});
    EXPECT_TRUE(IPE_SetLogContext("ssl", 10, "some/path.cpp", 12));
    IPE_LogMessage("message", T({I(1), I(2)}));
    logger.pulse();
    auto jobs = q.drain();
    ASSERT_EQ(jobs.size(), 1u);
    IPE_List list{IPE_Dict_Get(jobs[0], "logevents")};
    ASSERT_EQ(list.count(), 2);
    EXPECT_EQ(repr(list[0]), "{'msg': 'of a script'}");
    for (auto [key, value] : {std::pair{"name", "'ssl'"},
                              {"levelno", "10"},
                              {"pathname", "'some/path.cpp'"},
                              {"lineno", "12"},
                              {"excinfo", "None"},
                              {"msg", "'message'"},
                              {"args", "(1, 2)"}})
        EXPECT_EQ(repr(IPE_Dict_Get(list[1], key)), value);

    for (int i = 0; i < IPE_LogLimit + 3; ++i) logger.add(IPE_True());
    logger.pulse();
    IPE_List full{IPE_Dict_Get(q.drain().at(0), "logevents")};
    EXPECT_EQ(full.count(), IPE_LogLimit + 1);
    EXPECT_EQ(repr(IPE_Dict_Get(full[IPE_LogLimit], "msg")), "'3 log records were dropped'");
    IPE_Logger::stop();
    EXPECT_FALSE(IPE_SetLogContext("dev", 40, "x", 1));
    IPE_Log("dev", 40, "after the end");
}

// Stores, queues, registry, log and modules from eight threads at once; QUILL_STRESS_SECONDS makes it longer.
TEST_F(Queues, Stress) {
    manager().release();
    const char* wanted = getenv("QUILL_STRESS_SECONDS");
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(wanted ? atoi(wanted) : 3);
    IPE_Object parcel = IPE_Object_Strip(D({{S("a"), L({I(1), S("two"), F(3)})}}));
    queue("logger", D({{S("module"), S("threads.count")}})).setThreads(1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            XPK_ThreadScope scope(false);
            std::mt19937 random(static_cast<unsigned>(t));
            IPE_Store& store = IPE_GlobalStore();
            while (std::chrono::steady_clock::now() < until) {
                const int number = static_cast<int>(random() % 1000);
                const std::string name = "q" + std::to_string(random() % 5);
                IPE_ThreadQueue& q = queue(name, D({{S("module"), S("threads.mixed")}}));
                switch (number % 10) {
                    case 0: q.setThreads(number % 6); break;
                    case 1: store.set("shared", parcel); break;
                    case 2: store.get("shared"); break;
                    case 3: store.add(S("sum"), 1); break;
                    case 4: IPE_Log("dev", 10, "stress"); break;
                    case 5: IPE_Logger::find().as<IPE_Logger>()->pulse(); break;
                    case 6: manager().collect(S("job"), IPE_NewList()); break;
                    case 7: registry().figures(); break;
                    case 8: load_source_text("", "class stress." + name + ":\npass\n", name); break;
                    default: q.setPriority(number % 5 - 2);
                }
                if (q.figures().waiting < 1000)
                    q.enqueue(D({{S("number"), I(number)}, {S("parcel"), parcel}}));
            }
        });
    for (std::thread& thread : threads) thread.join();
    for (int i = 0; i < 5; ++i)
        untilTrue([&] { return queue("q" + std::to_string(i)).figures().waiting == 0; });
    EXPECT_GT(calls, 100);
}

}  // namespace
