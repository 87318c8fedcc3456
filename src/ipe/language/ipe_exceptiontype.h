// IPE_ExceptionType, type name "ExceptionType": what `except` gives a script. It wraps the details
// dictionary, shared with the exception, and adds raised, values, decode, strings and numbers. Also the stack
// report of exceptions.
#pragma once

#include "ipe/object/ipe_type.h"
#include "runtime/xpk_exception.h"

class IPE_ExceptionType final : public IPE_Type {
  public:
    static const char TypeName[];
    explicit IPE_ExceptionType(const XPK_Exception& exception);
    // `details` gives the dictionary, any other key its entry; an absent one raises KeyError "$key".
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    const IPE_Object& details() const noexcept { return details_; }

  private:
    IPE_Object details_;
};

inline IPE_ExceptionType* PyException_SafeCast(const IPE_Object& object) {
    return IPE_SafeCast<IPE_ExceptionType>(object, "PyException_SafeCast");
}

// Fills `ipestack`, and `statement`, `file`, `line` when a script runs on this thread.
void IPE_ReportStack(IPE_Object details);
// The list of one dictionary for each script frame, innermost first; `plain` leaves out locals and
// signatures.
IPE_Object IPE_ScriptStack(bool plain);
