// The buffer of XML stanzas.
//
// Three scans go over one text: that of getstanza and those of the two searches by name. Each remembers where
// it stood, in positions of the text as it is; text that comes at the end leaves them right, and whatever
// leaves at the front makes all three begin anew.
#include "ipe/xml/ipe_xmlblock.h"

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_stringtype.h"

const char IPE_XMLBlock::TypeName[] = "XMLBlockType";

IPE_Object IPE_XMLBlock::take(IPE_StanzaScan& scan) {
    std::string_view text = buffer_.view();
    if (!scan.advance(text)) return {};
    IPE_Object stanza = IPE_String(text.substr(scan.begin(), scan.end() - scan.begin()));
    buffer_.dropFront(scan.end());
    forget();
    return stanza;
}

void IPE_XMLBlock::forget() {
    scan_.restart();
    for (Search* search : {&outer_, &inner_}) {
        search->stage = Search::Tag;
        search->position = 0;
    }
}

void IPE_XMLBlock::reset() {
    buffer_.clear();
    forget();
}

IPE_Object IPE_XMLBlock::getStanza() { return take(scan_); }

bool IPE_XMLBlock::findTag(Search& search, std::string_view name) const {
    XPK_Assert(name.size() <= NameLimit);
    if (search.tag.empty() || std::string_view(search.tag).substr(1) != name) {
        search.tag.assign(1, '<').append(name);
        search.stage = Search::Tag;
        search.position = 0;
    }
    if (search.stage != Search::Tag) return true;
    std::string_view text = buffer_.view();
    const size_t from = search.position;
    bool found = false;
    for (;; ++search.position) {
        search.position = text.find(search.tag, search.position);
        if (search.position == std::string_view::npos) {
            size_t half = search.tag.size() - 1;
            search.position = std::max(from, text.size() - std::min(half, text.size()));
            break;
        }
        size_t behind = search.position + search.tag.size();
        if (behind == text.size()) break;
        found = text[behind] == '>' || text[behind] == ' ' || text[behind] == '/';
        if (found) break;
    }
    search.work += (found ? search.position : text.size()) - from;
    return found;
}

bool IPE_XMLBlock::findContent(Search& search) const {
    std::string_view text = buffer_.view();
    const size_t from = search.position;
    search.position = std::min(text.find_first_of("/>", from), text.size());
    search.work += search.position - from;
    return search.position < text.size() && text[search.position] == '>';
}

IPE_Object IPE_XMLBlock::outerXml(std::string_view name) {
    if (!findTag(outer_, name)) return IPE_String("");
    if (outer_.stage == Search::Tag) {
        outer_.stage = Search::Stanza;
        outer_.scan.restart(outer_.position);
    }
    return take(outer_.scan);
}

IPE_Object IPE_XMLBlock::innerXml(std::string_view name) {
    if (!findTag(inner_, name)) return IPE_String("");
    if (inner_.stage == Search::Tag) {
        inner_.stage = Search::OpeningTag;
        inner_.position += inner_.tag.size();
    }
    if (inner_.stage == Search::OpeningTag) {
        if (!findContent(inner_)) return IPE_String("");
        inner_.stage = Search::Stanza;
        inner_.scan.restart(inner_.position + 1);
    }
    return take(inner_.scan);
}

uint64_t IPE_XMLBlock::work() const noexcept {
    return buffer_.moved() + scan_.work() + outer_.work + outer_.scan.work() + inner_.work +
           inner_.scan.work();
}

enum { MethodAppend, MethodGetStanza, MethodReset, MethodGetBuffer, MethodInnerXml, MethodOuterXml };

void IPE_XMLBlock::__bind__() {
    bindMethods({{"append", MethodAppend},
                 {"getstanza", MethodGetStanza},
                 {"reset", MethodReset},
                 {"getbuffer", MethodGetBuffer},
                 {"innerxml", MethodInnerXml},
                 {"outerxml", MethodOuterXml}});
}

IPE_Object IPE_XMLBlock::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case MethodAppend:
            arguments.check("s", "append");
            append(arguments.text(0));
            break;
        case MethodGetStanza: arguments.check("", "getstanza"); return getStanza();
        case MethodReset:
            arguments.check("", "reset");
            reset();
            break;
        case MethodGetBuffer: arguments.check("", "getbuffer"); return IPE_String(text());
        case MethodInnerXml: arguments.check("s", "innerxml"); return innerXml(arguments.text(0));
        case MethodOuterXml: arguments.check("s", "outerxml"); return outerXml(arguments.text(0));
    }
    return {};
}

namespace {

IPE_Object create(const IPE_Arguments& arguments) {
    IPE_Object object = IPE_New<IPE_XMLBlock>(IPE_InputBuffer::limitOf(arguments));
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("ipe.xmlblock", "create", create);

}  // namespace
