// SMF_ByteCursor: where the bytes of encoded values come from.
//
// Decoders look at the bytes where they lie, from cursor() to limit(), and tell with advanceTo() how far they
// came. Behind limit() stand at least Padding readable bytes of no meaning, so that wide loads need no check.
// There are two kinds: a stream of the store, whose bytes follow each other through all its blocks, and a
// page cursor, which fetches its next page out of a stream that it shares with others when the first byte of
// it is needed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

// One decoded block. Views into its bytes stay valid as long as somebody holds it.
struct SMF_Block {
    int64_t number = -1;
    size_t size = 0;  // the bytes that count
    size_t room = 0;  // the bytes that there is memory for
    std::unique_ptr<uint8_t[], void (*)(void*)> bytes{nullptr, nullptr};
};
using SMF_BlockRef = std::shared_ptr<const SMF_Block>;

class SMF_ByteCursor {
  public:
    static constexpr size_t Padding = 64;

    virtual ~SMF_ByteCursor() = default;
    SMF_ByteCursor() = default;
    SMF_ByteCursor(const SMF_ByteCursor&) = delete;
    SMF_ByteCursor& operator=(const SMF_ByteCursor&) = delete;

    const uint8_t* cursor() const noexcept { return cursor_; }
    const uint8_t* limit() const noexcept { return limit_; }
    void advanceTo(const uint8_t* cursor) noexcept { cursor_ = cursor; }
    // Makes sure that cursor() < limit(). At the end of the data Corruption "Record reader has detected
    // illegal data".
    void require() {
        if (cursor_ == limit_) [[unlikely]]
            refill();
    }

    // Copying reads, across blocks and pages.
    void read(void* out, size_t size) {
        if (static_cast<size_t>(limit_ - cursor_) >= size) [[likely]] {
            std::memcpy(out, cursor_, size);
            cursor_ += size;
        } else {
            readSlow(static_cast<uint8_t*>(out), size);
        }
    }
    uint8_t readByte() {
        require();
        return *cursor_++;
    }
    // 1 to 8 bytes, low byte first.
    uint64_t readLittle(int bytes);
    // A length in groups of 7 bits, low group first; 0x40000000 or more is an assertion.
    uint32_t readTextLength();
    // A length and so many bytes, replacing `out`.
    void readText(std::string& out);
    // The next `size` bytes where they lie, or empty with the cursor unmoved when they cross a block.
    std::string_view view(size_t size) {
        if (static_cast<size_t>(limit_ - cursor_) < size) return {};
        std::string_view bytes(reinterpret_cast<const char*>(cursor_), size);
        cursor_ += size;
        return bytes;
    }

    // What keeps the bytes between cursor() and limit() alive; null when they are only there until the next
    // read and must be copied.
    virtual SMF_BlockRef hold() const = 0;
    // The most bytes that can still come: a length above it cannot be true.
    virtual int64_t remaining() const noexcept = 0;

    // Raises what a value that the data cannot hold raises.
    [[noreturn]] virtual void tooShort() const = 0;

  protected:
    virtual void refill() = 0;

    const uint8_t* cursor_ = nullptr;
    const uint8_t* limit_ = nullptr;

  private:
    void readSlow(uint8_t* out, size_t size);
};

// The pages of one decoder on a stream that the decoders of all fields share (older layout).
class SMF_PageCursor final : public SMF_ByteCursor {
  public:
    SMF_PageCursor(SMF_ByteCursor& shared, uint32_t pageSize);
    // Forgets the page in hand.
    void drop() noexcept { cursor_ = limit_ = page_.get(); }
    SMF_BlockRef hold() const override { return {}; }
    int64_t remaining() const noexcept override { return shared_.remaining() + (limit_ - cursor_); }

  protected:
    void refill() override;

  private:
    [[noreturn]] void tooShort() const override;
    SMF_ByteCursor& shared_;
    uint32_t pageSize_;
    std::unique_ptr<uint8_t[]> page_;
};
