// The SQL function `regexp(pattern, text)`, and with it the operator `text REGEXP pattern`.
//
// Patterns are Perl-compatible, without regard to case, over UTF-8. 1 when the text matches anywhere, 0 when
// it does not, NULL when pattern or text is NULL. Errors of the statement: "Error compiling regular
// expression: %s - %s (position %d) in pattern", with the pattern, the fault and its place in bytes; "Error
// executing regular expression" for a text that is not well-formed, a match that takes more than a bounded
// number of steps, and one that the server's stop ends.
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct sqlite3;

// Keeps the last pattern compiled. Belongs to one connection, and to one thread at a time.
class IPE_Sqlite_Regexp {
  public:
    IPE_Sqlite_Regexp();
    ~IPE_Sqlite_Regexp();
    IPE_Sqlite_Regexp(const IPE_Sqlite_Regexp&) = delete;
    IPE_Sqlite_Regexp& operator=(const IPE_Sqlite_Regexp&) = delete;

    // A result of the library. The object must outlive the handle.
    int publish(sqlite3* handle);
    // Makes `pattern` the current one; false with the message in error() when it is none.
    bool setPattern(std::string_view pattern);
    const std::string& error() const noexcept { return error_; }
    enum class Answer { No, Yes, Failed };
    // Looks for the current pattern.
    Answer search(std::string_view text);
    // Drops the pattern.
    void forget() noexcept;

  private:
    struct Engine;
    int matchOnce(std::string_view text, size_t start, size_t limit, uint32_t options);
    std::unique_ptr<Engine> engine_;  // null until the first pattern
    std::string pattern_, error_;
};
