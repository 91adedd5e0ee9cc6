// qel::OrderedHashTable: a chained hash table that iterates in insertion order. The
// caller supplies the hash with the key (HashFunc<K> gives the usual one). Inserting a
// key that is present replaces its value and reports false.
#pragma once

#include "foundation/export.h"
#include "foundation/qelException.h"
#include "foundation/qelString.h"
#include "foundation/qelTypes.h"

#include <string>
#include <vector>

namespace qel {

class LIBAUDIO_API _BucketBase {
public:
    virtual ~_BucketBase();

private:
    friend class _HashTableRep;
    friend class _HashTableIteratorBase;
    Uint32 m_hash = 0;
    _BucketBase* m_chainNext = nullptr;
    _BucketBase* m_orderPrev = nullptr;
    _BucketBase* m_orderNext = nullptr;
};

class LIBAUDIO_API _HashTableRep {
public:
    explicit _HashTableRep(Uint32 bucketCount);
    ~_HashTableRep();
    _HashTableRep(const _HashTableRep&) = delete;
    _HashTableRep& operator=(const _HashTableRep&) = delete;

    void clear();
    // Takes ownership of bucket and links it last in insertion order.
    void link(_BucketBase* bucket, Uint32 hash);
    // Unlinks and deletes bucket.
    void erase(_BucketBase* bucket);
    // The first bucket of the chain for hash, then nextInChain() until null.
    _BucketBase* chainHead(Uint32 hash) const;
    static _BucketBase* nextInChain(const _BucketBase* bucket) { return bucket->m_chainNext; }
    static Uint32 hashOf(const _BucketBase* bucket) { return bucket->m_hash; }
    static _BucketBase* nextInOrder(const _BucketBase* bucket) { return bucket->m_orderNext; }
    Uint32 initialChains() const { return m_initialChains; }
    _BucketBase* first() const { return m_first; }
    Uint32 count() const { return m_count; }

private:
    void rehash(Uint32 chainCount);

    Uint32 m_initialChains;
    std::vector<_BucketBase*> m_chains;
    _BucketBase* m_first = nullptr;
    _BucketBase* m_last = nullptr;
    Uint32 m_count = 0;
};

class LIBAUDIO_API _HashTableIteratorBase {
public:
    explicit _HashTableIteratorBase(_BucketBase* bucket) : m_bucket(bucket) {}
    void advance() { m_bucket = m_bucket ? m_bucket->m_orderNext : nullptr; }
    bool operator==(const _HashTableIteratorBase& other) const {
        return m_bucket == other.m_bucket;
    }

protected:
    _BucketBase* m_bucket;
};

template <class K> struct HashFunc;

template <> struct LIBAUDIO_API HashFunc<String> { static Uint32 hash(const String& key); };

template <> struct HashFunc<unsigned int> {
    static Uint32 hash(unsigned int key) { return key; }
};

inline String keyText(const String& key) {
    return key;
}
inline String keyText(unsigned int key) {
    return String(std::to_string(key).c_str());
}

template <class K, class V> class OrderedHashTable {
    struct Bucket : _BucketBase {
        Bucket(const K& k, const V& v) : key(k), value(v) {}
        K key;
        V value;
    };

public:
    template <bool Const> class Iterator : public _HashTableIteratorBase {
    public:
        using _HashTableIteratorBase::_HashTableIteratorBase;
        const K& key() const { return bucket()->key; }
        std::conditional_t<Const, const V&, V&> value() const { return bucket()->value; }
        Iterator& operator++() {
            advance();
            return *this;
        }
        bool operator!=(const Iterator& other) const { return !(*this == other); }
        const Iterator& operator*() const { return *this; }

    private:
        Bucket* bucket() const { return static_cast<Bucket*>(m_bucket); }
    };
    typedef Iterator<false> iterator;
    typedef Iterator<true> const_iterator;

    explicit OrderedHashTable(Uint32 bucketCount = 31) : m_rep(bucketCount) {}
    OrderedHashTable(const OrderedHashTable& other) : m_rep(other.m_rep.initialChains()) {
        copyFrom(other);
    }
    OrderedHashTable& operator=(const OrderedHashTable& other) {
        if (this != &other) {
            m_rep.clear();
            copyFrom(other);
        }
        return *this;
    }

    void clear() { m_rep.clear(); }
    Uint32 size() const { return m_rep.count(); }

    bool insert(Uint32 hash, const K& key, const V& value) {
        if (V* existing = lookup(hash, key)) {
            *existing = value;
            return false;
        }
        m_rep.link(new Bucket(key, value), hash);
        return true;
    }
    bool insert(const K& key, const V& value) { return insert(HashFunc<K>::hash(key), key, value); }

    V* lookup(Uint32 hash, const K& key) {
        Bucket* bucket = find(hash, key);
        return bucket ? &bucket->value : nullptr;
    }
    const V* lookup(Uint32 hash, const K& key) const {
        Bucket* bucket = find(hash, key);
        return bucket ? &bucket->value : nullptr;
    }
    V* lookup(const K& key) { return lookup(HashFunc<K>::hash(key), key); }
    const V* lookup(const K& key) const { return lookup(HashFunc<K>::hash(key), key); }

    // Throws HashKeyMissing when the key is absent.
    V& get(const K& key) {
        if (V* value = lookup(key)) {
            return *value;
        }
        throw HashKeyMissing(keyText(key));
    }
    const V& get(const K& key) const { return const_cast<OrderedHashTable*>(this)->get(key); }

    bool remove(Uint32 hash, const K& key) {
        Bucket* bucket = find(hash, key);
        if (bucket) {
            m_rep.erase(bucket);
        }
        return bucket != nullptr;
    }
    bool remove(const K& key) { return remove(HashFunc<K>::hash(key), key); }

    iterator begin() { return iterator(m_rep.first()); }
    iterator end() { return iterator(nullptr); }
    const_iterator begin() const { return const_iterator(m_rep.first()); }
    const_iterator end() const { return const_iterator(nullptr); }

private:
    Bucket* find(Uint32 hash, const K& key) const {
        for (_BucketBase* b = m_rep.chainHead(hash); b; b = _HashTableRep::nextInChain(b)) {
            if (_HashTableRep::hashOf(b) == hash && static_cast<Bucket*>(b)->key == key) {
                return static_cast<Bucket*>(b);
            }
        }
        return nullptr;
    }
    void copyFrom(const OrderedHashTable& other) {
        for (_BucketBase* b = other.m_rep.first(); b; b = _HashTableRep::nextInOrder(b)) {
            const Bucket* bucket = static_cast<const Bucket*>(b);
            insert(_HashTableRep::hashOf(b), bucket->key, bucket->value);
        }
    }

    _HashTableRep m_rep;
};

} // namespace qel
