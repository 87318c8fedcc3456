// IPE_XMLBlock: cuts complete XML stanzas out of a stream of appended text. Module `ipe.xmlblock`.
//
// create(maxsize=0x100000) makes one; 0 is no limit. Methods:
//   append(text)     adds; above the limit raises RuntimeError "XML Block buffer maximum size exceeded!" and
//                    keeps the text: reset
//   getstanza()      the next complete element (ipe_stanzascan.h), cut out with all that stands before it;
//                    None leaves the buffer as it was
//   reset()          empties the buffer
//   getbuffer()      the whole buffer
//   outerxml(name)   getstanza from the first `<name`; "" when there is none
//   innerxml(name)   getstanza from behind the opening tag of the first `<name`: its first child element; ""
//                    when there is none or a `/` stands in the opening tag
// A name of more than 62 bytes is an assertion.
//
// A scan that found nothing goes on where it stood when more text has come, so feeding byte by byte costs the
// same as feeding at once. Belongs to one thread at a time.
#pragma once

#include "ipe/object/ipe_moduletype.h"
#include "ipe/xml/ipe_inputbuffer.h"
#include "ipe/xml/ipe_stanzascan.h"

class IPE_XMLBlock final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    static constexpr size_t NameLimit = 62;  // bytes

    explicit IPE_XMLBlock(int32_t maxSize) : IPE_ModuleType(TypeName), buffer_(maxSize) {}

    void append(std::string_view text) { buffer_.append(text); }
    IPE_Object getStanza();  // null for None
    IPE_Object outerXml(std::string_view name);
    IPE_Object innerXml(std::string_view name);
    void reset();
    std::string_view text() const noexcept { return buffer_.view(); }
    // Bytes looked at and moved so far, what the cost in time goes by.
    uint64_t work() const noexcept;

    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    // A search for an element by name, with the scan that follows it.
    struct Search {
        enum Stage { Tag, OpeningTag, Stanza } stage = Tag;
        std::string tag;  // "<name"
        size_t position = 0;
        uint64_t work = 0;
        IPE_StanzaScan scan;
    };
    // Goes on with a search, or begins one for another name. True when the tag has been found: then the
    // position stands at it.
    bool findTag(Search& search, std::string_view name) const;
    // From the tag to the end of its opening. False when that is not there, or a `/` before it.
    bool findContent(Search& search) const;
    IPE_Object take(IPE_StanzaScan& scan);
    void forget();  // the text has changed at its front

    IPE_InputBuffer buffer_;
    IPE_StanzaScan scan_;
    Search outer_, inner_;
};
