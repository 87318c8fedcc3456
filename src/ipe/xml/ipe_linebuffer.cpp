// The buffer of lines.
//
// Each of the two line ends is searched on its own, and its place is kept until lines are taken from over it:
// a text without any CR is searched for one once, not once for every line.
#include "ipe/xml/ipe_linebuffer.h"

#include <algorithm>
#include <cstring>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"

const char IPE_LineBuffer::TypeName[] = "LineBufferType";

size_t IPE_LineBuffer::find(Finder& finder) {
    std::string_view text = buffer_.view();
    if (finder.at == text.size() || text[finder.at] == finder.byte) return finder.at;
    const size_t from = finder.at;
    finder.at = std::min(text.find(finder.byte, from), text.size());
    work_ += finder.at - from;
    return finder.at;
}

bool IPE_LineBuffer::peek(std::string_view& line, size_t& size) {
    std::string_view text = buffer_.view();
    size_t stop = std::min(find(lineFeed_), find(carriageReturn_));
    if (stop == text.size()) return false;
    line = text.substr(0, stop);
    size = stop + 1;
    if (text[stop] == '\r' && size < text.size() && text[size] == '\n') ++size;
    return true;
}

void IPE_LineBuffer::drop(size_t size) {
    buffer_.dropFront(size);
    for (Finder* finder : {&lineFeed_, &carriageReturn_}) finder->at -= std::min(finder->at, size);
}

void IPE_LineBuffer::reset() {
    buffer_.clear();
    lineFeed_.at = carriageReturn_.at = 0;
}

IPE_Object IPE_LineBuffer::getLine() {
    std::string_view line;
    size_t size = 0;
    if (!peek(line, size)) return {};
    IPE_Object result = IPE_String(line);
    drop(size);
    return result;
}

IPE_Object IPE_LineBuffer::getLines() {
    IPE_Object list = IPE_NewList();
    while (IPE_Object line = getLine()) list.as<IPE_ListType>()->append(std::move(line));
    return list;
}

IPE_Object IPE_LineBuffer::splitCsvLine() {
    std::string_view line;
    size_t size = 0;
    if (!peek(line, size)) return {};
    line = line.substr(0, line.find('\0'));
    IPE_Object fields = IPE_NewTuple();
    size_t begin = 0;
    char quote = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (quote) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == ',') {
            fields.as<IPE_TupleType>()->append(IPE_String(line.substr(begin, i - begin)));
            begin = i + 1;
        }
    }
    fields.as<IPE_TupleType>()->append(IPE_String(line.substr(begin)));
    drop(size);
    return fields;
}

enum { MethodAppend, MethodGetLine, MethodGetLines, MethodSplitCsvLine, MethodReset, MethodGetBuffer };

void IPE_LineBuffer::__bind__() {
    bindMethods({{"append", MethodAppend},
                 {"getline", MethodGetLine},
                 {"getlines", MethodGetLines},
                 {"splitcsvline", MethodSplitCsvLine},
                 {"reset", MethodReset},
                 {"getbuffer", MethodGetBuffer}});
}

IPE_Object IPE_LineBuffer::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case MethodAppend:
            arguments.check("s", "append");
            append(arguments.text(0));
            break;
        case MethodGetLine: arguments.check("", "getline"); return getLine();
        case MethodGetLines: arguments.check("", "getlines"); return getLines();
        case MethodSplitCsvLine: arguments.check("", "splitcsvline"); return splitCsvLine();
        case MethodReset:
            arguments.check("", "reset");
            reset();
            break;
        case MethodGetBuffer: arguments.check("", "getbuffer"); return IPE_String(text());
    }
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    IPE_Object object = IPE_New<IPE_LineBuffer>(IPE_InputBuffer::limitOf(arguments));
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("ipe.linebuffer", "create", create);

}  // namespace
