// SMF_HeaderWriter: one header record under construction.
//
// Its elements are scrambled: shuffled, masked by their position and XORed with a key drawn per record. A
// record is appended once; after that its strings are final, and its numbers may change until the last
// update(). Misuse raises type Development.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/ipe_object.h"
#include "store/smf_format.h"

class SMF_File;
class SMF_EncoderStream;

class SMF_HeaderWriter {
  public:
    static constexpr size_t MaxNumbers = 32, MaxStrings = 8;

    // The record stands in the raw file, or in the main stream. Both must outlive it.
    explicit SMF_HeaderWriter(SMF_File& file);
    explicit SMF_HeaderWriter(SMF_EncoderStream& mainStream);

    // Replaces or adds. Adding after append raises "Cannot add additional numbers", beyond the room "Too many
    // numbers".
    void setNumber(int code, int32_t value);
    void setNumber64(int code, int64_t value);  // bits 0 to 30 and 31 to 61
    // After append "Cannot update committed strings", a ninth code "Too many strings".
    void setString(int code, std::string_view text);
    void setObject(int code, const IPE_Object& value);  // the representation form

    // Writes the record at the stream's position, or the file's end, which becomes its home. Records behind
    // the first two blocks of the main stream raise "String length is larger than 2x block", with nothing
    // written: the store could not be closed, since its root record is updated at position 0.
    void append();
    // Writes the numbers again at home. SystemError "update has been called before append" before append.
    void update();
    int64_t home() const noexcept { return home_; }

  private:
    struct Slot {
        bool filled = false;
        uint8_t code = 0;
        int32_t value = 0;
    };
    explicit SMF_HeaderWriter(SMF_File* file, SMF_EncoderStream* stream);
    std::string numbers(int64_t at) const;
    [[noreturn]] void misuse(std::string_view message) const;
    void emit(int64_t at, const std::string& bytes);
    const std::string& fileName() const;

    SMF_File* file_;
    SMF_EncoderStream* stream_;
    std::array<Slot, MaxNumbers> slots_;
    std::vector<std::pair<uint8_t, std::string>> strings_;
    bool appended_ = false;
    int64_t home_ = -1;
};
