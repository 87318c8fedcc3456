// The one exception family, and the shortest way to raise from it.
//
//   XPK_Raise("TypeError", "Require a '$need' but given a '$have'").string("need", a).string("have",
//   b).raise();
//
// An exception is a pair of counted references: `details`, a script dictionary, and `record`, the native
// record. Its text is not built at the throw: the thrower names a type, a field list and a template, and the
// fields come from the thread's trace frames (xpk_threadstate.h). Copies share both halves; records may be
// read on any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/ipe_object.h"
#include "runtime/xpk_threadstate.h"

// A place in the source: as a default argument, the caller's. (clang 14 has no std::source_location.)
struct XPK_Place {
    const char* file;
    int line;
    static constexpr XPK_Place current(const char* file = __builtin_FILE(),
                                       int line = __builtin_LINE()) noexcept {
        return {file, line};
    }
};

// Everything native about one failure. Immutable once built. At most 129 fields of each
// kind: the place and 128 trace entries.
struct XPK_ExceptionRecord {
    std::string type;       // at most 127 bytes
    std::string fieldList;  // at most 511 bytes
    std::string show;       // the template
    std::string file;       // identifies the source file; empty for processor faults
    int line = 0;
    std::vector<std::pair<std::string, int64_t>> numbers;
    std::vector<std::pair<std::string, std::string>> strings;

    // Null if there is no such field; of several of one name the last, innermost one counts.
    const std::string* findString(std::string_view name) const;
    const int64_t* findNumber(std::string_view name) const;
};

class XPK_Exception {
  public:
    // Builds record and details from the calling thread's trace frames. Raises XPK_MemoryException in its
    // place when memory runs out.
    XPK_Exception(const char* file, int line, std::string_view type, std::string_view fieldList,
                  std::string_view show);
    // Rebuilds an exception from a details dictionary, as when a script raises one again. The dictionary may
    // hold anything: entries that are missing or of a wrong type count as empty.
    explicit XPK_Exception(const IPE_Object& details);
    virtual ~XPK_Exception() = default;
    XPK_Exception(const XPK_Exception&) = default;
    XPK_Exception& operator=(const XPK_Exception&) = default;

    const XPK_ExceptionRecord& record() const noexcept { return *record_; }
    // The details dictionary; null before the interpreter's floor has come up.
    const IPE_Object& details() const noexcept { return details_; }
    const std::string& type() const noexcept { return record_->type; }
    // The template with its fields filled in: $name and ${name} of the record, `$$` a dollar; an unknown name
    // leaves its name alone.
    std::string message() const;
    // Empties `buffer`, then copies the template only if it fits whole.
    void getShow(char* buffer, size_t size) const;

  protected:
    XPK_Exception() noexcept = default;  // for the shorthands, which fill the record at once
    void describe(const char* file, int line, std::string_view type, std::string_view show);
    void fillDetails();
    void setLastResort() noexcept;

  private:
    std::shared_ptr<const XPK_ExceptionRecord> record_;
    IPE_Object details_;
};

class XPK_AssertException : public XPK_Exception {
  public:
    XPK_AssertException(const char* file, int line);
};

class XPK_MemoryException : public XPK_Exception {
  public:
    // Never fails: with no memory left, fields, place and details are missing.
    XPK_MemoryException(const char* file, int line) noexcept;
};

// One failing expression: pushes a trace frame, takes the fields, throws. The field list names the fields in
// the order given unless fields() says otherwise.
class XPK_Raise {
  public:
    XPK_Raise(std::string_view type, std::string_view show, XPK_Place where = XPK_Place::current());
    ~XPK_Raise();
    XPK_Raise(const XPK_Raise&) = delete;
    XPK_Raise& operator=(const XPK_Raise&) = delete;
    XPK_Raise& string(const char* name, std::string_view value);
    XPK_Raise& number(const char* name, int64_t value);
    XPK_Raise& fields(std::string_view list);
    [[noreturn]] void raise();

  private:
    std::string type_, show_, fields_;
    XPK_Place where_;
    bool listed_ = false;
    // A thread without state, such as one of a library, is lent one, so that the fields are not lost.
    std::unique_ptr<XPK_ThreadScope> lent_;
    XPK_TraceScope scope_;
};

[[noreturn]] void XPK_AssertFailed(const char* file, int line);
#define XPK_Assert(condition) ((condition) ? (void)0 : XPK_AssertFailed(__FILE__, __LINE__))

// The operating system's message for an errno; "FormatMessage Failed" when it has none.
std::string XPK_DecodeError(int error);
// Nothing when `error` is 0; otherwise RuntimeError "$api ($errno) $decode" with the fields api, errno,
// decode.
void XPK_ThrowSystemError(const char* api, int error, XPK_Place where = XPK_Place::current());

// The script side of an exception. The interpreter registers both when it comes up: one makes the details
// dictionary of a record on the current thread, the other reads a record's parts back out of a dictionary,
// leaving what it does not find there as it is.
struct XPK_DetailsBridge {
    IPE_Object (*build)(const XPK_ExceptionRecord& record) = nullptr;
    void (*parse)(const IPE_Object& details, XPK_ExceptionRecord& record) = nullptr;
};
void XPK_SetDetailsBridge(XPK_DetailsBridge bridge);
