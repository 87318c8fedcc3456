// Digests of bytes: MD5 (RFC 1321) and SHA-1 (FIPS 180-4).
//
// For the identity of contents, not for secrets. EPA_Digest takes the bytes piece by piece; it belongs to one
// thread at a time. RuntimeError "Digest $name is not available" where the cryptographic library refuses the
// algorithm.
#pragma once

#include <memory>
#include <string>
#include <string_view>

class EPA_Digest {
  public:
    enum class Kind { Md5, Sha1 };

    explicit EPA_Digest(Kind kind);
    ~EPA_Digest();
    EPA_Digest(const EPA_Digest&) = delete;
    EPA_Digest& operator=(const EPA_Digest&) = delete;

    void update(std::string_view bytes);
    // The digest of all bytes so far, 16 or 20 of them; the object starts anew.
    std::string finish();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// 32 capital hexadecimal digits.
std::string EPA_Md5Hex(std::string_view input);
inline void EPA_Md5Hex(std::string_view input, std::string& out) { out = EPA_Md5Hex(input); }
void EPA_Sha1(std::string_view input, unsigned char (&out)[20]);
std::string EPA_HexText(std::string_view bytes, bool capitals);
