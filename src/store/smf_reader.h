// SMF_Reader: an open store file and its tables by name.
//
// Opening reads the file's header and the chain of table headers, nothing else. A reader and its tables
// belong to one thread at a time; tables keep the file open for as long as they live, but a closed file reads
// no more (IOError).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "runtime/streams/epa_fileerror.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_headerreader.h"

class SMF_Reader {
  public:
    // Closes first. What is no store raises Corruption "The database has a corrupt header", an empty one
    // Runtime "The database file is empty"; a file that cannot be opened IOError.
    void open(std::string_view path);
    void open(const EPA_FileName& path);
    void open(std::unique_ptr<SMF_File> file);
    void close();
    bool isOpen() const noexcept { return store_ != nullptr; }

    // Table names with the positions of their headers, in the order of the file.
    const std::vector<std::pair<std::string, int64_t>>& tables() const noexcept { return tables_; }
    // -1 for a name that is not there.
    int64_t location(std::string_view name) const;
    const std::string& name() const noexcept { return name_; }
    bool compressed() const noexcept { return compressed_; }
    bool hasMainStream() const noexcept { return store_ && store_->mainStream != nullptr; }
    // Runtime "Not connected" on a closed reader.
    const std::shared_ptr<SMF_StoreFile>& store() const;
    // Reads a header record where this file keeps them.
    void readHeader(SMF_HeaderReader& header, int64_t position) const;

  private:
    void readDirectory();
    void enter(const std::string& name, int64_t position);

    std::shared_ptr<SMF_StoreFile> store_;
    std::vector<std::pair<std::string, int64_t>> tables_;
    std::unordered_map<std::string, size_t> places_;  // of the names in tables_
    std::string name_;
    bool compressed_ = false;
};
