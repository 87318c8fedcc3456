// Building, rebuilding and rendering exceptions.
//
// All cost is at the throw: the record copies the thread's active trace entries, the details dictionary is
// made by the interpreter's bridge. Construction only reads the trace, so it cannot fail for lack of trace
// space. When memory runs out while an exception is built, a memory exception takes its place; that one is
// built as far as memory goes and falls back to a record made at start. Any other failure of the bridge
// leaves the details null rather than losing the exception that was on its way.
#include "runtime/xpk_exception.h"

#include <cstring>
#include <new>

namespace {

constexpr std::string_view MissingType = "DevlopmentErroreListIs0";
constexpr std::string_view MissingShow = "Development Errror (eShow == 0)";
constexpr size_t TypeBytes = 127;
constexpr size_t ListBytes = 511;
// Rendering a stack may run code that raises; beyond this nesting exceptions go without details.
constexpr int BuildLimit = 4;

XPK_DetailsBridge details_bridge;
thread_local int building = 0;

using Record = XPK_ExceptionRecord;

std::shared_ptr<const Record> makeLastResort() {
    auto record = std::make_shared<Record>();
    record->type = "MemoryAllocError";
    record->show = "Memory Allocation Error";
    return record;
}
const std::shared_ptr<const Record> lastResort = makeLastResort();

void cut(std::string& text, size_t limit) {
    if (text.size() > limit) text.resize(limit);
}

// Puts the record's own fields first and every active trace entry of the calling thread behind them.
void takeTrace(Record& record) {
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

std::shared_ptr<Record> buildRecord(const char* file, int line, std::string_view type,
                                    std::string_view fieldList, std::string_view show) {
    auto record = std::make_shared<Record>();
    record->type = type.data() ? type : MissingType;
    record->fieldList = fieldList;
    record->show = show.data() ? show : MissingShow;
    record->file = file ? file : "";
    record->line = line;
    cut(record->type, TypeBytes);
    cut(record->fieldList, ListBytes);
    takeTrace(*record);
    return record;
}

struct BuildScope {
    BuildScope() { ++building; }
    ~BuildScope() { --building; }
};

IPE_Object buildDetails(const Record& record) {
    if (!details_bridge.build || building >= BuildLimit) return {};
    BuildScope nesting;
    XPK_TraceScope scope;
    try {
        return details_bridge.build(record);
    } catch (const XPK_MemoryException&) {
        throw;
    } catch (const XPK_Exception&) {
        return {};  // the exception on its way matters more than its dictionary
    }
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
    try {
        record_ = buildRecord(file, line, type, fieldList, show);
        details_ = buildDetails(*record_);
    } catch (const std::bad_alloc&) {
        throw XPK_MemoryException(__FILE__, __LINE__);
    }
}

// The shorthands name their place as $src_file; src_line is a field of every record.
void XPK_Exception::describe(const char* file, int line, std::string_view type, std::string_view show) {
    auto record = buildRecord(file, line, type, "", show);
    record->strings.emplace_back("src_file", file ? file : "");
    record_ = std::move(record);
}

XPK_Exception::XPK_Exception(const IPE_Object& details) {
    try {
        auto record = std::make_shared<Record>();
        record->type = MissingType;
        record->show = MissingShow;
        if (details_bridge.parse) details_bridge.parse(details, *record);
        cut(record->type, TypeBytes);
        cut(record->fieldList, ListBytes);
        // The dictionary's entries are the innermost ones: they stand behind the thread's active entries,
        // with the limits of a trace, and whatever does not fit is left to the dictionary.
        auto strings = std::exchange(record->strings, {});
        auto numbers = std::exchange(record->numbers, {});
        takeTrace(*record);
        constexpr size_t Most = XPK_Trace::EntryLimit + 1;
        for (size_t i = 0; i < strings.size() && record->strings.size() < Most; ++i) {
            cut(strings[i].second, XPK_Trace::ValueLimit);
            record->strings.push_back(std::move(strings[i]));
        }
        for (size_t i = 0; i < numbers.size() && record->numbers.size() < Most; ++i)
            record->numbers.push_back(std::move(numbers[i]));
        record_ = std::move(record);
        details_ = details;
    } catch (const std::bad_alloc&) {
        throw XPK_MemoryException(__FILE__, __LINE__);
    }
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

void XPK_Exception::fillDetails() { details_ = buildDetails(*record_); }

void XPK_Exception::setLastResort() noexcept { record_ = lastResort; }

XPK_AssertException::XPK_AssertException(const char* file, int line) {
    try {
        describe(file, line, "AssertionError", "Assertion Error $src_file $src_line");
        fillDetails();
    } catch (const std::bad_alloc&) {
        throw XPK_MemoryException(__FILE__, __LINE__);
    }
}

XPK_MemoryException::XPK_MemoryException(const char* file, int line) noexcept {
    setLastResort();
    try {
        describe(file, line, "MemoryAllocError", "Memory Allocation Error $src_file $src_line");
        // Memory that ran out while details were built would run out again.
        if (building == 0) fillDetails();
    } catch (...) {
        // What is there by now has to do.
    }
}

void XPK_AssertFailed(const char* file, int line) { throw XPK_AssertException(file, line); }

XPK_Raise::XPK_Raise(std::string_view type, std::string_view show, XPK_Place where)
    : type_(type),
      show_(show),
      where_(where),
      lent_(XPK_CurrentThread() ? nullptr : std::make_unique<XPK_ThreadScope>(true)) {}

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
