// EPA_LifeCycle: the table of components, started in dependency order and stopped in reverse.
//
// Components register in static initialisers, before the process entry runs; start and stop run on the
// primary thread.
#pragma once

#include <cstddef>
#include <vector>

// `up` is true for start and false for stop; the data values carry meaning on start only.
using EPA_ComponentFunction = void (*)(bool up, const char* text, void* data);

// A table of components and the stack of those that were started. The process has one, behind EPA_LifeCycle.
class EPA_ComponentTable {
  public:
    static constexpr int Limit = 200;
    static constexpr int DependsLimit = 255;  // bytes of one row's `depends`; more is an assertion

    void add(EPA_ComponentFunction function, const char* depends, const char* name, const char* text,
             void* data);
    // Components may add rows while they start; a row added after its step has passed counts as left over.
    void start();
    // Calls each started component, last first. One that raises is off the stack already, so that a further
    // call goes on with the next.
    void stop();
    bool anyStarted() const noexcept { return !started_.empty(); }

  private:
    struct Row {
        EPA_ComponentFunction function;
        const char* depends;
        const char* name;
        const char* text;
        void* data;
        bool done = false;
        bool afterOthers() const noexcept;
    };
    void run(size_t index);
    template <class Which>
    void runEach(Which which);
    bool sweep();
    bool isReady(const Row& row) const;

    std::vector<Row> rows_;
    std::vector<EPA_ComponentFunction> started_;
};

class EPA_LifeCycle {
  public:
    static constexpr int Limit = EPA_ComponentTable::Limit;
    // Appends a row. `depends` is a comma-separated list of component names, "*" for "after all others", or
    // null; `name` is null for a component that nobody depends on. The 201st registration is an assertion.
    static void registerComponent(EPA_ComponentFunction function, const char* depends, const char* name,
                                  const char* text = nullptr, void* data = nullptr);
    // true starts every component, raising SystemError when a dependency is missing, cyclic, or a row is left
    // over; false calls every started one again, last first.
    static void control(bool up);
    // request_shutdown, the linked shutdown handlers, then every started component is stopped; exceptions are
    // dropped.
    static void shutdown();
};

// A static object that registers a component.
struct EPA_Component {
    EPA_Component(EPA_ComponentFunction function, const char* depends = nullptr, const char* name = nullptr,
                  const char* text = nullptr, void* data = nullptr) {
        EPA_LifeCycle::registerComponent(function, depends, name, text, data);
    }
};
