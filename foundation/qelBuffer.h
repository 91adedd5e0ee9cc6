// qel::Buffer: a byte buffer of data pointer, size and capacity. It owns its storage when
// the capacity is non-zero; new storage is zero-filled beyond the bytes copied into it.
#pragma once

#include "foundation/qelTypes.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace qel {

template <class T> class Buffer {
public:
    Buffer() = default;
    Buffer(const Buffer& other) { assign(other.m_data, other.m_size); }
    Buffer(Buffer&& other) noexcept
        : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0)),
          m_capacity(std::exchange(other.m_capacity, 0)) {}
    ~Buffer() { release(); }

    Buffer& operator=(const Buffer& other) {
        if (this != &other) {
            assign(other.m_data, other.m_size);
        }
        return *this;
    }
    Buffer& operator=(Buffer&& other) noexcept {
        if (this != &other) {
            release();
            m_data = std::exchange(other.m_data, nullptr);
            m_size = std::exchange(other.m_size, 0);
            m_capacity = std::exchange(other.m_capacity, 0);
        }
        return *this;
    }

    // Copies count elements from source; nothing changes when source is this storage.
    void assign(const T* source, Uint64 count) {
        if (source != nullptr && source == m_data) {
            return;
        }
        T* fresh = allocate(count);
        if (count > 0 && source) {
            std::memcpy(fresh, source, count * sizeof(T));
        }
        replace(fresh, count);
    }

    // Keeps the storage when shrinking to more than half the capacity; otherwise moves the
    // first min(size, n) elements into new zero-filled storage of exactly n.
    void resize(Uint64 n) {
        if (n == m_size) {
            return;
        }
        if (n == 0) {
            release();
            return;
        }
        if (m_data && n < m_capacity && n > m_capacity / 2) {
            m_size = n;
            return;
        }
        T* fresh = allocate(n);
        if (m_data) {
            std::memcpy(fresh, m_data, (n < m_size ? n : m_size) * sizeof(T));
        }
        replace(fresh, n);
    }

    // Describes count elements owned elsewhere: the capacity stays 0, so this buffer never
    // frees them. A copy of such a buffer owns a copy of the elements.
    void refer(T* source, Uint64 count) {
        release();
        m_data = source;
        m_size = source ? count : 0;
    }

    void release() {
        if (m_capacity != 0) {
            std::free(m_data);
        }
        m_data = nullptr;
        m_size = 0;
        m_capacity = 0;
    }

    T* data() { return m_data; }
    const T* data() const { return m_data; }
    Uint64 size() const { return m_size; }
    Uint64 capacity() const { return m_capacity; }
    bool empty() const { return m_size == 0; }

private:
    static T* allocate(Uint64 count) {
        if (count == 0) {
            return nullptr;
        }
        if (count > ~Uint64(0) / sizeof(T)) {
            throw std::bad_alloc();
        }
        void* storage = std::calloc(std::size_t(count), sizeof(T));
        if (!storage) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(storage);
    }
    void replace(T* fresh, Uint64 count) {
        release();
        m_data = fresh;
        m_size = count;
        m_capacity = count;
    }

    T* m_data = nullptr;
    Uint64 m_size = 0;
    Uint64 m_capacity = 0;
};

} // namespace qel
