// SMF_FieldEncoder: turns the values of one field into the bytes of its stream.
//
// A scheme derives from the class of its value objects (SMF_EncoderFor), overrides reset() and encodeRows(),
// for composites also the others, and registers itself:
//
//   const SMF_EncoderRegistration registered("ESAE", SMF_MakeEncoder<I64StraightEncoder>);
//
// An encoder writes its bytes straight to its stream. Schemes with pages pad to a whole page in reset(); a
// run is held back until it ends, or its counter, behind the position, is rewritten in place. An encoder
// belongs to one thread.
#pragma once

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/ipe_object.h"
#include "store/smf_encoderstream.h"
#include "store/smf_headerwriter.h"

class SMF_Field;
class SMF_File;
struct SMF_FieldMeta;

// What a writer gives its encoders.
struct SMF_EncoderContext {
    SMF_File& file;
    SMF_EncoderStream& mainStream;
    bool zlib;
    uint32_t blockSize;
    uint32_t zero;
};

class SMF_FieldEncoder {
  public:
    virtual ~SMF_FieldEncoder();
    SMF_FieldEncoder(const SMF_FieldEncoder&) = delete;
    SMF_FieldEncoder& operator=(const SMF_FieldEncoder&) = delete;

    // Creates both streams and appends the field's header record. The next field's header is linked through
    // header().
    virtual void connect(const SMF_EncoderContext& context, const SMF_FieldMeta& field);
    // Raises what encode() of this value would raise for what it is (a negative number, a text that is too
    // long), with nothing changed. Called for all fields of a record before the first is stored.
    virtual void check(SMF_Field& value) {}
    // The per-record entry: at each multiple of the zero interval a restart point, then the value.
    virtual void store(SMF_Field& value);
    // Finishes both streams and updates the header.
    virtual void close();

    SMF_HeaderWriter& header() noexcept { return *header_; }
    int64_t rows() const noexcept { return rows_; }
    const std::string& key() const noexcept { return key_; }
    void setKey(std::string_view key) { key_ = key; }

  protected:
    SMF_FieldEncoder() = default;
    // Writes what is pending and clears the scheme's state.
    virtual void reset() {}
    virtual void encode(SMF_Field& value) = 0;
    SMF_EncoderStream& out() noexcept { return *data_; }
    // The next value stands at a restart point: reset() comes before it.
    bool atRestart() const noexcept { return rows_ == nextRestart_; }
    const std::string& fileName() const noexcept;
    // A restart point, if the next value stands at one; the number of values up to the one behind it.
    size_t beginRows();
    void countRows(size_t count) noexcept { rows_ += static_cast<int64_t>(count); }

    IPE_Object extra_;  // set before connect() appends the header; null for none

  private:
    std::unique_ptr<SMF_EncoderStream> data_, jumps_;
    std::unique_ptr<SMF_HeaderWriter> header_;
    std::string key_;
    int64_t rows_ = 0;
    int64_t nextRestart_ = 0;
    uint32_t zero_ = 10;
};

// The encoders of one value type, which take values out of an array too: the same bytes as one by one.
// Virtual dispatch belongs to the array. A value that cannot be stored raises in the midst of it.
template <class Value>
class SMF_EncoderOf : public SMF_FieldEncoder {
  public:
    virtual void storeRows(std::span<const Value> values) {
        while (!values.empty()) {
            size_t count = std::min(values.size(), beginRows());
            encodeRows(values.first(count));
            countRows(count);
            values = values.subspan(count);
        }
    }

  protected:
    virtual void encodeRows(std::span<const Value> values) = 0;
};

// The same with the class of the value objects, whose stored() is the value.
template <class Field>
class SMF_EncoderFor : public SMF_EncoderOf<std::remove_cvref_t<decltype(std::declval<Field&>().stored())>> {
    void encode(SMF_Field& field) final {
        auto value = static_cast<Field&>(field).stored();
        this->encodeRows({&value, 1});
    }
};

// Values of consecutive rows of a field, collected elsewhere.
class SMF_ColumnValues {
  public:
    // Gives the first `count` to the field's encoder.
    virtual void store(SMF_FieldEncoder& encoder, size_t count) = 0;

  protected:
    ~SMF_ColumnValues() = default;
};

// --- Registry.
using SMF_EncoderFactory = std::shared_ptr<SMF_FieldEncoder> (*)();
template <class Encoder, auto... Arguments>
std::shared_ptr<SMF_FieldEncoder> SMF_MakeEncoder() {
    return std::make_shared<Encoder>(Arguments...);
}
struct SMF_EncoderRegistration {
    SMF_EncoderRegistration(const char* key, SMF_EncoderFactory factory);
};
// Walks the letters of the tag `Format`, at most 24, and then "S"; of the first scheme there is the highest
// version. None: SystemError "There is no field encoder available for $key".
std::shared_ptr<SMF_FieldEncoder> SMF_ChooseEncoder(const SMF_FieldMeta& field);
// By its whole key; null when there is none.
std::shared_ptr<SMF_FieldEncoder> SMF_CreateEncoder(std::string_view key);
std::vector<std::string> SMF_EncoderKeys();
