// SMF_MomentFilter: what the tests of dates and of dates with a time share.
//
//   Modified >= 20060615             Modified = 2006-*-15         years and days, any month
//   Modified < now - 30 days         + 1 week Accessed > Modified
//   Modified within 2 weeks          counted back from the variables date_epoch and date_shift
//   Modified on sunday
//
// Literals are compared part by part, the current moment and other fields by time. An offset before the
// operator counts against the right side, one behind it as written; beside a literal it shifts that moment,
// which must then have no `*`. A year has 365 days there, a month the twelfth part of it.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "store/filters/smf_fieldfilter.h"
#include "store/smf_values.h"

class SMF_MomentFilter : public SMF_FieldFilter {
  public:
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;

  protected:
    static constexpr size_t MostParts = 6;
    // `parts` is 3 for dates, 6 for dates with a time.
    SMF_MomentFilter(const SMF_FilterScope& scope, int32_t index, size_t parts);
    virtual void connectField(IPE_TokenSource& tokens) = 0;

    enum class Test : uint8_t { Parts, Moment, Field, Weekday };
    Test test() const noexcept { return test_; }
    // A part below the day is looked at.
    bool needsTime() const noexcept;
    // byParts() of a test that looks at no part below the day, each day worked out once.
    bool byDay(const SMF_DateValue& date) {
        auto year = static_cast<unsigned>(date.year - FirstYear), month = static_cast<unsigned>(date.month),
             day = static_cast<unsigned>(date.day);
        if (year >= Years || month >= 16 || day >= 32) [[unlikely]]
            return byParts({date.year, date.month, date.day, 0, 0, 0});
        if (days_.empty()) days_.resize(Years * 16 * 32);
        uint8_t& answer = days_[(year * 16 + month) * 32 + day];
        if (answer == 0) [[unlikely]]
            answer = byParts({date.year, date.month, date.day, 0, 0, 0}) ? 2 : 1;
        return answer == 2;
    }
    // The same for many: clears the byte of each date that fails.
    void siftDays(std::span<const SMF_DateValue> dates, uint8_t* keep);
    bool byParts(const SMF_Moment& value) const;  // Parts, Weekday
    // Moment, Field.
    bool byTime(int64_t value, int64_t right) const {
        return SMF_Compares(comparison_, value, SMF_SaturatingAdd(right, shift_));
    }
    int64_t moment() const noexcept { return moment_; }

  private:
    static constexpr int FirstYear = 1970;
    static constexpr unsigned Years = 128;
    std::vector<uint8_t> days_;  // 0 unknown, 1 false, 2 true

    using Values = std::array<int64_t, MostParts>;
    static Values valuesOf(const SMF_Moment& moment);
    bool holds(const Values& value) const;
    std::optional<int32_t> orderedDay() const;
    int64_t takeOffset(IPE_TokenSource& tokens);
    int64_t takeSeconds(IPE_TokenSource& tokens);
    void parseWithin(IPE_TokenSource& tokens);
    void parseWeekday(IPE_TokenSource& tokens);
    void parseLiteral(IPE_TokenSource& tokens);
    void parseParts(IPE_TokenSource& tokens);
    void setPacked(std::string_view digits, IPE_TokenSource& tokens);
    void setMoment(int64_t time, IPE_TokenSource& tokens);
    void shiftParts(IPE_TokenSource& tokens);
    void setMask();

    size_t parts_;
    Test test_ = Test::Parts;
    SMF_Comparison comparison_ = SMF_Comparison::Equal;
    int64_t shift_ = 0;   // seconds added to the right side
    int64_t moment_ = 0;  // of `now`
    int weekday_ = 0;
    Values right_{0, 1, 1, 0, 0, 0};
    std::array<bool, MostParts> present_{};
    bool starred_ = false;
};
