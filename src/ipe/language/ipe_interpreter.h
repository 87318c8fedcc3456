// IPE_Interpreter: runs programs straight from their tokens.
//
// One interpreter serves one thread; every script thread makes its own and imports for itself. Its parts
// stand in files by what they read: statements (ipe_statements.cpp), compound statements (ipe_compound.cpp),
// expressions (ipe_expressions.cpp), calls and `def` (ipe_calls.cpp), import (ipe_import.cpp).
#pragma once

#include <atomic>
#include <string_view>
#include <vector>

#include "ipe/language/ipe_codetype.h"
#include "ipe/language/ipe_frame.h"
#include "ipe/language/ipe_moduleshared.h"
#include "ipe/language/ipe_program.h"
#include "ipe/object/ipe_arguments.h"

// The arguments of a call while they are gathered: eight in place, more on the heap. Up to four keywords stay
// pairs, so that a call of a plain script function makes no dictionary; more of them, or `**`, become one.
class IPE_ArgumentBuffer {
  public:
    struct Keyword {
        IPE_StringType* name;
        IPE_Object value;
    };
    IPE_ArgumentBuffer() noexcept {}
    ~IPE_ArgumentBuffer();
    IPE_ArgumentBuffer(const IPE_ArgumentBuffer&) = delete;
    IPE_ArgumentBuffer& operator=(const IPE_ArgumentBuffer&) = delete;
    void push(IPE_Object value) {
        if (count_ == capacity_) [[unlikely]]
            grow();
        new (items_ + count_++) IPE_Object(std::move(value));
    }
    void keyword(const IPE_Object& name, IPE_Object value);
    // A keyword written in a call: the name is borrowed from its token.
    void writtenKeyword(IPE_StringType* name, IPE_Object value);
    IPE_Object keywords;  // DictType or null
    // Moves the pairs into the dictionary.
    void gatherKeywords();
    const Keyword* pairs() const noexcept { return pairs_; }
    int pairCount() const noexcept { return pairCount_; }
    int count() const noexcept { return count_; }
    IPE_Object* items() noexcept { return items_; }
    IPE_Arguments arguments() {
        if (pairCount_ > 0) gatherKeywords();
        return IPE_Arguments(items_, count_, keywords);
    }

  private:
    static constexpr int InPlace = 8;
    static constexpr int MaximumPairs = 4;
    void grow();
    alignas(IPE_Object) unsigned char place_[InPlace * sizeof(IPE_Object)];
    IPE_Object* items_ = reinterpret_cast<IPE_Object*>(place_);
    int count_ = 0;
    int capacity_ = InPlace;
    int pairCount_ = 0;
    Keyword pairs_[MaximumPairs];
};

class IPE_Interpreter {
  public:
    // MaximumDepth itself may be entered; one deeper raises SandboxError.
    static constexpr int MaximumDepth = 100;

    IPE_Interpreter();
    // Clears the root namespace, the loaded modules and the built-ins, which breaks the cycles of functions.
    ~IPE_Interpreter();
    IPE_Interpreter(const IPE_Interpreter&) = delete;
    IPE_Interpreter& operator=(const IPE_Interpreter&) = delete;

    // Imports the module by path over the root namespace, which runs its top level.
    void run(std::string_view module);
    void run(const IPE_Object& module) { run(module->c_str()); }

    // --- Statements. Each leaves the cursor as told beside it.
    void runBlock(IPE_Frame& frame, IPE_ProgramLine& source);
    void runStatement(IPE_Frame& frame, IPE_ProgramLine& source);
    // Runs one simple statement from text.
    void execute(IPE_Frame& frame, std::string_view text);

    // --- Expressions. Each leaves the cursor on the first token it does not use.
    // With the stop flag, a first primary whose __stop__ is true ends the evaluation there.
    IPE_Object evaluate(IPE_Frame& frame, IPE_ProgramLine& source, bool stopFlag = false);
    IPE_Object primary(IPE_Frame& frame, IPE_ProgramLine& source);
    bool condition(IPE_Frame& frame, IPE_ProgramLine& source, uint8_t terminator, IPE_Object* left = nullptr);

    // --- Names. Null when there is none.
    IPE_Object lookup(IPE_Frame& frame, IPE_StringType* name, bool skipLocals = false);

    // --- Calls.
    IPE_Object call(IPE_CodeType& code, const IPE_Arguments& arguments);

    // --- Import: runs a registered module's lines in `frame`.
    void importStored(IPE_Frame& frame, const IPE_StoredTokens& stored, const std::string& file);
    // Imports a module into a new namespace, or into `into`, and notes it as loaded; the namespace, or null
    // when the module is missing and need not exist. ImportError "$path".
    IPE_Object importModule(IPE_Frame& frame, std::string_view path, bool mustExist,
                            const IPE_Object& into = IPE_Object());

    [[noreturn]] static void syntaxFault(IPE_ProgramLine& source);
    [[noreturn]] static void indentFault(IPE_ProgramLine& source, int need);

    IPE_Program& program() noexcept { return program_; }
    IPE_ModuleBuiltin& builtins() noexcept { return *builtins_.as<IPE_ModuleBuiltin>(); }
    IPE_ModuleShared& root() noexcept { return *root_.as<IPE_ModuleShared>(); }
    IPE_ModuleShared& loaded() noexcept { return *loaded_.as<IPE_ModuleShared>(); }
    const IPE_Object& builtinsObject() const noexcept { return builtins_; }
    const IPE_Object& rootObject() const noexcept { return root_; }
    // The value of a `return` that no function frame took.
    IPE_Object result;
    bool tracing, profiling;

    // The process-wide defaults that new interpreters copy.
    static std::atomic<bool> traceByDefault, profileByDefault;
    // The interpreter of the calling thread's current frame, or null.
    static IPE_Interpreter* current() noexcept;

  private:
    friend class IPE_CodeType;
    using Line = IPE_ProgramLine;

    // Statements.
    void identifierStatement(IPE_Frame& frame, Line& source);
    void assignNames(IPE_Frame& frame, Line& source, IPE_TokenEntry& first);
    void chainStatement(IPE_Frame& frame, Line& source, IPE_Object value);
    void printStatement(IPE_Frame& frame, Line& source);
    void delStatement(IPE_Frame& frame, Line& source);
    void execStatement(IPE_Frame& frame, Line& source);
    void assertStatement(IPE_Frame& frame, Line& source);
    [[noreturn]] void raiseStatement(IPE_Frame& frame, Line& source);
    void returnStatement(IPE_Frame& frame, Line& source);
    void addDecorator(IPE_Frame& frame, Line& source);
    void decoratorLine(IPE_Frame& frame, Line& source);
    void usingStatement(IPE_Frame& frame, Line& source);
    void ifStatement(IPE_Frame& frame, Line& source);
    void inlineIf(IPE_Frame& frame, Line& source, uint8_t indent, bool taken);
    void whileStatement(IPE_Frame& frame, Line& source);
    void forStatement(IPE_Frame& frame, Line& source);
    void withStatement(IPE_Frame& frame, Line& source);
    void tryStatement(IPE_Frame& frame, Line& source);
    void afterException(IPE_Frame& frame, Line& source, uint32_t line, uint8_t indent,
                        const XPK_Exception& exception, const IPE_Object& logger);
    void classStatement(IPE_Frame& frame, Line& source);
    void defStatement(IPE_Frame& frame, Line& source);
    void importStatement(IPE_Frame& frame, Line& source);
    void importItem(IPE_Frame& frame, Line& source);
    void fromStatement(IPE_Frame& frame, Line& source);
    void leaveLoop(IPE_Frame& frame, IPE_Frame::State state, const char* message);
    void doBreak(IPE_Frame& frame);
    void doContinue(IPE_Frame& frame);
    void doReturn(IPE_Frame& frame, IPE_Object value);
    // Whether the value makes the interpreter abandon the rest of its statement.
    bool stops(IPE_Frame& frame, const IPE_Object& value);
    void countLine(Line& source);
    void requireDeeper(Line& source, uint8_t indent);
    void expect(Line& source, uint8_t kind);
    void openBlock(Line& source);
    void skipClauses(Line& source, uint8_t indent);

    // Expressions.
    IPE_Object operand(IPE_Frame& frame, Line& source);
    IPE_Object chain(IPE_Frame& frame, Line& source, IPE_Object value);
    IPE_Object negated(Line& source);
    template <class Sequence>
    IPE_Object sequenceDisplay(IPE_Frame& frame, Line& source, uint8_t close);
    IPE_Object dictDisplay(IPE_Frame& frame, Line& source);
    IPE_Object dirExpression(IPE_Frame& frame, Line& source);
    IPE_Object subscript(IPE_Frame& frame, Line& source, const IPE_Object& value);
    IPE_Object slice(IPE_Frame& frame, Line& source, const IPE_Object& value, const IPE_Object& begin);
    IPE_Object attribute(const IPE_Object& value, IPE_TokenEntry& name);
    void setAttribute(const IPE_Object& value, IPE_TokenEntry& name, IPE_Object right);
    bool callMethodDirectly(IPE_Frame& frame, Line& source, const IPE_Object& value, IPE_TokenEntry& name,
                            IPE_Object& result);
    IPE_Object callValue(IPE_Frame& frame, Line& source, const IPE_Object& callee,
                         const IPE_Object* receiver);
    void parseArguments(IPE_Frame& frame, Line& source, IPE_ArgumentBuffer& arguments);
    bool term(IPE_Frame& frame, Line& source, uint8_t terminator, IPE_Object* left);
    void skipToTerminator(Line& source, uint8_t terminator);
    static bool contains(const IPE_Object& value, const IPE_Object& container);
    static IPE_Object binary(uint8_t kind, const IPE_Object& left, const IPE_Object& right);
    IPE_Object nameValue(IPE_Frame& frame, IPE_TokenEntry& token);
    // The value of a lone name or literal, borrowed; null when the token is something else, unknown, or goes
    // on in a chain. No script code runs in here, so a second borrowed operand does not endanger the first.
    IPE_Type* simpleOperand(IPE_Frame& frame, IPE_TokenEntry* token);
    bool shortArithmetic(IPE_Frame& frame, IPE_TokenEntry* at, IPE_Type* left, IPE_Object& value);
    bool shortComparison(IPE_Frame& frame, IPE_TokenEntry* at, int& order);
    IPE_Object specialName(IPE_Frame& frame, IPE_StringType* name);
    void assignName(IPE_Frame& frame, IPE_TokenEntry& token, IPE_Object value);

    // Calls and def.
    IPE_Object callCode(IPE_CodeType& code, IPE_Object* items, int count, const IPE_Object& keywords,
                        bool movable, const IPE_ArgumentBuffer::Keyword* pairs = nullptr, int pairCount = 0);
    void bindParameters(IPE_CodeType& code, IPE_Object* items, int count, const IPE_Object& keywords,
                        IPE_ModuleShared& locals, Line& source);
    void bindPlain(IPE_CodeType& code, IPE_Object* items, int count, IPE_DictType& locals, bool movable,
                   Line& source, const IPE_ArgumentBuffer::Keyword* pairs, int pairCount);
    [[noreturn]] static void multipleValues(IPE_CodeType& code, IPE_StringType* argument);
    [[noreturn]] void missingArgument(IPE_CodeType& code, const IPE_Arguments& arguments, Line& source);
    IPE_Object convert(const IPE_Object& converter, const IPE_Object& value, IPE_CodeType& code,
                       IPE_StringType* name, const IPE_Arguments& arguments, bool isType);
    void defParameters(IPE_Frame& frame, Line& source, IPE_CodeType& code);
    void defParameter(IPE_Frame& frame, Line& source, IPE_CodeType& code);
    void defSignature(IPE_CodeType& code);
    IPE_Object defRaises(Line& source, uint8_t indent);
    IPE_Object applyDecorators(IPE_Frame& frame, const IPE_Object& decorators, IPE_Object code);
    // Locals of calls, recycled while nobody else holds them.
    // Functions whose locals outgrow the smallest dictionary get ones that have grown before.
    static constexpr uint32_t SmallLocals = 7;
    IPE_Object takeLocals(bool wide);
    void giveLocals(IPE_Object locals) noexcept;
    void checkStack() const {
        if (static_cast<const char*>(__builtin_frame_address(0)) < stackLimit_) [[unlikely]]
            stackExhausted();
    }
    [[noreturn]] static void stackExhausted();
    void checkDepth(int32_t depth) const {
        if (depth > MaximumDepth) [[unlikely]]
            depthExceeded(depth);
    }
    [[noreturn]] static void depthExceeded(int32_t depth);

    IPE_Program program_;
    IPE_Object builtins_, root_, loaded_;
    std::vector<IPE_Object> spareLocals_[2];
    const char* stackLimit_ = nullptr;
};

// --- The shortest paths, inline.

inline IPE_Object IPE_Interpreter::nameValue(IPE_Frame& frame, IPE_TokenEntry& token) {
    IPE_StringType* name = token.name();
    if (IPE_Type* value = frame.locals->dictionary().findHinted(name, token.local)) return IPE_Object(value);
    if (frame.globals != frame.locals)
        if (IPE_Type* value = frame.globals->dictionary().findHinted(name, token.global))
            return IPE_Object(value);
    if (IPE_Type* value = frame.builtins->findName(name, token.builtin)) return IPE_Object(value);
    return specialName(frame, name);
}

inline IPE_Type* IPE_Interpreter::simpleOperand(IPE_Frame& frame, IPE_TokenEntry* token) {
    const uint8_t next = token[1].kind;
    if (next == TOKEN_LPAREN || next == TOKEN_DOT || next == TOKEN_LBRACKET) return nullptr;
    if (token->kind == TOKEN_NUMBER || token->kind == TOKEN_STRING) return token->value;
    if (token->kind != TOKEN_IDENTIFIER) return nullptr;
    if (IPE_Type* value = frame.locals->dictionary().findHinted(token->name(), token->local)) return value;
    if (frame.globals == frame.locals) return nullptr;
    return frame.globals->dictionary().findHinted(token->name(), token->global);
}

inline void IPE_Interpreter::assignName(IPE_Frame& frame, IPE_TokenEntry& token, IPE_Object value) {
    frame.locals->dictionary().setHinted(token.name(), std::move(value), token.local);
}

inline bool IPE_Interpreter::stops(IPE_Frame& frame, const IPE_Object& value) {
    return value.is<IPE_CodeType>() && value->__stop__(frame);
}
