// The names of a census: its tables and columns, as quillscan writes them.
//
// Tests, schema scripts and reports rely on these names, types and rules; a census is extended, never
// renamed. The native code of the reports reads Path (Number, Parent, Name, Owner, Group, Mode), File
// (PathNumber, Name, Size, Space, Created, Modified, Accessed), PathDACL (Path) and Entity (Number); the rest
// is for people and filters.
//
// Rows of Path stand depth-first, a parent before its children, and row n has Number n. Rows of File and
// PathDACL stand in the order of their path numbers. Names are the bytes of the file system, UTF-8 or not.
// Moments are local time to the second; a moment that the file system does not know is empty.
#pragma once

namespace quillscan::column {

// --- Path: every directory. Row 1 is "/"; directories above a scanned root have rows, but no files.
inline constexpr char Path[] = "Path";
inline constexpr char Number[] = "Number";          // I32, the row's number, from 1; also in Entity and Root
inline constexpr char Parent[] = "Parent";          // I32, 0 for "/"
inline constexpr char Name[] = "Name";              // String; also in File, Entity, Root and Problem
inline constexpr char Owner[] = "Owner";            // I32, a Number in Entity, never 0; also in File
inline constexpr char Group[] = "Group";            // I32, a Number in Entity, never 0; also in File
inline constexpr char Mode[] = "Mode";              // I32, permission bits, 07777; also in File
inline constexpr char Links[] = "Links";            // I32; also in File
inline constexpr char Device[] = "Device";          // I64, st_dev; also in File and Root
inline constexpr char Inode[] = "Inode";            // I64; also in File
inline constexpr char Created[] = "Created";        // DateTime, birth; also in File
inline constexpr char Modified[] = "Modified";      // DateTime, of the content; also in File
inline constexpr char Accessed[] = "Accessed";      // DateTime; also in File
inline constexpr char Changed[] = "Changed";        // DateTime, of the inode; also in File
inline constexpr char OwnSize[] = "OwnSize";        // I64, bytes of the directory itself; in no total
inline constexpr char OwnSpace[] = "OwnSpace";      // I64, allocated for the directory itself; in no total
inline constexpr char Attributes[] = "Attributes";  // Flag, the names below; also in File
inline constexpr char Error[] = "Error";  // I32, errno of a directory not (wholly) read, else 0; Problem

// Short names of the flags of Attributes, in bit order, and what people see.
inline constexpr char AttributeNames[] =
    "compressed;immutable;append;nodump;encrypted;automount;mountroot;verity;dax";
inline constexpr char AttributeTitles[] =
    "Compressed;Immutable;Append only;No dump;Encrypted;Automount point;Mount point;Verity;Direct access";

// --- File: everything that is no directory.
inline constexpr char File[] = "File";
inline constexpr char PathNumber[] = "PathNumber";  // I32, a Number in Path
inline constexpr char Type[] = "Type";              // String: f, l, p, s, b, c, or U for another kind
inline constexpr char Size[] = "Size";              // I64, bytes; 0 for a further link. In Root the sum
inline constexpr char Space[] = "Space";        // I64, allocated bytes; 0 for a further link. In Root the sum
inline constexpr char LinkSize[] = "LinkSize";  // I64, the bytes of a further link, else 0
inline constexpr char LinkSpace[] = "LinkSpace";  // I64, the allocated bytes of a further link, else 0
inline constexpr char Counted[] = "Counted";  // I32, 1; 0 for a further link of a file that has a row above
inline constexpr char Target[] = "Target";    // String, the text of a symbolic link, else empty

// --- Entity: owners and groups, numbered from 1 in the order in which they are met.
inline constexpr char Entity[] = "Entity";  // the table; in PathDACL I32, its Number, 0 for other and mask
inline constexpr char Id[] = "ID";          // I64, the system's number
inline constexpr char FullName[] = "FullName";  // String, the account's, up to the first comma
inline constexpr char User[] = "user";          // what Type tells
inline constexpr char UserGroup[] = "group";

// --- PathDACL: the permission entries of each directory.
inline constexpr char PathDacl[] = "PathDACL";  // column Path: I32, a Number in Path
inline constexpr char Rights[] = "Rights";      // I32, 0 to 7
inline constexpr char Text[] = "Text";          // String, the rights as "rwx"
// Type: "owner", "user" (another than the owner), "group", "named group", "mask" or "other", and the same
// with "default " before it for what new entries inherit.

// --- Root: one row for each scanned root, in the order of their paths.
inline constexpr char Root[] = "Root";              // column Path: String, the real path with "/" at its end
inline constexpr char Host[] = "Host";              // String
inline constexpr char FileSystem[] = "FileSystem";  // String, the name of its type
inline constexpr char Started[] = "Started";        // DateTime
inline constexpr char Finished[] = "Finished";      // DateTime
inline constexpr char Folders[] = "Folders";        // I64, the root among them
inline constexpr char Files[] = "Files";            // I64
inline constexpr char Unreadable[] = "Unreadable";  // I64, directories with an error

// --- Problem: everything that could not be read.
inline constexpr char Problem[] = "Problem";  // column Path: I32, of the directory
inline constexpr char Call[] = "Call";        // String, the system call
inline constexpr char Message[] = "Message";  // String, the system's text for Error

}  // namespace quillscan::column
