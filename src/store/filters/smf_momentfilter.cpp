// Dates: what is written is read into parts or into a number of seconds when the query is compiled, so that a
// row costs a few comparisons.
//
// A minus behind a literal may begin another part or an offset; the word behind its number decides.
#include "store/filters/smf_momentfilter.h"

#include <bit>
#include <chrono>
#include <cstddef>
#include <ctime>

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_tokensource.h"

namespace {

struct Unit {
    const char* word;
    int64_t seconds;
};
constexpr Unit Units[] = {
    {"second", 1},      {"seconds", 1},      {"minute", 60},     {"minutes", 60},     {"hour", 3600},
    {"hours", 3600},    {"day", 86400},      {"days", 86400},    {"week", 604800},    {"weeks", 604800},
    {"month", 2628000}, {"months", 2628000}, {"year", 31536000}, {"years", 31536000},
};

const Unit* findUnit(std::string_view word) {
    for (const Unit& unit : Units)
        if (SMF_SameWord(word, unit.word)) return &unit;
    return nullptr;
}

struct Weekday {
    const char *brief, *name;
};
constexpr Weekday Weekdays[] = {{"sun", "sunday"},    {"mon", "monday"},   {"tue", "tuesday"},
                                {"wed", "wednesday"}, {"thu", "thursday"}, {"fri", "friday"},
                                {"sat", "saturday"}};

constexpr int64_t LargestPart = 1'000'000'000;

// As mktime brings fields into range; the day of the week does not depend on the zone.
int weekdayOf(const SMF_Moment& value) {
    using namespace std::chrono;
    int months = value.year * 12 + value.month - 1;
    int year = months >= 0 ? months / 12 : (months - 11) / 12;
    sys_days first = std::chrono::year(year) / month(static_cast<unsigned>(months - year * 12 + 1)) / 1;
    int seconds = value.hour * 3600 + value.minute * 60 + value.second;
    return static_cast<int>(weekday(first + days(value.day - 1 + seconds / 86400)).c_encoding());
}

}  // namespace

SMF_MomentFilter::SMF_MomentFilter(const SMF_FilterScope& scope, int32_t index, size_t parts)
    : SMF_FieldFilter(scope, index), parts_(parts) {}

// --- Reading.

int64_t SMF_MomentFilter::takeSeconds(IPE_TokenSource& tokens) {
    if (tokens.kind() != TOKEN_NUMBER) expecting(tokens, "a number");
    SMF_Quantity quantity = SMF_TakeQuantity(tokens);
    const Unit* unit = findUnit(quantity.unit);
    if (!unit) expecting(tokens, "a unit of time");
    return SMF_SaturatingMultiply(SMF_DecimalOf(quantity.number), unit->seconds);
}

int64_t SMF_MomentFilter::takeOffset(IPE_TokenSource& tokens) {
    bool minus = tokens.kind() == TOKEN_MINUS;
    if (!minus && tokens.kind() != TOKEN_PLUS) return 0;
    tokens.next();
    int64_t seconds = takeSeconds(tokens);
    return minus ? -seconds : seconds;
}

bool SMF_MomentFilter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) {
    shift_ = -takeOffset(tokens);
    if (SMF_TakeWord(tokens, "within")) {
        parseWithin(tokens);
        return true;
    }
    if (SMF_AtWord(tokens, "on")) {
        if (shift_ != 0) expecting(tokens, "a moment for the offset");
        tokens.next();
        parseWeekday(tokens);
        return true;
    }
    std::optional<SMF_Comparison> comparison = SMF_TakeComparison(tokens, true);
    if (!comparison) expecting(tokens, "an operator");
    comparison_ = *comparison;
    if (SMF_TakeWord(tokens, "now")) {
        test_ = Test::Moment;
        moment_ = std::time(nullptr);
        notCacheable_ = true;
        scope_.variables.as<IPE_DictType>()->setText("not_cacheable", IPE_Int(1));
    } else if (tokens.kind() == TOKEN_IDENTIFIER) {
        test_ = Test::Field;
        connectField(tokens);
    } else {
        parseLiteral(tokens);
        return true;
    }
    shift_ = SMF_SaturatingAdd(shift_, takeOffset(tokens));
    return true;
}

void SMF_MomentFilter::parseWithin(IPE_TokenSource& tokens) {
    int64_t seconds = takeSeconds(tokens);
    auto* variables = scope_.variables.as<IPE_DictType>();
    IPE_Type* epoch = variables->findText("date_epoch");
    if (!epoch) tokens.syntaxError("The variable date_epoch is not set");
    int64_t moment = IPE_TimeOf(IPE_Object(epoch));
    if (IPE_Type* shift = variables->findText("date_shift"))
        moment = SMF_SaturatingAdd(moment, shift->__int__());
    comparison_ = SMF_Comparison::GreaterEqual;
    setMoment(SMF_SaturatingAdd(SMF_SaturatingAdd(moment, -seconds), shift_), tokens);
}

void SMF_MomentFilter::parseWeekday(IPE_TokenSource& tokens) {
    test_ = Test::Weekday;
    if (tokens.kind() == TOKEN_IDENTIFIER)
        for (const Weekday& day : Weekdays)
            if (std::string word = tokens.getTokenText();
                SMF_SameWord(word, day.brief) || SMF_SameWord(word, day.name)) {
                weekday_ = static_cast<int>(&day - Weekdays);
                tokens.next();
                return;
            }
    expecting(tokens, "a day of the week");
}

void SMF_MomentFilter::parseLiteral(IPE_TokenSource& tokens) {
    std::string text = tokens.kind() == TOKEN_NUMBER ? tokens.getTokenText() : std::string();
    if (text.size() == 8 || text.size() == 14) {
        setPacked(text, tokens);
        tokens.next();
    } else {
        parseParts(tokens);
    }
    shift_ = SMF_SaturatingAdd(shift_, takeOffset(tokens));
    if (shift_ != 0) shiftParts(tokens);
    setMask();
}

void SMF_MomentFilter::setPacked(std::string_view digits, IPE_TokenSource& tokens) {
    if (digits.find_first_not_of("0123456789") != std::string_view::npos) expecting(tokens, "a date");
    for (size_t part = 0, at = 0; at < digits.size(); ++part) {
        size_t size = part == 0 ? 4 : 2;
        right_[part] = SMF_DecimalOf(digits.substr(at, size));
        present_[part] = true;
        at += size;
    }
}

void SMF_MomentFilter::parseParts(IPE_TokenSource& tokens) {
    for (size_t part = 0; part < MostParts; ++part) {
        if (part > 0) {
            bool minus = tokens.kind() == TOKEN_MINUS;
            if (!minus && tokens.kind() != TOKEN_COLON) return;
            tokens.next();
            if (minus && tokens.kind() == TOKEN_NUMBER) {
                std::string number = tokens.getTokenText();
                std::string unit;
                tokens.next();
                if (tokens.kind() == TOKEN_IDENTIFIER) unit = tokens.getTokenText();
                if (number.back() == 'd' || number.back() == 'D') unit.insert(0, 1, number.back());
                if (const Unit* offset = findUnit(unit)) {
                    tokens.next();
                    int64_t seconds = SMF_SaturatingMultiply(SMF_DecimalOf(number), offset->seconds);
                    shift_ = SMF_SaturatingAdd(shift_, -seconds);
                    return;
                }
                right_[part] = std::min(SMF_DecimalOf(number), LargestPart);
                present_[part] = true;
                continue;
            }
        }
        if (tokens.kind() == TOKEN_STAR) {
            starred_ = true;
        } else {
            if (tokens.kind() != TOKEN_NUMBER) expecting(tokens, "a date");
            right_[part] = std::min(SMF_DecimalOf(tokens.getTokenText()), LargestPart);
            present_[part] = true;
        }
        tokens.next();
    }
}

void SMF_MomentFilter::setMoment(int64_t time, IPE_TokenSource& tokens) {
    std::tm local{};
    auto moment = static_cast<time_t>(time);
    if (!localtime_r(&moment, &local)) tokens.syntaxError("The date is out of range");
    right_ = {int64_t{local.tm_year} + 1900,
              local.tm_mon + 1,
              local.tm_mday,
              local.tm_hour,
              local.tm_min,
              local.tm_sec};
    present_.fill(true);
    setMask();
}

// A literal without a time stands for its day: shifted by whole days it stays one, also across a change of
// the zone.
void SMF_MomentFilter::shiftParts(IPE_TokenSource& tokens) {
    constexpr int64_t SecondsADay = 86400, MostDays = 4'000'000;
    if (starred_) tokens.syntaxError("An offset needs a date without *");
    bool isDay = !present_[3] && !present_[4] && !present_[5];
    int64_t days = shift_ / SecondsADay;
    bool byDays = isDay && shift_ % SecondsADay == 0 && days > -MostDays && days < MostDays;
    std::tm parts{};
    parts.tm_year = static_cast<int>(right_[0] - 1900);
    parts.tm_mon = static_cast<int>(right_[1] - 1);
    parts.tm_mday = static_cast<int>(right_[2] + (byDays ? days : 0));
    parts.tm_hour = static_cast<int>(right_[3]);
    parts.tm_min = static_cast<int>(right_[4]);
    parts.tm_sec = static_cast<int>(right_[5]);
    parts.tm_isdst = parts.tm_wday = -1;
    time_t moment = std::mktime(&parts);
    if (moment == -1 && parts.tm_wday == -1) tokens.syntaxError("The date is out of range");
    if (!byDays) return setMoment(SMF_SaturatingAdd(moment, shift_), tokens);
    right_[0] = parts.tm_year + 1900;
    right_[1] = parts.tm_mon + 1;
    right_[2] = parts.tm_mday;
}

// Parts that the field does not have are not compared.
void SMF_MomentFilter::setMask() {
    SMF_MomentMask mask = scope_.record.field(meta_->index).maskYMDHMS();
    const bool offered[] = {mask.year, mask.month, mask.day, mask.hour, mask.minute, mask.second};
    for (size_t part = 0; part < MostParts; ++part) present_[part] &= part < parts_ && offered[part];
}

// --- Comparing.

bool SMF_MomentFilter::needsTime() const noexcept {
    if (test_ == Test::Weekday) return false;
    return test_ != Test::Parts || present_[3] || present_[4] || present_[5];
}

SMF_MomentFilter::Values SMF_MomentFilter::valuesOf(const SMF_Moment& moment) {
    return {moment.year, moment.month, moment.day, moment.hour, moment.minute, moment.second};
}

bool SMF_MomentFilter::holds(const Values& value) const {
    for (size_t part = 0; part < parts_; ++part) {
        if (!present_[part]) continue;
        bool same = value[part] == right_[part];
        switch (comparison_) {
            case SMF_Comparison::Equal:
                if (!same) return false;
                break;
            case SMF_Comparison::NotEqual:
                if (same) return false;
                break;
            default:
                if (!same) return SMF_Compares(comparison_, value[part], right_[part]);
        }
    }
    return comparison_ != SMF_Comparison::Less && comparison_ != SMF_Comparison::Greater;
}

namespace {

// A date as a number that is ordered like year, month and day, whatever signs those have.
int32_t ordered(const SMF_DateValue& date) { return static_cast<int32_t>(date.bits() ^ 0x8080); }
static_assert(offsetof(SMF_DateValue, month) == 1 && offsetof(SMF_DateValue, year) == 2 &&
              std::endian::native == std::endian::little);

}  // namespace

// The literal of a comparison that is one of such numbers: with a whole day that a date can hold. `<>` asks
// more than that, for all parts must differ.
std::optional<int32_t> SMF_MomentFilter::orderedDay() const {
    if (test_ != Test::Parts || comparison_ == SMF_Comparison::NotEqual) return {};
    if (!present_[0] || !present_[1] || !present_[2] || present_[3] || present_[4] || present_[5]) return {};
    if (right_[0] > INT16_MAX || right_[1] > INT8_MAX || right_[2] > INT8_MAX) return {};
    if (right_[0] < INT16_MIN || right_[1] < INT8_MIN || right_[2] < INT8_MIN) return {};
    SMF_DateValue date;
    date.year = static_cast<int16_t>(right_[0]);
    date.month = static_cast<int8_t>(right_[1]);
    date.day = static_cast<int8_t>(right_[2]);
    return ordered(date);
}

void SMF_MomentFilter::siftDays(std::span<const SMF_DateValue> dates, uint8_t* keep) {
    if (std::optional<int32_t> right = orderedDay()) {
        SMF_WithComparison<int32_t>(comparison_, [&](auto compares) {
            SMF_SiftEach(dates, keep,
                         [&](const SMF_DateValue& date) { return compares(ordered(date), *right); });
        });
        return;
    }
    for (size_t i = 0; i < dates.size(); ++i)
        if (keep[i]) keep[i] = byDay(dates[i]);
}

bool SMF_MomentFilter::byParts(const SMF_Moment& value) const {
    if (test_ == Test::Weekday) return value.year != 0 && weekdayOf(value) == weekday_;
    return holds(valuesOf(value));
}
