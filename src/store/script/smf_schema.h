// What the script objects of stores share: the schema value of a table, and arguments that name a file.
//
// A schema is the pair that a table is described and created by:
//
//   ({"size": 65536, "zero": 1000, "tags": {...}}, [{"type": 4, "name": "Size", "tags": {...}}, ...])
//
// `size` is the block size in bytes, `zero` the number of rows between two restart points, `tags` the table's
// options, absent when there are none. A field's tags are those stored with it and what its type shows: the
// name, the type's name, a tree's `R` and `S`, a flag's `shortdecode`.
#pragma once

#include "ipe/object/ipe_arguments.h"
#include "runtime/streams/epa_fileerror.h"
#include "store/smf_record.h"

// A new value each time. A field of type Time: SystemError "Invalid database field type".
IPE_Object SMF_SchemaOf(const SMF_Record& record);
// The field names in record order as a list, and as a dictionary from name to index.
IPE_Object SMF_FieldNames(const SMF_Record& record);
IPE_Object SMF_FieldIndices(const SMF_Record& record);
// Argument 0 of a call with `spec`, which asks for a string there: a string, or another value that names a
// path as the listings of `fs` give it.
EPA_FileName SMF_PathArgument(const IPE_Arguments& arguments, const char* spec, const char* name);
