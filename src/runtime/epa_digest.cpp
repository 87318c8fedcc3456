// Over the cryptographic library's envelope functions, which choose the processor's own instructions.
#include "runtime/epa_digest.h"

#include <openssl/evp.h>

#include <cstring>

#include "runtime/xpk_exception.h"

struct EPA_Digest::State {
    const EVP_MD* algorithm;
    const char* name;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context{EVP_MD_CTX_new(), EVP_MD_CTX_free};

    void check(bool done) const {
        if (!done) XPK_Raise("RuntimeError", "Digest $name is not available").string("name", name).raise();
    }
    void begin() const { check(context && EVP_DigestInit_ex(context.get(), algorithm, nullptr)); }
};

EPA_Digest::EPA_Digest(Kind kind)
    : state_(new State{kind == Kind::Md5 ? EVP_md5() : EVP_sha1(), kind == Kind::Md5 ? "MD5" : "SHA1"}) {
    state_->begin();
}

EPA_Digest::~EPA_Digest() = default;

void EPA_Digest::update(std::string_view bytes) {
    state_->check(EVP_DigestUpdate(state_->context.get(), bytes.data(), bytes.size()));
}

std::string EPA_Digest::finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    state_->check(EVP_DigestFinal_ex(state_->context.get(), digest, &length));
    state_->begin();
    return {reinterpret_cast<const char*>(digest), length};
}

std::string EPA_HexText(std::string_view bytes, bool capitals) {
    const char* digits = capitals ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char c : bytes) {
        text += digits[c >> 4];
        text += digits[c & 15];
    }
    return text;
}

std::string EPA_Md5Hex(std::string_view input) {
    EPA_Digest digest(EPA_Digest::Kind::Md5);
    digest.update(input);
    return EPA_HexText(digest.finish(), true);
}

void EPA_Sha1(std::string_view input, unsigned char (&out)[20]) {
    EPA_Digest digest(EPA_Digest::Kind::Sha1);
    digest.update(input);
    std::string bytes = digest.finish();
    memcpy(out, bytes.data(), sizeof out);
}
