// XML escapes, both ways. A sink is anything with append(std::string_view): std::string or EPA_StringBuffer.
// The input must not lie in the sink. Any thread.
#pragma once

#include <string_view>

// What a byte is written as; empty if it stands for itself. The five entities, and "&#n;" for the bytes 1 to
// 31 and the characters * , / : ; ? \ | ~
std::string_view EPA_XmlEscape(unsigned char byte) noexcept;

// Reads the reference at the head of `text`, which begins with "&". Gives the number of bytes that it takes,
// and writes what it stands for to `out`; 0 if it is none and the "&" stands for itself. "&#" and up to 32
// bytes up to ";" are a code point in decimal. RuntimeError "Malformed character reference" without such a
// ";", "Illegal value" below 1; UnicodeError "Illegal Unicode 1" for a value that is no code point.
size_t EPA_XmlReference(std::string_view text, char (&out)[4], size_t& length);

// Bytes equal to `keep1` or `keep2` stay as they are.
template <typename Sink>
void EPA_XmlEncode(Sink& sink, std::string_view text, char keep1 = 0, char keep2 = 0) {
    size_t from = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        std::string_view escape = EPA_XmlEscape(static_cast<unsigned char>(text[i]));
        if (escape.empty() || text[i] == keep1 || text[i] == keep2) continue;
        sink.append(text.substr(from, i - from));
        sink.append(escape);
        from = i + 1;
    }
    sink.append(text.substr(from));
}

template <typename Sink>
void EPA_XmlDecode(Sink& sink, std::string_view text) {
    size_t from = 0;
    for (size_t at = text.find('&'); at != std::string_view::npos; at = text.find('&', at)) {
        char out[4];
        size_t length = 0;
        size_t used = EPA_XmlReference(text.substr(at), out, length);
        if (used > 0) {
            sink.append(text.substr(from, at - from));
            sink.append(std::string_view(out, length));
            from = at + used;
        }
        at += used > 0 ? used : 1;
    }
    sink.append(text.substr(from));
}
