// Calls, `def`, and the binding of parameters.
//
// Arguments are gathered in a buffer on the native stack; positional arguments of a plain function move from
// there straight into its locals. A keyword dictionary exists only when a keyword was written.
#include "ipe/language/ipe_codetype.h"
#include "ipe/language/ipe_exceptiontype.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_iterator.h"
#include "ipe/values/ipe_numbers.h"

IPE_ArgumentBuffer::~IPE_ArgumentBuffer() {
    for (int i = 0; i < count_; ++i) items_[i].~IPE_Object();
    if (capacity_ > InPlace) XPK_Free(items_);
}

void IPE_ArgumentBuffer::grow() {
    int capacity = capacity_ * 2;
    auto* items = static_cast<IPE_Object*>(XPK_Allocate(static_cast<size_t>(capacity) * sizeof(IPE_Object)));
    for (int i = 0; i < count_; ++i) {
        new (items + i) IPE_Object(std::move(items_[i]));
        items_[i].~IPE_Object();
    }
    if (capacity_ > InPlace) XPK_Free(items_);
    items_ = items;
    capacity_ = capacity;
}

void IPE_ArgumentBuffer::keyword(const IPE_Object& name, IPE_Object value) {
    gatherKeywords();
    keywords.as<IPE_DictType>()->set(name, std::move(value));
}

void IPE_ArgumentBuffer::writtenKeyword(IPE_StringType* name, IPE_Object value) {
    if (keywords || pairCount_ == MaximumPairs || !name->isInterned())
        return keyword(IPE_Object(name), std::move(value));
    for (int i = 0; i < pairCount_; ++i)
        if (pairs_[i].name == name) {
            pairs_[i].value = std::move(value);
            return;
        }
    pairs_[pairCount_].name = name;
    pairs_[pairCount_++].value = std::move(value);
}

void IPE_ArgumentBuffer::gatherKeywords() {
    if (!keywords) keywords = IPE_NewDict();
    for (int i = 0; i < pairCount_; ++i)
        keywords.as<IPE_DictType>()->setName(pairs_[i].name, std::move(pairs_[i].value));
    pairCount_ = 0;
}

void IPE_Interpreter::parseArguments(IPE_Frame& frame, IPE_ProgramLine& source,
                                     IPE_ArgumentBuffer& arguments) {
    source.step();
    while (source.k() != TOKEN_RPAREN && source.k() != TOKEN_EOL) {
        if (source.k() == TOKEN_STAR) {
            source.step();
            if (source.k() == TOKEN_STAR) {
                source.step();
                IPE_Object mapping = evaluate(frame, source);
                auto* dict = PyDict_SafeCast(mapping);
                for (uint32_t i = 0; i < dict->slots(); ++i)
                    if (IPE_Type* key = dict->keyAt(i))
                        arguments.keyword(IPE_Object(key), IPE_Object(dict->valueAt(i)));
            } else {
                IPE_Iterator items(evaluate(frame, source));
                while (items.hasMore()) arguments.push(items.next());
            }
        } else if (source.k() == TOKEN_IDENTIFIER && source.peek() == TOKEN_ASSIGN) {
            IPE_StringType* name = source.at->name();
            source.at += 2;
            arguments.writtenKeyword(name, evaluate(frame, source));
        } else {
            arguments.push(evaluate(frame, source));
        }
        if (source.k() == TOKEN_COMMA)
            source.step();
        else if (source.k() != TOKEN_RPAREN)
            break;
    }
    if (source.k() != TOKEN_RPAREN) syntaxFault(source);
    source.step();
}

IPE_Object IPE_Interpreter::callValue(IPE_Frame& frame, IPE_ProgramLine& source, const IPE_Object& callee,
                                      const IPE_Object* receiver) {
    checkStack();
    IPE_ArgumentBuffer buffer;
    if (receiver) buffer.push(*receiver);
    parseArguments(frame, source, buffer);
    IPE_Object result;
    if (callee.is<IPE_CodeType>()) {
        auto& code = *callee.as<IPE_CodeType>();
        if (!code.plain) buffer.arguments();
        result = callCode(code, buffer.items(), buffer.count(), buffer.keywords, true, buffer.pairs(),
                          buffer.pairCount());
    } else {
        result = callee->__call__(buffer.arguments());
    }
    return result ? std::move(result) : IPE_None();
}

// `value.name(...)` on a value with native methods, without making the method a value first. False when there
// is no such method; the cursor then still stands on the `(`.
bool IPE_Interpreter::callMethodDirectly(IPE_Frame& frame, IPE_ProgramLine& source, const IPE_Object& value,
                                         IPE_TokenEntry& name, IPE_Object& result) {
    const char* type = value.typeName();
    int method;
    if (type == IPE_StringType::TypeName || type == IPE_ListType::TypeName ||
        type == IPE_DictType::TypeName) {
        const uint32_t tag = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(type));
        if (name.type == tag) [[likely]] {
            method = static_cast<int>(name.global);
        } else {
            std::string_view text = name.name()->view();
            method = type == IPE_StringType::TypeName ? IPE_StringType::methodNumber(text)
                     : type == IPE_ListType::TypeName ? IPE_ListType::methodNumber(text)
                                                      : IPE_DictType::methodNumber(text);
            if (method < 0) return false;
            name.type = tag;
            name.global = static_cast<uint32_t>(method);
        }
    } else if (value.counted()->isNative() && type != IPE_ModuleShared::TypeName) {
        IPE_Object entry(
            static_cast<IPE_ModuleType*>(value.get())->dictionary().findHinted(name.name(), name.local));
        auto* adapter = entry.tryAs<IPE_CallAdapter>();
        if (!adapter || adapter->target() != value.counted()) return false;
        method = adapter->method();
    } else {
        return false;
    }
    checkStack();
    IPE_ArgumentBuffer buffer;
    parseArguments(frame, source, buffer);
    result = value->__callmethod__(method, buffer.arguments());
    if (!result) result = IPE_None();
    return true;
}

// --- Calling a code object.

IPE_Object IPE_Interpreter::call(IPE_CodeType& code, const IPE_Arguments& arguments) {
    return callCode(code, const_cast<IPE_Object*>(arguments.begin()), arguments.size(),
                    arguments.keywordsOrNull(), false);
}

void IPE_Interpreter::depthExceeded(int32_t depth) {
    XPK_Raise("SandboxError", "Reached maximum call depth of $depth")
        .number("depth", depth)
        .string("stack", IPE_Object_ToString(IPE_ScriptStack(true)))
        .raise();
}

namespace {

IPE_StringType* const codeKey = IPE_StringType::intern("__code__");

}  // namespace

// Positional arguments and defaults of a function without converters. Locals that begin empty get the same
// names in the same order at every call, so each name has a slot that the first call finds out.
void IPE_Interpreter::bindPlain(IPE_CodeType& code, IPE_Object* items, int count, IPE_DictType& locals,
                                bool movable, IPE_ProgramLine& source,
                                const IPE_ArgumentBuffer::Keyword* pairs, int pairCount) {
    const int parameters = static_cast<int>(code.parameters.size());
    const bool fresh = code.layoutCapacity != 0 && locals.isFresh(code.layoutCapacity);
    const uint32_t learn = fresh ? 0 : locals.slots();
    const bool learns = learn != 0 && locals.isFresh(learn);
    auto written = [&](IPE_StringType* name) -> const IPE_Object* {
        for (int k = 0; k < pairCount; ++k)
            if (pairs[k].name == name) return &pairs[k].value;
        return nullptr;
    };
    // Before any argument moves, since the messages show them.
    for (int i = 0; i < parameters; ++i) {
        IPE_CodeType::Parameter& parameter = code.parameters[static_cast<size_t>(i)];
        if (i < count) {
            if (pairCount > 0 && written(parameter.name)) multipleValues(code, parameter.name);
        } else if (!parameter.defaultValue && !written(parameter.name)) {
            missingArgument(code, IPE_Arguments(items, count), source);
        }
    }
    for (int i = 0; i < parameters; ++i) {
        IPE_CodeType::Parameter& parameter = code.parameters[static_cast<size_t>(i)];
        const IPE_Object* keyword = i < count ? nullptr : written(parameter.name);
        IPE_Object value = i < count ? (movable ? std::move(items[i]) : items[i])
                           : keyword ? *keyword
                                     : parameter.defaultValue;
        if (fresh)
            locals.place(parameter.name, std::move(value), parameter.hint);
        else
            locals.setSlow(parameter.name, std::move(value), parameter.hint);
    }
    if (fresh)
        locals.place(codeKey, IPE_Object(&code), code.codeHint);
    else
        locals.setSlow(codeKey, IPE_Object(&code), code.codeHint);
    // Locals without a table, as after calls that ended by an exception, have moved the slots all the same.
    if (!fresh) code.layoutCapacity = learns && locals.slots() == learn ? learn : 0;
}

IPE_Object IPE_Interpreter::callCode(IPE_CodeType& code, IPE_Object* items, int count,
                                     const IPE_Object& keywords, bool movable,
                                     const IPE_ArgumentBuffer::Keyword* pairs, int pairCount) {
    IPE_Object keep(&code);
    IPE_ModuleShared* globals = code.globals();
    if (!globals) XPK_Raise("RuntimeError", "The function has been cleared").raise();
    IPE_Object keepGlobals(globals);
    IPE_Object locals = takeLocals(code.wide);
    IPE_ProgramLine source(code.segment, code.line);
    IPE_Frame frame(*this, IPE_Frame::Function);
    checkDepth(frame.depth);
    ++frame.depth;
    frame.locals = locals.as<IPE_ModuleShared>();
    frame.globals = globals;
    frame.source = &source;
    frame.code = &code;
    frame.result = IPE_None();
    {
        IPE_FrameScope scope(frame);
        IPE_DictType& dictionary = frame.locals->dictionary();
        if (code.plain && !keywords) [[likely]] {
            bindPlain(code, items, count, dictionary, movable, source, pairs, pairCount);
        } else {
            bindParameters(code, items, count, keywords, *frame.locals, source);
            dictionary.setName(codeKey, IPE_Object(&code));
        }
        runBlock(frame, source);
        if (code.returnType) {
            static IPE_StringType* const isReturn = IPE_StringType::intern("isreturn");
            IPE_ArgumentBuffer arguments;
            if (code.returnType.is<IPE_OldClassType>()) arguments.push(code.returnType);
            arguments.push(frame.result ? frame.result : IPE_None());
            arguments.keyword(IPE_Object(isReturn), IPE_True());
            frame.result = code.returnType->__call__(arguments.arguments());
            if (!frame.result)
                XPK_Raise("TypeError", "The __call__ method on the type object did not return a value")
                    .raise();
        }
    }
    frame.locals = nullptr;
    if (locals.as<IPE_ModuleShared>()->dictionary().slots() > SmallLocals) code.wide = true;
    giveLocals(std::move(locals));
    return std::move(frame.result);
}

void IPE_Interpreter::multipleValues(IPE_CodeType& code, IPE_StringType* argument) {
    XPK_Raise("TypeError", "$functionname() got multiple values for keyword argument $argument")
        .string("functionname", code.name->c_str())
        .string("argument", argument->view())
        .raise();
}

void IPE_Interpreter::missingArgument(IPE_CodeType& code, const IPE_Arguments& arguments,
                                      IPE_ProgramLine& source) {
    source.moveTo(code.defLine);  // so that the report names the definition
    XPK_Raise("NotEnoughArgumentsException", "$functionname() takes $expected arguments; $actual given")
        .string("functionname", code.name->c_str())
        .number("expected", static_cast<int64_t>(code.parameters.size()))
        .string("actual", IPE_Object_ToString(arguments.tuple()))
        .raise();
}

// Calls a type or aspect callable with the value and the keywords that describe the parameter.
IPE_Object IPE_Interpreter::convert(const IPE_Object& converter, const IPE_Object& value, IPE_CodeType& code,
                                    IPE_StringType* name, const IPE_Arguments& arguments, bool isType) {
    IPE_ArgumentBuffer buffer;
    if (converter.is<IPE_OldClassType>()) buffer.push(converter);
    buffer.push(value);
    buffer.keyword(IPE_String("name"), IPE_Object(name));
    buffer.keyword(IPE_String("func"), IPE_Object(&code));
    buffer.keyword(IPE_String("args"), arguments.tuple());
    buffer.keyword(IPE_String("kwargs"), arguments.keywords());
    if (isType) buffer.keyword(IPE_String("isreturn"), IPE_False());
    return converter->__call__(buffer.arguments());
}

void IPE_Interpreter::bindParameters(IPE_CodeType& code, IPE_Object* items, int count,
                                     const IPE_Object& keywords, IPE_ModuleShared& locals,
                                     IPE_ProgramLine& source) {
    const IPE_Arguments arguments(items, count, keywords);
    IPE_Object working = IPE_NewDict();
    auto* left = working.as<IPE_DictType>();
    if (keywords) left->update(*PyDict_SafeCast(keywords));
    for (size_t i = 0; i < code.parameters.size(); ++i) {
        IPE_CodeType::Parameter& parameter = code.parameters[i];
        IPE_Object key(parameter.name);
        IPE_Object value(left->find(key));
        if (static_cast<int>(i) < count) {
            if (value) multipleValues(code, parameter.name);
            value = items[i];
        } else if (value) {
            left->remove(key);
        } else {
            value = parameter.defaultValue;
            if (!value) missingArgument(code, arguments, source);
        }
        if (parameter.type) {
            value = convert(parameter.type, value, code, parameter.name, arguments, true);
            if (!value)
                XPK_Raise("TypeError", "The __call__ method on the type object did not return a value")
                    .raise();
        }
        for (const IPE_Object& aspect : parameter.aspects) {
            IPE_Object changed = convert(aspect, value, code, parameter.name, arguments, false);
            if (changed && !changed.is<IPE_NoneType>()) value = std::move(changed);
        }
        locals.dictionary().setName(parameter.name, std::move(value));
    }
    if (code.varargs)
        locals.dictionary().setName(code.varargs,
                                    arguments.from(static_cast<int>(code.parameters.size())).tuple());
    if (code.kwargs) locals.dictionary().setName(code.kwargs, working);
}

// --- def.

void IPE_Interpreter::defStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    static IPE_StringType* const aspectKey = IPE_StringType::intern("__aspect__");
    const uint8_t indent = source.lineIndent();
    const uint32_t defLine = source.line;
    source.step();
    if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
    IPE_TokenEntry& name = *source.at;
    source.step();
    auto decorate = [&frame](IPE_Object decorator) {
        if (!frame.decorators) frame.decorators = IPE_NewList();
        frame.decorators.as<IPE_ListType>()->append(std::move(decorator));
    };
    if (IPE_Object aspect = lookup(frame, aspectKey)) decorate(std::move(aspect));
    if (source.k() == TOKEN_LBRACKET) {
        IPE_Object list = sequenceDisplay<IPE_ListType>(frame, source, TOKEN_RBRACKET);
        for (const IPE_Object& item : list.as<IPE_ListType>()->items()) decorate(item);
    }
    while (source.k() == TOKEN_EOL) source.down();
    expect(source, TOKEN_LPAREN);
    IPE_Object value = IPE_New<IPE_CodeType>(name.name(), *this, source.segment, frame.globals);
    auto& code = *value.as<IPE_CodeType>();
    code.defLine = defLine;
    defParameters(frame, source, code);
    if (source.k() == TOKEN_AS) {
        source.step();
        code.returnType = primary(frame, source);
    } else if (source.k() == TOKEN_MINUS && source.peek() == TOKEN_GT) {
        source.at += 2;
        code.returnType = primary(frame, source);
    }
    if (code.returnType.is<IPE_NoneType>()) code.returnType = nullptr;
    openBlock(source);
    requireDeeper(source, indent);
    code.line = source.line;
    if (source.k() == TOKEN_STRING) code.documentation = IPE_Object(source.at->value);
    code.plain = !code.varargs && !code.kwargs;
    for (const auto& parameter : code.parameters)
        if (parameter.type || !parameter.aspects.empty()) code.plain = false;
    defSignature(code);
    IPE_Object raises = defRaises(source, indent);
    code.dict.as<IPE_DictType>()->setText("raises", raises);
    if (frame.decorators) {
        IPE_Object decorators = std::move(frame.decorators);
        value = applyDecorators(frame, decorators, std::move(value));
    }
    assignName(frame, name, std::move(value));
}

void IPE_Interpreter::defParameters(IPE_Frame& frame, IPE_ProgramLine& source, IPE_CodeType& code) {
    for (;;) {
        while (source.k() == TOKEN_EOL) {
            source.down();
            if (source.atEndOfProgram()) syntaxFault(source);
        }
        if (source.k() == TOKEN_RPAREN) break;
        if (source.k() == TOKEN_STAR) {
            source.step();
            bool keywords = source.k() == TOKEN_STAR;
            if (keywords) source.step();
            if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
            (keywords ? code.kwargs : code.varargs) = source.at->name();
            source.step();
        } else {
            defParameter(frame, source, code);
        }
        if (source.k() == TOKEN_COMMA)
            source.step();
        else if (source.k() != TOKEN_EOL && source.k() != TOKEN_RPAREN)
            syntaxFault(source);
    }
    source.step();
}

// name [: type | as type] [= default] {+ aspect}
void IPE_Interpreter::defParameter(IPE_Frame& frame, IPE_ProgramLine& source, IPE_CodeType& code) {
    if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
    IPE_CodeType::Parameter parameter;
    parameter.name = source.at->name();
    source.step();
    if (source.k() == TOKEN_COLON || source.k() == TOKEN_AS) {
        source.step();
        parameter.type = primary(frame, source);
    }
    if (source.k() == TOKEN_ASSIGN) {
        source.step();
        parameter.defaultValue = primary(frame, source);
    }
    while (source.k() == TOKEN_PLUS) {
        source.step();
        IPE_Object aspect = primary(frame, source);
        if (auto* list = aspect.tryAs<IPE_ListType>())
            parameter.aspects.insert(parameter.aspects.end(), list->items().begin(), list->items().end());
        else
            parameter.aspects.push_back(std::move(aspect));
    }
    code.parameters.push_back(std::move(parameter));
}

// __dict__: signature, a tuple of the parameters' list and the return type; source, the pair of file and
// line.
void IPE_Interpreter::defSignature(IPE_CodeType& code) {
    auto orNone = [](const IPE_Object& value) { return value ? value : IPE_None(); };
    IPE_Object list = IPE_NewList();
    for (const auto& parameter : code.parameters) {
        IPE_Object aspects = IPE_NewList();
        for (const IPE_Object& aspect : parameter.aspects) aspects.as<IPE_ListType>()->append(aspect);
        list.as<IPE_ListType>()->append(IPE_TupleOf(
            {IPE_Object(parameter.name), orNone(parameter.defaultValue), aspects, orNone(parameter.type)}));
    }
    auto* dict = code.dict.as<IPE_DictType>();
    dict->setText("signature", IPE_TupleOf({list, orNone(code.returnType)}));
    dict->setText("source", code.source());
}

// Skips the body and gives the names of the exceptions that its lines raise.
IPE_Object IPE_Interpreter::defRaises(IPE_ProgramLine& source, uint8_t indent) {
    IPE_Object names = IPE_NewDict();
    while (source.lineIndent() > indent && !source.atEndOfProgram()) {
        if (source.k() == TOKEN_RAISE && source.peek() == TOKEN_IDENTIFIER)
            names.as<IPE_DictType>()->set(IPE_Object(source.at[1].value), IPE_None());
        source.down();
    }
    return names.as<IPE_DictType>()->keys();
}

IPE_Object IPE_Interpreter::applyDecorators(IPE_Frame&, const IPE_Object& decorators, IPE_Object code) {
    auto& list = decorators.as<IPE_ListType>()->items();
    for (size_t i = list.size(); i-- > 0;) {
        IPE_ArgumentBuffer arguments;
        if (list[i].is<IPE_OldClassType>()) arguments.push(list[i]);
        arguments.push(std::move(code));
        code = list[i]->__call__(arguments.arguments());
        if (!code) XPK_Raise("TypeError", "The decorator did not return a value").raise();
    }
    return code;
}
