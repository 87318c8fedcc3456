// The collations of every connection.
//
// `tree` sorts a path right before its children: '/' counts as a blank and a blank as '/', and the rest goes
// by the rules of the user's locale, without regard to case. Texts that are not well-formed compare as if
// U+FFFD stood there.
//
// `closure` asks the script function `sql_collate(a, b)` in the globals of the calling thread's script, or of
// its interpreter; what it gives counts as an integer. Without one, and when it fails, all texts are equal.
#pragma once

#include <string>
#include <string_view>

struct sqlite3;

// Belongs to one connection, and to one thread at a time.
class IPE_Sqlite_TreeCollation {
  public:
    // A result of the library. The object must outlive the handle.
    int publish(sqlite3* handle);
    // -1, 0 or 1.
    int compare(std::string_view left, std::string_view right);

  private:
    std::string left_, right_;
};

// A result of the library.
int IPE_Sqlite_PublishClosure(sqlite3* handle);
