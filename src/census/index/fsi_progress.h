// FSI_Progress: how far a long walk has come, as scripts see it.
//
// The hook's name is "msg_primitive" for reports and "msg_helper" for indexes. What is published is the list
// of a translatable template and the percentage, under `message` and the hook's name in the thread variable
// `progress`; an index also publishes it in the global "msg_helper" under `progress`, and as `message` in its
// lock. A tick that is not a multiple of the step costs one addition and a comparison.
//
// Belongs to the walk's thread. The thread's entry is removed when the object dies.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/ipe_object.h"

// For as long as it lives, a script callable that gets the template and the percentage of every message of
// its thread; for runs where no other thread could read them. A null handle and None listen to nothing. What
// the callable raises ends the walk.
class FSI_ProgressListener {
  public:
    explicit FSI_ProgressListener(const IPE_Object& callable);
    ~FSI_ProgressListener();
    FSI_ProgressListener(const FSI_ProgressListener&) = delete;
    FSI_ProgressListener& operator=(const FSI_ProgressListener&) = delete;

  private:
    friend class FSI_Progress;
    IPE_Object callable_;
    FSI_ProgressListener* outer_;
};

class FSI_Progress {
  public:
    static constexpr int64_t Step = 1000;

    explicit FSI_Progress(const char* hook);
    ~FSI_Progress();
    FSI_Progress(const FSI_Progress&) = delete;
    FSI_Progress& operator=(const FSI_Progress&) = delete;

    // A new phase: a key and a template with ${0}; the count goes back to 0 and a first message appears.
    void start(std::string_view key, std::string_view text, int64_t total);
    // The next phase of the same count.
    void phase(std::string_view key, std::string_view text);
    void tick() {
        if (++done_ % Step == 0) [[unlikely]]
            publish();
    }
    // `count` ticks.
    void advance(int64_t count) {
        int64_t before = done_;
        done_ += count;
        if (before / Step != done_ / Step) publish();
    }
    int64_t done() const noexcept { return done_; }

    // The lock whose entry holds the message as well; empty for none.
    void setLockName(std::string_view name);
    // Publishes somebody else's message as one's own.
    void relay(const IPE_Object& message);
    void clear() noexcept;

  private:
    void publish();
    void publish(const IPE_Object& message);

    const char* hook_;
    int64_t total_ = 0, done_ = 0;
    int64_t lastPercent_ = -1;
    IPE_Object template_, lockName_;
};
