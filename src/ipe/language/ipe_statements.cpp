// Simple statements and the block runner.
//
// A block is run by a loop over lines that stops when the indent falls. `break` and `continue` leave the
// cursor on their own token: every handler above returns with it there, and the enclosing block runner sees
// it again, which is how they cross nested blocks. `return` sets the leaving flag of every frame up to its
// function.
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_tokenizer.h"
#include "runtime/epa_shutdown.h"

void IPE_Interpreter::runBlock(IPE_Frame& frame, IPE_ProgramLine& source) {
    const uint8_t indent = source.lineIndent();
    if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
    checkStack();
    while (!source.atEndOfProgram()) {
        const uint8_t kind = source.k();
        if (kind == TOKEN_EOL) {
            source.down();
            if (source.lineIndent() < indent) return;
            continue;
        }
        if (kind == TOKEN_BREAK) return doBreak(frame);
        if (kind == TOKEN_CONTINUE) return doContinue(frame);
        if (source.lineIndent() > indent) indentFault(source, indent);
        if (profiling) [[unlikely]]
            countLine(source);
        switch (kind) {
            case TOKEN_IDENTIFIER:
                identifierStatement(frame, source);
                source.down();
                break;
            case TOKEN_STRING:
            case TOKEN_PASS: source.down(); break;
            case TOKEN_IMPORT:
            case TOKEN_FROM:
            case TOKEN_EXEC:
            case TOKEN_ASSERT:
            case TOKEN_PRINT:
            case TOKEN_DEL:
                runStatement(frame, source);
                source.down();
                break;
            case TOKEN_RAISE: return raiseStatement(frame, source);
            case TOKEN_RETURN: return returnStatement(frame, source);
            case TOKEN_AT: decoratorLine(frame, source); break;
            case TOKEN_DEF: defStatement(frame, source); break;
            case TOKEN_TRY: tryStatement(frame, source); break;
            case TOKEN_USING: usingStatement(frame, source); break;
            case TOKEN_IF: ifStatement(frame, source); break;
            case TOKEN_WHILE: whileStatement(frame, source); break;
            case TOKEN_FOR: forStatement(frame, source); break;
            case TOKEN_CLASS: classStatement(frame, source); break;
            case TOKEN_WITH: withStatement(frame, source); break;
            default: syntaxFault(source);
        }
        if (frame.leaving || source.lineIndent() < indent) return;
    }
}

void IPE_Interpreter::countLine(IPE_ProgramLine& source) {
    auto& counters = source.segment->counters;
    if (counters.empty()) counters.resize(source.segment->lines.size());
    ++counters[source.line].hits;
}

void IPE_Interpreter::runStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    switch (source.k()) {
        case TOKEN_IDENTIFIER: return identifierStatement(frame, source);
        case TOKEN_STRING:
        case TOKEN_PASS: return;
        case TOKEN_AT: return decoratorLine(frame, source);
        case TOKEN_IMPORT: return importStatement(frame, source);
        case TOKEN_FROM: return fromStatement(frame, source);
        case TOKEN_EXEC: return execStatement(frame, source);
        case TOKEN_RAISE: return raiseStatement(frame, source);
        case TOKEN_USING: return usingStatement(frame, source);
        case TOKEN_BREAK: return doBreak(frame);
        case TOKEN_CONTINUE: return doContinue(frame);
        case TOKEN_RETURN: return returnStatement(frame, source);
        case TOKEN_ASSERT: return assertStatement(frame, source);
        case TOKEN_PRINT: return printStatement(frame, source);
        case TOKEN_DEL: return delStatement(frame, source);
        default: syntaxFault(source);
    }
}

// --- Leaving blocks.

void IPE_Interpreter::leaveLoop(IPE_Frame& frame, IPE_Frame::State state, const char* message) {
    for (IPE_Frame* f = &frame; f; f = f->parent) {
        if (f->type == IPE_Frame::Loop) {
            f->leaving = false;
            f->state = state;
            return;
        }
        if (f->type == IPE_Frame::Function || f->type == IPE_Frame::Module) break;
        f->leaving = true;
    }
    XPK_Raise("SyntaxError", message).raise();
}

void IPE_Interpreter::doBreak(IPE_Frame& frame) {
    leaveLoop(frame, IPE_Frame::Broken, "'break' outside loop");
}
void IPE_Interpreter::doContinue(IPE_Frame& frame) {
    leaveLoop(frame, IPE_Frame::Continued, "'continue' outside loop");
}

// At a module's top level the value goes to the interpreter and only that module ends.
void IPE_Interpreter::doReturn(IPE_Frame& frame, IPE_Object value) {
    for (IPE_Frame* f = &frame; f; f = f->parent) {
        f->leaving = true;
        if (f->type == IPE_Frame::Function) {
            f->result = std::move(value);
            return;
        }
        if (f->type == IPE_Frame::Module) break;
    }
    result = std::move(value);
}

// --- The identifier statement.

void IPE_Interpreter::identifierStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    IPE_TokenEntry& name = *source.at;
    source.step();
    if (source.k() == TOKEN_ASSIGN) {
        source.step();
        IPE_Object value = evaluate(frame, source, true);
        if (value.counted()->isNative()) value->__bind__();
        assignName(frame, name, std::move(value));
        return;
    }
    if (source.k() == TOKEN_COMMA) return assignNames(frame, source, name);
    IPE_Object value = nameValue(frame, name);
    if (!value)
        XPK_Raise("NameError", "There is no variable named '$name'")
            .string("name", name.name()->view())
            .raise();
    if (stops(frame, value)) return;
    chainStatement(frame, source, std::move(value));
}

void IPE_Interpreter::assignNames(IPE_Frame& frame, IPE_ProgramLine& source, IPE_TokenEntry& first) {
    std::vector<IPE_TokenEntry*> names{&first};
    while (source.k() == TOKEN_COMMA) {
        source.step();
        if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
        names.push_back(source.at);
        source.step();
    }
    if (source.k() != TOKEN_ASSIGN) syntaxFault(source);
    source.step();
    IPE_Object value = evaluate(frame, source, true);
    value->__bind__();
    if (stops(frame, value)) return;
    int32_t length = value->__len__();
    if (length < static_cast<int32_t>(names.size()))
        XPK_Raise("RuntimeError",
                  "Expected $return_values_expected return values, received only $return_values_received.")
            .number("return_values_expected", static_cast<int64_t>(names.size()))
            .number("return_values_received", length)
            .raise();
    for (size_t i = 0; i < names.size(); ++i) {
        IPE_Object item = value->__getitem__(IPE_Int(static_cast<int64_t>(i)));
        if (!item) XPK_Raise("KeyError", "$key").number("key", static_cast<int64_t>(i)).raise();
        assignName(frame, *names[i], std::move(item));
    }
}

// Everything behind the first name: calls, subscripts and attributes, and an assignment to the last of them.
void IPE_Interpreter::chainStatement(IPE_Frame& frame, IPE_ProgramLine& source, IPE_Object value) {
    IPE_Object receiver;
    auto assigned = [&] {
        source.step();
        IPE_Object right = evaluate(frame, source);
        right->__bind__();
        return right;
    };
    checkStack();
    for (int steps = 0; source.k() != TOKEN_EOL; ++steps) {
        if (steps >= IPE_StackList::Limit) stackExhausted();
        if (source.k() == TOKEN_LPAREN) {
            const IPE_Object& self = receiver ? receiver : value;
            value = callValue(frame, source, value, self.is<IPE_OldClassType>() ? &self : nullptr);
            if (stops(frame, value)) return;
        } else if (source.k() == TOKEN_DOT) {
            source.step();
            if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
            IPE_TokenEntry& name = *source.at;
            source.step();
            if (source.k() == TOKEN_ASSIGN) {
                IPE_Object right = assigned();
                setAttribute(value, name, std::move(right));
                return;
            }
            receiver = value;
            IPE_Object next;
            if (source.k() == TOKEN_LPAREN && callMethodDirectly(frame, source, value, name, next)) {
                ++steps;
                value = std::move(next);
            } else {
                value = attribute(value, name);
                if (!value) XPK_Raise("AttributeError", "$key").string("key", name.name()->view()).raise();
            }
            if (stops(frame, value)) return;
        } else if (source.k() == TOKEN_LBRACKET) {
            source.step();
            IPE_Object key = evaluate(frame, source);
            expect(source, TOKEN_RBRACKET);
            if (source.k() == TOKEN_ASSIGN) {
                IPE_Object right = assigned();
                value->__setitem__(key, right);
                return;
            }
            value = value->__getitem__(key);
            if (!value) XPK_Raise("KeyError", "$key").string("key", IPE_Object_Text(key)).raise();
        } else {
            syntaxFault(source);
        }
    }
}

// --- The other simple statements.

void IPE_Interpreter::printStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    static IPE_StringType* const key = IPE_StringType::intern("__stdout__");
    EPA_StringBuffer text;
    bool lineEnd = true;
    source.step();
    while (source.k() != TOKEN_EOL) {
        if (!lineEnd) text.append(' ');
        lineEnd = true;
        IPE_Object__str__(evaluate(frame, source), text);
        if (source.k() == TOKEN_COMMA) {
            source.step();
            lineEnd = false;
        } else if (source.k() != TOKEN_EOL) {
            syntaxFault(source);
        }
    }
    if (lineEnd) text.append("\r\n");
    IPE_Object target = lookup(frame, key);
    if (target) IPE_CallScript(target, IPE_String(text.view()));
}

void IPE_Interpreter::delStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    source.step();
    if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
    IPE_Object value = nameValue(frame, *source.at);
    if (!value) XPK_Raise("NameError", "NameError $name").string("name", source.at->name()->view()).raise();
    source.step();
    while (source.k() == TOKEN_DOT) {
        source.step();
        if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
        value = attribute(value, *source.at);
        if (!value)
            XPK_Raise("AttributeError", "AttributeError $key")
                .string("key", source.at->name()->view())
                .raise();
        source.step();
    }
    if (source.k() != TOKEN_LBRACKET) syntaxFault(source);
    source.step();
    IPE_Object key = evaluate(frame, source);
    if (source.k() != TOKEN_RBRACKET) syntaxFault(source);
    source.step();
    value->__delitem__(key);
}

void IPE_Interpreter::execStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    source.step();
    IPE_Object text = evaluate(frame, source);
    execute(frame, PyString_SafeCast(text)->view());
}

void IPE_Interpreter::execute(IPE_Frame& frame, std::string_view text) {
    checkStack();
    IPE_StoredTokens stored;
    IPE_Tokenizer tokenizer;
    tokenizer.assign(text);
    stored.lines.push_back({0, 0, 0});
    do {
        tokenizer.next();
        // The rest of such a line is not looked at.
        if (stored.kinds.empty() && (tokenizer.kind() == TOKEN_PASS || tokenizer.kind() == TOKEN_STRING))
            return;
        IPE_Object value;
        switch (tokenizer.kind()) {
            case TOKEN_IDENTIFIER: value = IPE_String(tokenizer.text()); break;
            case TOKEN_STRING: value = tokenizer.getString(); break;
            case TOKEN_NUMBER: value = tokenizer.getNumber(false); break;
            default: break;
        }
        stored.kinds.push_back(tokenizer.kind());
        stored.values.push_back(std::move(value));
    } while (tokenizer.kind() != TOKEN_EOL);
    IPE_Segment segment(stored, std::string(), 0);
    IPE_ProgramLine line(&segment, 0);
    runStatement(frame, line);
}

void IPE_Interpreter::assertStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    source.step();
    IPE_Object left;
    if (!condition(frame, source, TOKEN_EOL, &left))
        XPK_Raise("AssertionError", "Assertion LHS: $lhs")
            .string("lhs", left ? IPE_Object_Text(left) : "")
            .raise();
}

void IPE_Interpreter::raiseStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    source.step();
    if (source.k() == TOKEN_LPAREN) {
        source.step();
        IPE_Object details = evaluate(frame, source);
        expect(source, TOKEN_RPAREN);
        PyDict_SafeCast(details);
        throw XPK_Exception(details);
    }
    if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
    std::string type(source.at->name()->view());
    source.step();
    std::string message;
    if (source.k() == TOKEN_COMMA) {
        source.step();
        message = IPE_Object_Text(evaluate(frame, source));
    }
    if (source.k() != TOKEN_EOL) syntaxFault(source);
    throw XPK_Exception("", 0, type, "", message);
}

void IPE_Interpreter::returnStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    source.step();
    IPE_Object value;
    if (source.k() != TOKEN_EOL) value = evaluate(frame, source);
    doReturn(frame, std::move(value));
}

void IPE_Interpreter::addDecorator(IPE_Frame& frame, IPE_ProgramLine& source) {
    IPE_Object decorator = evaluate(frame, source);
    decorator->__bind__();
    if (!frame.decorators) frame.decorators = IPE_NewList();
    frame.decorators.as<IPE_ListType>()->append(std::move(decorator));
    source.down();
}

void IPE_Interpreter::decoratorLine(IPE_Frame& frame, IPE_ProgramLine& source) {
    source.step();
    addDecorator(frame, source);
}

void IPE_Interpreter::usingStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    const uint8_t indent = source.lineIndent();
    source.down();
    while (!source.atEndOfProgram() && source.lineIndent() > indent) {
        if (source.k() == TOKEN_EOL)
            source.down();
        else
            addDecorator(frame, source);
    }
}
