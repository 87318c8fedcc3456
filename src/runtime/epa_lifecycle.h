// EPA_LifeCycle: the table of components, started in dependency order and stopped in reverse.
//
// Components register in static initialisers, before the process entry runs; start and stop run on the
// primary thread.
#pragma once

#include "runtime/ipe_object.h"

// `up` is true for start and false for stop; the data values carry meaning on start only.
using EPA_ComponentFunction = void (*)(bool up, const char* text, void* data);

class EPA_LifeCycle {
  public:
    static constexpr int Limit = 200;
    // Appends a row. `depends` is a comma-separated list of component names, "*" for "after all others", or
    // null; `name` is null for a component that nobody depends on. The 201st registration is an assertion.
    static void registerComponent(EPA_ComponentFunction function, const char* depends, const char* name,
                                  const char* text = nullptr, void* data = nullptr);
    // true starts every component, raising SystemError when a dependency is missing, cyclic, or a row is left
    // over; false calls every started one again, last first.
    static void control(bool up);
    // request_shutdown, the shutdown handlers, then control(false); exceptions of the last two are dropped.
    static void shutdown();
};

// A static object that registers a component.
struct EPA_Component {
    EPA_Component(EPA_ComponentFunction function, const char* depends = nullptr, const char* name = nullptr,
                  const char* text = nullptr, void* data = nullptr) {
        EPA_LifeCycle::registerComponent(function, depends, name, text, data);
    }
};
