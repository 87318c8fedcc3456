// Building, rebuilding and rendering exceptions.
//
// All cost is at the throw: the record copies the thread's active trace entries, the details dictionary is
// made by the interpreter's bridge. A failure while the dictionary is built leaves details null rather than
// losing the exception that was on its way.
#include "runtime/xpk_exception.h"

#include <cstring>
#include <new>

namespace {

XPK_DetailsBridge details_bridge;

void cut(std::string& text, size_t limit) {
    if (text.size() > limit) text.resize(limit);
}

// Copies every active trace entry of the calling thread behind the record's own fields.
void takeTrace(XPK_ExceptionRecord& record) {
    if (!record.file.empty()) record.strings.emplace_back("cpp_file", record.file);
    if (record.line != 0) record.numbers.emplace_back("src_line", record.line);
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state) return;
    const XPK_Trace& trace = state->trace;
    const XPK_Trace::Frame& frame = trace.frames[trace.depth];
    for (int i = 0; i < frame.strings; ++i)
        record.strings.emplace_back(trace.strings[i].name, trace.strings[i].value);
    for (int i = 0; i < frame.numbers; ++i)
        record.numbers.emplace_back(trace.numbers[i].name, trace.numbers[i].value);
}

IPE_Object buildDetails(const XPK_ExceptionRecord& record) {
    if (!details_bridge.build) return {};
    XPK_TraceScope scope;
    return details_bridge.build(record);
}

bool isNameByte(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

}  // namespace

void XPK_SetDetailsBridge(XPK_DetailsBridge bridge) { details_bridge = bridge; }

const std::string* XPK_ExceptionRecord::findString(std::string_view name) const {
    for (auto it = strings.rbegin(); it != strings.rend(); ++it)
        if (it->first == name) return &it->second;
    return nullptr;
}

const int64_t* XPK_ExceptionRecord::findNumber(std::string_view name) const {
    for (auto it = numbers.rbegin(); it != numbers.rend(); ++it)
        if (it->first == name) return &it->second;
    return nullptr;
}

XPK_Exception::XPK_Exception(const char* file, int line, std::string_view type, std::string_view fieldList,
                             std::string_view show) {
    auto record = std::make_shared<XPK_ExceptionRecord>();
    record->type = type.data() ? std::string(type) : "DevlopmentErroreListIs0";
    record->fieldList = fieldList;
    record->show = show.data() ? std::string(show) : "Development Errror (eShow == 0)";
    record->file = file ? file : "";
    record->line = line;
    cut(record->type, 127);
    cut(record->fieldList, 511);
    takeTrace(*record);
    record_ = record;
    details_ = buildDetails(*record);
}

XPK_Exception::XPK_Exception(const IPE_Object& details) {
    auto record = std::make_shared<XPK_ExceptionRecord>();
    if (details_bridge.parse) details_bridge.parse(details, *record);
    cut(record->type, 127);
    cut(record->fieldList, 511);
    record_ = record;
    details_ = details;
}

std::string XPK_Exception::message() const {
    const std::string& show = record_->show;
    std::string text;
    for (size_t i = 0; i < show.size();) {
        if (show[i] != '$') {
            text += show[i++];
            continue;
        }
        if (i + 1 < show.size() && show[i + 1] == '$') {
            text += '$';
            i += 2;
            continue;
        }
        size_t begin = i + 1, end, next;
        if (begin < show.size() && show[begin] == '{') {
            end = show.find('}', ++begin);
            if (end == std::string::npos) {
                text.append(show, i);
                break;
            }
            next = end + 1;
        } else {
            end = begin;
            while (end < show.size() && isNameByte(show[end])) ++end;
            next = end;
        }
        std::string_view name(show.data() + begin, end - begin);
        if (const std::string* value = record_->findString(name))
            text += *value;
        else if (const int64_t* number = record_->findNumber(name))
            text += std::to_string(*number);
        else
            text += name;
        i = next;
    }
    return text;
}

void XPK_Exception::getShow(char* buffer, size_t size) const {
    if (size == 0) return;
    buffer[0] = 0;
    if (record_->show.size() < size) memcpy(buffer, record_->show.c_str(), record_->show.size() + 1);
}

namespace {

// The shorthands name their place as $src_file; src_line is a field of every record.
std::string_view notePlace(XPK_TraceScope&& scope, const char* file, std::string_view type) {
    XPK_TraceString(scope.state(), "src_file", file);
    return type;
}

}  // namespace

XPK_AssertException::XPK_AssertException(const char* file, int line)
    : XPK_Exception(file, line, notePlace(XPK_TraceScope(), file, "AssertionError"), "",
                    "Assertion Error $src_file $src_line") {}

XPK_MemoryException::XPK_MemoryException(const char* file, int line)
    : XPK_Exception(file, line, notePlace(XPK_TraceScope(), file, "MemoryAllocError"), "",
                    "Memory Allocation Error $src_file $src_line") {}

void XPK_AssertFailed(const char* file, int line) { throw XPK_AssertException(file, line); }

XPK_Raise::XPK_Raise(std::string_view type, std::string_view show, XPK_Place where)
    : type_(type), show_(show), where_(where) {}

XPK_Raise::~XPK_Raise() = default;

XPK_Raise& XPK_Raise::string(const char* name, std::string_view value) {
    XPK_TraceString(scope_.state(), name, value);
    if (!listed_) fields_.append(fields_.empty() ? "" : ",").append(name);
    return *this;
}

XPK_Raise& XPK_Raise::number(const char* name, int64_t value) {
    XPK_TraceNumber(scope_.state(), name, value);
    if (!listed_) fields_.append(fields_.empty() ? "" : ",").append(name);
    return *this;
}

XPK_Raise& XPK_Raise::fields(std::string_view list) {
    fields_ = list;
    listed_ = true;
    return *this;
}

void XPK_Raise::raise() { throw XPK_Exception(where_.file, where_.line, type_, fields_, show_); }

std::string XPK_DecodeError(int error) {
    char buffer[256] = {};
    const char* text = strerror_r(error, buffer, sizeof buffer);
    if (!text || !*text || strncmp(text, "Unknown error", 13) == 0) return "FormatMessage Failed";
    return text;
}

void XPK_ThrowSystemError(const char* api, int error, XPK_Place where) {
    if (error == 0) return;
    XPK_Raise("RuntimeError", "$api ($errno) $decode", where)
        .number("errno", error)
        .string("api", api)
        .string("decode", XPK_DecodeError(error))
        .fields("errno,decode")
        .raise();
}
