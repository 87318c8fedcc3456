// SMF_File: the raw file under a store, read and written by position.
//
// A store's file is a regular file; SMF_OpenForReading and SMF_Create open one on disk. Tests and fuzz
// targets put files in memory, or files that fail, behind the same interface. Failures of the system raise
// IOError
// "[Errno $errno] $decode: '$name'". A file belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/streams/epa_fileerror.h"

// What tells one content of a file from another without reading it.
struct SMF_FileStamp {
    int64_t size = 0;
    int64_t modified = 0;  // nanoseconds since 1970; 0 in memory
    bool operator==(const SMF_FileStamp&) const = default;
};

class SMF_File {
  public:
    explicit SMF_File(std::string name) : name_(std::move(name)) {}
    virtual ~SMF_File() = default;
    SMF_File(const SMF_File&) = delete;
    SMF_File& operator=(const SMF_File&) = delete;

    // As given at open, for messages.
    const std::string& name() const noexcept { return name_; }
    virtual int64_t size() = 0;
    // Of the open file, whatever stands under its name by now.
    virtual SMF_FileStamp stamp() { return {size(), 0}; }
    // Reads up to `size` bytes at `offset`; fewer only at the end of the file.
    virtual size_t read(int64_t offset, void* buffer, size_t size) = 0;
    // Writes all bytes at `offset`, which is at most the file's size. What was written is read back by read()
    // only after close() or flush().
    virtual void write(int64_t offset, const void* bytes, size_t size) = 0;
    virtual void flush() = 0;
    // Flushes and closes; a failure raises, with the file closed. Nothing on a closed file.
    virtual void close() = 0;
    // Tells the system that a part will be read soon.
    virtual void willNeed(int64_t offset, size_t size) {}

    // Block `number` of the stream called `stream` could not be read whole. The first damage of a file is
    // logged (channel "dev", level 40); all are counted.
    void noteDamage(std::string_view stream, int64_t block, std::string_view what);
    struct Damage {
        int64_t count = 0;
        std::string first;  // the log line of the first one
    };
    const Damage& damage() const noexcept { return damage_; }

  private:
    std::string name_;
    Damage damage_;
};

// Names are UTF-8 text with either separator, or what EPA_FileNameOf makes of a script's path. A folder is
// EISDIR, another thing that is no regular file ESPIPE.
std::unique_ptr<SMF_File> SMF_OpenForReading(const EPA_FileName& name);
std::unique_ptr<SMF_File> SMF_OpenForReading(std::string_view name);
// Makes the file, or empties it.
std::unique_ptr<SMF_File> SMF_Create(const EPA_FileName& name);
std::unique_ptr<SMF_File> SMF_Create(std::string_view name);

// Takes the log line of the first damage of each file; the debug stream unless replaced. Set before threads
// run.
using SMF_DamageLog = void (*)(const std::string& line);
void SMF_SetDamageLog(SMF_DamageLog log) noexcept;

// A file in memory, of tests and tools.
class SMF_MemoryFile : public SMF_File {
  public:
    explicit SMF_MemoryFile(std::string name, std::string content = {})
        : SMF_File(std::move(name)), content_(std::move(content)) {}
    int64_t size() override { return static_cast<int64_t>(content_.size()); }
    size_t read(int64_t offset, void* buffer, size_t size) override;
    void write(int64_t offset, const void* bytes, size_t size) override;
    void flush() override {}
    void close() override {}
    std::string& content() noexcept { return content_; }

  private:
    std::string content_;
};
