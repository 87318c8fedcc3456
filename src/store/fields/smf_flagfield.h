// SMF_FlagField and its handle SMF_Flag: a set of named bits, at most 128.
#pragma once

#include <string>
#include <vector>

#include "store/smf_fieldhandle.h"

// The shared description: names in bit order, from the tags `SN` and `LN` or, through the label table, `C`,
// `S0.`, `L0.` and on.
class SMF_FlagData final : public SMF_FieldData {
  public:
    explicit SMF_FlagData(const SMF_FieldMeta& meta);
    void exportTo(IPE_DictType& dictionary) const override;  // `shortdecode`: the list of short names
    std::vector<std::string> shortNames, longNames;
    int bytes = 1;  // stored for each value, 1 to 16
};

class SMF_FlagField final : public SMF_FieldOf<SMF_FlagValue, SMF_FlagDecoder> {
  public:
    SMF_FlagField(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record);
    // The short names of the set bits joined by ','. A bit without a name: IndexError "list index out of
    // range".
    IPE_Object asObject() override;
    void assignText(std::string_view utf8) override;
    void assignObject(const IPE_Object& value) override;
    int displayKind() const noexcept override { return 1; }
    int32_t typeNumber() const noexcept override { return SMF_TypeFlag; }
    const SMF_FlagValue& get();  // a fixed field answers from the fixed value
    const SMF_FlagData& data() const noexcept { return static_cast<const SMF_FlagData&>(*meta_->data); }

  protected:
    void clear() override { value_ = {}; }
};

using SMF_Flag = SMF_HandleOf<SMF_TypeFlag, SMF_FlagValue, SMF_FlagField, SMF_FlagDecoder>;
