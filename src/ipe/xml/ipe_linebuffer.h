// IPE_LineBuffer: cuts lines out of a stream of appended text. Module `ipe.linebuffer`.
//
// create(maxsize=0x100000) makes one; 0 is no limit. LF, CR and CR LF end a line; a CR at the end of the text
// ends its line at once, so an LF that comes after it ends an empty one. Methods:
//   append(text)     adds; above the limit raises RuntimeError "XML Block buffer maximum size exceeded!" and
//                    keeps the text: reset
//   getline()        the next complete line without its end, cut out, or None
//   getlines()       list of all complete lines, cut out
//   splitcsvline()   the next line as a tuple of fields, or None. Commas separate but within a quotation,
//                    which only its own `"` or `'` closes. Fields keep quotes and blanks.
//   reset()          empties the buffer
//   getbuffer()      the whole buffer
// A partial line is searched only once, in however many pieces it comes. Belongs to one thread at a time.
#pragma once

#include "ipe/object/ipe_moduletype.h"
#include "ipe/xml/ipe_inputbuffer.h"

class IPE_LineBuffer final : public IPE_ModuleType {
  public:
    static const char TypeName[];

    explicit IPE_LineBuffer(int32_t maxSize) : IPE_ModuleType(TypeName), buffer_(maxSize) {}

    void append(std::string_view text) { buffer_.append(text); }
    IPE_Object getLine();       // null for None
    IPE_Object getLines();      // never null
    IPE_Object splitCsvLine();  // null for None
    void reset();
    std::string_view text() const noexcept { return buffer_.view(); }
    // Bytes looked at and moved so far, what the cost in time goes by.
    uint64_t work() const noexcept { return work_ + buffer_.moved(); }

    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    // The next place of one byte: none before `at`, which is such a place or as far as was looked.
    struct Finder {
        char byte;
        size_t at = 0;
    };
    // The place, or the size of the text.
    size_t find(Finder& finder);
    // The next line, valid until drop(); false when there is none.
    bool peek(std::string_view& line, size_t& size);
    void drop(size_t size);

    IPE_InputBuffer buffer_;
    Finder lineFeed_{'\n'}, carriageReturn_{'\r'};
    uint64_t work_ = 0;
};
