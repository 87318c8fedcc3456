// IPE_DirtyUTF16Type: UTF-16 code units as they came, valid or not. The form in which a file name travels
// that is no text: see platform/pf_paths.h for what its lone surrogates stand for.
//
// Immutable, hashable, ordered by code units, shared between threads freely. Equal only to a value of its own
// type. Its text and representation are the sanitised text: good to show, not good to open.
#pragma once

#include <string>
#include <string_view>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"

class IPE_DirtyUTF16Type final : public IPE_Type {
  public:
    static const char TypeName[];
    explicit IPE_DirtyUTF16Type(std::u16string units) : IPE_Type(TypeName), units_(std::move(units)) {}

    const std::u16string& units() const noexcept { return units_; }

    int __cmp__(const IPE_Object& other) override;
    uint32_t __hash__() override;
    IPE_Object __copy__() override { return IPE_Object(this); }
    int32_t __len__() override { return static_cast<int32_t>(units_.size()); }
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;

  private:
    const std::u16string units_;
};

// Any UTF-16 as valid UTF-8: what is no text is written by the runtime's escapes.
std::string IPE_SanitisedText(std::u16string_view units);
