// FSI_MomentTexts: times as the texts that reports write, each made once.
//
// Trees share the latest times of what is in them, so that a report meets few of them, again and again. The
// texts of the latest few hundred stay at hand. Belongs to one thread.
#pragma once

#include <cstdint>
#include <vector>

#include "runtime/ipe_object.h"
#include "store/smf_values.h"

class FSI_MomentTexts {
  public:
    enum class Form { Date, DateTime };  // "YYYY-MM-DD", "YYYY-MM-DD HH:MM:SS"

    explicit FSI_MomentTexts(Form form) : form_(form), entries_(Size) {}

    // Seconds since 1970 in local time; zeros for 0, which is no time, and for one without local form. Valid
    // until the next call.
    const IPE_Object& of(int64_t seconds);
    // A stored date; in the long form its time is 00:00:00.
    const IPE_Object& of(const SMF_DateValue& date);

  private:
    static constexpr int Bits = 9;
    static constexpr size_t Size = size_t(1) << Bits;
    struct Entry {
        uint64_t key = 0;
        IPE_Object text;  // null in an unused entry
    };
    Entry& entry(uint64_t key);
    IPE_Object textOf(const SMF_DateValue& date, const SMF_TimeValue& time) const;

    Form form_;
    std::vector<Entry> entries_;  // by a hash of the key; a later key replaces the earlier
};
