// OutputFile: a file that appears under its name only when it is complete.
//
// It is written beside its name as NAME.part-PID, locked, and removed when the object goes before publish(),
// and when SIGINT, SIGTERM or SIGHUP ends the process, with exit code 128 and the signal's number. One object
// of the process at a time; one thread.
#pragma once

#include <string>

#include "platform/pf_descriptor.h"
#include "runtime/streams/epa_fileerror.h"

namespace quillscan {

class OutputFile {
  public:
    // Makes the part file. A link leads to the file that it names. IOError, also for a name that is there and
    // is no regular file, and for one whose part file another process writes.
    explicit OutputFile(const std::string& name);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Where to write.
    EPA_FileName part() const { return {part_, part_}; }
    const std::string& name() const noexcept { return name_; }
    // The folder that it lies in, and the names that it may have there.
    const std::string& folder() const noexcept { return folder_; }
    std::string baseName() const { return name_.substr(name_.rfind('/') + 1); }
    std::string partName() const { return part_.substr(part_.rfind('/') + 1); }
    // Has what was written since the last call put on its way to the disk, so that publish() waits for
    // little.
    void startWriting() noexcept;
    int64_t size() const;

    // What was written goes to disk and takes the name. IOError; then the old file, if any, is still there.
    void publish();

  private:
    void create();

    std::string name_, folder_, part_;
    platform::Descriptor fd_;
    unsigned mode_ = 0;  // of the file that is replaced, or 0
    bool isPublished_ = false;
};

}  // namespace quillscan
