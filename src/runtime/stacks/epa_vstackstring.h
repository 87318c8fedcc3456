// EPA_VStackString: a value stack of names, whose levels together are a path.
#pragma once

#include <array>
#include <memory>
#include <string_view>

#include "runtime/epa_stringbuffer.h"
#include "runtime/epa_unicode.h"
#include "runtime/stacks/epa_vstackgang.h"

class EPA_VStackString final : public EPA_VStackBase {
  public:
    EPA_VStackString();

    // The text of the current level, in UTF-8; empty when the level opens.
    void set(std::string_view text);
    // Replaces the buffer's text by "/" and, of each level below the root, its text and "/".
    void joined(EPA_StringBuffer& buffer) const;
    int32_t top() const noexcept { return top_; }

    void pop() override;
    void push() override;

  private:
    int32_t top_ = 0;
    // Made on first use and kept, so that a walk allocates only when it is deeper than ever before.
    std::array<std::unique_ptr<EPA_Unicode>, Levels> levels_;
};
