// EPA_VStackDigest: a value stack of sets of script values, with a short digest of each.
#pragma once

#include <array>
#include <string>

#include "runtime/epa_digest.h"
#include "runtime/ipe_object.h"
#include "runtime/stacks/epa_vstackgang.h"

class EPA_VStackDigest final : public EPA_VStackBase {
  public:
    EPA_VStackDigest();

    // Adds the pair (key, value) to the current level.
    void add(const IPE_Object& key, const IPE_Object& value);
    // Empty for a level without pairs, else eight lower-case hexadecimal digits that depend on the pairs and
    // not on the order in which they were added: the last of the SHA-1 digest of the sorted list's text.
    std::string digest();
    int32_t top() const noexcept { return top_; }

    void pop() override;
    void push() override;

  private:
    int32_t top_ = 0;
    std::array<IPE_Object, Levels> levels_;  // ListType, null above the current level
    EPA_Digest sha1_;
};
