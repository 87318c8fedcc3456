// IPE_Program and IPE_ProgramLine: what the interpreter runs, and the cursor that moves through it.
//
// A program is a run of lines, each a run of tokens; importing a module appends its lines, and nothing is
// ever removed. The lines of one import form a segment whose arrays never move, so that a cursor is two
// pointers. Line indexes are counted over the whole program. What can be known at load time stands beside the
// tokens and never replaces them: the line where each block ends, the partner of each bracket, and for names
// the slot where the last look-up found them. A program belongs to one interpreter and its thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_tokensource.h"

struct IPE_TokenEntry {
    IPE_Type* value = nullptr;    // name, literal or comment; kept alive by the segment
    uint32_t local = UINT32_MAX;  // bracket: distance to its partner; name: slot hint in locals or attributes
    uint32_t global = UINT32_MAX;  // name: slot hint in globals; method name: number in the type last met
    union {
        uint32_t builtin = UINT32_MAX;  // name: slot hint in built-ins
        uint32_t type;                  // method name: the type last met
    };
    uint8_t kind = TOKEN_NONE;

    IPE_StringType* name() const noexcept { return static_cast<IPE_StringType*>(value); }
};

struct IPE_LineEntry {
    uint32_t first;     // index of the first token in the segment
    uint32_t source;    // line number in the source file
    uint32_t blockEnd;  // first later line whose indent is not above this one's
    uint8_t indent;
};

struct IPE_LineCounters {
    uint64_t hits = 0, nanoseconds = 0, calls = 0;
};

// A module's lines before they are appended to a program: what loading makes and bundles store.
struct IPE_StoredTokens {
    struct Line {
        uint32_t source;
        uint8_t indent;
        uint32_t first;
    };
    std::vector<Line> lines;
    std::vector<uint8_t> kinds;
    std::vector<IPE_Object> values;  // beside kinds; null for kinds without a value

    // The script form: a list of tuples (line, indent, [kind, value, ...]).
    IPE_Object toList() const;
    // Back from it; an entry of another shape is an AssertionError.
    static IPE_StoredTokens fromList(const IPE_Object& list);
};

class IPE_Segment {
  public:
    IPE_Segment(const IPE_StoredTokens& stored, std::string file, uint32_t base);
    ~IPE_Segment();
    std::vector<IPE_LineEntry> lines;  // the last one holds the end-of-program token
    std::vector<IPE_TokenEntry> tokens;
    std::vector<IPE_LineCounters> counters;  // beside lines; empty until profiling asks
    std::string file;
    uint32_t base;  // index of the first line in the program

  private:
    void linkBlocks();
    void linkBrackets();
};

class IPE_Program {
  public:
    IPE_Program() = default;
    IPE_Program(const IPE_Program&) = delete;
    IPE_Program& operator=(const IPE_Program&) = delete;
    // Appends a module's lines, with an end-of-program line behind them. The segment lives as long as the
    // program.
    IPE_Segment* append(const IPE_StoredTokens& stored, const std::string& file);
    uint32_t lineCount() const noexcept { return count_; }
    // File and line of a line index; RuntimeError "Index out of range for IPE get source location".
    void getSourceLocation(uint32_t index, std::string& file, int64_t& line) const;
    // One string per token of the line.
    IPE_Object getLineTokens(uint32_t index) const;
    const std::vector<std::unique_ptr<IPE_Segment>>& segments() const noexcept { return segments_; }

  private:
    const IPE_Segment& segmentOf(uint32_t index) const;
    std::vector<std::unique_ptr<IPE_Segment>> segments_;
    uint32_t count_ = 0;
};

// The text of a line's tokens as messages show it: joined by one blank, behind its indent.
std::string IPE_LineText(const IPE_Segment& segment, uint32_t line, uint32_t untilToken = UINT32_MAX);

// The cursor. Only it moves; the interpreter reads `at` directly.
class IPE_ProgramLine final : public IPE_TokenSource {
  public:
    IPE_ProgramLine(IPE_Segment* segment, uint32_t line) : segment(segment) { moveTo(line); }

    IPE_Segment* segment;
    IPE_TokenEntry* at = nullptr;  // the current token
    uint32_t line = 0;             // index in the segment

    uint8_t k() const noexcept { return at->kind; }
    uint8_t peek() const noexcept { return at[1].kind; }
    void step() noexcept { ++at; }
    uint8_t lineIndent() const noexcept { return segment->lines[line].indent; }
    void moveTo(uint32_t to) noexcept {
        uint32_t last = static_cast<uint32_t>(segment->lines.size()) - 1;
        line = to < last ? to : last;
        at = &segment->tokens[segment->lines[line].first];
    }
    void down() noexcept { moveTo(line + 1); }
    // To the first line at or after the current one whose indent is at most `indent`.
    void skipDeeper(uint8_t indent) noexcept {
        while (lineIndent() > indent) moveTo(segment->lines[line].blockEnd);
    }
    bool atEndOfProgram() const noexcept { return at->kind == TOKEN_EOF; }

    // The virtual face, for the helpers that take any source. sync() brings the base's fields up to date.
    void sync() noexcept {
        kind_ = at->kind;
        indent_ = lineIndent();
        position_ = line;
    }
    void describePosition(std::string& line, std::string& marker) const override;
    void getSourceFile(std::string& file, int64_t& line) const override;
    uint32_t getPosition() const override { return segment->base + line; }
    void setPosition(uint32_t position) override { moveTo(position - segment->base); }
    IPE_Object getIdentifier() override { return IPE_Object(at->value); }
    std::string getTokenText() override;
    IPE_Object getNumber(bool negate) override;
    IPE_Object getString() override { return IPE_Object(at->value); }
    void nextLine() override { down(); }
    void next() override { step(); }
    bool isAssignmentNext() override { return peek() == TOKEN_ASSIGN; }
};
