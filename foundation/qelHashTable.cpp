#include "foundation/qelHashTable.h"

namespace qel {

_BucketBase::~_BucketBase() = default;

_HashTableRep::_HashTableRep(Uint32 bucketCount)
    : m_initialChains(bucketCount ? bucketCount : 1), m_chains(m_initialChains, nullptr) {}

_HashTableRep::~_HashTableRep() {
    clear();
}

void _HashTableRep::clear() {
    for (_BucketBase* b = m_first; b;) {
        _BucketBase* next = b->m_orderNext;
        delete b;
        b = next;
    }
    m_first = m_last = nullptr;
    m_count = 0;
    m_chains.assign(m_initialChains, nullptr);
}

void _HashTableRep::link(_BucketBase* bucket, Uint32 hash) {
    if (m_count >= 2 * m_chains.size()) {
        rehash(Uint32(m_chains.size() * 2 + 1));
    }
    bucket->m_hash = hash;
    _BucketBase*& chain = m_chains[hash % m_chains.size()];
    bucket->m_chainNext = chain;
    chain = bucket;
    bucket->m_orderPrev = m_last;
    bucket->m_orderNext = nullptr;
    (m_last ? m_last->m_orderNext : m_first) = bucket;
    m_last = bucket;
    ++m_count;
}

void _HashTableRep::erase(_BucketBase* bucket) {
    for (_BucketBase** link = &m_chains[bucket->m_hash % m_chains.size()]; *link;
         link = &(*link)->m_chainNext) {
        if (*link == bucket) {
            *link = bucket->m_chainNext;
            break;
        }
    }
    (bucket->m_orderPrev ? bucket->m_orderPrev->m_orderNext : m_first) = bucket->m_orderNext;
    (bucket->m_orderNext ? bucket->m_orderNext->m_orderPrev : m_last) = bucket->m_orderPrev;
    --m_count;
    delete bucket;
}

_BucketBase* _HashTableRep::chainHead(Uint32 hash) const {
    return m_chains[hash % m_chains.size()];
}

void _HashTableRep::rehash(Uint32 chainCount) {
    m_chains.assign(chainCount, nullptr);
    for (_BucketBase* b = m_first; b; b = b->m_orderNext) {
        _BucketBase*& chain = m_chains[b->m_hash % chainCount];
        b->m_chainNext = chain;
        chain = b;
    }
}

Uint32 HashFunc<String>::hash(const String& key) {
    Uint32 h = 2166136261u; // FNV-1a over the code units
    for (Uint32 i = 0; i < key.length(); ++i) {
        h = (h ^ key[i]) * 16777619u;
    }
    return h;
}

} // namespace qel
