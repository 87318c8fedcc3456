// Regular expressions of filters over the PCRE2 library with its just-in-time compiler.
//
// Patterns are hostile or merely bad: the library's match limit bounds the steps from one starting place. A
// name has few starting places; a long text is searched in stretches of them, with a look at the clock in
// between, unless the pattern could tell (`\G`, a verb).
//
// The fast entry of the compiler trusts its text to be UTF-8, so each text is looked at first; nearly all are
// ASCII.
#include "store/filters/smf_textmatcher.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <chrono>

#include "ipe/engines/ipe_re.h"
#include "ipe/values/ipe_codepoints.h"
#include "runtime/epa_shutdown.h"
#include "runtime/xpk_exception.h"
#include "store/filters/smf_patternliteral.h"

namespace {

constexpr uint32_t MatchLimit = 1'000'000;
constexpr uint32_t DepthLimit = 200'000;
constexpr uint32_t HeapLimitKiB = 32 * 1024;
constexpr size_t JitStackStart = 32 * 1024, JitStackLimit = 4 * 1024 * 1024;
constexpr size_t Stretch = 512;
constexpr std::chrono::seconds TimeLimit(20);

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* value) const { Free(value); }
};
template <class T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, Deleter<T, Free>>;

[[noreturn]] void engineError() {
    XPK_Raise("RuntimeException", "The PCRE engine returned an error").raise();
}

bool isUtf8(std::string_view text) {
    if (IPE_IsAscii(text)) return true;
    const char* end = text.data() + text.size();
    char32_t point;
    for (const char* p = text.data(); p < end;)
        if (!IPE_ReadCodePoint(p, end, point)) return false;
    return true;
}

void repair(std::string_view text, std::string& out) {
    out.clear();
    const char* end = text.data() + text.size();
    char32_t point;
    for (const char* p = text.data(); p < end;) {
        const char* from = p;
        if (IPE_ReadCodePoint(p, end, point)) {
            out.append(from, p);
        } else {
            out += "\xEF\xBF\xBD";
            ++p;
        }
    }
}

}  // namespace

struct SMF_TextMatcher::Code {
    Owned<pcre2_code, pcre2_code_free> code;
    bool jit = false;
    uint32_t groups = 0;
};

struct SMF_TextMatcher::Memory {
    Owned<pcre2_match_context, pcre2_match_context_free> context{pcre2_match_context_create(nullptr)};
    Owned<pcre2_match_data, pcre2_match_data_free> data{pcre2_match_data_create(2, nullptr)};
    Owned<pcre2_jit_stack, pcre2_jit_stack_free> stack{
        pcre2_jit_stack_create(JitStackStart, JitStackLimit, nullptr)};

    Memory() {
        if (!context || !data || !stack) throw XPK_MemoryException(__FILE__, __LINE__);
        pcre2_set_match_limit(context.get(), MatchLimit);
        pcre2_set_depth_limit(context.get(), DepthLimit);
        pcre2_set_heap_limit(context.get(), HeapLimitKiB);
        pcre2_jit_stack_assign(context.get(), nullptr, stack.get());
    }
};

SMF_TextMatcher::Memory& SMF_TextMatcher::memory() {
    thread_local Memory memory;
    return memory;
}

SMF_TextMatcher::SMF_TextMatcher(std::string_view pattern, bool ignoreCase, bool plain)
    : pattern_(plain ? std::string(pattern) : IPE_TakePatternOptions(pattern, invert_)),
      ignoreCase_(ignoreCase) {
    code_ = compile(0);
    looksAhead_ = SMF_LooksAhead(pattern_);
    SMF_PatternLiteral literal = SMF_RequiredLiteral(pattern_, ignoreCase);
    if (literal.text.size() < (literal.whole ? 1 : 2)) return;
    sure_ = literal.whole && literal.text.size() <= SMF_BatchSearch::LongestNeedle;
    search_.emplace(std::string_view(literal.text).substr(0, SMF_BatchSearch::LongestNeedle), ignoreCase);
}

SMF_TextMatcher::~SMF_TextMatcher() = default;

std::unique_ptr<SMF_TextMatcher::Code> SMF_TextMatcher::compile(uint32_t options) const {
    Owned<pcre2_compile_context, pcre2_compile_context_free> context(pcre2_compile_context_create(nullptr));
    auto compiled = std::make_unique<Code>();
    if (!context) throw XPK_MemoryException(__FILE__, __LINE__);
    pcre2_set_compile_extra_options(context.get(),
                                    PCRE2_EXTRA_ALLOW_LOOKAROUND_BSK | PCRE2_EXTRA_BAD_ESCAPE_IS_LITERAL);
    options |= PCRE2_UTF | (ignoreCase_ ? PCRE2_CASELESS : 0);
    int error = 0;
    PCRE2_SIZE offset = 0;
    compiled->code.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern_.data()), pattern_.size(),
                                       options, &error, &offset, context.get()));
    if (!compiled->code) {
        PCRE2_UCHAR message[256] = {};
        pcre2_get_error_message(error, message, sizeof message);
        XPK_Raise("InvalidRegularExpressionException", "$message")
            .string("message", reinterpret_cast<const char*>(message))
            .raise();
    }
    // Without machine code, as for the few items the compiler does not know, the interpreter serves.
    compiled->jit = pcre2_jit_compile(compiled->code.get(), PCRE2_JIT_COMPLETE) == 0;
    pcre2_pattern_info(compiled->code.get(), PCRE2_INFO_CAPTURECOUNT, &compiled->groups);
    return compiled;
}

// `text` becomes what was searched. The places of the match are left in the thread's memory.
bool SMF_TextMatcher::findIn(std::string_view& text) {
    // The machine code takes a null pointer for no text at all, and a column's empty text may be one.
    if (text.empty()) text = std::string_view("", 0);
    if (!isUtf8(text)) {
        repair(text, repaired_);
        text = repaired_;
    }
    if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
    int result = text.size() > Stretch ? findInStretches(text) : findAtOnce(text);
    if (result < 0 && result != PCRE2_ERROR_NOMATCH) engineError();
    return result >= 0;
}

// Of valid UTF-8; the engine's answer.
int SMF_TextMatcher::findAtOnce(std::string_view text) {
    Memory& own = memory();
    auto* subject = reinterpret_cast<PCRE2_SPTR>(text.data());
    pcre2_set_offset_limit(own.context.get(), PCRE2_UNSET);
    int result = PCRE2_ERROR_JIT_STACKLIMIT;
    if (code_->jit)
        result =
            pcre2_jit_match(code_->code.get(), subject, text.size(), 0, 0, own.data.get(), own.context.get());
    if (result == PCRE2_ERROR_JIT_STACKLIMIT)
        result = pcre2_match(code_->code.get(), subject, text.size(), 0, PCRE2_NO_UTF_CHECK | PCRE2_NO_JIT,
                             own.data.get(), own.context.get());
    return result;
}

int SMF_TextMatcher::findInStretches(std::string_view text) {
    bool whole = pattern_.find("(*") != std::string::npos || pattern_.find("\\G") != std::string::npos;
    if (!stretched_) stretched_ = compile(whole ? 0 : PCRE2_USE_OFFSET_LIMIT);
    Memory& own = memory();
    auto* subject = reinterpret_cast<PCRE2_SPTR>(text.data());
    auto begun = std::chrono::steady_clock::now();
    int result = PCRE2_ERROR_NOMATCH;
    for (size_t start = 0; start <= text.size();) {
        size_t next = whole ? text.size() + 1 : start + Stretch;
        while (next < text.size() && (text[next] & 0xC0) == 0x80) ++next;
        pcre2_set_offset_limit(own.context.get(), whole ? PCRE2_UNSET : std::min(next - 1, text.size()));
        for (uint32_t options : {0u, uint32_t{PCRE2_NO_JIT}}) {
            result = pcre2_match(stretched_->code.get(), subject, text.size(), start,
                                 PCRE2_NO_UTF_CHECK | options, own.data.get(), own.context.get());
            if (result != PCRE2_ERROR_JIT_STACKLIMIT) break;
        }
        if (result != PCRE2_ERROR_NOMATCH) break;
        start = next;
        if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
        if (start <= text.size() && std::chrono::steady_clock::now() - begun > TimeLimit) engineError();
    }
    return result;
}

bool SMF_TextMatcher::matches(std::string_view text) { return findIn(text) != invert_; }

bool SMF_TextMatcher::matchesTail(std::string_view tail) {
    return looksAhead_ && !tail.empty() && tail.size() <= Stretch && IPE_IsAscii(tail) &&
           findAtOnce(tail) >= 0;
}

bool SMF_TextMatcher::find(std::string_view text, Match& match) {
    match = {};
    if (!findIn(text)) return false;
    const PCRE2_SIZE* places = pcre2_get_ovector_pointer(memory().data.get());
    // A look-ahead can move the start of a match behind its end.
    auto part = [&](size_t from, size_t to) { return from < to ? text.substr(from, to - from) : ""; };
    match.whole = part(places[0], places[1]);
    match.hasGroup = code_->groups > 0 && places[2] != PCRE2_UNSET;
    if (match.hasGroup) match.group = part(places[2], places[3]);
    return true;
}
