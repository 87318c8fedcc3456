// Symbols, looked up by an open-addressed table of hashes with linear probing.
#include "store/smf_symboltable.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace {

// Texts up to here are two words, by which they are hashed and compared without a loop.
constexpr size_t ShortText = 16;

const uint64_t seed = std::random_device()() * 0xD6E8FEB86659FD93u + std::random_device()();

uint64_t mix(uint64_t value) noexcept {
    auto product = static_cast<unsigned __int128>(value) * 0x9E3779B97F4A7C15u;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

template <class Word>
uint64_t load(const char* at) noexcept {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// With the length they tell a text of 1 to 16 bytes from all others.
struct Words {
    uint64_t first, last;
    bool operator==(const Words&) const = default;
};
Words wordsOf(std::string_view text) noexcept {
    const char* at = text.data();
    size_t size = text.size();
    if (size >= 8) return {load<uint64_t>(at), load<uint64_t>(at + size - 8)};
    if (size >= 4) return {load<uint32_t>(at), load<uint32_t>(at + size - 4)};
    return {load<uint8_t>(at) << 8 | load<uint8_t>(at + size / 2), load<uint8_t>(at + size - 1)};
}

uint32_t hashOf(std::string_view text) noexcept {
    uint64_t hash = seed ^ text.size();
    if (text.size() <= ShortText) {
        Words words = wordsOf(text);
        hash = mix(mix(hash ^ words.first) ^ words.last ^ seed);
        return static_cast<uint32_t>(hash >> 32);
    }
    const char* at = text.data();
    size_t left = text.size();
    for (; left > 8; at += 8, left -= 8) hash = mix(hash ^ load<uint64_t>(at));
    hash = mix(hash ^ load<uint64_t>(at + left - 8));
    return static_cast<uint32_t>(mix(hash ^ seed) >> 32);
}

bool equal(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    return a.size() <= ShortText ? wordsOf(a) == wordsOf(b) : a == b;
}

}  // namespace

SMF_SymbolTable::SMF_SymbolTable() : slots_(FirstSlots), texts_(1) {}

std::string_view SMF_SymbolTable::copy(std::string_view text) {
    if (text.size() > left_) {
        size_t size = std::max(text.size(), PieceSize);
        pieces_.push_back(std::make_unique_for_overwrite<char[]>(size));
        next_ = pieces_.back().get();
        left_ = size;
    }
    std::memcpy(next_, text.data(), text.size());
    std::string_view own(next_, text.size());
    next_ += text.size();
    left_ -= text.size();
    bytes_ += text.size();
    return own;
}

void SMF_SymbolTable::grow() {
    std::vector<Slot> old(slots_.size() * 2);
    old.swap(slots_);
    size_t mask = slots_.size() - 1;
    for (const Slot& slot : old) {
        if (slot.id == 0) continue;
        size_t i = slot.hash & mask;
        while (slots_[i].id != 0) i = (i + 1) & mask;
        slots_[i] = slot;
    }
}

uint32_t SMF_SymbolTable::idOf(std::string_view text) {
    if (text.empty()) return 0;
    uint32_t hash = hashOf(text);
    if (texts_.size() * 2 > slots_.size()) grow();
    size_t mask = slots_.size() - 1;
    size_t i = hash & mask;
    for (; slots_[i].id != 0; i = (i + 1) & mask)
        if (slots_[i].hash == hash && equal(texts_[slots_[i].id], text)) return slots_[i].id;
    texts_.push_back(copy(text));
    slots_[i] = {hash, static_cast<uint32_t>(texts_.size() - 1)};
    return slots_[i].id;
}
