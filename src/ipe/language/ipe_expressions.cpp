// Expressions and conditions: read anew from the tokens every time they run.
//
// Operators have no precedence: each takes the value so far and the next primary. Integers take a short path;
// all else goes through the type protocol. An expression holds at most 32 operators and a chain at most 32
// steps.
#include "ipe/language/ipe_interpreter.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"

namespace {

bool compared(uint8_t kind, int order) {
    switch (kind) {
        case TOKEN_EQ: return order == 0;
        case TOKEN_NE: return order != 0;
        case TOKEN_LT: return order < 0;
        case TOKEN_LE: return order <= 0;
        case TOKEN_GT: return order > 0;
        default: return order >= 0;
    }
}

// Operators, and the kinds that are a fault behind an operand: a second value, `=` and the meaningless `is`.
bool continuesExpression(uint8_t kind) {
    return kind == TOKEN_IS || (kind >= TOKEN_ASSIGN && kind <= 123) ||
           (kind >= TOKEN_IDENTIFIER && kind <= TOKEN_NUMBER);
}

}  // namespace

IPE_Object IPE_Interpreter::binary(uint8_t kind, const IPE_Object& left, const IPE_Object& right) {
    if (left.is<IPE_IntType>() && right.is<IPE_IntType>()) {
        int64_t a = left.as<IPE_IntType>()->value, b = right.as<IPE_IntType>()->value, result;
        if (kind == TOKEN_PLUS && !__builtin_add_overflow(a, b, &result)) return IPE_Int(result);
        if (kind == TOKEN_MINUS && !__builtin_sub_overflow(a, b, &result)) return IPE_Int(result);
        if (kind == TOKEN_STAR && !__builtin_mul_overflow(a, b, &result)) return IPE_Int(result);
    }
    switch (kind) {
        case TOKEN_PLUS: return left->__add__(right);
        case TOKEN_MINUS: return left->__sub__(right);
        case TOKEN_STAR: return left->__mul__(right);
        case TOKEN_SLASH: return left->__div__(right);
        default: return left->__format__(right);
    }
}

IPE_Object IPE_Interpreter::evaluate(IPE_Frame& frame, IPE_ProgramLine& source, bool stopFlag) {
    IPE_Object value;
    int operators = 0;
    IPE_TokenEntry* const at = source.at;
    IPE_Type* left = simpleOperand(frame, at);
    if (left && !continuesExpression(at[1].kind)) {
        source.at = at + 1;
        value = IPE_Object(left);
        if (stopFlag) stops(frame, value);  // asked even where nothing is left to abandon
        return value;
    }
    if (left && left->typeName() == IPE_IntType::TypeName && shortArithmetic(frame, at, left, value)) {
        source.at = at + 3;
        operators = 1;
    } else {
        value = primary(frame, source);
        if (stopFlag && stops(frame, value)) return value;
    }
    for (; continuesExpression(source.k()); ++operators) {
        const uint8_t kind = source.k();
        if (kind < TOKEN_PLUS || kind > TOKEN_PERCENT) syntaxFault(source);
        if (operators == IPE_StackList::Limit) stackExhausted();
        source.step();
        IPE_Object right = primary(frame, source);
        value = binary(kind, value, right);
        if (!value) syntaxFault(source);
    }
    return value;
}

// `left op right` over two integers that are lone names or literals, without counting either.
bool IPE_Interpreter::shortArithmetic(IPE_Frame& frame, IPE_TokenEntry* at, IPE_Type* left,
                                      IPE_Object& value) {
    const uint8_t kind = at[1].kind;
    if (kind != TOKEN_PLUS && kind != TOKEN_MINUS && kind != TOKEN_STAR) return false;
    const int64_t a = static_cast<IPE_IntType*>(left)->value;
    IPE_Type* right = simpleOperand(frame, at + 2);
    if (!right || right->typeName() != IPE_IntType::TypeName) return false;
    const int64_t b = static_cast<IPE_IntType*>(right)->value;
    int64_t result;
    const bool overflow = kind == TOKEN_PLUS    ? __builtin_add_overflow(a, b, &result)
                          : kind == TOKEN_MINUS ? __builtin_sub_overflow(a, b, &result)
                                                : __builtin_mul_overflow(a, b, &result);
    if (overflow) return false;
    value = IPE_Int(result);
    return true;
}

IPE_Object IPE_Interpreter::primary(IPE_Frame& frame, IPE_ProgramLine& source) {
    IPE_Object value = operand(frame, source);
    const uint8_t kind = source.k();
    if (kind == TOKEN_LPAREN || kind == TOKEN_DOT || kind == TOKEN_LBRACKET)
        return chain(frame, source, std::move(value));
    return value;
}

IPE_Object IPE_Interpreter::operand(IPE_Frame& frame, IPE_ProgramLine& source) {
    IPE_TokenEntry& token = *source.at;
    switch (token.kind) {
        case TOKEN_IDENTIFIER: {
            IPE_Object value = nameValue(frame, token);
            if (!value)
                XPK_Raise("NameError", "Name error $name").string("name", token.name()->view()).raise();
            source.step();
            return value;
        }
        case TOKEN_STRING:
        case TOKEN_NUMBER: source.step(); return IPE_Object(token.value);
        case TOKEN_NULL: source.step(); return IPE_None();
        case TOKEN_TRUE: source.step(); return IPE_True();
        case TOKEN_FALSE: source.step(); return IPE_False();
        case TOKEN_LPAREN: return sequenceDisplay<IPE_TupleType>(frame, source, TOKEN_RPAREN);
        case TOKEN_LBRACKET: return sequenceDisplay<IPE_ListType>(frame, source, TOKEN_RBRACKET);
        case TOKEN_LBRACE: return dictDisplay(frame, source);
        case TOKEN_DIR: return dirExpression(frame, source);
        case TOKEN_MINUS:
            source.step();
            if (source.k() != TOKEN_NUMBER) syntaxFault(source);
            return negated(source);
        default: syntaxFault(source);
    }
}

// The negative of a literal is made once and kept beside the token, like the literal itself.
IPE_Object IPE_Interpreter::negated(IPE_ProgramLine& source) {
    IPE_Object value = source.getNumber(true);
    source.step();
    return value;
}

template <class Sequence>
IPE_Object IPE_Interpreter::sequenceDisplay(IPE_Frame& frame, IPE_ProgramLine& source, uint8_t close) {
    checkStack();
    source.step();
    IPE_Object result = IPE_New<Sequence>();
    auto* items = result.as<Sequence>();
    while (source.k() != close) {
        items->append(evaluate(frame, source));
        if (source.k() == TOKEN_COMMA)
            source.step();
        else if (source.k() != close)
            syntaxFault(source);
    }
    source.step();
    return result;
}

IPE_Object IPE_Interpreter::dictDisplay(IPE_Frame& frame, IPE_ProgramLine& source) {
    checkStack();
    source.step();
    IPE_Object result = IPE_NewDict();
    auto* dict = result.as<IPE_DictType>();
    while (source.k() != TOKEN_RBRACE) {
        IPE_Object key = evaluate(frame, source);
        if (source.k() != TOKEN_COLON) syntaxFault(source);
        source.step();
        dict->set(key, evaluate(frame, source));
        if (source.k() == TOKEN_COMMA)
            source.step();
        else if (source.k() != TOKEN_RBRACE)
            syntaxFault(source);
    }
    source.step();
    return result;
}

IPE_Object IPE_Interpreter::dirExpression(IPE_Frame& frame, IPE_ProgramLine& source) {
    checkStack();
    source.step();
    if (source.k() == TOKEN_LPAREN) {
        source.step();
        IPE_Object value = evaluate(frame, source);
        expect(source, TOKEN_RPAREN);
        return value->__dir__();
    }
    if (source.k() != TOKEN_LBRACKET) syntaxFault(source);
    source.step();
    std::vector<std::string> names;
    if (source.k() == TOKEN_RBRACKET) {
        names = IPE_ModuleRegistry::branches();
    } else {
        IPE_Object path = primary(frame, source);
        names = IPE_ModuleRegistry::branchNames(IPE_Object_Text(path));
    }
    expect(source, TOKEN_RBRACKET);
    IPE_Object list = IPE_NewList();
    for (const std::string& name : names) list.as<IPE_ListType>()->append(IPE_String(name));
    return list;
}

// Calls, attributes and subscripts behind a value. The object of the last `.` stays the receiver.
IPE_Object IPE_Interpreter::chain(IPE_Frame& frame, IPE_ProgramLine& source, IPE_Object value) {
    checkStack();
    IPE_Object receiver;
    for (int steps = 0;; ++steps) {
        const uint8_t kind = source.k();
        if (kind != TOKEN_DOT && kind != TOKEN_LPAREN && kind != TOKEN_LBRACKET) return value;
        if (steps >= IPE_StackList::Limit) stackExhausted();
        if (kind == TOKEN_DOT) {
            source.step();
            if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
            IPE_TokenEntry& name = *source.at;
            source.step();
            IPE_Object next;
            if (source.k() == TOKEN_LPAREN && callMethodDirectly(frame, source, value, name, next)) {
                ++steps;
            } else {
                next = attribute(value, name);
                if (!next)
                    XPK_Raise("AttributeError", "AttributeErrror $key")
                        .string("key", name.name()->view())
                        .raise();
            }
            receiver = std::move(value);
            value = std::move(next);
        } else if (kind == TOKEN_LPAREN) {
            value = callValue(frame, source, value, receiver.is<IPE_OldClassType>() ? &receiver : nullptr);
        } else {
            source.step();
            value = subscript(frame, source, value);
        }
    }
}

IPE_Object IPE_Interpreter::attribute(const IPE_Object& value, IPE_TokenEntry& name) {
    IPE_StringType* key = name.name();
    if (value.is<IPE_OldClassType>()) {
        // Names from `exec` are not interned and may be special all the same: they take the long way.
        if (key->isInterned() && !(key->kind() & IPE_StringType::Special)) [[likely]]
            if (IPE_Type* found = value.as<IPE_OldClassType>()->dictionary().findHinted(key, name.local))
                return IPE_Object(found);
    } else if (value.is<IPE_ModuleShared>()) {
        return IPE_Object(value.as<IPE_ModuleShared>()->dictionary().findHinted(key, name.local));
    }
    return value->__getattr__(IPE_Object(key), 0);
}

void IPE_Interpreter::setAttribute(const IPE_Object& value, IPE_TokenEntry& name, IPE_Object right) {
    if (value.is<IPE_OldClassType>())
        value.as<IPE_OldClassType>()->dictionary().setHinted(name.name(), std::move(right), name.local);
    else if (value.is<IPE_ModuleShared>())
        value.as<IPE_ModuleShared>()->dictionary().setHinted(name.name(), std::move(right), name.local);
    else
        value->__setattr__(IPE_Object(name.value), right);
}

IPE_Object IPE_Interpreter::subscript(IPE_Frame& frame, IPE_ProgramLine& source, const IPE_Object& value) {
    if (source.k() == TOKEN_COLON) return slice(frame, source, value, IPE_Object());
    IPE_Object key = evaluate(frame, source);
    if (source.k() == TOKEN_COLON) return slice(frame, source, value, key);
    if (source.k() != TOKEN_RBRACKET) syntaxFault(source);
    source.step();
    IPE_Object item = value->__getitem__(key);
    if (!item) {
        source.sync();
        XPK_Raise("KeyError", "The key $key does not exist")
            .string("key", IPE_Object_ToString(key))
            .number("line", source.segment->lines[source.line].source)
            .string("source", source.segment->file)
            .string("decode", source.positionText())
            .raise();
    }
    return item;
}

IPE_Object IPE_Interpreter::slice(IPE_Frame& frame, IPE_ProgramLine& source, const IPE_Object& value,
                                  const IPE_Object& begin) {
    auto bound = [](int64_t number) {
        return static_cast<int32_t>(number > INT32_MAX ? INT32_MAX : number < INT32_MIN ? INT32_MIN : number);
    };
    source.step();
    int32_t first = begin ? bound(begin->__int__()) : 0, last;
    if (source.k() == TOKEN_RBRACKET)
        last = value->__len__();
    else
        last = bound(evaluate(frame, source)->__int__());
    if (source.k() != TOKEN_RBRACKET) syntaxFault(source);
    source.step();
    IPE_Object part = value->__getslice__(first, last);
    if (!part) XPK_Raise("KeyError", "$begin:$end").number("begin", first).number("end", last).raise();
    return part;
}

// --- Conditions: terms joined by `and` and `or`, left to right, flat, with no grouping and no ranking.

bool IPE_Interpreter::condition(IPE_Frame& frame, IPE_ProgramLine& source, uint8_t terminator,
                                IPE_Object* left) {
    if (source.k() == terminator) syntaxFault(source);
    for (;;) {
        bool result = term(frame, source, terminator, left);
        const uint8_t kind = source.k();
        if (kind == terminator) return result;
        if (kind != TOKEN_AND && kind != TOKEN_OR) expect(source, terminator);
        if ((kind == TOKEN_AND) != result) {
            skipToTerminator(source, terminator);
            return result;
        }
        source.step();
    }
}

void IPE_Interpreter::skipToTerminator(IPE_ProgramLine& source, uint8_t terminator) {
    while (source.k() != terminator) {
        switch (source.k()) {
            case TOKEN_LPAREN:
            case TOKEN_LBRACKET:
            case TOKEN_LBRACE:
                if (source.at->local == 0) {
                    source.sync();
                    source.syntaxError("Unexpected end of line");
                }
                source.at += source.at->local;
                break;
            case TOKEN_EOL:
            case TOKEN_EOF: expect(source, terminator); break;
            default: break;
        }
        source.step();
    }
}

bool IPE_Interpreter::term(IPE_Frame& frame, IPE_ProgramLine& source, uint8_t terminator, IPE_Object* left) {
    bool negate = false;
    if (source.k() == TOKEN_NOT) {
        negate = true;
        source.step();
    }
    if (int order; !left && shortComparison(frame, source.at, order)) {
        const uint8_t kind = source.at[1].kind;
        source.at += 3;
        return compared(kind, order) != negate;
    }
    IPE_Object value = evaluate(frame, source);
    if (left) *left = value;
    uint8_t kind = source.k();
    if (kind == terminator || kind == TOKEN_AND || kind == TOKEN_OR) return value->__nonzero__() != negate;
    if (kind == TOKEN_IN || kind == TOKEN_NOT) {
        if (kind == TOKEN_NOT) {
            negate = true;
            source.step();
            if (source.k() != TOKEN_IN) syntaxFault(source);
        }
        source.step();
        IPE_Object container = evaluate(frame, source);
        return contains(value, container) != negate;
    }
    if (kind < TOKEN_EQ || kind > TOKEN_GE) syntaxFault(source);
    source.step();
    IPE_Object right = evaluate(frame, source);
    int order;
    if (value.is<IPE_IntType>() && right.is<IPE_IntType>()) {
        int64_t a = value.as<IPE_IntType>()->value, b = right.as<IPE_IntType>()->value;
        order = a < b ? -1 : a > b;
    } else {
        order = value->__cmp__(right);
    }
    return compared(kind, order) != negate;
}

// Two lone integers on both sides of a comparison that nothing follows.
bool IPE_Interpreter::shortComparison(IPE_Frame& frame, IPE_TokenEntry* at, int& order) {
    if (at->kind != TOKEN_IDENTIFIER || at[1].kind < TOKEN_EQ || at[1].kind > TOKEN_GE) return false;
    IPE_Type* left = simpleOperand(frame, at);
    if (!left || left->typeName() != IPE_IntType::TypeName) return false;
    const int64_t a = static_cast<IPE_IntType*>(left)->value;
    IPE_Type* right = simpleOperand(frame, at + 2);
    if (!right || right->typeName() != IPE_IntType::TypeName || continuesExpression(at[3].kind)) return false;
    const int64_t b = static_cast<IPE_IntType*>(right)->value;
    order = a < b ? -1 : a > b;
    return true;
}

bool IPE_Interpreter::contains(const IPE_Object& value, const IPE_Object& container) {
    if (container.is<IPE_DictType>()) return container.as<IPE_DictType>()->find(value) != nullptr;
    for (int32_t i = 0; i < container->__len__(); ++i) {
        IPE_Object element = container->__getitem__(IPE_Int(i));
        if (element && element->__cmp__(value) == 0) return true;
    }
    return false;
}
