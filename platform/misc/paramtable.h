// The parameters of one storage, by key and in order of registration.
#pragma once

#include "tovmisc.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

struct ParamEntry
{
    _TovStParam record;
    std::size_t hash = 0;
    std::atomic<bool> hasListeners{false};     // spares the setters a lock
    std::vector<TovParamListener *> listeners; // the storage's lock
};

// Keys by hash, and entries in order of registration. Readers take no lock: an entry is published by one store into its
// slot, and a table that has become too small is replaced and kept until the storage dies.
class ParamTable
{
public:
    static std::size_t HashOf(char const *key)
    {
        std::size_t hash = 14695981039346656037u;
        for (; *key; ++key)
            hash = (hash ^ static_cast<unsigned char>(*key)) * 1099511628211u;
        return hash;
    }

    explicit ParamTable(std::size_t capacity)
        : m_capacity(capacity),
          m_slots(new std::atomic<ParamEntry *>[capacity * 2] {}),
          m_order(new std::atomic<ParamEntry *>[capacity] {})
    {
    }

    // Null for an unknown key.
    ParamEntry *Find(char const *key) const
    {
        std::size_t const mask = m_capacity * 2 - 1;
        std::size_t const hash = HashOf(key);
        for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
            ParamEntry *const entry = m_slots[i].load(std::memory_order_acquire);
            if (!entry)
                return nullptr;
            if (entry->hash == hash && std::strcmp(entry->record.name, key) == 0)
                return entry;
        }
    }
    // One thread at a time; not when full.
    void Add(ParamEntry *entry)
    {
        std::size_t const mask = m_capacity * 2 - 1;
        std::size_t i = entry->hash & mask;
        while (m_slots[i].load(std::memory_order_relaxed))
            i = (i + 1) & mask;
        m_slots[i].store(entry, std::memory_order_release);
        unsigned int const count = m_count.load(std::memory_order_relaxed);
        m_order[count].store(entry, std::memory_order_relaxed);
        m_count.store(count + 1, std::memory_order_release);
    }
    unsigned int Count() const
    {
        return m_count.load(std::memory_order_acquire);
    }
    ParamEntry *At(unsigned int index) const
    {
        return index < Count() ? m_order[index].load(std::memory_order_relaxed) : nullptr;
    }
    std::size_t Capacity() const
    {
        return m_capacity;
    }

private:
    std::size_t const m_capacity; // a power of two
    std::unique_ptr<std::atomic<ParamEntry *>[]> m_slots;
    std::unique_ptr<std::atomic<ParamEntry *>[]> m_order;
    std::atomic<unsigned int> m_count{0};
};
