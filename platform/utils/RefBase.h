// Reference-counted platform objects and the strong (sp) and weak (wp) references that hold them.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace android {

/// Base of every reference-counted object. The object is deleted on the thread that drops its last strong reference.
/// All counting operations may be called on any thread.
class RefBase {
public:
    /// Takes one strong reference. `id` names the holder, for debugging only.
    void incStrong(const void* id) const;
    /// Drops one strong reference; the last one deletes the object.
    void decStrong(const void* id) const;
    int32_t getStrongCount() const;

    /// The record that weak references share; it outlives the object for as long as one of them exists.
    class weakref_type {
    public:
        RefBase* refBase() const { return mBase; }
        void incWeak(const void* id);
        void decWeak(const void* id);
        /// Takes a strong reference if the object still has one; returns false when it is gone or never had one.
        bool attemptIncStrong(const void* id);

    private:
        friend class RefBase;
        explicit weakref_type(RefBase* base) : mBase(base) {}

        std::atomic<int32_t> mStrong{0};
        std::atomic<int32_t> mWeak{1};  // the object itself counts as one
        RefBase* const mBase;
    };

    /// A new weak reference to this object; given up with `weakref_type::decWeak`.
    weakref_type* createWeak(const void* id) const;
    weakref_type* getWeakRefs() const { return mRefs; }

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

protected:
    RefBase();
    virtual ~RefBase();

    virtual void onFirstRef();
    virtual void onLastStrongRef(const void* id);
    virtual bool onIncStrongAttempted(uint32_t flags, const void* id);
    virtual void onLastWeakRef(const void* id);

private:
    weakref_type* const mRefs;
};

template <typename T>
class wp;

/// Strong reference: keeps its object alive.
template <typename T>
class sp {
public:
    sp() = default;
    sp(T* other) : mPtr(other) {
        if (mPtr)
            mPtr->incStrong(this);
    }
    sp(const sp& other) : sp(other.mPtr) {}
    sp(sp&& other) noexcept : mPtr(std::exchange(other.mPtr, nullptr)) {}
    template <typename U>
    sp(const sp<U>& other) : sp(static_cast<T*>(other.get())) {}
    ~sp() {
        if (mPtr)
            mPtr->decStrong(this);
    }

    sp& operator=(sp other) noexcept {
        std::swap(mPtr, other.mPtr);
        return *this;
    }

    void clear() { *this = sp(); }

    T& operator*() const { return *mPtr; }
    T* operator->() const { return mPtr; }
    T* get() const { return mPtr; }

    explicit operator bool() const { return mPtr != nullptr; }
    bool operator==(const sp& other) const { return mPtr == other.mPtr; }
    bool operator==(const T* other) const { return mPtr == other; }
    bool operator==(std::nullptr_t) const { return mPtr == nullptr; }

private:
    template <typename U>
    friend class wp;

    struct Adopt {};
    sp(T* counted, Adopt) : mPtr(counted) {}

    T* mPtr = nullptr;
};

/// Weak reference: does not keep its object alive; `promote` yields a strong reference while the object lives.
template <typename T>
class wp {
public:
    wp() = default;
    wp(T* other) : mPtr(other), mRefs(other ? other->createWeak(this) : nullptr) {}
    wp(const sp<T>& other) : wp(other.get()) {}
    wp(const wp& other) : mPtr(other.mPtr), mRefs(other.mRefs) {
        if (mRefs)
            mRefs->incWeak(this);
    }
    wp(wp&& other) noexcept : mPtr(std::exchange(other.mPtr, nullptr)), mRefs(std::exchange(other.mRefs, nullptr)) {}
    ~wp() {
        if (mRefs)
            mRefs->decWeak(this);
    }

    wp& operator=(wp other) noexcept {
        std::swap(mPtr, other.mPtr);
        std::swap(mRefs, other.mRefs);
        return *this;
    }

    void clear() { *this = wp(); }

    sp<T> promote() const {
        if (mRefs && mRefs->attemptIncStrong(this))
            return sp<T>(mPtr, typename sp<T>::Adopt());
        return sp<T>();
    }

    /// The object's address, for comparison only: the object may be gone.
    T* unsafe_get() const { return mPtr; }

private:
    T* mPtr = nullptr;
    RefBase::weakref_type* mRefs = nullptr;
};

}  // namespace android
