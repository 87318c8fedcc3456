// FSI_FTableFilter: the test on a field that holds the number of something else, by what the number stands
// for: the text or the row of a path, a row of another table, a named property, or a figure of a directory.
//
//   PathNumber = '/mail/'        Path.Mode has ow        Owner.Name = 'root'        TreeSize >= 1GB
//
// Which of these a field gets follows from its tags and the next token. Neighbouring rows mostly hold the
// same number, so the last answer stays at hand.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "census/fsi_recordfilter.h"
#include "store/filters/smf_fieldfilter.h"

class FSI_FTableFilter final : public SMF_FieldFilter {
  public:
    // `name` is the field's name as the query wrote it.
    FSI_FTableFilter(const SMF_FilterScope& scope, FSI_ReaderTable& table, int32_t index,
                     std::string_view name);
    ~FSI_FTableFilter() override;
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;
    void evaluate(bool& result) override;

  private:
    struct Test;  // by kind
    FSI_ReaderTable& table_;
    std::string name_;
    SMF_FieldHandle value_;
    int64_t last_ = -1;
    bool known_ = false, lastAnswer_ = false;
    std::unique_ptr<Test> test_;
};
