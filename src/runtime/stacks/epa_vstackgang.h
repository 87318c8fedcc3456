// Value stacks: columns of running values along a walk down a tree, one slot for each level that is open.
//
// EPA_VStackBase is one column, EPA_VStackGang the columns of one walk, entered and left together. A stack
// has 512 levels, from 0, the root's, to 511; going deeper, or up from the root, is an assertion. Stacks and
// gang are local to one walk and one thread; either may be destroyed first.
#pragma once

#include <array>
#include <cstdint>

class EPA_VStackGang;

class EPA_VStackBase {
  public:
    static constexpr int32_t Levels = 512;

    EPA_VStackBase() = default;
    EPA_VStackBase(const EPA_VStackBase&) = delete;
    EPA_VStackBase& operator=(const EPA_VStackBase&) = delete;
    // Detaches from the gang.
    virtual ~EPA_VStackBase();
    // Closes the current level.
    virtual void pop() = 0;
    // Opens a level below the current one.
    virtual void push() = 0;

    EPA_VStackGang* gang() const noexcept { return gang_; }

  private:
    friend class EPA_VStackGang;
    EPA_VStackGang* gang_ = nullptr;
};

class EPA_VStackGang {
  public:
    static constexpr int32_t MostMembers = 64;

    EPA_VStackGang() = default;
    EPA_VStackGang(const EPA_VStackGang&) = delete;
    EPA_VStackGang& operator=(const EPA_VStackGang&) = delete;
    ~EPA_VStackGang();

    // Adds a stack at the end. One that is in a gang, or a 65th, is an assertion. The stack is not owned.
    void attach(EPA_VStackBase& stack);
    // Takes a member out; the others keep their order. A stack that is no member is an assertion.
    void detach(EPA_VStackBase& stack);
    // All members in order. Past the depth on either side is an assertion, with no member touched.
    void push();
    void pop();

    int32_t depth() const noexcept { return depth_; }
    int32_t count() const noexcept { return count_; }

  private:
    int32_t depth_ = 0;
    int32_t count_ = 0;
    std::array<EPA_VStackBase*, MostMembers> members_{};
};
