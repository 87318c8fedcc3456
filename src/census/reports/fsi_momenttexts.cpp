// Times as texts. Digits are written by hand: a summary of a large census has a hundred thousand of them to
// make even when most are found ready.
#include "census/reports/fsi_momenttexts.h"

#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_momentparts.h"

namespace {

constexpr uint64_t DateKey = uint64_t(1) << 63;  // tells the key of a stored date from that of a time

char* twoDigits(char* at, int value) {
    *at++ = static_cast<char>('0' + value / 10);
    *at++ = static_cast<char>('0' + value % 10);
    return at;
}

}  // namespace

const IPE_Object& FSI_MomentTexts::of(int64_t seconds) {
    Entry& found = entry(static_cast<uint64_t>(seconds) & ~DateKey);
    if (!found.text) {
        SMF_DateValue date;
        SMF_TimeValue time;
        if (seconds != 0) SMF_LocalMoment(seconds, date, time);
        found.text = textOf(date, time);
    }
    return found.text;
}

const IPE_Object& FSI_MomentTexts::of(const SMF_DateValue& date) {
    Entry& found = entry(DateKey | date.bits());
    if (!found.text) found.text = textOf(date, {});
    return found.text;
}

FSI_MomentTexts::Entry& FSI_MomentTexts::entry(uint64_t key) {
    Entry& found = entries_[key * 0x9E3779B97F4A7C15 >> (64 - Bits)];
    if (found.key != key) found = {key, {}};
    return found;
}

IPE_Object FSI_MomentTexts::textOf(const SMF_DateValue& date, const SMF_TimeValue& time) const {
    bool plain = date.year >= 0 && date.year <= 9999 && date.month >= 0 && date.month <= 99 &&
                 date.day >= 0 && date.day <= 99;
    if (!plain) {  // only a damaged store holds such a date
        std::string text = SMF_DateText(date);
        return IPE_String(form_ == Form::Date ? text : text + ' ' + SMF_TimeText(time));
    }
    char text[] = "YYYY-MM-DD HH:MM:SS";
    twoDigits(twoDigits(text, date.year / 100), date.year % 100);
    twoDigits(text + 5, date.month);
    twoDigits(text + 8, date.day);
    if (form_ == Form::Date) return IPE_String({text, 10});
    twoDigits(text + 11, time.hour);
    twoDigits(text + 14, time.minute);
    twoDigits(text + 17, time.second);
    return IPE_String({text, 19});
}
