// Over the platform's locale texts. The platform takes numbers as decimal text, so no digit is lost on the
// way.
#include "ipe/values/ipe_localetext.h"

#include <charconv>
#include <ctime>

#include "platform/pf_localetext.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_threadstate.h"

namespace {

platform::LocaleId threadLocale() {
    const XPK_ThreadState* state = XPK_CurrentThread();
    return state ? state->locale & 0xFFFF : 0;
}

// Eight decimals, as the conversion of floats for the platform is defined. Not-a-number and the infinities
// become words, which the platform refuses.
std::string decimal(double value) {
    char buffer[352];
    auto end = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 8).ptr;
    return std::string(buffer, end);
}

bool localTime(int64_t moment, tm& parts) {
    auto seconds = static_cast<time_t>(moment);
    return moment != 0 && localtime_r(&seconds, &parts);
}

}  // namespace

std::string IPE_LocaleInteger(int64_t value) {
    std::string text;
    XPK_ThrowSystemError("GetNumberFormat",
                         platform::integerText(threadLocale(), std::to_string(value), text));
    return text;
}

std::string IPE_LocaleNumber(double value) {
    std::string text;
    XPK_ThrowSystemError("GetNumberFormat", platform::numberText(threadLocale(), decimal(value), text));
    return text;
}

std::string IPE_LocaleCurrency(double value) {
    std::string text;
    XPK_ThrowSystemError("GetCurrencyFormat", platform::currencyText(threadLocale(), decimal(value), text));
    return text;
}

std::string IPE_LocaleDate(int64_t moment, bool longForm) {
    tm parts{};
    std::string text;
    if (localTime(moment, parts))
        XPK_ThrowSystemError("GetDateFormat", platform::dateText(threadLocale(), parts, longForm, text));
    return text;
}

std::string IPE_LocaleTime(int64_t moment) {
    tm parts{};
    std::string text;
    if (localTime(moment, parts))
        XPK_ThrowSystemError("GetDateFormat", platform::timeText(threadLocale(), parts, text));
    return text;
}
