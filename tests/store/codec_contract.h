// The contract of all codecs: what is written reads back, from the start, from every restart point and in any
// order. A source of tests gives its cases to the check below.
#pragma once

#include <random>

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store_support.h"

namespace codec_contract {

struct Case {
    const char* key;     // of the encoder
    const char* format;  // the letters that choose it
    int32_t type;
    // Value number `i` of pattern `pattern` as a script value.
    IPE_Object (*value)(int pattern, int64_t i);
    // What it reads back as; null when that is the value itself.
    IPE_Object (*read)(int pattern, int64_t i) = nullptr;
    // Further tags of the field.
    std::initializer_list<std::pair<const char*, const char*>> tags = {};
    IPE_Object expected(int pattern, int64_t i) const { return (read ? read : value)(pattern, i); }
};

enum Pattern {
    Constant,
    Alternating,
    Rising,
    Extremes,
    Runs249,
    Runs250,
    Runs251,
    Distinct127,
    Distinct128,
    Distinct129,
    Random,
    PatternCount
};

// A number for each pattern; what a type makes of it is its own.
inline int64_t number(int pattern, int64_t i) {
    switch (pattern) {
        case Constant: return 7;
        case Alternating: return i % 2;
        case Rising: return i;
        case Extremes: {
            static const int64_t values[] = {0,         -1,        1,         63,        64,
                                             -63,       -64,       8191,      8192,      INT32_MAX,
                                             INT32_MIN, INT64_MAX, INT64_MIN, -INT64_MAX};
            return values[i % 14];
        }
        case Runs249: return i / 249;
        case Runs250: return i / 250;
        case Runs251: return i / 251;
        case Distinct127: return i % 127;
        case Distinct128: return i % 128;
        case Distinct129: return i % 129;
        default: return static_cast<int64_t>(std::mt19937_64(static_cast<uint64_t>(i))() >> (i % 60));
    }
}

inline std::shared_ptr<std::string> storeOf(const Case& c, int pattern, int64_t rows, uint32_t zero) {
    IPE_Object tags = IPE_NewDict();
    for (const auto& [key, text] : c.tags) tags.as<IPE_DictType>()->setText(key, IPE_String(text));
    std::vector<IPE_Object> values;
    for (int64_t i = 0; i < rows; ++i) values.push_back(c.value(pattern, i));
    return columnStore(c.type, c.format, values, zero, tags);
}

inline std::string shown(const IPE_Object& value) { return IPE_Object_ToString(value); }

template <size_t Count>
void checkEveryPattern(const Case (&cases)[Count]) {
    for (const Case& c : cases)
        for (int pattern = 0; pattern < PatternCount; ++pattern)
            for (int64_t rows : {0, 1, 9, 10, 11, 31, 32, 33, 700, 3000})
                for (uint32_t zero : {10u, 300u, 100000u}) {
                    SCOPED_TRACE(std::string(c.key) + " pattern " + std::to_string(pattern) + " rows " +
                                 std::to_string(rows) + " zero " + std::to_string(zero));
                    OpenTable open(storeOf(c, pattern, rows, zero), "T");
                    ASSERT_EQ(open.table.rows(), rows);
                    ASSERT_EQ(open.table.meta().fields[0]->decoder->key(), std::string(c.key, 3) + "D");
                    open.table.top();
                    open.table.next();
                    for (int64_t i = 0; i < rows; ++i, open.table.next())
                        ASSERT_EQ(shown(open.table.asObject(0)), shown(c.expected(pattern, i)))
                            << "row " << i;
                    ASSERT_EQ(open.table.position(), rows + 1);
                    // Any order: backwards in strides, so that restarts and reads inside an interval mix.
                    for (int64_t i = rows - 1; i >= 0; i -= 1 + i % 37) {
                        open.table.seek(i + 1);
                        ASSERT_EQ(shown(open.table.asObject(0)), shown(c.expected(pattern, i)))
                            << "seek " << i;
                    }
                }
}

}  // namespace codec_contract
