// Texts, and the masks that hide them.
//
// A mask lets a reader tell names apart without knowing them. It is made of the stored text each time it is
// asked for.
#include "store/fields/smf_stringfield.h"

#include "ipe/language/ipe_frame.h"
#include "ipe/language/ipe_moduleshared.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_convert.h"
#include "runtime/epa_digest.h"

namespace {

constexpr size_t DigestCharacters = 8;
constexpr size_t LongestSuffix = 16;  // of a file name, in characters

// The first characters of the digest: the Base64 form of SHA-1 with '-' for '/', so that it may stand in a
// path.
std::string digestOf(std::string_view text) {
    static constexpr char Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-";
    unsigned char bytes[20];
    EPA_Sha1(text, bytes);
    uint64_t bits = 0;
    for (size_t i = 0; i < DigestCharacters * 6 / 8; ++i) bits = bits << 8 | bytes[i];
    std::string out(DigestCharacters, 0);
    for (size_t i = DigestCharacters; i-- > 0; bits >>= 6) out[i] = Digits[bits & 0x3F];
    return out;
}

}  // namespace

std::string SMF_PathMask(std::string_view text) {
    size_t count = 0, firstEnd = 0, last = 0;
    for (size_t at = 0; at < text.size(); ++count) {
        last = at;
        EPA_NextCodePoint(text, at);
        if (count == 0) firstEnd = at;
    }
    std::string mask(text.substr(0, firstEnd));
    if (count > 2) mask += "_" + digestOf(text) + "_";
    if (count > 1) mask += text.substr(last);
    return mask;
}

std::string SMF_FileMask(std::string_view text) {
    size_t dot = text.rfind('.');
    if (dot == std::string_view::npos) return SMF_PathMask(text);
    std::string_view suffix = text.substr(dot + 1);
    std::string mask = SMF_PathMask(text.substr(0, dot)) + ".";
    size_t end = 0, count = 0;
    for (; end < suffix.size() && count < LongestSuffix; ++count) EPA_NextCodePoint(suffix, end);
    mask += suffix.substr(0, end);
    // The digest skips bytes where the text skips characters.
    if (end < suffix.size()) mask += "__" + digestOf(suffix.substr(LongestSuffix));
    return mask;
}

// --- The value object.

void SMF_StringField::loadRow(int64_t row) {
    auto& decoder = static_cast<SMF_StringDecoder&>(*meta_->decoder);
    if (!decoder.batch().contains(row - 1)) decoder.load(row);
    text_.clear();
    decoder.appendText(decoder.batch().values[row - 1 - decoder.batch().first], text_);
}

std::string_view SMF_StringField::view() {
    if (isFixed()) return fixed_ = IPE_Object_Text(fixedValue());
    load();
    return text_;
}

IPE_Object SMF_StringField::asObject() {
    if (isFixed()) return fixedValue();
    load();
    if (!meta_->api.isNull()) {
        IPE_Frame* frame = IPE_CurrentFrame();
        IPE_Object api(frame ? frame->globals->dictionary().findText("api") : nullptr);
        if (!api.isNull()) {
            const IPE_Object items[] = {IPE_String(text_)};
            std::string name = IPE_Object_Text(meta_->api);
            IPE_Object result = IPE_CallScriptMethod(api, name.c_str(), IPE_Arguments(items, 1));
            return result.isNull() ? IPE_None() : result;
        }
    }
    if (meta_->transform == SMF_Transform::FileName) return IPE_String(SMF_FileMask(text_));
    if (meta_->transform == SMF_Transform::PathName) return IPE_String(SMF_PathMask(text_));
    return IPE_String(text_);
}

void SMF_StringField::assignText(std::string_view utf8) {
    XPK_Assert(utf8.data() != nullptr);
    text_ = utf8;
}

void SMF_StringField::assignObject(const IPE_Object& value) { text_ = IPE_Object_Text(value); }

// --- The handle.

void SMF_String::attached() { decoder_ = static_cast<SMF_StringDecoder*>(plainDecoder()); }

const SMF_TextValue& SMF_String::value() const {
    XPK_Assert(decoder_ && loadable());
    const auto& batch = decoder_->batch();
    int64_t row = data_->loadRow - 1;
    if (!batch.contains(row)) decoder_->load(row + 1);
    return batch.values[row - batch.first];
}

std::string_view SMF_String::get() const {
    if (!decoder_ || !loadable()) return static_cast<SMF_StringField&>(field()).view();
    const SMF_TextValue& text = value();
    if (text.symbol == 0) return text.own();
    if (text.length == 0) return decoder_->symbol(text.symbol);
    text_.clear();
    decoder_->appendText(text, text_);
    return text_;
}

std::span<const SMF_TextValue> SMF_String::span(size_t limit) const {
    if (!decoder_ || !loadable()) return {};
    const auto& batch = decoder_->batch();
    int64_t row = data_->loadRow - 1;
    if (!batch.contains(row)) decoder_->load(row + 1);
    auto skip = static_cast<size_t>(row - batch.first);
    return {batch.values + skip, std::min(limit, batch.count - skip)};
}

void SMF_String::set(std::string_view text) const { static_cast<SMF_StringField&>(field()).assignText(text); }

namespace {
const SMF_FieldRegistration registered(SMF_TypeString, SMF_MakeFieldOf<SMF_StringField>);
const SMF_FieldRegistration registered10(SMF_TypeString10, SMF_MakeFieldOf<SMF_StringField>);
}  // namespace
