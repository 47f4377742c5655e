// Counting of strong and weak references.

#include <utils/RefBase.h>

namespace android {

RefBase::RefBase() : mRefs(new weakref_type(this)) {}

RefBase::~RefBase() {
    mRefs->decWeak(this);
}

void RefBase::incStrong(const void* id) const {
    if (mRefs->mStrong.fetch_add(1, std::memory_order_relaxed) == 0)
        const_cast<RefBase*>(this)->onFirstRef();
    (void)id;
}

void RefBase::decStrong(const void* id) const {
    if (mRefs->mStrong.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    const_cast<RefBase*>(this)->onLastStrongRef(id);
    delete this;
}

int32_t RefBase::getStrongCount() const {
    return mRefs->mStrong.load(std::memory_order_relaxed);
}

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

void RefBase::onFirstRef() {}
void RefBase::onLastStrongRef(const void*) {}
bool RefBase::onIncStrongAttempted(uint32_t, const void*) {
    return false;
}
void RefBase::onLastWeakRef(const void*) {}

void RefBase::weakref_type::incWeak(const void*) {
    mWeak.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::weakref_type::decWeak(const void*) {
    if (mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

bool RefBase::weakref_type::attemptIncStrong(const void*) {
    int32_t strong = mStrong.load(std::memory_order_relaxed);
    while (strong > 0) {
        if (mStrong.compare_exchange_weak(strong, strong + 1, std::memory_order_acq_rel, std::memory_order_relaxed))
            return true;
    }
    return false;
}

}  // namespace android
