// SMF_StringField and its handle SMF_String: UTF-8 text.
//
// The text stays where the decoder has it until somebody asks for all of it. A Transform makes what scripts
// see differ from what is stored: the mask of a file name or a path, or the fixed value.
#pragma once

#include <span>
#include <string>

#include "store/smf_fieldhandle.h"

class SMF_StringField final : public SMF_Field {
  public:
    using SMF_Field::SMF_Field;
    // The fixed value; else, with the tag `API`, the result of the named function of the running script's
    // namespace `api`, called with the text (without the namespace the tag does nothing); else the text,
    // masked by Transform.
    IPE_Object asObject() override;
    std::string asText() override { return std::string(view()); }
    void assignText(std::string_view utf8) override;
    void assignObject(const IPE_Object& value) override;  // the object's text
    int displayKind() const noexcept override { return 0; }
    int32_t typeNumber() const noexcept override { return meta_->type; }

    // The stored text, loaded; valid until the next row is read or a value assigned.
    std::string_view view();
    // As it stands, for encoders.
    std::string_view stored() const noexcept { return text_; }

  protected:
    void clear() override { text_.clear(); }
    void loadRow(int64_t row) override;

  private:
    std::string text_;
    std::string fixed_;  // what a fixed field shows
};

// The masks of a text: its first and last character with eight of its SHA-1 digest between them, in Base64. A
// file's mask keeps what stands behind the last dot, up to 16 characters. A byte that is not UTF-8 counts as
// one character.
std::string SMF_FileMask(std::string_view text);
std::string SMF_PathMask(std::string_view text);

class SMF_String : public SMF_FieldHandle {
  public:
    int32_t typeNumber() const noexcept override { return SMF_TypeString; }
    // The whole text; valid until the next call on this handle or the next row.
    std::string_view get() const;
    // The parts in which the decoder holds it, and the table of symbols: decoder()->symbol(value.symbol).
    // Only with decoder().
    const SMF_TextValue& value() const;
    // As SMF_HandleOf::span.
    std::span<const SMF_TextValue> span(size_t limit = SIZE_MAX) const;
    void set(std::string_view text) const;
    // Null when there is no plain column behind the handle; get() serves then.
    SMF_StringDecoder* decoder() const noexcept { return decoder_; }

  private:
    void attached() override;
    SMF_StringDecoder* decoder_ = nullptr;
    mutable std::string text_;
};
