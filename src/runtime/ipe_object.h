// EPA_Counted and IPE_Object: the counted base of every script value, and the handle to it.
//
// The runtime carries script values (an exception's details, a passport's stores) without knowing what they
// are, so base and handle live here; IPE_Type, which adds the operations, stands one floor up and completes
// the handle's operator->.
//
// Life of a value. An object begins local: it belongs to the thread that made it, and its count changes
// without a locked instruction. Before another thread can reach it, the object is marked shared, by the
// stores, queues and the registry through IPE_Object_Strip; from then on its count is changed atomically.
// Singletons, small integers and interned names are immortal: they are not
// counted at all and never die. The mark is set by the owner before the publishing lock is taken, so every
// other thread sees it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

class IPE_Type;

class EPA_Counted {
  public:
    enum Life : uint8_t { Local = 0, Shared = 1, Immortal = 2 };
    // Bits of `flags` that every class understands.
    enum : uint8_t {
        IsContainer = 1,  // its destruction may cascade: see destroy()
        IsNative = 2,     // binding it to a name means something: see __bind__
    };

    EPA_Counted(const char* typeName, uint8_t flags = 0) noexcept : flags_(flags), typeName_(typeName) {}
    EPA_Counted(const EPA_Counted&) = delete;
    EPA_Counted& operator=(const EPA_Counted&) = delete;
    virtual ~EPA_Counted() = default;

    static void* operator new(size_t size);
    static void operator delete(void* block) noexcept;
    static void* operator new(size_t, void* place) noexcept { return place; }
    static void operator delete(void*, void*) noexcept {}

    // The class's one static literal; types are told apart by its address. Null on the deleted-entry marker.
    const char* typeName() const noexcept { return typeName_; }
    Life life() const noexcept { return life_; }
    void markShared() noexcept {
        if (life_ == Local) life_ = Shared;
    }
    void makeImmortal() noexcept { life_ = Immortal; }
    bool isNative() const noexcept { return flags_ & IsNative; }
    int32_t references() const noexcept { return count_.load(std::memory_order_relaxed); }

    void retain() noexcept {
        if (life_ == Local) [[likely]]
            count_.store(count_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        else if (life_ == Shared)
            count_.fetch_add(1, std::memory_order_relaxed);
    }
    void release() noexcept {
        if (life_ == Local) [[likely]] {
            int32_t left = count_.load(std::memory_order_relaxed) - 1;
            count_.store(left, std::memory_order_relaxed);
            if (left == 0) destroy();
        } else if (life_ == Shared) {
            if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy();
        }
    }

  protected:
    uint8_t flags() const noexcept { return flags_; }
    void setFlags(uint8_t bits) noexcept { flags_ |= bits; }

  private:
    // Deletes the object. Containers nested beyond a fixed depth are queued on the thread and deleted by the
    // outermost call, so that no chain of values, however deep, overruns the stack.
    void destroy() noexcept;

    std::atomic<int32_t> count_{0};
    Life life_ = Local;
    uint8_t flags_;
    const char* typeName_;
};

// A counted handle of one word. Null means "no value" and is not None. Functions take `const IPE_Object&` for
// a value they borrow and return IPE_Object for a value the caller owns.
class IPE_Object {
  public:
    IPE_Object() noexcept = default;
    IPE_Object(std::nullptr_t) noexcept {}
    explicit IPE_Object(EPA_Counted* value) noexcept : value_(value) {
        if (value_) value_->retain();
    }
    IPE_Object(const IPE_Object& other) noexcept : value_(other.value_) {
        if (value_) value_->retain();
    }
    IPE_Object(IPE_Object&& other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
    ~IPE_Object() {
        if (value_) value_->release();
    }
    // The new reference is taken before the old one is dropped, so self-assignment is safe.
    IPE_Object& operator=(const IPE_Object& other) noexcept {
        EPA_Counted* old = value_;
        if (other.value_) other.value_->retain();
        value_ = other.value_;
        if (old) old->release();
        return *this;
    }
    IPE_Object& operator=(IPE_Object&& other) noexcept {
        EPA_Counted* old = value_;
        value_ = std::exchange(other.value_, nullptr);
        if (old) old->release();
        return *this;
    }
    IPE_Object& operator=(std::nullptr_t) noexcept {
        if (EPA_Counted* old = std::exchange(value_, nullptr)) old->release();
        return *this;
    }

    explicit operator bool() const noexcept { return value_ != nullptr; }
    bool isNull() const noexcept { return value_ == nullptr; }
    EPA_Counted* counted() const noexcept { return value_; }
    inline IPE_Type* get() const noexcept;         // defined in ipe/object/ipe_type.h
    inline IPE_Type* operator->() const noexcept;  // defined in ipe/object/ipe_type.h
    const char* typeName() const noexcept { return value_ ? value_->typeName() : nullptr; }
    template <class T>
    bool is() const noexcept {
        return value_ && value_->typeName() == T::TypeName;
    }
    // The value as its concrete class; the caller has tested the type name.
    template <class T>
    T* as() const noexcept {
        return static_cast<T*>(value_);
    }
    template <class T>
    T* tryAs() const noexcept {
        return is<T>() ? static_cast<T*>(value_) : nullptr;
    }
    // Gives the reference away without dropping it, and takes one over without adding to it.
    EPA_Counted* detach() noexcept { return std::exchange(value_, nullptr); }
    static IPE_Object adopt(EPA_Counted* value) noexcept {
        IPE_Object object;
        object.value_ = value;
        return object;
    }
    void swap(IPE_Object& other) noexcept { std::swap(value_, other.value_); }
    // The same object, not an equal one.
    bool operator==(const IPE_Object& other) const noexcept { return value_ == other.value_; }

  private:
    EPA_Counted* value_ = nullptr;
};

// A new object of class T with its first reference.
template <class T, class... Args>
IPE_Object IPE_New(Args&&... args) {
    return IPE_Object(static_cast<EPA_Counted*>(new T(std::forward<Args>(args)...)));
}
