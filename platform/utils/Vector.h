// The platform's array of values.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace android {

template <typename T>
class Vector {
public:
    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.empty(); }
    void clear() { mItems.clear(); }
    void push(T item) { mItems.push_back(std::move(item)); }
    void add(T item) { push(std::move(item)); }
    const T& operator[](size_t index) const { return mItems[index]; }

private:
    std::vector<T> mItems;
};

}  // namespace android
