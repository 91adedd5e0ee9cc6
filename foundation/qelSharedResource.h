// Counted handles for objects with several owners. A storage policy says what a handle
// holds and how the last owner releases it; the lock argument says whether the count is
// changed under a mutex (1) or plainly (0).
#pragma once

#include <atomic>
#include <mutex>
#include <type_traits>
#include <utility>

namespace qel {

// Release kinds of PointerStorage<T, A, R>: 3 destroys the object, 2 forgets it.
enum : int { RELEASE_FORGET = 2, RELEASE_DELETE = 3 };

template <class T, int Alloc, int Release> struct PointerStorage {
    typedef T* value_type;
    static value_type empty() { return nullptr; }
    static void release(value_type value) {
        if constexpr (Release != RELEASE_FORGET) {
            delete value;
        }
    }
};

class SharedResourceManagerCommonBase {
public:
    virtual ~SharedResourceManagerCommonBase() = default;
};

// No mutex, but an atomic count: a device copied out of a sound card's list on one thread
// shares its volume controller's count with the list entry the notification thread
// releases.
class SharedResourceManagerUnlockedBase : public SharedResourceManagerCommonBase {
public:
    void addRef() { m_count.fetch_add(1, std::memory_order_relaxed); }
    long releaseRef() { return m_count.fetch_sub(1, std::memory_order_acq_rel) - 1; }

private:
    std::atomic<long> m_count{1};
};

class SharedResourceManagerLockedBase : public SharedResourceManagerCommonBase {
public:
    void addRef() {
        std::lock_guard lock(m_mutex);
        ++m_count;
    }
    long releaseRef() {
        std::lock_guard lock(m_mutex);
        return --m_count;
    }

private:
    std::mutex m_mutex;
    long m_count = 1;
};

template <class Storage, int L>
class SharedResourceManager : public std::conditional_t<L == 1, SharedResourceManagerLockedBase,
                                                        SharedResourceManagerUnlockedBase> {
public:
    explicit SharedResourceManager(typename Storage::value_type value) : m_value(value) {}
    ~SharedResourceManager() override { Storage::release(m_value); }

private:
    typename Storage::value_type m_value;
};

template <class Storage, int L> class SharedResource {
public:
    typedef typename Storage::value_type value_type;

    SharedResource() = default;
    // Takes the value over; an empty value makes an empty handle.
    explicit SharedResource(value_type value) : m_value(value) {
        if (value != Storage::empty()) {
            m_manager = new SharedResourceManager<Storage, L>(value);
        }
    }
    SharedResource(const SharedResource& other)
        : m_value(other.m_value), m_manager(other.m_manager) {
        if (m_manager) {
            m_manager->addRef();
        }
    }
    SharedResource(SharedResource&& other) noexcept
        : m_value(std::exchange(other.m_value, Storage::empty())),
          m_manager(std::exchange(other.m_manager, nullptr)) {}
    ~SharedResource() { reset(); }

    SharedResource& operator=(const SharedResource& other) {
        if (m_manager != other.m_manager || m_value != other.m_value) {
            SharedResource copy(other);
            swap(copy);
        }
        return *this;
    }
    SharedResource& operator=(SharedResource&& other) noexcept {
        if (this != &other) {
            reset();
            swap(other);
        }
        return *this;
    }

    void reset() {
        if (m_manager && m_manager->releaseRef() == 0) {
            delete m_manager;
        }
        m_manager = nullptr;
        m_value = Storage::empty();
    }
    void swap(SharedResource& other) noexcept {
        std::swap(m_value, other.m_value);
        std::swap(m_manager, other.m_manager);
    }

    value_type get() const { return m_value; }
    value_type operator->() const { return m_value; }
    auto& operator*() const { return *m_value; }
    bool isEmpty() const { return m_value == Storage::empty(); }
    explicit operator bool() const { return !isEmpty(); }

private:
    value_type m_value = Storage::empty();
    SharedResourceManager<Storage, L>* m_manager = nullptr;
};

// Holds one storage value and copies it without counting.
template <class Storage> class CopiedResource {
public:
    typedef typename Storage::value_type value_type;
    CopiedResource() = default;
    explicit CopiedResource(value_type value) : m_value(value) {}
    value_type get() const { return m_value; }
    value_type operator->() const { return m_value; }
    bool isEmpty() const { return m_value == Storage::empty(); }
    bool operator==(const CopiedResource& other) const { return m_value == other.m_value; }

private:
    value_type m_value = Storage::empty();
};

} // namespace qel
