// The order of directories, and who reads them.
//
// A list holds the directories from which something can be taken: those being read, those whose reading
// pauses, and those with children that nobody has taken. It stands in depth-first order, so that a search
// from its front finds the work that is needed soonest; what is being read is passed over, at most one
// directory a thread. Taking a child puts it in front of its parent. Children are names until they are taken,
// so that a directory with millions of them costs little more than their bytes.
//
// Nobody blocks with a directory half read: when too much waits to be handed on, the listing pauses, and
// whoever comes next, at the latest the emitter when its turn has come, goes on with it.
#include "scan_walk.h"

#include <algorithm>
#include <utility>

namespace quillscan {

// Gives the lock back for a scope, whatever is raised in it. (For Clang a scope's end releases what its begin
// did.)
class EPA_THREAD_MARK(scoped_lockable) Walk::Unlocked {
  public:
    explicit Unlocked(EPA_Lock& lock) EPA_THREAD_MARK(release_capability(lock)) : lock_(lock) {
        lock_.unlock();
    }
    ~Unlocked() EPA_THREAD_MARK(release_capability()) { lock_.lock(); }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

  private:
    EPA_Lock& lock_;
};

Walk::Walk(const Rules& rules, unsigned threads) : rules_(rules), threads_(threads) {}

void Walk::stop() noexcept {
    {
        EPA_LockScope scope(lock_);
        stopping_ = true;
    }
    room_.notify_all();
    for (std::thread& thread : pool_) thread.join();
    pool_.clear();
}

// --- The list. All under the lock.

void Walk::link(Folder& folder, Folder* behind) {
    folder.behind = behind;
    folder.before = behind ? behind->before : last_;
    (folder.before ? folder.before->behind : first_) = &folder;
    (behind ? behind->before : last_) = &folder;
    folder.isListed = true;
}

void Walk::unlink(Folder& folder) {
    if (!folder.isListed) return;
    (folder.before ? folder.before->behind : first_) = folder.behind;
    (folder.behind ? folder.behind->before : last_) = folder.before;
    folder.isListed = false;
}

void Walk::addCost(Folder& folder, size_t cost) {
    folder.cost += cost;
    ahead_ += cost;
}

void Walk::dropCost(Folder& folder, size_t cost) {
    folder.cost -= cost;
    ahead_ -= cost;
    if (held_ > 0 && ahead_ < MostAhead / 2) room_.notify_all();
}

Folder* Walk::takeChild(Folder& parent) {
    const char* name = parent.children.at(parent.nextChild++);
    FolderKind kind = FolderKind::Inner;
    if (parent.kind == FolderKind::Above)
        for (const auto& child : above_->at(pathOf(parent)))
            if (child.first == name) kind = child.second;
    auto* child = new Folder(&parent, name, kind);
    link(*child, &parent);
    if (parent.nextChild == parent.children.count()) unlink(parent);
    addCost(*child, 1);
    return child;
}

// The nearest directory to read or to read on; null when there is none.
Folder* Walk::take() {
    for (Folder* f = first_; f; f = f->behind) {
        if (f->state == Folder::State::Reading) continue;
        if (f->state == Folder::State::Paused) {
            if (f->ready.size() >= MostReady) continue;
            f->state = Folder::State::Reading;
            return f;
        }
        Folder* child = takeChild(*f);
        (f->lastTaken ? f->lastTaken->nextTaken : f->firstTaken) = child;
        f->lastTaken = child;
        return child;
    }
    return nullptr;
}

void Walk::finish(Folder& folder) {
    folder.state = Folder::State::Done;
    if (folder.children.count() == 0) unlink(folder);
    if (idle_ > 0 && folder.children.count() > 1) room_.notify_all();
}

// --- Readers.

// Reads a directory that take() gave, or a part of it, into its buffers.
void Walk::read(Folder& folder, std::unique_ptr<Listing>& listing) {
    bool isNew = !folder.paused;
    if (!isNew) listing = std::move(folder.paused);
    if (!listing) listing = std::make_unique<Listing>(rules_, opened_);
    Chunk scratch;
    for (bool more = true; more;) {
        std::list<Chunk> one;
        {
            Unlocked unlocked(lock_);
            scratch.clear();
            scratch.entries.reserve(isNew ? 64 : Listing::ChunkEntries);
            more = !std::exchange(isNew, false) || listing->open(folder);
            if (more) more = listing->next(folder, scratch);
            if (!more && folder.kind == FolderKind::Above && folder.isPresent) addNamed(folder);
            // What waits takes no more than its size.
            if (!scratch.entries.empty() || !scratch.faults.empty()) one.push_back(scratch);
        }
        addCost(folder, scratch.entries.size());
        folder.ready.splice(folder.ready.end(), one);
        if (!more) {
            addCost(folder, folder.children.count());
            finish(folder);
        } else if (ahead_ >= MostAhead || folder.ready.size() >= MostReady || stopping_) {
            folder.state = Folder::State::Paused;
            folder.paused = std::move(listing);
            more = false;
        }
        if (waiting_) ready_.notify_one();
    }
}

// The children of a directory that is not listed.
void Walk::addNamed(Folder& folder) {
    for (const auto& child : above_->at(pathOf(folder))) folder.children.add(child.first);
    folder.children.sort();
}

void Walk::readers() {
    std::unique_ptr<Listing> listing;
    EPA_LockScope scope(lock_);
    try {
        while (!stopping_) {
            bool isFull = ahead_ >= MostAhead;
            if (Folder* folder = isFull ? nullptr : take()) {
                read(*folder, listing);
                continue;
            }
            ++(isFull ? held_ : idle_);
            room_.wait(lock_);
            --(isFull ? held_ : idle_);
        }
    } catch (...) {
        failure_ = std::current_exception();
        ready_.notify_one();
    }
}

// --- The emitter.

void Walk::hand(Folder& folder, const Chunk& chunk, bool& entered) {
    if (!std::exchange(entered, true) && (folder.isPresent || folder.error)) visitor_->enter(folder);
    if (!chunk.entries.empty() || !chunk.faults.empty()) visitor_->entries(folder, chunk);
}

// A directory that the emitter took: from the system to the visitor without waiting in between.
void Walk::emitListing(Folder& folder) {
    if (!own_) own_ = std::make_unique<Listing>(rules_, opened_);
    bool entered = false;
    for (bool more = own_->open(folder); more;) {
        chunk_.clear();
        more = own_->next(folder, chunk_);
        hand(folder, chunk_, entered);
    }
    if (folder.kind == FolderKind::Above && folder.isPresent) addNamed(folder);
    hand(folder, {}, entered);
    EPA_LockScope scope(lock_);
    finish(folder);
}

// A directory that somebody took: what is there is handed on, and while nothing is, the emitter reads.
void Walk::emit(Folder& folder) {
    bool entered = false;
    EPA_LockScope scope(lock_);
    for (;;) {
        if (failure_) std::rethrow_exception(failure_);
        if (!folder.ready.empty()) {
            std::list<Chunk> one;
            one.splice(one.end(), folder.ready, folder.ready.begin());
            dropCost(folder, one.front().entries.size());
            Unlocked unlocked(lock_);
            hand(folder, one.front(), entered);
            one.clear();
        } else if (folder.state == Folder::State::Done) {
            break;
        } else if (folder.state == Folder::State::Paused) {
            folder.state = Folder::State::Reading;
            read(folder, own_);
        } else if (Folder* other = ahead_ < MostAhead ? take() : nullptr) {
            read(*other, own_);
        } else {
            waiting_ = true;
            ready_.wait(lock_);
            waiting_ = false;
        }
    }
    dropCost(folder, folder.cost);
    Unlocked unlocked(lock_);
    hand(folder, {}, entered);
}

// The next child to hand on, which joins the branch; null when there is none. `isOwn`: nobody has taken it
// before.
Folder* Walk::nextChild(Folder& folder, bool& isOwn) {
    if (failure_) std::rethrow_exception(failure_);
    Folder* child = folder.firstTaken;
    isOwn = !child && folder.nextChild < folder.children.count();
    if (child) {
        folder.firstTaken = child->nextTaken;
        if (!folder.firstTaken) folder.lastTaken = nullptr;
    } else if (isOwn) {
        child = takeChild(folder);
        dropCost(*child, child->cost);
    }
    if (child) branch_.push_back(child);
    return child;
}

// The next directory in order is handed on, or the tree at the end of the branch ends. False: the walk is
// over.
bool Walk::step() {
    Folder& folder = *branch_.back();
    Folder* child;
    bool isOwn = false;
    {
        EPA_LockScope scope(lock_);
        child = nextChild(folder, isOwn);
    }
    if (child) {
        isOwn ? emitListing(*child) : emit(*child);
        return true;
    }
    visitor_->leave(folder);
    branch_.pop_back();
    discard(&folder);
    return !branch_.empty();
}

void Walk::discard(Folder* folder) {
    opened_.drop(*folder);
    delete folder;
}

void Walk::run(std::string_view top, FolderKind kind, const Above& above, Visitor& visitor) {
    visitor_ = &visitor;
    above_ = &above;
    branch_.push_back(new Folder(nullptr, top, kind));
    {
        EPA_LockScope scope(lock_);
        link(*branch_.front(), nullptr);
    }
    for (unsigned i = 1; i < threads_; ++i) pool_.emplace_back([this] { readers(); });
    emitListing(*branch_.front());
    while (step()) {
    }
}

// After a failure directories are left: those of the branch, and what hangs on them, taken and not handed on.
Walk::~Walk() {
    stop();
    while (!branch_.empty()) {
        Folder* folder = branch_.back();
        if (Folder* child = folder->firstTaken) {
            folder->firstTaken = child->nextTaken;
            branch_.push_back(child);
        } else {
            branch_.pop_back();
            discard(folder);
        }
    }
}

}  // namespace quillscan
