// Regular expressions over the PCRE2 library with its just-in-time compiler.
//
// Patterns and texts may be hostile. The library's match limit bounds the steps tried from one starting
// place, its heap limit the memory; neither bounds the sum over all starting places of a long text. So a
// search advances in stretches of starting places, and between two stretches the time spent and the server's
// running flag are tested. Stretches are only cut where they cannot show: a pattern that talks about the
// start of the search or steers the backtracking (`\G`, a verb, first-line mode) runs in one piece, under the
// limits of the library alone.
//
// What a match writes to lies in one block per thread, made on first use.
#include "ipe/engines/ipe_re.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <chrono>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_shutdown.h"

const char IPE_RE::TypeName[] = "RegularExpressionType";

namespace {

constexpr std::string_view OptionMark = "\xF4\x8F\xBF\xB9";  // U+10FFF9

constexpr uint32_t MatchLimit = 2'000'000;  // steps from one starting place
constexpr uint32_t DepthLimit = 200'000;
constexpr uint32_t HeapLimitKiB = 32 * 1024;
constexpr size_t JitStackStart = 32 * 1024, JitStackLimit = 4 * 1024 * 1024;
constexpr size_t Stretch = 512;  // starting places between two looks at the clock
constexpr std::chrono::seconds TimeLimit(20);

struct OptionKeyword {
    const char* name;
    uint32_t option;
};
constexpr OptionKeyword OptionKeywords[] = {
    {"PCRE_ANCHORED", PCRE2_ANCHORED},
    {"PCRE_AUTO_CALLOUT", PCRE2_AUTO_CALLOUT},
    {"PCRE_CASELESS", PCRE2_CASELESS},
    {"PCRE_DOLLAR_ENDONLY", PCRE2_DOLLAR_ENDONLY},
    {"PCRE_DOTALL", PCRE2_DOTALL},
    {"PCRE_EXTENDED", PCRE2_EXTENDED},
    {"PCRE_FIRSTLINE", PCRE2_FIRSTLINE},
    {"PCRE_MULTILINE", PCRE2_MULTILINE},
    {"PCRE_NO_AUTO_CAPTURE", PCRE2_NO_AUTO_CAPTURE},
    {"PCRE_UNGREEDY", PCRE2_UNGREEDY},
};

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* value) const { Free(value); }
};
template <class T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, Deleter<T, Free>>;
using Code = Owned<pcre2_code, pcre2_code_free>;
using CompileContext = Owned<pcre2_compile_context, pcre2_compile_context_free>;
using MatchContext = Owned<pcre2_match_context, pcre2_match_context_free>;
using MatchData = Owned<pcre2_match_data, pcre2_match_data_free>;
using JitStack = Owned<pcre2_jit_stack, pcre2_jit_stack_free>;

[[noreturn]] void unexpected() {
    XPK_Raise("RuntimeError", "An unexpected error occured whilst evaluating regular expression").raise();
}

// The faults that say nothing about whether the text matches.
bool isFault(int result) {
    switch (result) {
        case PCRE2_ERROR_MATCHLIMIT:
        case PCRE2_ERROR_DEPTHLIMIT:
        case PCRE2_ERROR_HEAPLIMIT:
        case PCRE2_ERROR_JIT_STACKLIMIT:
        case PCRE2_ERROR_NOMEMORY:
        case PCRE2_ERROR_INTERNAL:
        case PCRE2_ERROR_RECURSELOOP:
        case PCRE2_ERROR_BADOFFSET:
        case PCRE2_ERROR_BADUTFOFFSET:
        case PCRE2_ERROR_BADOFFSETLIMIT:
        case PCRE2_ERROR_BADMAGIC:
        case PCRE2_ERROR_BADOPTION:
        case PCRE2_ERROR_NULL: return true;
        default: return false;
    }
}

std::string_view untilNul(std::string_view text) { return text.substr(0, text.find('\0')); }

}  // namespace

struct IPE_RE::Compiled {
    Code code;
    bool inStretches = false;
    bool anchored = false;
};

struct IPE_RE::MatchMemory {
    MatchContext context{pcre2_match_context_create(nullptr)};
    MatchData one{pcre2_match_data_create(1, nullptr)};
    MatchData pairs{pcre2_match_data_create(PairLimit, nullptr)};
    JitStack stack{pcre2_jit_stack_create(JitStackStart, JitStackLimit, nullptr)};

    MatchMemory() {
        if (!context || !one || !pairs || !stack) throw XPK_MemoryException(__FILE__, __LINE__);
        pcre2_set_match_limit(context.get(), MatchLimit);
        pcre2_set_depth_limit(context.get(), DepthLimit);
        pcre2_set_heap_limit(context.get(), HeapLimitKiB);
        pcre2_jit_stack_assign(context.get(), nullptr, stack.get());
    }
};

IPE_RE::MatchMemory& IPE_RE::memory() {
    thread_local MatchMemory memory;
    return memory;
}

IPE_RE::IPE_RE(const IPE_Object& source, const IPE_Arguments& arguments)
    : IPE_ModuleType(TypeName), source_(source) {
    uint32_t options = PCRE2_UTF;
    for (const OptionKeyword& keyword : OptionKeywords)
        if (arguments.hasKeyword(keyword.name)) options |= keyword.option;

    std::string pattern = IPE_TakePatternOptions(untilNul(source->c_str()), invert_);
    bool inStretches = !(options & PCRE2_FIRSTLINE) && pattern.find("(*") == std::string::npos &&
                       pattern.find("\\G") == std::string::npos;
    if (inStretches) options |= PCRE2_USE_OFFSET_LIMIT;

    CompileContext context(pcre2_compile_context_create(nullptr));
    if (!context) throw XPK_MemoryException(__FILE__, __LINE__);
    uint32_t extra = PCRE2_EXTRA_ALLOW_LOOKAROUND_BSK;
    if (!arguments.hasKeyword("PCRE_EXTRA")) extra |= PCRE2_EXTRA_BAD_ESCAPE_IS_LITERAL;
    pcre2_set_compile_extra_options(context.get(), extra);

    int error = 0;
    PCRE2_SIZE offset = 0;
    Code code(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), options, &error,
                            &offset, context.get()));
    if (!code) {
        PCRE2_UCHAR message[256] = {};
        pcre2_get_error_message(error, message, sizeof message);
        errorMessage_ = reinterpret_cast<const char*>(message);
        errorOffset_ = static_cast<int32_t>(offset);
        return;
    }
    // Without machine code, as for the few items the compiler does not know, the interpreter serves.
    pcre2_jit_compile(code.get(), PCRE2_JIT_COMPLETE);
    compiled_ = std::make_unique<Compiled>();
    compiled_->code = std::move(code);
    compiled_->inStretches = inStretches;
    uint32_t all = 0;
    pcre2_pattern_info(compiled_->code.get(), PCRE2_INFO_ALLOPTIONS, &all);
    compiled_->anchored = all & PCRE2_ANCHORED;
}

IPE_RE::~IPE_RE() = default;

std::string IPE_TakePatternOptions(std::string_view pattern, bool& invert) {
    size_t mark = pattern.find(OptionMark);
    std::string result(pattern.substr(0, mark));
    while (mark != std::string_view::npos) {
        pattern.remove_prefix(mark + OptionMark.size());
        mark = pattern.find(OptionMark);
        std::string_view piece = pattern.substr(0, mark);
        size_t close = piece.find('}');
        if (piece.substr(0, close) == "N") invert = true;
        if (close != std::string_view::npos) result += piece.substr(close + 1);
    }
    return result;
}

void IPE_RE::requireCompiled() const {
    if (compiled_) return;
    XPK_Raise("RuntimeError", "Failed to compile expression: $pcre_errormsg (offset $pcre_erroroffset)")
        .string("pcre_errormsg", errorMessage_)
        .number("pcre_erroroffset", errorOffset_)
        .raise();
}

int IPE_RE::matchOnce(std::string_view text, size_t start, size_t limit, uint32_t options, bool pairs) const {
    MatchMemory& own = memory();
    pcre2_match_data* data = pairs ? own.pairs.get() : own.one.get();
    auto* subject = reinterpret_cast<PCRE2_SPTR>(text.data());
    pcre2_set_offset_limit(own.context.get(), limit);
    int result =
        pcre2_match(compiled_->code.get(), subject, text.size(), start, options, data, own.context.get());
    if (result == PCRE2_ERROR_JIT_STACKLIMIT)
        result = pcre2_match(compiled_->code.get(), subject, text.size(), start, options | PCRE2_NO_JIT, data,
                             own.context.get());
    return result;
}

int IPE_RE::match(std::string_view text, bool pairs) const {
    int result = PCRE2_ERROR_NOMATCH;
    if (!compiled_->inStretches || compiled_->anchored) {
        result = matchOnce(text, 0, PCRE2_UNSET, 0, pairs);
    } else {
        auto begun = std::chrono::steady_clock::now();
        uint32_t options = 0;
        for (size_t start = 0; start <= text.size();) {
            size_t next = start + Stretch;
            while (next < text.size() && (text[next] & 0xC0) == 0x80) ++next;
            result = matchOnce(text, start, next <= text.size() ? next - 1 : text.size(), options, pairs);
            if (result != PCRE2_ERROR_NOMATCH) break;
            options = PCRE2_NO_UTF_CHECK;  // the first stretch has looked at the whole text
            start = next;
            if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
            if (start <= text.size() && std::chrono::steady_clock::now() - begun > TimeLimit) unexpected();
        }
    }
    if (result < 0 && isFault(result)) unexpected();
    return result;
}

bool IPE_RE::search(std::string_view text) const {
    requireCompiled();
    return (match(untilNul(text), false) >= 0) != invert_;
}

IPE_Object IPE_RE::findall(std::string_view text) const {
    requireCompiled();
    text = untilNul(text);
    int count = match(text, true);
    if (count < 0) return {};
    if (count == 0) XPK_Raise("RuntimeError", "Number of matches exceeded internal limit (512)").raise();
    IPE_Object list = IPE_NewList();
    const PCRE2_SIZE* pairs = pcre2_get_ovector_pointer(memory().pairs.get());
    for (int i = 0; i < count; ++i) {
        PCRE2_SIZE begin = pairs[2 * i], end = pairs[2 * i + 1];
        // \K in a lookahead can put the start behind the end.
        bool used = begin != PCRE2_UNSET && begin <= end && end <= text.size();
        list.as<IPE_ListType>()->append(
            IPE_String(used ? text.substr(begin, end - begin) : std::string_view()));
    }
    return list;
}

enum { MethodSearch, MethodFindall };

void IPE_RE::__bind__() { bindMethods({{"search", MethodSearch}, {"findall", MethodFindall}}); }

IPE_Object IPE_RE::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case MethodSearch: arguments.check("s", "search"); return IPE_Int(search(arguments.text(0)));
        case MethodFindall: arguments.check("s", "findall"); return findall(arguments.text(0));
    }
    return {};
}

namespace {

IPE_Object compile(const IPE_Arguments& arguments) {
    arguments.check("o", "compile");
    IPE_Object pattern = IPE_Object_AsString(arguments[0]);
    IPE_Object object = IPE_New<IPE_RE>(pattern, arguments);
    object.as<IPE_RE>()->requireCompiled();
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("ipe.re", "compile", compile, "IPE_Globals");

}  // namespace
