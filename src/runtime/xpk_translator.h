// Processor faults as exceptions of the one family.
//
// A fault writes a crash dump and leaves the faulting instruction as an XPK_Exception with empty file, line
// 0, the fault's name as type ("ACCESS_VIOLATION", "INT_DIVIDE_BY_ZERO", ...; platform/pf_fault.h has the
// table), no field list, and the fault's message as template. The record's string `dmp_file` is the path of
// the dump, "" if none could be written.
//
// The dump is an ELF core named by the program's path without its extension: PROGRAM_SECONDS.dmp. Its kind is
// a set of bits (platform/pf_coredump.h): 0, the plain one, has registers and stacks; the bit of value 1 adds
// the data segments of all modules, the bit of value 2 all memory. Files "dbghelp_dump=KIND.txt" in the
// current directory choose: KIND is a decimal number or "all", which stands for 0x26 and so has all memory.
// Several files are joined by or; bits without a meaning here are ignored.
//
// A fault that cannot be thrown ends the process, with its name on standard error and after its dump; which
// ones those are is told in platform/pf_crash.h. Builds with sanitizers or clang install nothing.
#pragma once

// Installs the translator in the process and has every thread that gets a state (XPK_ThreadScope) from now on
// prepare itself for it; so it stands before the first state. Later calls do nothing. Raises RuntimeError
// "$api ($errno) $decode" when the system refuses the handlers. Any thread; not concurrently with itself.
void XPK_InstallTranslator();
