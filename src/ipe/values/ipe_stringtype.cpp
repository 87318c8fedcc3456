// Strings: storage, comparison, indexing and the text writers. The methods by name have a source of their
// own.
//
// Text lies behind the object in one block, so a string costs one allocation. What is dear to know is learnt
// once: the hash, whether the text is plain ASCII, the length, and for other text the array of code points.
// Plain ASCII, the common case, never builds the array: byte and code point are then the same place. Empty
// and one-letter strings are immortal and shared. All lazily learnt values are built aside and published by
// one atomic store, so strings may be read on several threads at once.
#include "ipe/values/ipe_stringtype.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>

#include "ipe/values/ipe_codepoints.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_numbers.h"
#include "platform/pf_collation.h"
#include "runtime/epa_dataoutput.h"
#include "runtime/xpk_memory.h"

const char IPE_StringType::TypeName[] = "StringType";

namespace {

// The empty text and the 127 one-letter texts.
struct SharedStrings {
    IPE_Object of[128];
    SharedStrings() {
        for (int i = 0; i < 128; ++i) {
            of[i] = IPE_StringType::makeUninitialised(i ? 1 : 0);
            if (i) of[i].as<IPE_StringType>()->data()[0] = static_cast<char>(i);
            of[i].counted()->makeImmortal();
        }
    }
};
const IPE_Object* sharedStrings() {
    static const auto* shared = new SharedStrings;
    return shared->of;
}

struct InternTable {
    std::mutex lock;
    std::unordered_map<std::string_view, IPE_StringType*> names;
};

std::string_view cutAtNul(std::string_view text) {
    const void* nul = text.empty() ? nullptr : memchr(text.data(), 0, text.size());
    return nul ? text.substr(0, static_cast<size_t>(static_cast<const char*>(nul) - text.data())) : text;
}

int sign(int value) { return value < 0 ? -1 : value > 0; }

}  // namespace

// --- Making strings

IPE_StringType* IPE_StringType::create(size_t length) {
    XPK_Assert(length < EPA_StringBuffer::CapacityLimit);
    void* block = XPK_Allocate(sizeof(IPE_StringType) + length + 1);
    auto* string = new (block) IPE_StringType(static_cast<uint32_t>(length));
    string->data()[length] = 0;
    return string;
}

IPE_Object IPE_StringType::makeUninitialised(size_t length) {
    return IPE_Object(static_cast<EPA_Counted*>(create(length)));
}

IPE_Object IPE_StringType::make(std::string_view text, bool tripleQuoted) {
    text = cutAtNul(text);
    if (text.size() < 2 && !tripleQuoted) {
        if (text.empty()) return sharedStrings()[0];
        if (static_cast<signed char>(text[0]) >= 0) return sharedStrings()[static_cast<int>(text[0])];
    }
    IPE_StringType* string = create(text.size());
    if (!text.empty()) memcpy(string->data(), text.data(), text.size());
    if (tripleQuoted) string->kind_.store(TripleQuoted, std::memory_order_relaxed);
    return IPE_Object(static_cast<EPA_Counted*>(string));
}

IPE_StringType* IPE_StringType::intern(std::string_view text) {
    static auto& table = *new InternTable;
    text = cutAtNul(text);
    std::lock_guard guard(table.lock);
    auto found = table.names.find(text);
    if (found != table.names.end()) return found->second;
    IPE_StringType* string = create(text.size());
    if (!text.empty()) memcpy(string->data(), text.data(), text.size());
    uint8_t kind = Interned | AsciiKnown;
    if (IPE_IsAscii(text)) kind |= Ascii;
    if (text == "__extends__" || text == "__implements__") kind |= Special;
    string->kind_.store(kind, std::memory_order_relaxed);
    string->computeHash();
    string->retain();
    string->makeImmortal();
    table.names.emplace(string->view(), string);
    return string;
}

IPE_StringType::~IPE_StringType() { XPK_Free(points_.load(std::memory_order_acquire)); }

// --- What is learnt on first need

// hash * 33 + byte, four bytes at a time: the powers of 33 are independent, the plain chain waits for each
// multiplication.
uint32_t IPE_StringType::hashOf(std::string_view text) noexcept {
    uint32_t h = 5381;
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    size_t left = text.size();
    for (; left >= 4; p += 4, left -= 4) h = h * 1185921u + p[0] * 35937u + p[1] * 1089u + p[2] * 33u + p[3];
    for (; left > 0; ++p, --left) h = h * 33 + *p;
    return h;
}

uint32_t IPE_StringType::computeHash() noexcept {
    uint32_t h = hashOf(view());
    hash_.store(h, std::memory_order_relaxed);
    return h;
}

bool IPE_StringType::isAscii() noexcept {
    uint8_t known = kind();
    if (known & AsciiKnown) return known & Ascii;
    bool ascii = IPE_IsAscii(view());
    kind_.fetch_or(ascii ? AsciiKnown | Ascii : AsciiKnown, std::memory_order_relaxed);
    return ascii;
}

int32_t IPE_StringType::length() {
    if (isAscii()) return static_cast<int32_t>(bytes_);
    codePoints();
    return length_.load(std::memory_order_relaxed);
}

const char32_t* IPE_StringType::codePoints() {
    if (char32_t* known = points_.load(std::memory_order_acquire)) return known;
    size_t count = isAscii() ? bytes_ : IPE_CountCodePoints(view());
    auto* points = static_cast<char32_t*>(XPK_Allocate((count + 1) * sizeof(char32_t)));
    const char* p = text();
    const char* end = p + bytes_;
    size_t written = 0;
    while (p < end) {
        // A text of more code points than lead bytes has a stray continuation byte and ends here too.
        if (written == count || !IPE_ReadCodePoint(p, end, points[written])) {
            XPK_Free(points);
            XPK_Raise("UnicodeError", "Conversion Failue").raise();
        }
        ++written;
    }
    points[written] = 0;
    length_.store(static_cast<int32_t>(written), std::memory_order_relaxed);
    char32_t* expected = nullptr;
    if (points_.compare_exchange_strong(expected, points, std::memory_order_acq_rel)) return points;
    XPK_Free(points);
    return expected;
}

// --- Arithmetic

IPE_Object IPE_StringType::__add__(const IPE_Object& other) {
    IPE_Object made;
    const IPE_StringType* right = other.tryAs<IPE_StringType>();
    if (!right) {
        made = IPE_Object_AsString(other);
        right = made.as<IPE_StringType>();
    }
    IPE_StringType* sum = create(size_t{bytes_} + right->bytes_);
    memcpy(sum->data(), text(), bytes_);
    memcpy(sum->data() + bytes_, right->text(), right->bytes_);
    uint8_t both = kind() & right->kind() & (Ascii | AsciiKnown);
    if (both == (Ascii | AsciiKnown)) sum->kind_.store(both, std::memory_order_relaxed);
    return IPE_Object(static_cast<EPA_Counted*>(sum));
}

IPE_Object IPE_StringType::__mul__(const IPE_Object& other) {
    int64_t times = other.isNull() ? 0 : other->__int__();
    if (times <= 0 || bytes_ == 0) return IPE_String({});
    XPK_Assert(times < static_cast<int64_t>(EPA_StringBuffer::CapacityLimit / bytes_));
    size_t total = bytes_ * static_cast<size_t>(times);
    IPE_StringType* result = create(total);
    char* data = result->data();
    memcpy(data, text(), bytes_);
    // Each round copies what stands already.
    for (size_t done = bytes_; done < total;) {
        size_t step = done < total - done ? done : total - done;
        memcpy(data + done, data, step);
        done += step;
    }
    return IPE_Object(static_cast<EPA_Counted*>(result));
}

IPE_Object IPE_StringType::__format__(const IPE_Object& other) {
    return IPE_ExpandFormat(IPE_Object(this), other);
}

// --- Comparison and conversion

int IPE_StringType::__cmp__(const IPE_Object& other) {
    if (other.counted() == this) return 0;
    const IPE_StringType* right = other.tryAs<IPE_StringType>();
    if (!right) return 1;
    return sign(view().compare(right->view()));
}

int IPE_StringType::__collate__(const IPE_Object& other) {
    if (other.counted() == this) return 0;
    const IPE_StringType* right = other.tryAs<IPE_StringType>();
    return right ? IPE_CollateText(view(), right->view()) : 1;
}

int IPE_CollateText(std::string_view a, std::string_view b, bool ignoreCase) {
    int order = 0;
    if (platform::collate(0, a, b, ignoreCase ? platform::CollateIgnoreCase : 0, order) != 0)
        XPK_Raise("RuntimeError", "Unable to compare the strings").raise();
    return order;
}

int64_t IPE_StringType::__int__() {
    const char* p = text();
    bool negative = *p == '-';
    if (negative) ++p;
    uint64_t number = 0;
    for (; *p >= '0' && *p <= '9'; ++p) number = number * 10 + static_cast<uint64_t>(*p - '0');
    return static_cast<int64_t>(negative ? 0 - number : number);
}

// The decimal point is a point whatever the process's locale.
double IPE_StringType::__float__() {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text(), nullptr, plain);
}

// --- Items

IPE_Object IPE_StringType::part(int32_t begin, int32_t end) {
    if (begin == 0 && end == length()) return IPE_Object(this);
    if (isAscii()) {
        IPE_Object piece = make(view().substr(static_cast<size_t>(begin), static_cast<size_t>(end - begin)));
        piece.as<IPE_StringType>()->kind_.fetch_or(Ascii | AsciiKnown, std::memory_order_relaxed);
        return piece;
    }
    const char32_t* points = codePoints();
    size_t size = 0;
    char unit[4];
    for (int32_t i = begin; i < end; ++i) size += static_cast<size_t>(IPE_WriteCodePoint(points[i], unit));
    IPE_Object piece = makeUninitialised(size);
    char* out = piece.as<IPE_StringType>()->data();
    for (int32_t i = begin; i < end; ++i) out += IPE_WriteCodePoint(points[i], out);
    return piece;
}

IPE_Object IPE_StringType::__getitem__(const IPE_Object& key) {
    XPK_Assert(key.is<IPE_IntType>());
    int64_t index = key.as<IPE_IntType>()->value;
    int64_t count = length();
    if (index < 0) index += count;
    if (index < 0 || index >= count) XPK_Raise("IndexError", "string index out of range").raise();
    if (isAscii()) return sharedStrings()[static_cast<int>(text()[index])];
    return part(static_cast<int32_t>(index), static_cast<int32_t>(index) + 1);
}

IPE_Object IPE_StringType::__getslice__(int32_t begin, int32_t end) {
    int32_t count = length();
    if (begin < 0) begin = begin + count < 0 ? 0 : begin + count;
    if (end < 0) end += count;
    if (end > count) end = count;
    if (begin >= count || begin >= end) return IPE_String({});
    return part(begin, end);
}

IPE_Object IPE_StringType::__getname__() { return IPE_Object(intern(TypeName)); }

// --- Writers

void IPE_StringType::__str__(IPE_PrintContext& context, IPE_StackList& stack) {
    if (stack.count() == 0) {
        context.out.append(view());
        return;
    }
    context.out.append('"');
    context.out.append(view());
    context.out.append('"');
}

void IPE_StringType::writeJson(EPA_StringBuffer& out) {
    length();  // text that is not UTF-8 raises here, JSON has no form for it
    out.append('"');
    const char* run = text();
    const char* p = run;
    for (const char* end = p + bytes_; p < end; ++p) {
        auto byte = static_cast<unsigned char>(*p);
        if (byte >= 0x20 && byte != '"' && byte != '/' && byte != '\\') continue;
        out.append(std::string_view(run, static_cast<size_t>(p - run)));
        run = p + 1;
        out.append('\\');
        switch (byte) {
            case '\b': out.append('b'); break;
            case '\t': out.append('t'); break;
            case '\n': out.append('n'); break;
            case '\f': out.append('f'); break;
            case '\r': out.append('r'); break;
            case '"':
            case '/':
            case '\\': out.append(static_cast<char>(byte)); break;
            default:
                out.append("u00");
                out.append("0123456789abcdef"[byte >> 4]);
                out.append("0123456789abcdef"[byte & 15]);
        }
    }
    out.append(std::string_view(run, static_cast<size_t>(p - run)));
    out.append('"');
}

void IPE_StringType::writeQuoted(EPA_StringBuffer& out, bool inlined) const {
    // A text on one line is never written in triple quotes, so its line feeds are escaped.
    bool triple = isTripleQuoted() && !inlined;
    char quote = '\'';
    if (isTripleQuoted())
        quote = '"';
    else if (memchr(text(), '\'', bytes_) && !memchr(text(), '"', bytes_))
        quote = '"';
    int quotes = triple ? 3 : 1;
    for (int i = 0; i < quotes; ++i) out.append(quote);
    const char* run = text();
    const char* p = run;
    for (const char* end = p + bytes_; p < end; ++p) {
        auto byte = static_cast<unsigned char>(*p);
        if (byte >= 0x10 && byte != '\\' && *p != quote) continue;
        if (byte == '\n' && triple) continue;
        out.append(std::string_view(run, static_cast<size_t>(p - run)));
        run = p + 1;
        out.append('\\');
        switch (byte) {
            case '\n': out.append('n'); break;
            case '\r': out.append('r'); break;
            case '\t': out.append('t'); break;
            case '\\':
            case '\'':
            case '"': out.append(static_cast<char>(byte)); break;
            default:
                out.append('0');
                out.append(static_cast<char>('0' + (byte >> 3)));
                out.append(static_cast<char>('0' + (byte & 7)));
        }
    }
    out.append(std::string_view(run, static_cast<size_t>(p - run)));
    for (int i = 0; i < quotes; ++i) out.append(quote);
}

void IPE_StringType::__repr__(IPE_PrintContext& context, IPE_StackList&) {
    if (context.json)
        writeJson(context.out);
    else
        writeQuoted(context.out, context.inlined);
}

void IPE_StringType::save(EPA_DataOutput& out) {
    out.writeByte(6);
    out.writeInt32(static_cast<int32_t>(bytes_ + 1));
    out.writeBytes(text(), bytes_ + 1);
}
