// Exception details.
//
// Dictionaries that come back are the work of scripts: any entry may be missing, of another type, or the
// dictionary cleared. Nothing of that may replace the exception that a script raises, so reading tests each
// type and never casts.
#include "ipe/values/ipe_exceptiondetails.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"

namespace {

void (*stack_reporter)(IPE_Object details) = nullptr;

IPE_DictType* usableDict(const IPE_Object& object) {
    auto* dict = object.tryAs<IPE_DictType>();
    return dict && !dict->isCleared() ? dict : nullptr;
}

void take(IPE_DictType& dict, std::string_view key, std::string& text) {
    IPE_Object value(dict.findText(key));
    if (auto* string = value.tryAs<IPE_StringType>()) text = string->view();
}

// Calls back with name and value of each entry whose key is a string; the call tells whether it took the
// entry.
template <class Use>
void eachField(IPE_DictType& details, std::string_view key, Use&& use) {
    IPE_DictType* fields = usableDict(IPE_Object(details.findText(key)));
    if (!fields) return;
    int left = XPK_Trace::EntryLimit;  // more would find no place in a record
    for (uint32_t i = 0; i < fields->slots() && left > 0; ++i) {
        IPE_Object name(fields->keyAt(i));
        auto* text = name.tryAs<IPE_StringType>();
        if (text && use(text->view(), IPE_Object(fields->valueAt(i)))) --left;
    }
}

}  // namespace

void IPE_SetStackReporter(void (*reporter)(IPE_Object details)) { stack_reporter = reporter; }

IPE_Object IPE_BuildExceptionDetails(const XPK_ExceptionRecord& record) {
    IPE_Object details = IPE_NewDict();
    auto* dict = details.as<IPE_DictType>();
    dict->setText("__file", IPE_String(record.file));
    dict->setText("__line", IPE_Int(record.line));
    dict->setText("__type", IPE_String(record.type));
    dict->setText("__list", IPE_String(record.fieldList));
    dict->setText("__show", IPE_String(record.show));
    IPE_Object strings = IPE_NewDict(), numbers = IPE_NewDict();
    for (const auto& [name, value] : record.strings)
        strings.as<IPE_DictType>()->setText(name, IPE_String(value));
    for (const auto& [name, value] : record.numbers)
        numbers.as<IPE_DictType>()->setText(name, IPE_Int(value));
    dict->setText("__strings", strings);
    dict->setText("__numbers", numbers);
    dict->setText("ipestack", IPE_NewList());
    if (!stack_reporter) return details;
    try {
        stack_reporter(details);
    } catch (const XPK_MemoryException&) {
        throw;
    } catch (const XPK_Exception&) {
        // A stack that cannot be shown must not hide the error itself.
    }
    return details;
}

void IPE_ParseExceptionDetails(const IPE_Object& details, XPK_ExceptionRecord& record) {
    IPE_DictType* dict = usableDict(details);
    if (!dict) return;
    take(*dict, "__file", record.file);
    take(*dict, "__type", record.type);
    take(*dict, "__list", record.fieldList);
    take(*dict, "__show", record.show);
    IPE_Object line(dict->findText("__line"));
    if (auto* number = line.tryAs<IPE_IntType>()) record.line = static_cast<int>(number->value);
    eachField(*dict, "__strings", [&](std::string_view name, const IPE_Object& value) {
        auto* text = value.tryAs<IPE_StringType>();
        if (text) record.strings.emplace_back(std::string(name), std::string(text->view()));
        return text != nullptr;
    });
    eachField(*dict, "__numbers", [&](std::string_view name, const IPE_Object& value) {
        auto* number = value.tryAs<IPE_IntType>();
        if (number) record.numbers.emplace_back(std::string(name), number->value);
        return number != nullptr;
    });
}

namespace {

const bool registered = [] {
    XPK_SetDetailsBridge({IPE_BuildExceptionDetails, IPE_ParseExceptionDetails});
    return true;
}();

}  // namespace
