// IPE_RE: a compiled regular expression as a script object, and its module `ipe.re`.
//
// `ipe.re.compile(pattern)` compiles a Perl-compatible pattern, always in UTF mode. These keywords count by
// being present, whatever their value: PCRE_ANCHORED, PCRE_AUTO_CALLOUT, PCRE_CASELESS, PCRE_DOLLAR_ENDONLY,
// PCRE_DOTALL, PCRE_EXTENDED, PCRE_EXTRA, PCRE_FIRSTLINE, PCRE_MULTILINE, PCRE_NO_AUTO_CAPTURE,
// PCRE_UNGREEDY; PCRE_NO_UTF8_CHECK is accepted and ignored. Without PCRE_EXTRA an unknown escape stands for
// its letter.
//
// Option blocks: in the pattern a mark U+10FFF9 opens a text up to the next `}`; the text "N" inverts
// search(), others mean nothing. Both mark and text are taken out before the pattern is compiled.
//
// The object is read-only once made, so several threads may use it; each thread matches with memory of its
// own. Time and memory of a match are limited: a match that would take longer raises RuntimeError "An
// unexpected error occured whilst evaluating regular expression".
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "ipe/object/ipe_moduletype.h"

// The pattern without its option blocks; `invert` is set when one of them reads "N".
std::string IPE_TakePatternOptions(std::string_view pattern, bool& invert);

class IPE_RE final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    // The most offset pairs, the whole match among them, that findall() gives.
    static constexpr int PairLimit = 512;

    // Compiles; a failure is kept, and raised by requireCompiled().
    IPE_RE(const IPE_Object& source, const IPE_Arguments& arguments);
    ~IPE_RE() override;

    // RuntimeError "Failed to compile expression: $pcre_errormsg (offset $pcre_erroroffset)".
    void requireCompiled() const;
    // True when the text matches anywhere; with the option N when it does not. The text ends at its first
    // NUL.
    bool search(std::string_view text) const;
    // The first match and its groups as a list of strings, an unused group empty; null when there is no
    // match. More than PairLimit pairs raise RuntimeError "Number of matches exceeded internal limit (512)".
    IPE_Object findall(std::string_view text) const;

    const IPE_Object& source() const noexcept { return source_; }
    bool inverted() const noexcept { return invert_; }

    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    struct Compiled;
    struct MatchMemory;
    static MatchMemory& memory();
    int match(std::string_view text, bool pairs) const;
    int matchOnce(std::string_view text, size_t start, size_t limit, uint32_t options, bool pairs) const;

    IPE_Object source_;
    std::string errorMessage_;
    int32_t errorOffset_ = 0;
    std::unique_ptr<Compiled> compiled_;  // null when the compile failed
    bool invert_ = false;
};
