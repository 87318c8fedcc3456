// Binary packing.
//
// A format is walked option by option; next() also works out the padding that alignment asks for, so that
// the three functions see only sizes. Bytes are laid out one by one, which serves both orders and sizes up to
// 16. Every size is bounded before it is added or used.
#include "ipe/engines/ipe_luapack.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace {

constexpr int MaximumSize = 16;               // bytes of one integer
constexpr size_t MaximumResult = 0x7fffffff;  // bytes of one packed text
constexpr double TwoTo63 = 9223372036854775808.0;
constexpr double TwoTo64 = 18446744073709551616.0;

enum class Kind { Integer, Unsigned, Float, Double, Fixed, Counted, Terminated, Pad, Align, Nothing };

struct Option {
    Kind kind = Kind::Nothing;
    size_t size = 0;
    size_t padding = 0;  // bytes before it
};

class Format {
  public:
    Format(lua_State* L, const char* text) : L_(L), next_(text) {}
    bool more() const { return *next_ != 0; }
    bool little() const { return little_; }

    // The next option, placed at `offset` bytes from the start of the text.
    Option next(size_t offset) {
        Option option = read();
        size_t align = option.size;
        if (option.kind == Kind::Align) {
            Option model = *next_ ? read() : Option();
            align = model.size;
            if (model.kind == Kind::Fixed || align == 0)
                luaL_argerror(L_, 1, "invalid next option for option 'X'");
            option.size = 0;
        }
        bool aligned =
            option.kind <= Kind::Double || option.kind == Kind::Counted || option.kind == Kind::Align;
        if (align > 1 && aligned) {
            if (align > alignment_) align = alignment_;
            if (!std::has_single_bit(align)) luaL_argerror(L_, 1, "format asks for alignment not power of 2");
            option.padding = (align - (offset & (align - 1))) & (align - 1);
        }
        return option;
    }

  private:
    bool digit() const { return *next_ >= '0' && *next_ <= '9'; }
    size_t number(size_t absent) {
        if (!digit()) return absent;
        size_t value = 0;
        for (; digit(); ++next_)
            value = std::min(value * 10 + static_cast<size_t>(*next_ - '0'), MaximumResult);
        return value;
    }
    size_t integerSize(size_t absent) {
        size_t size = number(absent);
        if (size < 1 || size > MaximumSize)
            luaL_error(L_, "integral size (%d) out of limits [1,%d]", static_cast<int>(size), MaximumSize);
        return size;
    }
    Option read() {
        char c = *next_++;
        switch (c) {
            case 'b': return {Kind::Integer, 1};
            case 'B': return {Kind::Unsigned, 1};
            case 'h': return {Kind::Integer, sizeof(short)};
            case 'H': return {Kind::Unsigned, sizeof(short)};
            case 'l':
            case 'j': return {Kind::Integer, 8};
            case 'L':
            case 'J':
            case 'T': return {Kind::Unsigned, 8};
            case 'i': return {Kind::Integer, integerSize(sizeof(int))};
            case 'I': return {Kind::Unsigned, integerSize(sizeof(int))};
            case 'f': return {Kind::Float, sizeof(float)};
            case 'd':
            case 'n': return {Kind::Double, sizeof(double)};
            case 's': return {Kind::Counted, integerSize(sizeof(size_t))};
            case 'c':
                if (!digit()) luaL_error(L_, "missing size for format option 'c'");
                return {Kind::Fixed, number(0)};
            case 'z': return {Kind::Terminated, 0};
            case 'x': return {Kind::Pad, 1};
            case 'X': return {Kind::Align, 0};
            case ' ': break;
            case '<': little_ = true; break;
            case '>': little_ = false; break;
            case '=': little_ = std::endian::native == std::endian::little; break;
            case '!': alignment_ = integerSize(alignof(double)); break;
            default: luaL_error(L_, "invalid format option '%c'", c);
        }
        return {};
    }

    lua_State* L_;
    const char* next_;
    bool little_ = std::endian::native == std::endian::little;
    size_t alignment_ = 1;
};

// --- Pack

// `fill` is what stands above the eighth byte.
void addInteger(luaL_Buffer* buffer, uint64_t value, size_t size, bool little, unsigned char fill) {
    char bytes[MaximumSize];
    for (size_t i = 0; i < size; ++i)
        bytes[little ? i : size - 1 - i] = static_cast<char>(i < 8 ? value >> (8 * i) : fill);
    luaL_addlstring(buffer, bytes, size);
}

void packInteger(lua_State* L, luaL_Buffer* buffer, int arg, const Option& option, bool little) {
    double number = luaL_checknumber(L, arg);
    bool isSigned = option.kind == Kind::Integer;
    double top = isSigned || number < 0 ? TwoTo63 : TwoTo64;
    if (std::floor(number) != number || number < -TwoTo63 || number >= top)
        luaL_argerror(L, arg, "number has no integer representation");
    if (option.size < 8) {
        double limit = std::ldexp(1.0, static_cast<int>(option.size) * 8 - (isSigned ? 1 : 0));
        if (isSigned && (number < -limit || number >= limit)) luaL_argerror(L, arg, "integer overflow");
        if (!isSigned && (number < 0 || number >= limit)) luaL_argerror(L, arg, "unsigned overflow");
    }
    uint64_t value =
        number < 0 ? static_cast<uint64_t>(static_cast<int64_t>(number)) : static_cast<uint64_t>(number);
    addInteger(buffer, value, option.size, little, number < 0 && isSigned ? 0xff : 0);
}

template <class Number, class Bits>
void packFloat(luaL_Buffer* buffer, double number, bool little) {
    addInteger(buffer, std::bit_cast<Bits>(static_cast<Number>(number)), sizeof(Number), little, 0);
}

size_t packText(lua_State* L, luaL_Buffer* buffer, int arg, const Option& option, bool little) {
    size_t size = 0;
    const char* text = luaL_checklstring(L, arg, &size);
    size_t total = size;
    if (option.kind == Kind::Fixed) {
        luaL_argcheck(L, size <= option.size, arg, "string longer than given size");
        total = option.size;
    } else if (option.kind == Kind::Counted) {
        luaL_argcheck(L, option.size >= 8 || size < uint64_t(1) << (8 * option.size), arg,
                      "string length does not fit in given size");
        addInteger(buffer, size, option.size, little, 0);
        total += option.size;
    } else {
        luaL_argcheck(L, memchr(text, 0, size) == nullptr, arg, "string contains zeros");
        total += 1;
    }
    luaL_addlstring(buffer, text, size);
    if (option.kind == Kind::Terminated) luaL_addchar(buffer, 0);
    if (option.kind == Kind::Fixed)
        for (size_t i = size; i < option.size; ++i) luaL_addchar(buffer, 0);
    return total;
}

int pack(lua_State* L) {
    Format format(L, luaL_checkstring(L, 1));
    int arg = 1;
    size_t total = 0;
    // The buffer keeps a value on the stack; arguments are read by their own index, which must exist.
    luaL_Buffer buffer;
    lua_pushnil(L);
    luaL_buffinit(L, &buffer);
    while (format.more()) {
        Option option = format.next(total);
        luaL_argcheck(L, option.size + option.padding < MaximumResult - total, 1, "format result too large");
        total += option.padding + option.size;
        for (size_t i = 0; i < option.padding; ++i) luaL_addchar(&buffer, 0);
        switch (option.kind) {
            case Kind::Integer:
            case Kind::Unsigned: packInteger(L, &buffer, ++arg, option, format.little()); break;
            case Kind::Float:
                packFloat<float, uint32_t>(&buffer, luaL_checknumber(L, ++arg), format.little());
                break;
            case Kind::Double:
                packFloat<double, uint64_t>(&buffer, luaL_checknumber(L, ++arg), format.little());
                break;
            case Kind::Fixed:
            case Kind::Counted:
            case Kind::Terminated:
                total += packText(L, &buffer, ++arg, option, format.little()) - option.size;
                luaL_argcheck(L, total < MaximumResult, 1, "format result too large");
                break;
            case Kind::Pad: luaL_addchar(&buffer, 0); break;
            case Kind::Align:
            case Kind::Nothing: break;
        }
    }
    luaL_pushresult(&buffer);
    return 1;
}

int packSize(lua_State* L) {
    Format format(L, luaL_checkstring(L, 1));
    size_t total = 0;
    while (format.more()) {
        Option option = format.next(total);
        if (option.kind == Kind::Counted || option.kind == Kind::Terminated)
            luaL_argerror(L, 1, "variable-length format");
        luaL_argcheck(L, option.size + option.padding < MaximumResult - total, 1, "format result too large");
        total += option.size + option.padding;
    }
    lua_pushnumber(L, static_cast<double>(total));
    return 1;
}

// --- Unpack

// Signed values come with their sign in all 64 bits.
uint64_t readInteger(lua_State* L, const char* bytes, size_t size, bool little, bool isSigned) {
    auto at = [&](size_t i) -> uint64_t {
        return static_cast<unsigned char>(bytes[little ? i : size - 1 - i]);
    };
    uint64_t value = 0;
    for (size_t i = 0; i < size && i < 8; ++i) value |= at(i) << (8 * i);
    if (size < 8 && isSigned && at(size - 1) & 0x80) value |= ~uint64_t(0) << (8 * size);
    uint64_t fill = isSigned && static_cast<int64_t>(value) < 0 ? 0xff : 0;
    for (size_t i = 8; i < size; ++i)
        if (at(i) != fill)
            luaL_error(L, "%d-byte integer does not fit into Lua Integer", static_cast<int>(size));
    return value;
}

// Pushes the value at `from` and gives the number of bytes that it took.
size_t unpackOne(lua_State* L, std::string_view from, const Option& option, bool little) {
    auto integer = [&](bool isSigned) { return readInteger(L, from.data(), option.size, little, isSigned); };
    switch (option.kind) {
        case Kind::Integer:
            lua_pushnumber(L, static_cast<double>(static_cast<int64_t>(integer(true))));
            break;
        case Kind::Unsigned: lua_pushnumber(L, static_cast<double>(integer(false))); break;
        case Kind::Float:
            lua_pushnumber(L, std::bit_cast<float>(static_cast<uint32_t>(integer(false))));
            break;
        case Kind::Double: lua_pushnumber(L, std::bit_cast<double>(integer(false))); break;
        case Kind::Fixed: lua_pushlstring(L, from.data(), option.size); break;
        case Kind::Counted: {
            uint64_t size = integer(false);
            luaL_argcheck(L, size <= from.size() - option.size, 2, "data string too short");
            lua_pushlstring(L, from.data() + option.size, size);
            return option.size + size;
        }
        case Kind::Terminated: {
            size_t end = from.find('\0');
            luaL_argcheck(L, end != std::string_view::npos, 2, "unfinished string for format 'z'");
            lua_pushlstring(L, from.data(), end);
            return end + 1;
        }
        default: break;
    }
    return option.size;
}

int unpack(lua_State* L) {
    Format format(L, luaL_checkstring(L, 1));
    size_t size = 0;
    const char* text = luaL_checklstring(L, 2, &size);
    double start = luaL_optnumber(L, 3, 1);
    if (start < 0) start = start + static_cast<double>(size) < 0 ? 0 : start + static_cast<double>(size) + 1;
    luaL_argcheck(L, start >= 1 && start <= static_cast<double>(size) + 1 && std::floor(start) == start, 3,
                  "initial position out of string");
    auto position = static_cast<size_t>(start) - 1;
    int results = 0;
    while (format.more()) {
        Option option = format.next(position);
        luaL_argcheck(L, option.padding + option.size <= size - position, 2, "data string too short");
        position += option.padding;
        luaL_checkstack(L, 2, "too many results");
        int top = lua_gettop(L);
        position += unpackOne(L, {text + position, size - position}, option, format.little());
        results += lua_gettop(L) - top;
    }
    lua_pushnumber(L, static_cast<double>(position + 1));
    return results + 1;
}

}  // namespace

const luaL_Reg IPE_LuaPackFunctions[] = {
    {"pack", pack}, {"packsize", packSize}, {"unpack", unpack}, {nullptr, nullptr}};
