// A string that would fill the current block to the last byte starts a new one; what is left of the old block
// is lost until the reset. Strings are small against the block, so little is.
#include "runtime/epa_stringheap.h"

#include <cstring>

#include "runtime/xpk_exception.h"
#include "runtime/xpk_memory.h"

void EPA_StringHeap::Release::operator()(char* block) const noexcept { XPK_Free(block); }

EPA_StringHeap::EPA_StringHeap(size_t blockSize) : blockSize_(blockSize) {}

void EPA_StringHeap::takeBlock() {
    if (free_.empty()) {
        used_.emplace_back(static_cast<char*>(XPK_Allocate(blockSize_)));
    } else {
        used_.push_back(std::move(free_.back()));
        free_.pop_back();
    }
    cursor_ = used_.back().get();
    remaining_ = blockSize_;
}

void EPA_StringHeap::allocate(size_t size, char*& out) {
    XPK_Assert(size <= blockSize_);
    if (size >= remaining_) takeBlock();
    out = cursor_;
    cursor_ += size;
    remaining_ -= size;
    total_ += size;
}

void EPA_StringHeap::copy(const char* text, char*& out) {
    XPK_Assert(text != nullptr);
    size_t size = strlen(text) + 1;
    allocate(size, out);
    memcpy(out, text, size);
}

void EPA_StringHeap::reset() {
    for (Block& block : used_) free_.push_back(std::move(block));
    used_.clear();
    cursor_ = nullptr;
    remaining_ = 0;
    total_ = 0;
}
