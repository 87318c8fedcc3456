// IPE_DepthScope: the bound of every walk that calls itself for nested values.
//
// Copy, compare, hash, save and the saved-value reader hold one per level. The 501st level on a thread raises
// RuntimeError "Maximum stack depth exceded", so that neither a deep value nor one that holds itself overruns
// the stack.
#pragma once

#include "runtime/xpk_exception.h"

class IPE_DepthScope {
  public:
    static constexpr int Limit = 500;
    IPE_DepthScope() {
        if (depth_ >= Limit) [[unlikely]]
            XPK_Raise("RuntimeError", "Maximum stack depth exceded").raise();
        ++depth_;
    }
    ~IPE_DepthScope() { --depth_; }
    IPE_DepthScope(const IPE_DepthScope&) = delete;
    IPE_DepthScope& operator=(const IPE_DepthScope&) = delete;

  private:
    static inline thread_local constinit int depth_ = 0;
};
