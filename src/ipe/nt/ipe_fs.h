// The built-in function `fs`: the scripts' door to the file system. The first argument names a sub-command.
//
// Paths are path values (ipe_path.h). A date is a tuple of six integers in local time: year (at most 9999),
// month, day, hour, minute, second; all 0 for a time that the file system does not tell. Names in results are
// strings or, for names that are no text, IPE_DirtyUTF16Type. A pattern is what stands behind the last
// separator; it is matched without regard to case, and no match is an empty result. Failures of the system
// are platform errors under the names in the table, with the field `path`.
//
//   ls_details(pattern, {resolve_links})  dict of `file`, `path`, `hard`, `soft`, each a dict of name to a
//   record with
//                    `size`, `target`, `created`, `modified`, `accessed`, `is_offline`, `space` (bytes
//                    allocated), `links`, `device`, `inode`, `owner` (user number), `mode`. `hard` holds
//                    symbolic links to folders and roots of mounts; `soft`, with resolve_links, all other
//                    symbolic links
//   ls_files(pattern)          list of (modified, name, size) of what is no folder      FindFirstFile,
//   FindNextFile ls_paths(pattern)          list of the names of folders ls_streams(file)           list of
//   the names of alternate streams                   CreateFile ln_soft(link, target)      makes a symbolic
//   link                                    ipPersistFile->Save path_to_string(path)       the joined path as
//   text pwd()                      the current directory GetCurrentDirectory mkdir(path, on_create=f)   of a
//   list all levels; f(text) for each level made        CreateDirectory rmdir(path)                a missing
//   one is no failure                              RemoveDirectory rename(old, new)           never replaces;
//   files also across file systems           MoveFile copy(source, target)       a file, replacing CopyFile
//   erase(path, mustExist=0)   1 if deleted, 0 if missing                               DeleteFile
//   get_security(path, parts)  dict of "owner", "group", "dacl", "sacl" to SDDL text    GetFileSecurity
//   set_security(path, dict)   ConvertStringSecurityDescriptorToSecurityDescriptor, SetNamedSecurityInfo
//   decode_sddl(text or list)  list of dicts, see ipe_sddl.h
//   set_privilege(name, on)    LookupPrivilegeValue, AdjustTokenPrivileges
//   set_times(path, dict)      `modified`, `accessed`; `created` cannot be set: the others are, then it fails
//                              CreateFile, SystemTimeToFileTime, SetFileTime
//   fsinfo(path)               {type}                                                   GetVolumeInformation
//   fsstat(path)               {FreeBytesToCaller, TotalBytes, FreeBytes}               GetDiskFreeSpaceEx
//   guid()                     a new GUID text
//   get_env(name[, default])   ERROR_ENVVAR_NOT_FOUND, ERROR_ENVVAR_TOO_LARGE "GetEnvironmentVariable"
//   set_env(name[, value])     without a value removes it SetEnvironmentVariable
//
// Commands that make or change something and have no result told give nothing. Any thread may call; the
// current directory and the environment belong to the process.
#pragma once

#include "ipe/object/ipe_arguments.h"

// Another sub-command raises RuntimeError "Unknown fs command: $name".
IPE_Object IPE_Fs(const IPE_Arguments& arguments);
