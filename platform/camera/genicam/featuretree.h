// What never changes about the features of a camera's description: the tree, the texts, what depends on what.
#pragma once

#include "featuregraph.h"

#include <mutex>
#include <vector>

class FeatureTree
{
public:
    // Touches no register. With the device's lock held; of the description, only the nodes are used afterwards.
    explicit FeatureTree(ArvGc *genicam);

    // Any thread, without the device's lock.
    std::uint32_t GetCount() const;
    TovCam::FeatureInfo const *GetInfo(std::uint32_t index); // null past the last

    ArvGcFeatureNode *GetNode(std::uint32_t index) const; // null past the last
    // Of an enumeration, in the order of its FeatureInfo::entries.
    std::vector<ArvGcFeatureNode *> const &GetEntryNodes(std::uint32_t index) const;
    // Whether "TLParamsLocked" can lock it.
    bool IsLockedWithTransport(std::uint32_t index) const;

private:
    void FindDependents(std::uint32_t index);

    FeatureGraph m_graph; // set by the constructor; the features get their dependents when they are asked for

    std::mutex m_mutex;                // guards the dependents, and the rest
    std::vector<bool> m_hasDependents; // for those whose dependents have been looked for
    std::vector<std::uint32_t> m_seen; // the last search that visited a node
    std::uint32_t m_search = 0;
    std::uint64_t m_steps = 0; // of all searches
};
