// The parameters of one storage, by key and in order of registration.
#pragma once

#include "tovmisc.h"

#include <atomic>
#include <string_view>
#include <unordered_map>
#include <vector>

struct ParamEntry
{
    _TovStParam record;
    std::atomic<bool> hasListeners{false};     // spares the setters a lock
    std::vector<TovParamListener *> listeners; // the storage's lock
};

// It never changes: a registration makes another one, so readers take no lock. Any thread.
class ParamIndex
{
public:
    ParamIndex() = default;
    // The entry is not in the earlier one, and outlives both.
    ParamIndex(ParamIndex const &earlier, ParamEntry *entry) : m_byKey(earlier.m_byKey), m_inOrder(earlier.m_inOrder)
    {
        m_byKey.emplace(entry->record.name, entry);
        m_inOrder.push_back(entry);
    }

    // Null for an unknown key.
    ParamEntry *Find(char const *key) const
    {
        auto const found = m_byKey.find(key);
        return found != m_byKey.end() ? found->second : nullptr;
    }
    unsigned int Count() const
    {
        return static_cast<unsigned int>(m_inOrder.size());
    }
    // Null beyond the last.
    ParamEntry *At(unsigned int index) const
    {
        return index < m_inOrder.size() ? m_inOrder[index] : nullptr;
    }

private:
    std::unordered_map<std::string_view, ParamEntry *> m_byKey; // the keys are the entries'
    std::vector<ParamEntry *> m_inOrder;
};
