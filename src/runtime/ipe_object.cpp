// Allocation and destruction of counted values.
//
// destroy() is the only place where values die. A list of lists a million deep would recurse once per level,
// so containers beyond Limit levels are set aside and deleted one after the other by the outermost call on
// the thread.
#include "runtime/ipe_object.h"

#include <vector>

#include "runtime/xpk_memory.h"

namespace {

constexpr int Limit = 64;

struct Graveyard {
    int depth = 0;
    std::vector<EPA_Counted*> waiting;
};
thread_local Graveyard graveyard;

}  // namespace

void* EPA_Counted::operator new(size_t size) { return XPK_Allocate(size); }
void EPA_Counted::operator delete(void* block) noexcept { XPK_Free(block); }

void EPA_Counted::destroy() noexcept {
    if (!(flags_ & IsContainer)) {
        delete this;
        return;
    }
    Graveyard& yard = graveyard;
    if (yard.depth >= Limit) {
        yard.waiting.push_back(this);
        return;
    }
    ++yard.depth;
    delete this;
    --yard.depth;
    while (yard.depth == 0 && !yard.waiting.empty()) {
        EPA_Counted* next = yard.waiting.back();
        yard.waiting.pop_back();
        ++yard.depth;
        delete next;
        --yard.depth;
    }
}
