// The features that a camera's description has, as far as they never change: the tree, the texts, who depends on whom.
#pragma once

#include "tovcamera.h"

#include <arv.h>

#include <mutex>
#include <vector>

class FeatureTree
{
public:
    // Touches no register. With the device's lock held; nothing of the description's is used after it but the nodes.
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
    friend class FeatureTreeBuilder;
    // What is reached from the features: they themselves, and the nodes that they are made of.
    struct Node
    {
        std::vector<std::uint32_t> dependents; // nodes that refer to this one, in whatever way
        std::vector<std::uint32_t> written;    // nodes that a write of this one goes on to
        std::vector<std::uint32_t> locks;      // nodes that lock this one
        std::uint32_t pollingTime = 0;
    };
    struct Feature
    {
        TovCam::FeatureInfo info;
        ArvGcFeatureNode *node = nullptr;
        std::vector<ArvGcFeatureNode *> entries;
        bool hasDependents = false; // they have been looked for
        bool lockedWithTransport = false;
    };

    void SpreadPollingTimes();
    void SpreadTransportLock(std::uint32_t id);
    void FindDependents(std::uint32_t index);

    std::vector<Node> m_nodes;       // the features first, in their order
    std::vector<Feature> m_features; // set by the constructor, but for the dependents

    std::mutex m_mutex;                // guards the dependents, and the rest
    std::vector<std::uint32_t> m_seen; // the last search that came by a node
    std::uint32_t m_search = 0;
    std::uint64_t m_steps = 0; // of all searches
};
