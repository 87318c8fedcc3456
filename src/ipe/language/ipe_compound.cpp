// Compound statements: if, while, for, with, try, class.
//
// Each handler reads its own line, runs or skips the deeper lines below, and leaves the cursor on the line
// after the statement, unless a frame is leaving: then the cursor stays where the block stopped. Skipped
// lines are never looked at; the end of a block is known from loading.
#include <optional>

#include "ipe/language/ipe_exceptiontype.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_store.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadpassport.h"

void IPE_Interpreter::expect(IPE_ProgramLine& source, uint8_t kind) {
    if (source.k() != kind) {
        source.sync();
        source.expect(kind);
    }
    source.step();
}

// Past `:` and the end of its line, to the next line.
void IPE_Interpreter::openBlock(IPE_ProgramLine& source) {
    expect(source, TOKEN_COLON);
    if (source.k() != TOKEN_EOL) expect(source, TOKEN_EOL);
    source.down();
}

void IPE_Interpreter::requireDeeper(IPE_ProgramLine& source, uint8_t indent) {
    if (source.lineIndent() <= indent || source.atEndOfProgram()) indentFault(source, indent + 2);
}

void IPE_Interpreter::skipClauses(IPE_ProgramLine& source, uint8_t indent) {
    while (source.lineIndent() == indent) {
        if (source.k() == TOKEN_ELSE) {
            source.step();
            openBlock(source);
        } else if (source.k() == TOKEN_ELIF) {
            source.down();
        } else {
            return;
        }
        requireDeeper(source, indent);
        source.skipDeeper(indent);
    }
}

void IPE_Interpreter::ifStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    const uint8_t indent = source.lineIndent();
    source.step();
    bool taken = condition(frame, source, TOKEN_COLON);
    expect(source, TOKEN_COLON);
    if (source.k() != TOKEN_EOL) return inlineIf(frame, source, indent, taken);
    source.down();
    requireDeeper(source, indent);
    for (;;) {
        if (taken) {
            IPE_Frame block(frame, IPE_Frame::Branch);
            runBlock(block, source);
            // A frame that leaves, or a break on its way out, keeps the cursor.
            if (block.leaving) return;
            return skipClauses(source, indent);
        }
        source.skipDeeper(indent);
        if (source.lineIndent() != indent) return;
        if (source.k() == TOKEN_ELIF) {
            source.step();
            taken = condition(frame, source, TOKEN_COLON);
        } else if (source.k() == TOKEN_ELSE) {
            source.step();
            openBlock(source);
            requireDeeper(source, indent);
            IPE_Frame block(frame, IPE_Frame::Branch);
            return runBlock(block, source);
        } else {
            return;
        }
        openBlock(source);
        requireDeeper(source, indent);
    }
}

void IPE_Interpreter::inlineIf(IPE_Frame& frame, IPE_ProgramLine& source, uint8_t indent, bool taken) {
    if (taken) {
        IPE_Frame block(frame, IPE_Frame::Branch);
        runStatement(block, source);
        if (block.leaving) return;
    }
    source.down();
    if (source.lineIndent() > indent) indentFault(source, indent);
}

void IPE_Interpreter::whileStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    const uint8_t indent = source.lineIndent();
    const uint32_t line = source.line;
    IPE_TokenEntry* const test = source.at + 1;
    source.step();
    bool taken = condition(frame, source, TOKEN_COLON);
    expect(source, TOKEN_COLON);
    IPE_TokenEntry* const body = source.at;
    auto again = [&] {
        source.line = line;
        source.at = test;
        taken = condition(frame, source, TOKEN_COLON);
        expect(source, TOKEN_COLON);
    };
    if (source.k() != TOKEN_EOL) {
        while (taken) {
            if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
            source.at = body;
            IPE_Frame block(frame, IPE_Frame::Loop);
            runStatement(block, source);
            if (block.leaving) return;
            if (block.state == IPE_Frame::Broken) break;
            again();
        }
        source.moveTo(line + 1);
        if (source.lineIndent() > indent) indentFault(source, indent);
        return;
    }
    source.down();
    requireDeeper(source, indent);
    const bool ran = taken;
    while (taken) {
        source.moveTo(line + 1);
        IPE_Frame block(frame, IPE_Frame::Loop);
        runBlock(block, source);
        if (block.leaving) return;
        if (block.state == IPE_Frame::Broken) break;
        again();
    }
    source.moveTo(line + 1);
    source.skipDeeper(indent);
    if (source.lineIndent() != indent || source.k() != TOKEN_ELSE) return;
    source.step();
    openBlock(source);
    requireDeeper(source, indent);
    if (ran) return source.skipDeeper(indent);
    IPE_Frame block(frame, IPE_Frame::Branch);
    runBlock(block, source);
}

void IPE_Interpreter::forStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    const uint8_t indent = source.lineIndent();
    source.step();
    IPE_TokenEntry* const names = source.at;
    size_t count = 0;
    for (;; source.step()) {
        if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
        ++count;
        source.step();
        if (source.k() == TOKEN_IN) break;
        if (source.k() != TOKEN_COMMA) syntaxFault(source);
    }
    source.step();
    IPE_Object sequence = primary(frame, source);
    if (!sequence.is<IPE_ListType>() && !sequence.is<IPE_TupleType>())
        XPK_Raise("TypeError", "Expecting a sequence type (List or Tuple) got $actual")
            .string("actual", sequence.typeName() ? sequence.typeName() : "")
            .raise();
    openBlock(source);
    if (source.lineIndent() <= indent) requireDeeper(source, indent);
    const uint32_t body = source.line;
    auto* items = sequence.as<IPE_SequenceType>();
    const int32_t length = items->count();
    for (int32_t i = 0; i < length; ++i) {
        if (i >= items->count()) XPK_Raise("IndexError", "list index out of range").raise();
        source.moveTo(body);
        IPE_Object element = items->at(i);
        if (count == 1) {
            assignName(frame, *names, std::move(element));
        } else {
            for (size_t n = 0; n < count; ++n) {
                IPE_Object item = element->__getitem__(IPE_Int(static_cast<int64_t>(n)));
                if (!item) XPK_Raise("KeyError", "$key").number("key", static_cast<int64_t>(n)).raise();
                assignName(frame, names[n * 2], std::move(item));
            }
        }
        IPE_Frame block(frame, IPE_Frame::Loop);
        runBlock(block, source);
        if (block.leaving) return;
        if (block.state == IPE_Frame::Broken) break;
    }
    source.moveTo(body);
    source.skipDeeper(indent);
}

void IPE_Interpreter::withStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    const uint8_t indent = source.lineIndent();
    source.step();
    IPE_Object value = primary(frame, source);
    IPE_TokenEntry* name = nullptr;
    for (; source.k() != TOKEN_COLON; source.step()) {
        if (source.k() == TOKEN_IDENTIFIER)
            name = source.at;
        else if (source.k() != TOKEN_AS)
            syntaxFault(source);
    }
    openBlock(source);
    requireDeeper(source, indent);
    const uint32_t body = source.line;
    IPE_Object entered = value->__enter__();
    source.moveTo(body);
    if (name && entered) assignName(frame, *name, std::move(entered));
    IPE_Frame block(frame, IPE_Frame::Loop);
    runBlock(block, source);
    value->__exit__();
    if (block.leaving) return;
    source.moveTo(body);
    source.skipDeeper(indent);
}

void IPE_Interpreter::classStatement(IPE_Frame&, IPE_ProgramLine& source) {
    source.step();
    if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
    source.step();
    if (source.k() != TOKEN_EOL) syntaxFault(source);
    source.down();
}

// --- try.

namespace {

// The hook that sees every exception that reaches a `try`: in tls, else in the thread variables.
IPE_Object exceptionLogger() {
    static IPE_StringType* const key = IPE_StringType::intern("exception_logger");
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state || !state->passport) return {};
    const IPE_Object& tls = state->passport->tls();
    if (tls)
        if (IPE_Type* hook = tls.as<IPE_DictType>()->findName(key)) return IPE_Object(hook);
    auto* variables = state->passport->variables().tryAs<IPE_Store>();
    return variables ? variables->get(IPE_Object(key)) : IPE_Object();
}

bool sameWord(std::string_view a, std::string_view b) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i])) return false;
    return true;
}

}  // namespace

void IPE_Interpreter::tryStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    const uint8_t indent = source.lineIndent();
    const uint32_t line = source.line;
    source.step();
    if (source.k() != TOKEN_COLON) syntaxFault(source);
    source.down();
    requireDeeper(source, indent);
    IPE_Object logger = exceptionLogger();
    std::optional<XPK_Exception> caught;
    IPE_Frame block(frame, IPE_Frame::Try);
    try {
        runBlock(block, source);
    } catch (const XPK_Exception& exception) {
        caught = exception;
    }
    if (caught) return afterException(frame, source, line, indent, *caught, logger);
    if (frame.leaving) return;
    // A break or continue that ended the body stays pending in the loop's frame; the rest of the loop's body
    // runs.
    source.moveTo(line + 1);
    source.skipDeeper(indent);
    if (source.lineIndent() != indent) return;
    if (source.k() == TOKEN_FINALLY) {
        source.down();
        requireDeeper(source, indent);
        return runBlock(frame, source);
    }
    while (source.lineIndent() == indent && (source.k() == TOKEN_EXCEPT || source.k() == TOKEN_RAISE)) {
        source.down();
        source.skipDeeper(indent);
    }
    if (source.lineIndent() == indent && source.k() == TOKEN_ELSE) {
        source.down();
        requireDeeper(source, indent);
        runBlock(frame, source);
    }
}

void IPE_Interpreter::afterException(IPE_Frame& frame, IPE_ProgramLine& source, uint32_t line, uint8_t indent,
                                     const XPK_Exception& exception, const IPE_Object& logger) {
    IPE_Object object = IPE_New<IPE_ExceptionType>(exception);
    if (logger) IPE_CallScript(logger, object);
    source.moveTo(line + 1);
    source.skipDeeper(indent);
    if (source.lineIndent() == indent && source.k() == TOKEN_FINALLY) {
        source.down();
        requireDeeper(source, indent);
        runBlock(frame, source);
        throw exception;
    }
    bool handled = false;
    while (source.lineIndent() == indent && source.k() == TOKEN_EXCEPT) {
        if (!handled) {
            source.step();
            IPE_TokenEntry* name = nullptr;
            bool matches = source.k() == TOKEN_COLON;
            if (!matches) {
                if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
                std::string_view word = source.at->name()->view();
                matches = word == "Exception" || sameWord(word, exception.type());
                if (matches) {
                    source.step();
                    if (source.k() == TOKEN_COMMA) {
                        source.step();
                        if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
                        name = source.at;
                        source.step();
                    }
                    if (source.k() != TOKEN_COLON) syntaxFault(source);
                }
            }
            if (matches) {
                if (name) assignName(frame, *name, object);
                source.down();
                requireDeeper(source, indent);
                runBlock(frame, source);
                handled = true;
                if (frame.leaving || source.k() == TOKEN_BREAK || source.k() == TOKEN_CONTINUE) return;
                continue;
            }
        }
        source.down();
        source.skipDeeper(indent);
    }
    if (source.lineIndent() == indent && source.k() == TOKEN_ELSE) {
        source.down();
        source.skipDeeper(indent);
    }
}
