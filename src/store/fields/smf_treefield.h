// SMF_TreeField and its handle SMF_Tree: a path of names, at most 64 components.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "store/smf_fieldhandle.h"

// The shared description: the separator (tag `S`, a backslash if absent) and the order (tag `R`, "T" sets the
// reversed flag).
class SMF_TreeData final : public SMF_FieldData {
  public:
    explicit SMF_TreeData(const SMF_FieldMeta& meta);
    void exportTo(IPE_DictType& dictionary) const override;  // `R` = "T", `S` = "."
    std::string separator;
    bool reversed = false;
};

class SMF_TreeField final : public SMF_Field {
  public:
    static constexpr size_t MostComponents = 64;
    SMF_TreeField(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record);
    // A list of the components: last to first, or first to last with the reversed flag.
    IPE_Object asObject() override;
    std::string asText() override;  // the components of asObject() joined by the separator
    // Split at every '.'. Deeper than 64: RuntimeError "Branch is too deep for SMF_TreeField to store".
    void assignText(std::string_view utf8) override;
    void assignObject(const IPE_Object& value) override;  // a list of texts
    int displayKind() const noexcept override { return 0; }
    int32_t typeNumber() const noexcept override { return SMF_TypeTree; }

    // The components in stored order, loaded; valid until the next row is read or a value assigned.
    std::span<const std::string_view> parts();
    std::span<const std::string_view> stored() const noexcept { return views_; }
    const SMF_TreeData& data() const noexcept { return static_cast<const SMF_TreeData&>(*meta_->data); }

  protected:
    void clear() override;
    void loadRow(int64_t row) override;

  private:
    void assignParts(std::span<const std::string_view> parts);
    std::string buffer_;
    std::vector<std::string_view> views_;
    std::unique_ptr<SMF_TreeField> fixed_;  // what a fixed field shows
};

class SMF_Tree : public SMF_FieldHandle {
  public:
    int32_t typeNumber() const noexcept override { return SMF_TypeTree; }
    std::span<const std::string_view> get() const;
    // The text form; valid until the next call.
    std::string_view text() const;
    void set(std::string_view text) const;
    // As SMF_HandleOf::span: rows of one run share one array of components.
    std::span<const SMF_TreeValue> span(size_t limit = SIZE_MAX) const;
    // Null when there is no plain column behind the handle; get() serves then.
    SMF_TreeDecoder* decoder() const noexcept { return decoder_; }

  private:
    void attached() override;
    SMF_TreeDecoder* decoder_ = nullptr;
    mutable std::string text_;
};
