// The dollar language: `$name` and `${name}` over a mapping, `$$` for a dollar.
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_textmarks.h"

namespace {

bool isNameByte(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

// The name behind the `$` at `p`; moves `p` past it and its brace.
std::string_view readName(std::string_view text, size_t& p) {
    size_t begin = ++p;
    if (begin < text.size() && text[begin] == '{') {
        size_t close = text.find('}', ++begin);
        if (close == std::string_view::npos)
            XPK_Raise("ValueError", "missing the } on string substitute").raise();
        p = close + 1;
        return text.substr(begin, close - begin);
    }
    while (p < text.size() && isNameByte(text[p])) ++p;
    return text.substr(begin, p - begin);
}

void appendValue(EPA_StringBuffer& out, std::string_view name, const IPE_Object& mapping, bool exact) {
    IPE_Object value;
    if (auto* dict = mapping.tryAs<IPE_DictType>())
        value = IPE_Object(dict->findText(name));
    else if (!mapping.isNull())
        value = mapping->__getitem__(IPE_String(name));
    if (value.isNull()) {
        if (exact) out.append('$');
        IPE_AppendFolded(out, name, false);
    } else if (auto* text = value.tryAs<IPE_StringType>()) {
        IPE_AppendFolded(out, text->view(), false);
    } else {
        IPE_AppendFolded(out, IPE_Object_Text(value), false);
    }
}

}  // namespace

IPE_Object IPE_ExpandDollar(const IPE_Object& format, const IPE_Object& mapping, bool exact) {
    auto* control = format.tryAs<IPE_StringType>();
    if (!control) XPK_Raise("RuntimeError", "Must pass a string to substitute").raise();
    control->length();  // a template that is not UTF-8 raises here
    std::string_view text = control->view();
    EPA_StringBuffer out;
    size_t p = 0;
    while (p < text.size()) {
        size_t dollar = text.find('$', p);
        out.append(text.substr(p, dollar - p));
        if (dollar == std::string_view::npos) break;
        p = dollar;
        if (p + 1 < text.size() && text[p + 1] == '$') {
            out.append('$');
            p += 2;
            continue;
        }
        appendValue(out, readName(text, p), mapping, exact);
    }
    return IPE_String(out.view());
}
