// Bundles: stores that hold an application.
//
// Table `modules` has a text field `source`, the literal of one module's dictionary a record; table
// `resources` the text fields `name`, `hash` and `base`. The server reads all bundles at start, the oldest
// first, so that a newer one replaces modules and resources of the same name.
#pragma once

#include <string>
#include <vector>

// The names of the files "*.dat" of the working directory, the oldest first, by name among those of the same
// second.
std::vector<std::string> bundleNames();
// Registers the modules of the bundles `names`, which lie in `directory`, and sets the globals
// `__resource_names`, `__resource_values` and `__resource_hashes`, when there are resources. The store's
// errors, and what a faulty module literal raises, pass with the trace fields `file` and `line`, the record's
// number.
void loadBundles(const std::string& directory, const std::vector<std::string>& names);
