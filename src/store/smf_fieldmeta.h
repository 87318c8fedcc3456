// SMF_FieldMeta: the description of one field, shared by every record of a table.
//
// A field's tags are an open dictionary of text keys. Those that the store itself reads are `Default`, `API`,
// `Fixed` and `Transform` (kept in members below), `IPEDefault` (read by the value objects), and those of the
// types: `R` and `S` of trees, `C`, `SN`, `LN`, `S0.`, `L0.` and on of flags. `Format` chooses the codec.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/ipe_object.h"
#include "store/smf_format.h"

class IPE_DictType;
class SMF_FieldDecoder;
class SMF_FieldEncoder;

// What all value objects of one field share: the separator of a tree, the names of flags.
class SMF_FieldData {
  public:
    virtual ~SMF_FieldData() = default;
    // Writes the form that a schema shows into `dictionary`, over the tags that are there.
    virtual void exportTo(IPE_DictType& dictionary) const = 0;
};

enum class SMF_Transform : int32_t { None = 0, FileName = 1, PathName = 2, Fixed = 3 };

struct SMF_FieldMeta {
    SMF_FieldMeta(int32_t type, std::string_view name, int32_t index);

    int32_t defaultNumber = 0;
    int64_t defaultWide = 0;
    SMF_Transform transform = SMF_Transform::None;
    IPE_Object api;
    IPE_Object fixedValue;
    int32_t type;
    int32_t index;
    std::string name;
    IPE_Object tags;                            // a DictType, never null
    std::shared_ptr<SMF_FieldData> data;        // made by the first value object; null for most types
    std::shared_ptr<SMF_FieldEncoder> encoder;  // null on readers
    std::shared_ptr<SMF_FieldDecoder> decoder;  // null on writers and for declared fields without a stream

    // Looks at `Default`, `API`, `Fixed` and `Transform`, then stores.
    void setTag(std::string_view key, const IPE_Object& value);
    void setTags(const IPE_Object& dictionary);
    // The text of a tag, or `absent`.
    std::string tagText(std::string_view key, std::string_view absent = {}) const;
    bool hasTag(std::string_view key) const;
    // `name`, `type` as the type's name, and what the type itself shows.
    void exportTo(IPE_DictType& dictionary) const;
    bool isFixed() const noexcept { return transform == SMF_Transform::Fixed; }
};

// "String", "I32", ... of a type number; empty when the type has no class.
std::string_view SMF_TypeName(int32_t type);
// True when the type has a class and the codec key begins with the type's letter.
bool SMF_DecodesType(std::string_view key, int32_t type);
// The type of a handle takes a field of that type; 0 and 10 count as equal.
inline bool SMF_SameType(int32_t a, int32_t b) {
    return a == b || (a == SMF_TypeString && b == SMF_TypeString10) ||
           (a == SMF_TypeString10 && b == SMF_TypeString);
}
