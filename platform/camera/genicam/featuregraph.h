// What is reached from a camera's root category: the features, and the nodes that they are made of.
#pragma once

#include "tovcamera.h"

#include <arv.h>

#include <vector>

struct FeatureGraph
{
    struct Node
    {
        std::vector<std::uint32_t> dependents; // nodes that refer to this one, in whatever way
        std::vector<std::uint32_t> written;    // nodes that a write of this one goes on to
        std::vector<std::uint32_t> locks;      // nodes that lock this one
        std::uint32_t pollingTime = 0;         // in milliseconds, 0 for none
    };
    struct Feature
    {
        TovCam::FeatureInfo info; // but for the dependents
        ArvGcFeatureNode *node = nullptr;
        std::vector<ArvGcFeatureNode *> entries; // of an enumeration, in the order of FeatureInfo::entries
        bool lockedWithTransport = false;        // "TLParamsLocked" can lock it
    };

    std::vector<Node> nodes;       // the features first, in their order
    std::vector<Feature> features; // the root first
};
