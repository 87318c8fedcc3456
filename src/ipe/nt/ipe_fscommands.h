// The commands behind `fs`, and what they share. Each takes the arguments of `fs`, the command's name first.
#pragma once

#include "ipe/object/ipe_arguments.h"
#include "platform/pf_files.h"

struct IPE_FsCommand {
    const char* name;
    const char* spec;
    IPE_Object (*run)(const IPE_Arguments& arguments);
};

// One table per source file, ended by a row without a name.
extern const IPE_FsCommand IPE_FsListing[];
extern const IPE_FsCommand IPE_FsOperations[];
extern const IPE_FsCommand IPE_FsSecurity[];
extern const IPE_FsCommand IPE_FsSystem[];

// A date value of a file time, in local time.
IPE_Object IPE_FsDate(const platform::FileTime& time);
// The date of a time that is not known: six zeros.
IPE_Object IPE_FsNoDate();
// The file time of a date value (tuple or list of six integers, years 1601 to 30827). False if it is no date.
bool IPE_FsTime(const IPE_Object& date, platform::FileTime& time);
