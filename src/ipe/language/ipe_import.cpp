// import and from: from a dotted path to a namespace whose module has run.
#include "ipe/language/ipe_interpreter.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_numbers.h"

void IPE_ModuleBridge::import(IPE_Frame& frame) {
    frame.locals->dictionary().setText(name_, IPE_New<IPE_BridgeType>(factory_));
}

// Appends the module's lines to the program and runs its top level in the frame's namespace.
void IPE_Interpreter::importStored(IPE_Frame& frame, const IPE_StoredTokens& stored,
                                   const std::string& file) {
    IPE_ProgramLine source(program_.append(stored, file), 0);
    frame.source = &source;
    IPE_FrameScope scope(frame);
    runBlock(frame, source);
    frame.source = nullptr;
}

IPE_Object IPE_Interpreter::importModule(IPE_Frame& parent, std::string_view path, bool mustExist,
                                         const IPE_Object& into) {
    IPE_Object node = IPE_ModuleRegistry::find(path);
    if (!node) {
        if (mustExist) XPK_Raise("ImportError", "$path").string("path", path).raise();
        return {};
    }
    IPE_Object space = into ? into : IPE_New<IPE_ModuleShared>();
    if (!into) {
        space->__setname__(IPE_String(path));
        loaded().dictionary().setText(path, space);
    }
    IPE_Frame frame(parent, IPE_Frame::Module);
    checkDepth(frame.depth);
    ++frame.depth;
    frame.locals = frame.globals = space.as<IPE_ModuleShared>();
    static_cast<IPE_ModuleNode*>(node.get())->import(frame);
    if (into) loaded().dictionary().setText(path, space);
    return space;
}

void IPE_Interpreter::importStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    source.step();
    for (;;) {
        importItem(frame, source);
        if (source.k() == TOKEN_COMMA || source.k() == TOKEN_PASS) source.step();
        if (source.k() == TOKEN_EOL) return;
    }
}

// One dotted name: every prefix becomes a namespace in the one before it, whether or not a module is
// registered there.
void IPE_Interpreter::importItem(IPE_Frame& frame, IPE_ProgramLine& source) {
    std::string path;
    IPE_Object scope(frame.globals), before;
    IPE_Object last;
    for (;;) {
        if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
        last = IPE_Object(source.at->value);
        if (!path.empty()) path += '.';
        path += source.at->name()->view();
        before = scope;
        IPE_Object next = scope->__getattr__(last, 0);
        if (!next) {
            next = IPE_New<IPE_ModuleShared>();
            next->__setname__(IPE_String(path));
            scope->__setattr__(last, next);
        }
        scope = next;
        source.step();
        if (source.k() != TOKEN_DOT) break;
        source.step();
    }
    if (source.k() != TOKEN_COMMA && source.k() != TOKEN_PASS && source.k() != TOKEN_EOL) syntaxFault(source);
    const bool optional = source.k() == TOKEN_PASS;
    if (IPE_Type* space = loaded().dictionary().findText(path)) {
        before->__setattr__(last, IPE_Object(space));
        return;
    }
    if (!scope.is<IPE_ModuleShared>()) IPE_CastFailed(scope, IPE_ModuleShared::TypeName, "import");
    importModule(frame, path, !optional, scope);
}

void IPE_Interpreter::fromStatement(IPE_Frame& frame, IPE_ProgramLine& source) {
    std::string path;
    for (source.step(); source.k() != TOKEN_IMPORT; source.step()) {
        if (source.k() == TOKEN_IDENTIFIER)
            path += source.at->name()->view();
        else if (source.k() == TOKEN_DOT)
            path += '.';
        else
            syntaxFault(source);
    }
    IPE_Object space(loaded().dictionary().findText(path));
    if (!space) space = importModule(frame, path, true);
    source.step();
    if (source.k() == TOKEN_STAR) {
        space->__import__(IPE_Object(frame.globals));
        return;
    }
    while (source.k() != TOKEN_EOL) {
        if (source.k() != TOKEN_IDENTIFIER) syntaxFault(source);
        IPE_Object value = space->__getattr__(IPE_Object(source.at->value), 0);
        if (!value)
            XPK_Raise("AttributeError", "AttributeError $key")
                .string("key", source.at->name()->view())
                .raise();
        frame.globals->__setattr__(IPE_Object(source.at->value), value);
        source.step();
        if (source.k() == TOKEN_COMMA) source.step();
    }
}
