// SMF_HeaderReader: one header record, read and taken apart.
//
// A record stands in the raw file or in the main stream; its bytes depend on their position there. Anything
// that is no record raises Corruption "The database has a corrupt header": bytes that end too early, a code
// twice, a missing key, more than 16 numbers or 4 strings, a string above 16 MiB.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/ipe_object.h"
#include "store/smf_format.h"

class SMF_File;
class SMF_DecoderStream;

class SMF_HeaderReader {
  public:
    static constexpr size_t MaxNumbers = 16, MaxStrings = 4;
    static constexpr uint32_t MaxStringLength = 0x1000000;

    // Replaces what this object holds by the record at `position`, of the raw file or of the main stream. The
    // stream's position moves behind the record.
    void read(SMF_File& file, int64_t position);
    void read(SMF_DecoderStream& mainStream, int64_t position);

    bool has(int code) const noexcept;
    // The value; a missing code raises the corrupt-header error.
    int32_t number(int code) const;
    int64_t number64(int code) const;  // low + high * 2^31 from `code` and `code` + 1, each signed
    const std::string& string(int code) const;
    // The value of a string in representation form; what is no literal raises the corrupt-header error.
    IPE_Object object(int code) const;
    // As object(), of a dictionary.
    IPE_Object dictionary(int code) const;

    // Walks the chain of key and value records whose head is number `code`: the pairs in order. A chain that
    // runs in circles is a corrupt header. `mainStream` is null when the records stand in the raw file.
    std::vector<std::pair<std::string, std::string>> chain(int code, SMF_File& file,
                                                           SMF_DecoderStream* mainStream) const;

    const std::vector<std::pair<uint8_t, int32_t>>& numbers() const noexcept { return numbers_; }
    const std::vector<std::pair<uint8_t, std::string>>& strings() const noexcept { return strings_; }

  private:
    template <class Source>
    void parse(Source& source);

    std::string fileName_;
    std::vector<std::pair<uint8_t, int32_t>> numbers_;
    std::vector<std::pair<uint8_t, std::string>> strings_;
};
