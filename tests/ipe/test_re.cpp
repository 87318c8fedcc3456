// One regular expression in several threads; the program regex.py tells the rest.
#include <atomic>
#include <thread>

#include "ipe/engines/ipe_re.h"
#include "values_testing.h"

namespace {

using Regex = ValuesTest;

TEST_F(Regex, OnePatternServesSeveralThreads) {
    IPE_Object source = S("(\\d+)-(\\d+)"), object = IPE_New<IPE_RE>(source, IPE_Arguments(&source, 1));
    object.as<IPE_RE>()->requireCompiled();
    object.counted()->markShared();
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            XPK_ThreadScope own(false);
            for (int i = 0; i < 500; ++i) {
                std::string text = "x " + std::to_string(t) + "-" + std::to_string(i);
                IPE_Object found = object.as<IPE_RE>()->findall(text);
                if (found && IPE_List(found)[2]->c_str() == std::to_string(i)) ++good;
                if (object.as<IPE_RE>()->search("none")) --good;
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(good, 2000);
}

}  // namespace
