// FSI_FTableFilter: the test on a field that holds the number of something else, by what the number stands
// for: the text or the row of a path, a row of another table, a named property, or a figure of a directory.
//
//   Path = '/mail/'        Path.Levels > 4        Owner = '^root$'        FolderSize >= 1GB
//
// Which of these a field gets follows from its name, its tags and the next token. Neighbouring rows mostly
// hold the same number, so the last answer stays at hand; answers about other tables are kept by number too.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "census/fsi_recordfilter.h"
#include "census/index/fsi_pathlevelhelper.h"
#include "store/fields/smf_i32field.h"
#include "store/filters/smf_fieldfilter.h"
#include "store/filters/smf_i64comparison.h"

class FSI_FTableFilter final : public SMF_FieldFilter {
  public:
    // `owner` is the filter that the test is part of, and must outlive it; `scope` is its scope and `index` a
    // field of its table.
    FSI_FTableFilter(FSI_RecordFilter& owner, const SMF_FilterScope& scope, int32_t index);
    ~FSI_FTableFilter() override;
    // A field without a test is a syntax error; what is wrong with the table that its tags name is that
    // table's error.
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;
    // "Seek past end of table" for a number behind the rows of the other table.
    void evaluate(bool& result) override;

  private:
    enum class Kind : uint8_t { Text, Folder, Row, Property, Compare, Level };
    class Answers;  // by number

    void parseText(IPE_TokenSource& tokens, int depth);
    void parsePathColumn(IPE_TokenSource& tokens, bool unc, int depth);
    void parseForeign(IPE_TokenSource& tokens, const std::string& table, const std::string& column,
                      int depth);
    void parseLevel(IPE_TokenSource& tokens, const std::string& shown);
    void setTest(std::unique_ptr<SMF_FieldFilter> test);

    int64_t number() const;
    bool selectRow(int64_t number);
    bool answer(int64_t number);
    int64_t figure(int64_t number);

    FSI_RecordFilter& owner_;
    FSI_ReaderTable& table_;
    Kind kind_ = Kind::Compare;
    // The field, by its type.
    SMF_I32 value32_;
    SMF_I64 value64_;
    SMF_FieldHandle value_;

    int64_t last_ = 0;  // the number that the members behind are about, once known_ is set
    bool known_ = false, lastAnswer_ = false;
    int64_t lastMeasure_ = 0;  // what its test added to the accumulator
    int64_t lastFigure_ = 0;

    // The indexes in use, the other table, where this test brought it along, and the test on it.
    std::shared_ptr<FSI_PathNameHelper> pathNames_;
    std::shared_ptr<FSI_PathLevelHelper> levels_;
    std::unique_ptr<SMF_ReaderTable> ownTable_;
    SMF_ReaderTable* other_ = nullptr;
    std::unique_ptr<FSI_RecordFilter> nested_;
    std::unique_ptr<SMF_FieldFilter> test_;
    std::string property_;
    std::unique_ptr<Answers> answers_;
    // Numbers.
    SMF_I64Comparison comparison_;
    FSI_Figure figure_ = FSI_FigureCount;  // that for the depth
};
