// qel::Array: a growable array with value semantics and 32-bit sizes.
#pragma once

#include "foundation/qelAssert.h"
#include "foundation/qelTypes.h"

#include <algorithm>
#include <vector>

namespace qel {

// The header that precedes the elements of an array's representation.
template <class T> struct ArrayRep { Uint32 count; };

template <class T> class Array {
public:
    Array() = default;
    explicit Array(Uint32 initialCapacity) {
        const bool fits =
            initialCapacity <= (Uint32(0xffffffffU) - sizeof(ArrayRep<T>)) / sizeof(T);
        // Log readers match this exact text, without the blanks the formatter puts in.
        QEL_ASSERT_TEXT(fits,
                        "initialCapacity <= (Uint32(0xffffffffU)-sizeof(ArrayRep<T>))/sizeof(T)");
        if (fits) { // the capacity is only a hint: a continued failure starts empty
            m_items.reserve(initialCapacity);
        }
    }

    Uint32 size() const { return Uint32(m_items.size()); }
    bool empty() const { return m_items.empty(); }

    T& operator[](Uint32 index) {
        QEL_ASSERT(index < size());
        return index < size() ? m_items[index] : outOfRange();
    }
    const T& operator[](Uint32 index) const {
        QEL_ASSERT(index < size());
        return index < size() ? m_items[index] : outOfRange();
    }

    void append(const T& item) { m_items.push_back(item); }
    void append(T& item) { m_items.push_back(item); }
    void append(T&& item) { m_items.push_back(std::move(item)); }

    bool contains(const T& item) const {
        return std::find(m_items.begin(), m_items.end(), item) != m_items.end();
    }
    void clear() { m_items.clear(); }

    // Appends copies of fill until the array holds n elements.
    void grow(Uint32 n, const T& fill) {
        if (n > size()) {
            m_items.resize(n, fill);
        }
    }

    // Removes the elements [first, lastRemovedIndex).
    void remove(Uint32 first, Uint32 lastRemovedIndex) {
        Uint32 sz = size();
        QEL_ASSERT(lastRemovedIndex <= sz + 1);
        lastRemovedIndex = std::min(lastRemovedIndex, sz);
        if (first < lastRemovedIndex) {
            m_items.erase(m_items.begin() + first, m_items.begin() + lastRemovedIndex);
        }
    }
    void removeAt(Uint32 index) { remove(index, index + 1); }

    typename std::vector<T>::iterator begin() { return m_items.begin(); }
    typename std::vector<T>::iterator end() { return m_items.end(); }
    typename std::vector<T>::const_iterator begin() const { return m_items.begin(); }
    typename std::vector<T>::const_iterator end() const { return m_items.end(); }

    bool operator==(const Array& other) const { return m_items == other.m_items; }
    bool operator!=(const Array& other) const { return m_items != other.m_items; }

private:
    // What an access out of range gets when a handler let its failed check continue: a
    // fresh default element of this thread, never memory beyond the array.
    static T& outOfRange() {
        static thread_local T item;
        item = T();
        return item;
    }

    std::vector<T> m_items;
};

} // namespace qel
