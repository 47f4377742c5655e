// The objects of the fakes of closed libraries: each handle is checked at every use, and that it is given back.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace kov::test {

struct Known {
    const std::type_info* type;
    std::shared_ptr<void> object;
    bool owed;  // it was given with success, and must be given back
};
inline std::mutex gHandlesLock;
inline std::map<const void*, Known> gHandles;

/// An object that the product may do without: some operations are called with a null handle then, and fail.
struct MayBeMissing {};

/// The object of a handle that the product hands in: it must be one of that class that was given, and not given back.
template <typename Object>
Object* use(const void* handle) {
    if (!handle && std::is_base_of_v<MayBeMissing, Object>)
        return nullptr;
    const std::lock_guard held(gHandlesLock);
    const auto known = gHandles.find(handle);
    if (known == gHandles.end() || *known->second.type != typeid(Object)) {
        std::fprintf(stderr, "a handle that is %s: %s\n", handle ? "not alive" : "null", typeid(Object).name());
        std::abort();
    }
    return static_cast<Object*>(known->second.object.get());
}

template <typename Object>
bool giveBack(const void* handle) {
    if (!use<Object>(handle))
        return false;
    const std::lock_guard held(gHandlesLock);
    return gHandles.erase(handle) == 1;
}

template <typename Object>
Object* keep(std::shared_ptr<Object> object, bool owed = true) {
    const std::lock_guard held(gHandlesLock);
    gHandles[object.get()] = {&typeid(Object), object, owed};
    return object.get();
}

/// Makes an object, or not, and says whether it did, or lies: 1 neither; 2 success without a handle; 3 a handle without
/// success.
template <typename Object, typename Handle>
bool make(uint32_t how, Handle* handle) {
    if (how % 4 == 0 || how % 4 == 3)
        *handle = reinterpret_cast<Handle>(keep(std::make_shared<Object>(), how % 4 == 0));
    return how % 4 == 0 || how % 4 == 2;
}

/// Names the objects that were made with success and not given back. Those that came without success are forgotten:
/// they were the libraries' own concern.
inline std::string handlesOwed() {
    const std::lock_guard held(gHandlesLock);
    std::erase_if(gHandles, [](const auto& entry) { return !entry.second.owed; });
    std::string names;
    for (const auto& [handle, known] : gHandles)
        names += std::string(" ") + known.type->name();
    return names;
}

}  // namespace kov::test
