// A byte string with an offset for its front.
//
// The place of the first NUL is remembered, so that the length that the limit is compared with is known
// without looking at the text again.
#include "ipe/xml/ipe_inputbuffer.h"

#include <algorithm>
#include <cstring>

#include "ipe/builtins/ipe_logger.h"
#include "runtime/xpk_exception.h"

namespace {
constexpr int LogLevel = 40;
constexpr size_t KeptCapacity = 1u << 16;
}  // namespace

int32_t IPE_InputBuffer::limitOf(const IPE_Arguments& arguments) {
    arguments.check("|i", "create");
    if (arguments.size() == 0) return DefaultLimit;
    // A size past 32 bits is a big limit, never none.
    return static_cast<int32_t>(std::clamp<int64_t>(arguments.integer(0), INT32_MIN, INT32_MAX));
}

void IPE_InputBuffer::append(std::string_view bytes) {
    XPK_Assert(bytes.size() < CapacityLimit - size());
    bytes_ += bytes;
    findNul();
    if (limit_ == 0) return;
    if (static_cast<int64_t>(nulFree_ - front_) <= limit_) return;
    IPE_Log("dev", LogLevel, "XML Block buffer maximum size exceeded! System may be under attack.");
    XPK_Raise("RuntimeError", "XML Block buffer maximum size exceeded!").raise();
}

void IPE_InputBuffer::findNul() {
    if (nulFree_ == bytes_.size()) return;
    const char* from = bytes_.data() + nulFree_;
    size_t left = bytes_.size() - nulFree_;
    const void* nul = std::memchr(from, 0, left);
    nulFree_ += nul ? static_cast<size_t>(static_cast<const char*>(nul) - from) : left;
}

void IPE_InputBuffer::dropFront(size_t count) {
    front_ += count;
    if (front_ == bytes_.size()) return clear();
    // The move costs no more than the bytes dropped since the last one have paid for.
    if (size_t left = size(); front_ >= left) {
        bytes_.erase(0, front_);
        moved_ += left;
        nulFree_ -= std::min(nulFree_, front_);
        front_ = 0;
    }
    nulFree_ = std::max(nulFree_, front_);
    findNul();
}

void IPE_InputBuffer::clear() {
    bytes_.clear();
    if (bytes_.capacity() > KeptCapacity) bytes_.shrink_to_fit();
    front_ = nulFree_ = 0;
}
