// Start ordering of the components.
//
// The table is small and walked at start alone, so the order comes from plain sweeps: as many as there are
// rows, which is enough for a chain of dependencies listed backwards. A component goes on the started stack
// before its function is called: one that fails half-way is taken down as well.
#include "runtime/epa_lifecycle.h"

#include <cstring>
#include <string_view>

#include "runtime/epa_shutdown.h"
#include "runtime/epa_shutdownhandler.h"
#include "runtime/xpk_exception.h"

bool EPA_ComponentTable::Row::afterOthers() const noexcept { return depends && strcmp(depends, "*") == 0; }

void EPA_ComponentTable::add(EPA_ComponentFunction function, const char* depends, const char* name,
                             const char* text, void* data) {
    XPK_Assert(rows_.size() < static_cast<size_t>(Limit));
    XPK_Assert(!depends || strlen(depends) <= static_cast<size_t>(DependsLimit));
    rows_.push_back({function, depends, name, text, data});
}

void EPA_ComponentTable::run(size_t index) {
    Row& row = rows_[index];
    row.done = true;
    started_.push_back(row.function);
    // The call may add rows and so move them.
    EPA_ComponentFunction function = row.function;
    const char* text = row.text;
    void* data = row.data;
    function(true, text, data);
}

template <class Which>
void EPA_ComponentTable::runEach(Which which) {
    for (size_t i = 0; i < rows_.size(); ++i)
        if (!rows_[i].done && which(rows_[i])) run(i);
}

bool EPA_ComponentTable::isReady(const Row& row) const {
    std::string_view rest = row.depends;
    while (!rest.empty()) {
        size_t comma = rest.find(',');
        std::string_view token = rest.substr(0, comma);
        rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        if (token.empty()) continue;
        const Row* other = nullptr;
        for (const Row& candidate : rows_)
            if (candidate.name && token == candidate.name) other = &candidate;
        if (!other)
            XPK_Raise("SystemError", "Module '$module' depends on missing module '$other'")
                .string("module", row.name ? row.name : "?")
                .string("other", token)
                .raise();
        if (!other->done) return false;
    }
    return true;
}

// True while a row waits for another.
bool EPA_ComponentTable::sweep() {
    bool pending = false;
    for (size_t i = 0; i < rows_.size(); ++i) {
        if (rows_[i].done || !rows_[i].depends || rows_[i].afterOthers()) continue;
        if (isReady(rows_[i]))
            run(i);
        else
            pending = true;
    }
    return pending;
}

void EPA_ComponentTable::start() {
    runEach([](const Row& row) { return !row.depends && row.name; });
    bool pending = true;
    for (size_t i = 0; i < rows_.size() && pending; ++i) pending = sweep();
    if (pending) XPK_Raise("SystemError", "Cyclic module dependency").raise();
    runEach([](const Row& row) { return !row.depends && !row.name; });
    runEach([](const Row& row) { return row.afterOthers(); });
    for (const Row& row : rows_)
        if (!row.done) XPK_Raise("SystemError", "All modules were not initiliazed").raise();
}

void EPA_ComponentTable::stop() {
    while (!started_.empty()) {
        EPA_ComponentFunction function = started_.back();
        started_.pop_back();
        function(false, nullptr, nullptr);
    }
}

namespace {

// Made by the first registration, whichever static initialiser that is in; never destroyed.
EPA_ComponentTable& table() {
    static EPA_ComponentTable* instance = new EPA_ComponentTable;
    return *instance;
}

}  // namespace

void EPA_LifeCycle::registerComponent(EPA_ComponentFunction function, const char* depends, const char* name,
                                      const char* text, void* data) {
    table().add(function, depends, name, text, data);
}

void EPA_LifeCycle::control(bool up) {
    if (up)
        table().start();
    else
        table().stop();
}

void EPA_LifeCycle::shutdown() {
    // Whatever fails here, the process goes on ending: the caller has nobody left to report to.
    try {
        request_shutdown();
    } catch (...) {
    }
    try {
        EPA_ShutdownHandler::runLinked();
    } catch (...) {
    }
    while (table().anyStarted()) {
        try {
            table().stop();
        } catch (...) {
        }
    }
}

namespace {

// Strings need no start; the name exists to be depended on.
EPA_Component strings([](bool, const char*, void*) {}, nullptr, "EPA_String");

}  // namespace
