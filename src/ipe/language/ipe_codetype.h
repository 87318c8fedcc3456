// IPE_CodeType: the function that a `def` makes. It keeps the defining namespace and a line of the program; a
// body is walked from its first line at each call. It belongs to its interpreter's thread and must not
// outlive the interpreter's program, which holds for everything scripts can reach. __copy__ gives null:
// functions do not cross threads.
#pragma once

#include <vector>

#include "ipe/language/ipe_program.h"
#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"

class IPE_Interpreter;
class IPE_ModuleShared;

class IPE_CodeType final : public IPE_Type {
  public:
    static const char TypeName[];
    IPE_CodeType(IPE_StringType* name, IPE_Interpreter& interpreter, IPE_Segment* segment,
                 IPE_ModuleShared* globals);
    ~IPE_CodeType() override;

    struct Parameter {
        IPE_StringType* name;
        uint32_t hint = UINT32_MAX;       // slot of the name in fresh locals
        IPE_Object defaultValue;          // null when absent
        IPE_Object type;                  // callable or null
        std::vector<IPE_Object> aspects;  // callables
    };
    std::vector<Parameter> parameters;
    uint32_t codeHint = UINT32_MAX;  // slot of __code__
    uint32_t layoutCapacity = 0;  // capacity of fresh locals for which the hints are the slots; 0 for unknown
    bool wide = false;            // its locals outgrow the smallest dictionary
    bool plain = true;            // no parameter has a type or aspects, no return type, no * or **
    IPE_StringType* varargs = nullptr;
    IPE_StringType* kwargs = nullptr;
    IPE_Object returnType;     // null when absent
    IPE_Object name;           // string
    IPE_Object documentation;  // string or null
    IPE_Object dict;           // __dict__
    IPE_Object stop;           // __stop__ or null
    IPE_Segment* segment;
    uint32_t defLine = 0;  // line of the `def`
    uint32_t line = 0;     // first line of the body

    IPE_Object __call__(const IPE_Arguments& arguments) override;
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    void __setattr__(const IPE_Object& key, const IPE_Object& value) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    bool __stop__(IPE_Frame& frame) override;
    void clear() override;
    IPE_ModuleShared* globals() const noexcept { return globals_; }
    IPE_Interpreter& interpreter() const noexcept { return *interpreter_; }
    // The pair (file, line) of the definition.
    IPE_Object source() const;
    // A new function of the same parameters and body, with an empty __dict__.
    IPE_Object twin() const;

  private:
    IPE_Interpreter* interpreter_;
    IPE_ModuleShared* globals_;  // counted; null after clear
};
