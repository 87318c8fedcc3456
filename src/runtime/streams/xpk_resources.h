// Files that are linked into the program and unpacked at start, and the loading of libraries on demand.
//
// The component XPK_Resources writes every registered file into the directory of the program, replacing what
// is there. An entry's name gives the file's: lower case, each pair of underscores a dot, so "ZLIB1__DLL" is
// "zlib1.dll". An administrator keeps a file of his own by one of two files in the current directory:
//   - "NAME.def": its last three characters replaced by the extension of the target ("dll") give the target;
//   - a file of exactly the target's name.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Adds an entry. Name and bytes stay the caller's and must live as long as the process. Static initialisers
// call it; not concurrently.
void XPK_RegisterEmbedded(const char* name, const void* bytes, size_t size);

// The file that an entry's name stands for.
std::string XPK_EmbeddedFileName(const std::string& name);

// What the component does at start: unpacks all entries that `current` does not cancel into `target`. An
// entry whose file name is empty or has a slash raises RuntimeError; a file that cannot be written raises
// IOError; a current directory that cannot be listed raises RuntimeError "opendir (...) ...".
void XPK_UnpackEmbedded(const std::string& current, const std::string& target);

// Loads a shared library by name or path and gives the handle of dlopen(3), which is never closed. What the
// system's search does not find raises RuntimeError "Could not load 'NAME'", with the loader's own words in
// the string field `decode`. "libjvm.so" is looked for in more places: the search paths below in their order,
// then the library of $JAVA_HOME, then that of the system's default Java. Any thread.
void* XPK_LoadLibrary(const std::string& name);

// Where a Java machine may be: paths of the library, with * and ? allowed in the last component, where the
// first file by name that can be loaded is taken. Any thread.
void XPK_SetJavaSearchPaths(std::vector<std::string> patterns);
void XPK_AddJavaSearchPath(const std::string& pattern);
std::vector<std::string> XPK_JavaSearchPaths();
