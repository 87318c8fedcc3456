#pragma once

// Reading of our own memory at addresses that may not be there. Safe in a signal handler, never faults.

#include <cstddef>
#include <cstdint>

namespace platform {

// Opens the view that readOwnMemory uses; once, before the first fault. Without it readOwnMemory opens it
// itself.
void prepareOwnMemory();

// Copies up to `size` bytes from `address`; gives how many could be read, fewer or 0 where memory ends.
size_t readOwnMemory(uint64_t address, void* buffer, size_t size);

}  // namespace platform
