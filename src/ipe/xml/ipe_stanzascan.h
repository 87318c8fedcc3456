// IPE_StanzaScan: finds the first complete element in a growing text, going on where it stood.
//
// Elements are found by their texts alone, without a count of depth: `<name` up to a blank, `>` or `/` begins
// one, and the first `</name>` or, within its opening tag, `/>` ends it. `<?...>` and `<!...-->` are passed
// over before it and `<![CDATA[...]]>` within it, like every text before it.
//
// The closing text has room for 127 bytes; a longer name is an assertion, at every call until restart().
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class IPE_StanzaScan {
  public:
    // Begins anew at a position of the text.
    void restart(size_t position = 0);
    // Goes on. `text` begins with what the last call was given; true when it holds a whole element. After
    // true, restart.
    bool advance(std::string_view text);
    size_t begin() const noexcept { return begin_; }
    size_t end() const noexcept { return end_; }
    // Bytes looked at so far.
    uint64_t work() const noexcept { return work_; }

  private:
    enum State { Outside, Instruction, Directive, Name, OpeningTag, Content, CdataInTag, CdataInContent };
    enum Mark { NoMark, Unknown, CdataMark, ClosingMark };

    // Each gives false when the text ends before the state does.
    bool advanceState(std::string_view text);
    bool findStart(std::string_view text);
    bool readName(std::string_view text);
    bool readOpeningTag(std::string_view text);
    bool readContent(std::string_view text);
    bool skipTo(std::string_view text, std::string_view mark, State next);
    // What stands at a `<` within an element. Unknown: the text ends too early to tell.
    Mark markAt(std::string_view text) const;
    bool takeMark(Mark mark, State cdata);

    State state_ = Outside;
    bool complete_ = false;
    size_t position_ = 0;
    size_t begin_ = 0, end_ = 0;
    std::string closing_;
    uint64_t work_ = 0;
};
