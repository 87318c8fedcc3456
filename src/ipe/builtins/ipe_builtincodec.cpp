// Built-in functions that code and decode: digests, uuencode, Base64, URLs, big-number powers, Unicode forms,
// file-name mapping and XML escapes.
//
// `rsa` is a modular power and nothing more: no padding and no protection against timing, as befits the old
// exchange that it serves. Its numbers are bounded so that one call costs milliseconds.
#include <openssl/bn.h>

#include <memory>

#include "components/netcode.h"
#include "ipe/builtins/ipe_builtinsupport.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_digest.h"
#include "runtime/epa_metaphone.h"
#include "runtime/epa_unicode.h"

namespace {

using Arguments = const IPE_Arguments&;

// --- Digests and keys.

IPE_Object builtinMetaphone(Arguments a) { return IPE_String(EPA_Metaphone(a.text(0))); }

IPE_Object digest(Arguments a, EPA_Digest::Kind kind) {
    EPA_Digest digest(kind);
    digest.update(a.text(0));
    return IPE_String(EPA_HexText(digest.finish(), false));
}

IPE_Object builtinMd5(Arguments a) { return digest(a, EPA_Digest::Kind::Md5); }
IPE_Object builtinSha1(Arguments a) { return digest(a, EPA_Digest::Kind::Sha1); }

// --- Transfer encodings.

// One run of groups: no length characters. A second argument limits the number of bytes. A last group of two
// or three characters gives one or two bytes.
IPE_Object builtinUudecode(Arguments a) {
    std::string_view text = a.text(0);
    size_t limit = a.size() > 1 ? static_cast<size_t>(std::max<int64_t>(a.integer(1), 0)) : SIZE_MAX;
    size_t at = text.find_first_not_of(" \t");
    std::string bytes;
    uint32_t bits = 0;
    int held = 0;
    for (; at < text.size() && bytes.size() < limit && text[at] >= ' ' && text[at] <= '`'; ++at) {
        bits = bits << 6 | ((static_cast<uint32_t>(text[at]) - ' ') & 63);
        held += 6;
        if (held < 8) continue;
        held -= 8;
        bytes += static_cast<char>(bits >> held & 255);
    }
    return IPE_String(bytes);
}

IPE_Object encode(Arguments a, NetCodeFormat format) {
    return IPE_String(NetCode_Encode(format, IPE_NativeText(IPE_RequiredArgument(a, 0))));
}

IPE_Object decode(Arguments a, NetCodeFormat format) {
    std::string bytes;
    if (int error = NetCode_Decode(format, IPE_NativeText(IPE_RequiredArgument(a, 0)), bytes))
        XPK_Raise("ValueError", "Unable to decode the text (error $code)").number("code", error).raise();
    return IPE_String(bytes);
}

IPE_Object builtinBase64Encode(Arguments a) { return encode(a, NetCodeBase64); }
IPE_Object builtinBase64Decode(Arguments a) { return decode(a, NetCodeBase64); }
IPE_Object builtinUrlEncode(Arguments a) { return encode(a, NetCodeUrl); }
IPE_Object builtinUrlDecode(Arguments a) { return decode(a, NetCodeUrl); }

// --- Big-number powers.

constexpr size_t RsaBytes = 128;

struct BnFree {
    void operator()(BIGNUM* number) const { BN_clear_free(number); }
    void operator()(BN_CTX* context) const { BN_CTX_free(context); }
};
using BigNumber = std::unique_ptr<BIGNUM, BnFree>;

BigNumber required(BIGNUM* number) {
    if (!number) throw XPK_MemoryException(__FILE__, __LINE__);
    return BigNumber(number);
}

[[noreturn]] void tooLong() { XPK_Raise("ValueError", "rsa() takes numbers of up to 1024 bits").raise(); }

BigNumber fromHex(std::string_view text) {
    if (text.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos)
        XPK_Raise("ValueError", "'$text' is not a hexadecimal number").string("text", text).raise();
    text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
    if (text.size() > 2 * RsaBytes) tooLong();
    BIGNUM* number = nullptr;
    BN_hex2bn(&number, text.empty() ? "0" : std::string(text).c_str());
    return required(number);
}

BigNumber fromBytes(std::string_view text) {
    if (text.size() > RsaBytes) tooLong();
    return required(BN_bin2bn(reinterpret_cast<const unsigned char*>(text.data()),
                              static_cast<int>(text.size()), nullptr));
}

IPE_Object toHex(const BIGNUM* number) {
    std::unique_ptr<char, void (*)(char*)> hex(BN_bn2hex(number), [](char* text) { OPENSSL_free(text); });
    if (!hex) throw XPK_MemoryException(__FILE__, __LINE__);
    std::string text(hex.get());
    text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
    for (char& c : text)
        if (c >= 'A' && c <= 'F') c = static_cast<char>(c + ('a' - 'A'));
    return IPE_String(text);
}

// The plain side is bytes in the modes "e" and "d" and hexadecimal in "eh" and "dh"; the coded side is
// hexadecimal always. Bytes are the number's big-endian form.
IPE_Object builtinRsa(Arguments a) {
    std::string_view mode = a.text(0);
    if (mode != "e" && mode != "d" && mode != "eh" && mode != "dh")
        XPK_Raise("ValueError", "Unknown rsa() mode '$mode'").string("mode", mode).raise();
    BigNumber base = mode == "e" ? fromBytes(a.text(1)) : fromHex(a.text(1));
    BigNumber exponent = fromHex(a.text(2)), modulus = fromHex(a.text(3));
    if (BN_is_zero(modulus.get())) XPK_Raise("NumericError", "Divide by Zero").raise();
    std::unique_ptr<BN_CTX, BnFree> context(BN_CTX_new());
    BigNumber power = required(BN_new());
    if (!context || !BN_mod_exp(power.get(), base.get(), exponent.get(), modulus.get(), context.get()))
        throw XPK_MemoryException(__FILE__, __LINE__);
    if (mode != "d") return toHex(power.get());
    std::string bytes(static_cast<size_t>(BN_num_bytes(power.get())), '\0');
    BN_bn2bin(power.get(), reinterpret_cast<unsigned char*>(bytes.data()));
    return IPE_String(bytes);
}

// --- Unicode forms.

template <class Units>
IPE_Object listOfUnits(Units units) {
    IPE_Object list = IPE_NewList();
    list.as<IPE_ListType>()->reserve(units.size());
    for (auto unit : units)
        list.as<IPE_ListType>()->append(IPE_Int(std::make_unsigned_t<decltype(unit)>(unit)));
    return list;
}

EPA_Unicode unicodeOf(std::string_view text) {
    EPA_Unicode unicode;
    unicode.setUtf8(text);
    return unicode;
}

IPE_Object builtinUtf8(Arguments a) { return listOfUnits(a.text(0)); }
IPE_Object builtinUtf16(Arguments a) { return listOfUnits(unicodeOf(a.text(0)).utf16()); }
IPE_Object builtinUtf32(Arguments a) { return listOfUnits(unicodeOf(a.text(0)).utf32()); }

IPE_Object builtinSanitize(Arguments a) {
    EPA_Unicode unicode = unicodeOf(a.text(0));
    unicode.sanitise();
    return IPE_String(unicode.utf8());
}

IPE_Object builtinNative(Arguments a) {
    EPA_Unicode unicode;
    unicode.setNative(a.text(0));
    return IPE_String(unicode.utf8());
}

IPE_Object builtinFlags(Arguments a) {
    if (a.size() == 0) return IPE_Int(EPA_UnicodeDefaultFlags.load(std::memory_order_relaxed));
    EPA_UnicodeDefaultFlags = static_cast<uint32_t>(a.integer(0));
    return {};
}

// --- File names and XML.

IPE_Object builtinUep(Arguments a) {
    EPA_Unicode unicode = unicodeOf(a.text(0));
    unicode.encodePathName();
    return IPE_String(unicode.utf8());
}

IPE_Object builtinUdp(Arguments a) {
    if (!a[0].is<IPE_StringType>()) return a[0];
    EPA_Unicode unicode = unicodeOf(a.text(0));
    unicode.decodePathName();
    return IPE_String(unicode.utf8());
}

// Each character of `from` becomes the one at the same place of `to`; one without a counterpart stays.
std::string replaceCharacters(std::string_view text, std::string_view from, std::string_view to) {
    EPA_Unicode old = unicodeOf(from), fresh = unicodeOf(to), subject = unicodeOf(text);
    std::u32string_view olds = old.utf32().substr(0, fresh.utf32().size());
    std::u32string result(subject.utf32());
    for (char32_t& point : result)
        if (size_t place = olds.find(point); place != std::u32string_view::npos) point = fresh.utf32()[place];
    return std::string(EPA_Unicode(result).utf8());
}

IPE_Object builtinXep(Arguments a) {
    std::string text = IPE_Object_Text(a[0]);
    if (a.size() > 2) text = replaceCharacters(text, a.text(1), a.text(2));
    EPA_StringBuffer out;
    out.xmlEncode(text);
    return IPE_String(out.view());
}

IPE_Object builtinXdp(Arguments a) {
    EPA_StringBuffer out;
    out.xmlDecode(IPE_Object_Text(a[0]));
    return IPE_String(out.view());
}

const IPE_Builtin Rows[] = {
    {"metaphone", "s", builtinMetaphone},
    {"md5", "s", builtinMd5},
    {"sha1", "s", builtinSha1},
    {"uudecode", "s|i", builtinUudecode},
    {"base64_encode", nullptr, builtinBase64Encode},
    {"base64_decode", nullptr, builtinBase64Decode},
    {"url_encode", nullptr, builtinUrlEncode},
    {"url_decode", nullptr, builtinUrlDecode},
    {"rsa", "ssss", builtinRsa},
    {"unicode_sanitize", "s", builtinSanitize},
    {"unicode_utf8", "s", builtinUtf8},
    {"unicode_utf16", "s", builtinUtf16},
    {"unicode_utf32", "s", builtinUtf32},
    {"unicode_native", "s", builtinNative},
    {"unicode_flags", "|i", builtinFlags},
    {"uep", "s", builtinUep},
    {"udp", "o", builtinUdp},
    {"xep", "s|ss", builtinXep},
    {"xdp", "o", builtinXdp},
};
const IPE_BuiltinTable registered(Rows);

}  // namespace
