// Matching for SQL.
//
// Patterns and texts may be hostile. The engine's limits bound the steps from one starting place; a long text
// is searched in stretches of starting places, with a look at the clock and at the server's running flag in
// between. A pattern that could tell (`\G`, a verb) runs in one piece, under the engine's limits alone.
#include "ipe_sqlite/ipe_sqlite_regexp.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#include <sqlite3.h>

#include <chrono>

#include "ipe/values/ipe_codepoints.h"
#include "runtime/epa_shutdown.h"
#include "runtime/xpk_exception.h"

namespace {

constexpr uint32_t MatchLimit = 1'000'000;  // steps from one starting place
constexpr uint32_t DepthLimit = 200'000;
constexpr uint32_t HeapLimitKiB = 32 * 1024;
constexpr size_t JitStackStart = 32 * 1024, JitStackLimit = 4 * 1024 * 1024;
constexpr size_t Stretch = 512;  // starting places between two looks at the clock
constexpr std::chrono::seconds TimeLimit(20);
constexpr size_t ShownPattern = 400;  // bytes of a pattern that a message shows

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* value) const { Free(value); }
};
template <class T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, Deleter<T, Free>>;

std::string_view textOf(sqlite3_value* value) {
    const unsigned char* text = sqlite3_value_text(value);
    return {text ? reinterpret_cast<const char*>(text) : "", static_cast<size_t>(sqlite3_value_bytes(value))};
}

void regexp(sqlite3_context* context, int, sqlite3_value** values) {
    auto* self = static_cast<IPE_Sqlite_Regexp*>(sqlite3_user_data(context));
    if (!self) return sqlite3_result_error(context, "'this' pointer null!", -1);
    for (int i : {0, 1})
        if (sqlite3_value_type(values[i]) == SQLITE_NULL) return sqlite3_result_null(context);
    try {
        if (!self->setPattern(textOf(values[0])))
            return sqlite3_result_error(context, self->error().c_str(), -1);
        IPE_Sqlite_Regexp::Answer answer = self->search(textOf(values[1]));
        if (answer == IPE_Sqlite_Regexp::Answer::Failed)
            return sqlite3_result_error(context, "Error executing regular expression", -1);
        sqlite3_result_int(context, answer == IPE_Sqlite_Regexp::Answer::Yes);
    } catch (...) {
        sqlite3_result_error_nomem(context);
    }
}

}  // namespace

struct IPE_Sqlite_Regexp::Engine {
    Owned<pcre2_code, pcre2_code_free> code;
    bool inStretches = false;
    Owned<pcre2_match_context, pcre2_match_context_free> context{pcre2_match_context_create(nullptr)};
    Owned<pcre2_match_data, pcre2_match_data_free> data{pcre2_match_data_create(1, nullptr)};
    Owned<pcre2_jit_stack, pcre2_jit_stack_free> stack{
        pcre2_jit_stack_create(JitStackStart, JitStackLimit, nullptr)};

    Engine() {
        if (!context || !data || !stack) throw XPK_MemoryException(__FILE__, __LINE__);
        pcre2_set_match_limit(context.get(), MatchLimit);
        pcre2_set_depth_limit(context.get(), DepthLimit);
        pcre2_set_heap_limit(context.get(), HeapLimitKiB);
        pcre2_jit_stack_assign(context.get(), nullptr, stack.get());
    }
};

IPE_Sqlite_Regexp::IPE_Sqlite_Regexp() = default;
IPE_Sqlite_Regexp::~IPE_Sqlite_Regexp() = default;

int IPE_Sqlite_Regexp::publish(sqlite3* handle) {
    return sqlite3_create_function(handle, "regexp", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS,
                                   this, regexp, nullptr, nullptr);
}

void IPE_Sqlite_Regexp::forget() noexcept { engine_ = nullptr; }

bool IPE_Sqlite_Regexp::setPattern(std::string_view pattern) {
    if (engine_ && engine_->code && pattern == pattern_) return true;
    if (!engine_) engine_ = std::make_unique<Engine>();
    engine_->code = nullptr;
    pattern_ = pattern;

    engine_->inStretches =
        pattern_.find("(*") == std::string::npos && pattern_.find("\\G") == std::string::npos;
    Owned<pcre2_compile_context, pcre2_compile_context_free> context(pcre2_compile_context_create(nullptr));
    if (!context) throw XPK_MemoryException(__FILE__, __LINE__);
    pcre2_set_compile_extra_options(context.get(),
                                    PCRE2_EXTRA_ALLOW_LOOKAROUND_BSK | PCRE2_EXTRA_BAD_ESCAPE_IS_LITERAL);
    uint32_t options =
        PCRE2_UTF | PCRE2_CASELESS | (engine_->inStretches ? uint32_t{PCRE2_USE_OFFSET_LIMIT} : 0);
    int fault = 0;
    PCRE2_SIZE offset = 0;
    engine_->code.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern_.data()), pattern_.size(), options,
                                      &fault, &offset, context.get()));
    if (!engine_->code) {
        PCRE2_UCHAR message[256] = {};
        pcre2_get_error_message(fault, message, sizeof message);
        error_ = "Error compiling regular expression: " + pattern_.substr(0, ShownPattern) + " - " +
                 reinterpret_cast<const char*>(message) + " (position " + std::to_string(offset) +
                 ") in pattern";
        return false;
    }
    // Without machine code, as for the few items the compiler does not know, the interpreter serves.
    pcre2_jit_compile(engine_->code.get(), PCRE2_JIT_COMPLETE);
    return true;
}

int IPE_Sqlite_Regexp::matchOnce(std::string_view text, size_t start, size_t limit, uint32_t options) {
    auto* subject = reinterpret_cast<PCRE2_SPTR>(text.data());
    pcre2_set_offset_limit(engine_->context.get(), limit);
    int result = pcre2_match(engine_->code.get(), subject, text.size(), start, options, engine_->data.get(),
                             engine_->context.get());
    if (result == PCRE2_ERROR_JIT_STACKLIMIT)
        result = pcre2_match(engine_->code.get(), subject, text.size(), start, options | PCRE2_NO_JIT,
                             engine_->data.get(), engine_->context.get());
    return result;
}

IPE_Sqlite_Regexp::Answer IPE_Sqlite_Regexp::search(std::string_view text) {
    uint32_t options = IPE_IsAscii(text) ? PCRE2_NO_UTF_CHECK : 0;
    int result = PCRE2_ERROR_NOMATCH;
    if (!engine_->inStretches || text.size() <= Stretch) {
        result = matchOnce(text, 0, PCRE2_UNSET, options);
    } else {
        auto begun = std::chrono::steady_clock::now();
        for (size_t start = 0; start <= text.size();) {
            size_t next = start + Stretch;
            while (next < text.size() && (text[next] & 0xC0) == 0x80) ++next;
            result = matchOnce(text, start, std::min(next - 1, text.size()), options);
            if (result != PCRE2_ERROR_NOMATCH) break;
            options = PCRE2_NO_UTF_CHECK;  // the first stretch has looked at the whole text
            start = next;
            if (start > text.size()) break;
            if (!XPK_IsRunning() || std::chrono::steady_clock::now() - begun > TimeLimit)
                return Answer::Failed;
        }
    }
    if (result == PCRE2_ERROR_NOMATCH) return Answer::No;
    return result >= 0 ? Answer::Yes : Answer::Failed;
}
