// IPE_InputBuffer: text that arrives in pieces and leaves from the front, with a limit.
//
// What XML blocks and line buffers are made of. Taking from the front costs nothing but a rare move of what
// is left, never more bytes than have been taken since the last one. Belongs to one thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ipe/object/ipe_arguments.h"

class IPE_InputBuffer {
  public:
    static constexpr int32_t DefaultLimit = 0x100000;  // bytes
    static constexpr size_t CapacityLimit = 0x40000000;

    // A `limit` of 0 is none; under a negative one every append raises.
    explicit IPE_InputBuffer(int32_t limit) : limit_(limit) {}

    // Adds the bytes. If the text, counted to its first NUL, is then longer than the limit, writes to the log
    // and raises RuntimeError "XML Block buffer maximum size exceeded!"; the bytes stay. Reaching
    // CapacityLimit is an assertion, whatever the limit; then nothing is added.
    void append(std::string_view bytes);
    // The argument of the two modules' `create`, spec "|i", for the constructor.
    static int32_t limitOf(const IPE_Arguments& arguments);
    void dropFront(size_t count);  // at most the size
    void clear();
    // Valid up to the next change.
    std::string_view view() const noexcept { return std::string_view(bytes_).substr(front_); }
    size_t size() const noexcept { return bytes_.size() - front_; }
    // Bytes moved to the front so far.
    uint64_t moved() const noexcept { return moved_; }

  private:
    // Looks for the first NUL in what is new since the last look.
    void findNul();

    const int32_t limit_;
    std::string bytes_;
    size_t front_ = 0;    // bytes before it have been taken
    size_t nulFree_ = 0;  // no NUL in [front_, nulFree_); the first NUL or the end stands there
    uint64_t moved_ = 0;
};
