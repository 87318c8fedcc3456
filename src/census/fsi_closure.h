// FSI_ReaderTable_Closure: what a schema script can do to its table. The script calls one global, `table`,
// with the name of the function first; the prelude wraps that in plain functions:
//
//   hasField(name)                        whether there is such a field
//   setFieldName(name, newName)
//   setFieldStyle(name, style)            the tag `style`
//   setFieldTags(name, tags)              adds to the tags, or replaces some
//   getFieldTags(name)
//   addFieldDefault(name, type, value)    a field without stored data and with the tag `Default`; nothing if
//                                         `name` exists. DevelopmentError "Unsupported column type"
//   addFieldShadow(name, source, tags)    SMF_ReaderTable::addShadow
//   fieldSetIPE(index, value)             gives the field's value object a value
//   toboolean(value)                      true, a number but 0 and "true" are true
//
// A name that is no field, or stands for an index, does nothing, but for the source of a shadow; so does a
// first word that is no function here. Names are found without regard to case.
#pragma once

#include <string_view>

#include "census/fsi_readertable.h"
#include "ipe/object/ipe_arguments.h"

class FSI_ReaderTable_Closure final : public IPE_Type {
  public:
    static const char TypeName[];
    explicit FSI_ReaderTable_Closure(FSI_ReaderTable& table) : IPE_Type(TypeName), table_(&table) {}
    // The table goes; calls then do nothing.
    void detach() noexcept { table_ = nullptr; }
    IPE_Object __call__(const IPE_Arguments& arguments) override;

  private:
    IPE_Object apply(std::string_view function, const IPE_Arguments& arguments);
    void changeTags(std::string_view name, const IPE_Object& tags);
    void rename(std::string_view name, std::string_view newName);
    void addDefault(std::string_view name, std::string_view type, const IPE_Object& value);
    void assign(const IPE_Object& index, const IPE_Object& value);

    FSI_ReaderTable* table_;
};

// The chunk that runs before every schema script.
extern const char FSI_SchemaPrelude[];
