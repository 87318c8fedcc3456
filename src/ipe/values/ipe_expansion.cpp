// The format language: `%` directives over one parameter object.
//
// A directive is `%`, an optional `(name)`, the flags `!` `,` `-` `0` in that order, a width, a precision and
// a code. The template is read by bytes, which is safe in UTF-8, since all that has a meaning is ASCII;
// positions in messages are counted back into code points. The value is fetched before flags and code are
// read. Widths count bytes. Width is bounded at 1,000,000 and precision at 1,100, behind which no double has
// a digit.
#include "ipe/values/ipe_expansion.h"

#include <charconv>
#include <cmath>

#include "ipe/values/ipe_codepoints.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_localetext.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_textmarks.h"
#include "runtime/epa_unicode.h"

namespace {

constexpr size_t WidthLimit = 1000000;
constexpr size_t PrecisionLimit = 1100;

struct Directive {
    bool alternate = false;  // !
    bool group = false;      // ,
    bool dash = false;       // -
    bool zero = false;       // 0
    size_t width = 0;
    size_t precision = 0;
};

// Puts commas between the digits in threes. A sign and what follows the point stay outside.
std::string grouped(std::string_view number) {
    number = number.substr(0, 64);
    std::string result;
    if (!number.empty() && number[0] == '-') {
        result.push_back('-');
        number.remove_prefix(1);
    }
    size_t point = number.find('.');
    std::string_view digits = number.substr(0, point);
    size_t first = digits.size() % 3 ? digits.size() % 3 : 3;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i >= first && (i - first) % 3 == 0) result += ',';
        result += digits[i];
    }
    if (point != std::string_view::npos) result += number.substr(point);
    return result;
}

std::string fixedPoint(double value, size_t precision) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    char buffer[PrecisionLimit + 320];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed,
                                      static_cast<int>(precision));
    XPK_Assert(error == std::errc());
    return std::string(buffer, end);
}

class FormatExpander {
  public:
    FormatExpander(std::string_view control, const IPE_Object& parameter)
        : control_(control), parameter_(parameter) {}

    IPE_Object expand() {
        while (position_ < control_.size()) {
            size_t percent = control_.find('%', position_);
            out_.append(control_.substr(position_, percent - position_));
            if (percent == std::string_view::npos) break;
            position_ = percent + 1;
            if (peek() == '%') {
                out_.append('%');
                ++position_;
                continue;
            }
            directive();
        }
        return IPE_String(out_.view());
    }

  private:
    // The byte at the position, or 0 at the end of the template, which holds no 0.
    char peek() const { return position_ < control_.size() ? control_[position_] : '\0'; }
    bool take(char c) {
        if (peek() != c) return false;
        ++position_;
        return true;
    }
    size_t number(size_t limit) {
        size_t value = 0;
        for (; peek() >= '0' && peek() <= '9'; ++position_)
            if (value < limit) value = value * 10 + static_cast<size_t>(peek() - '0');
        return value < limit ? value : limit;
    }

    void directive() {
        IPE_Object value = take('(') ? named() : positional();
        Directive d;
        d.alternate = take('!');
        d.group = take(',');
        d.dash = take('-');
        d.zero = take('0');
        d.width = number(WidthLimit);
        if (take('.')) d.precision = number(PrecisionLimit);
        write(d, value);
        ++position_;
    }

    IPE_Object named() {
        auto* dict = parameter_.tryAs<IPE_DictType>();
        if (!dict) XPK_Raise("ValueError", "attempt to do dict lookup on non dict param").raise();
        size_t close = control_.find(')', position_);
        if (close == std::string_view::npos)
            XPK_Raise("ValueError", "missing the ) on string replacement with dict").raise();
        std::string_view name = control_.substr(position_, close - position_);
        position_ = close + 1;
        IPE_Type* found = dict->findText(name);
        return found ? IPE_Object(found) : IPE_String(name);
    }

    IPE_Object positional() {
        if (parameter_.is<IPE_DictType>())
            XPK_Raise("ValueError", "attempt to do indexed lookup in dict param").raise();
        int64_t index = used_++;
        if (parameter_.is<IPE_ListType>() || parameter_.is<IPE_TupleType>()) {
            const IPE_Object* item = parameter_.as<IPE_SequenceType>()->element(index);
            if (!item) XPK_Raise("ValueError", "ran out of string params").raise();
            return *item;
        }
        if (index > 0) XPK_Raise("ValueError", "string replacement requires multiple list param").raise();
        return parameter_;
    }

    void write(const Directive& d, const IPE_Object& value) {
        switch (peek()) {
            case 's': writeFolded(d, value, false); break;
            case 'r': writeFolded(d, value, true); break;
            case 'q': writeQuoted(d, value); break;
            case 'h': writeHtml(d, value); break;
            case 'S': writeNative(value); break;
            case 'i': writeNumber(d, std::to_string(value->__int__()), d.dash); break;
            case 'x': {
                char hex[16];
                snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(value->__int__()));
                writeNumber(d, hex, d.dash);
                break;
            }
            case 'f': writeFloat(d, fixedPoint(value->__float__(), d.precision)); break;
            case 'I': out_.append(IPE_LocaleInteger(value->__int__())); break;
            case 'F': out_.append(IPE_LocaleNumber(value->__float__())); break;
            case 'C': out_.append(IPE_LocaleCurrency(value->__float__())); break;
            case 'D': out_.append(IPE_LocaleDate(IPE_TimeOf(value), d.alternate)); break;
            case 'T': out_.append(IPE_LocaleTime(IPE_TimeOf(value))); break;
            default:
                XPK_Raise("ValueError", "unknown format code at position $index in $control")
                    .number("index", static_cast<int64_t>(IPE_CountCodePoints(control_.substr(0, position_))))
                    .string("control", control_)
                    .raise();
        }
    }

    void pad(char with, size_t have, size_t want) {
        for (; have < want; ++have) out_.append(with);
    }

    // Text: blanks behind it, or before it with `-`. `have` is what counts as its width.
    template <class Append>
    void writeText(const Directive& d, size_t have, Append&& append) {
        if (d.dash) pad(' ', have, d.width);
        append();
        if (!d.dash) pad(' ', have, d.width);
    }

    void writeFolded(const Directive& d, const IPE_Object& value, bool repr) {
        if (auto* text = value.tryAs<IPE_StringType>(); text && !repr && text->isAscii()) {
            writeText(d, text->bytes(), [&] { out_.append(text->view()); });
            return;
        }
        EPA_StringBuffer folded;
        std::string text = repr ? IPE_Object_ToString(value) : IPE_Object_Text(value);
        IPE_AppendFolded(folded, text, true);
        writeText(d, folded.length(), [&] { out_.append(folded.view()); });
    }

    void writeQuoted(const Directive& d, const IPE_Object& value) {
        std::string text = IPE_Object_Text(value), quoted;
        for (char c : text) {
            if (c == '"')
                quoted += "&quot;";
            else
                quoted += c;
        }
        writeText(d, quoted.size(), [&] { out_.append(quoted); });
    }

    void writeHtml(const Directive& d, const IPE_Object& value) {
        EPA_StringBuffer folded, html;
        IPE_AppendFolded(folded, IPE_Object_Text(value), false);
        size_t hints = IPE_AppendHtml(html, folded.view(), d.dash, d.group);
        writeText(d, folded.length() + hints, [&] { out_.append(html.view()); });
    }

    void writeNative(const IPE_Object& value) {
        EPA_StringBuffer folded;
        IPE_AppendFolded(folded, IPE_Object_Text(value), true);
        EPA_Unicode text{folded.string()};
        out_.append(text.toNative());
    }

    // Numbers: padding before them, blanks or zeros. `blanks` keeps the zeros away.
    void writeNumber(const Directive& d, std::string text, bool blanks) {
        if (d.group) text = grouped(text);
        pad(d.zero && !blanks ? '0' : ' ', text.size(), d.width);
        out_.append(text);
    }

    void writeFloat(const Directive& d, std::string text) {
        if (!d.dash) {
            writeNumber(d, std::move(text), false);
            return;
        }
        if (d.group) text = grouped(text);
        out_.append(text);
        pad(' ', text.size(), d.width);
    }

    std::string_view control_;
    const IPE_Object& parameter_;
    size_t position_ = 0;
    int64_t used_ = 0;
    EPA_StringBuffer out_;
};

}  // namespace

IPE_Object IPE_ExpandFormat(const IPE_Object& format, const IPE_Object& parameter) {
    auto* control = format.tryAs<IPE_StringType>();
    if (!control) XPK_Raise("RuntimeError", "Must pass a string to expand").raise();
    control->length();  // a template that is not UTF-8 raises here
    return FormatExpander(control->view(), parameter).expand();
}
