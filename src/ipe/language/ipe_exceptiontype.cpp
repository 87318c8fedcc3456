// Exceptions as scripts see them, and the stack that exceptions report.
#include "ipe/language/ipe_exceptiontype.h"

#include "ipe/language/ipe_interpreter.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"

const char IPE_ExceptionType::TypeName[] = "ExceptionType";

IPE_ExceptionType::IPE_ExceptionType(const XPK_Exception& exception)
    : IPE_Type(TypeName, IsContainer), details_(exception.details()) {
    constexpr size_t DecodeLimit = 8095;
    if (!details_) details_ = IPE_NewDict();
    const XPK_ExceptionRecord& record = exception.record();
    IPE_Object strings = IPE_NewDict(), numbers = IPE_NewDict();
    for (const auto& [name, value] : record.strings) IPE_Dict_Set(strings, name, IPE_String(value));
    for (const auto& [name, value] : record.numbers) IPE_Dict_Set(numbers, name, IPE_Int(value));
    std::string decode = exception.message();
    if (decode.size() > DecodeLimit) {
        size_t end = DecodeLimit;
        while (end > 0 && (static_cast<unsigned char>(decode[end]) & 0xC0) == 0x80) --end;
        decode.resize(end);
    }
    IPE_Dict_Set(details_, "raised", IPE_String(record.type));
    IPE_Dict_Set(details_, "values", IPE_String(record.fieldList));
    IPE_Dict_Set(details_, "decode", IPE_String(decode));
    IPE_Dict_Set(details_, "strings", strings);
    IPE_Dict_Set(details_, "numbers", numbers);
}

IPE_Object IPE_ExceptionType::__getattr__(const IPE_Object& key, int) {
    if (key->is_text("details")) return details_;
    if (IPE_Type* value = details_.as<IPE_DictType>()->find(key)) return IPE_Object(value);
    XPK_Raise("KeyError", "$key").string("key", key->c_str()).raise();
}

void IPE_ExceptionType::__str__(IPE_PrintContext& context, IPE_StackList& stack) {
    IPE_Object decode = IPE_Dict_Get(details_, "decode");
    context.out.append(decode->c_str());
}

void IPE_ExceptionType::__repr__(IPE_PrintContext& context, IPE_StackList& stack) {
    details_->__repr__(context, stack);
}

namespace {

bool showsItsText(const IPE_Object& value) {
    return value.is<IPE_IntType>() || value.is<IPE_FloatType>() || value.is<IPE_OldClassType>() ||
           value.is<IPE_StringType>() || value.is<IPE_TupleType>() || value.is<IPE_ListType>() ||
           value.is<IPE_DictType>();
}

// The text of a value in a report. A value whose text fails, such as one nested too deeply, gives its type
// instead: a report never replaces the error it reports.
IPE_Object reportText(const IPE_Object& value) {
    if (showsItsText(value)) {
        try {
            return IPE_String(IPE_Object_Text(value));
        } catch (const XPK_Exception&) {
        }
    }
    return IPE_String(value.typeName() ? value.typeName() : "");
}

IPE_Object reportLocals(IPE_DictType& locals) {
    IPE_Object result = IPE_NewDict();
    for (uint32_t i = 0; i < locals.slots(); ++i) {
        IPE_Type* key = locals.keyAt(i);
        if (!key) continue;
        IPE_Object name(key), value(locals.valueAt(i));
        std::string_view text = name->c_str();
        if (text == "__code__" || text.substr(0, 2) == "__") continue;
        if (text == "password" || text == "credentials")
            value = IPE_String("<secret>");
        else if (text == "job")
            value = IPE_String("<job>");
        else if (value.typeName() && std::string_view(value.typeName()) == "IPE_Lua")
            continue;
        else
            value = reportText(value);
        result.as<IPE_DictType>()->set(name, value);
    }
    return result;
}

void setPosition(const IPE_Object& entry, IPE_ProgramLine& source) {
    const IPE_Segment& segment = *source.segment;
    IPE_Dict_Set(entry, "statement", IPE_String(IPE_LineText(segment, source.line)));
    IPE_Dict_Set(entry, "file", IPE_String(segment.file));
    IPE_Dict_Set(entry, "line", IPE_Int(segment.lines[source.line].source));
}

bool isTraced(IPE_CodeType& code) {
    if (!code.dict) return true;
    IPE_Type* mark = code.dict.as<IPE_DictType>()->findText("__donttrace");
    return !mark || !mark->__nonzero__();
}

}  // namespace

IPE_Object IPE_ScriptStack(bool plain) {
    IPE_Object list = IPE_NewList();
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state) return list;
    for (int i = state->scriptFrames; i-- > 0;) {
        IPE_Frame& frame = *state->scriptFrame[i];
        if (!frame.source || (frame.code && !isTraced(*frame.code))) continue;
        IPE_Object entry = IPE_NewDict();
        setPosition(entry, *frame.source);
        if (frame.code && !plain) {
            if (frame.locals) IPE_Dict_Set(entry, "locals", reportLocals(frame.locals->dictionary()));
            IPE_Dict_Set(entry, "function", frame.code->name);
            if (frame.code->dict)
                if (IPE_Type* signature = frame.code->dict.as<IPE_DictType>()->findText("signature")) {
                    IPE_Dict_Set(entry, "signature", IPE_Object(signature));
                    IPE_Dict_Set(entry, "args", IPE_Object(signature)->__getitem__(IPE_Int(0)));
                }
        }
        list.as<IPE_ListType>()->append(entry);
    }
    return list;
}

// Rendering locals can run a script's __str__. An exception raised meanwhile is reported without locals:
// otherwise each of them would be reported with all frames again, and an error at the depth limit would never
// end.
namespace {

thread_local bool reporting = false;

struct ReportScope {
    ReportScope() { reporting = true; }
    ~ReportScope() { reporting = false; }
};

}  // namespace

void IPE_ReportStack(IPE_Object details) {
    if (reporting) {
        IPE_Dict_Set(details, "ipestack", IPE_ScriptStack(true));
    } else {
        ReportScope scope;
        IPE_Dict_Set(details, "ipestack", IPE_ScriptStack(false));
    }
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state) return;
    for (int i = state->scriptFrames; i-- > 0;)
        if (IPE_ProgramLine* source = state->scriptFrame[i]->source) return setPosition(details, *source);
}
