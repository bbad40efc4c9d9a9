// A camera's ArvGc, and the way to its nodes: under the device's lock, and only while the camera may be asked.
#pragma once

#include "accessgate.h"
#include "featuretree.h"
#include "nodeaccess.h"

#include <atomic>
#include <memory>
#include <mutex>

// Any thread.
class GenicamNodes
{
public:
    // The device's lock for the time of one call, and whether the camera may be asked at all: nothing of the
    // description is touched where `status` is not 0. Calls within a call share the gate's answer.
    class Call
    {
    public:
        explicit Call(GenicamNodes &nodes);
        ~Call();
        Call(Call const &) = delete;
        Call &operator=(Call const &) = delete;

    private:
        GenicamNodes &m_nodes;
        std::unique_lock<std::recursive_mutex> m_lock;

    public:
        bool entered = false; // the lock is held; a map that refuses everything does not wait for it
        std::int32_t status = TOV_CAM_ERR_NO_DEVICE;
    };

    // The device is not referenced. Without a usable description GetStatus says why, and no node is found.
    GenicamNodes(ArvDevice *device, std::recursive_mutex &access);
    ~GenicamNodes();
    GenicamNodes(GenicamNodes const &) = delete;
    GenicamNodes &operator=(GenicamNodes const &) = delete;

    std::int32_t GetStatus() const;
    void SetGate(AccessGate *gate);
    // From now on every call fails at once, even while another one is slow.
    void Refuse();
    // After Refuse: lets go of the description. With the device's lock held.
    void Drop();

    // A node of that name and kind; null, and the reason in `status`, where there is none. A node that the camera
    // declares as not implemented counts as absent.
    ArvGcFeatureNode *Find(Call const &call, char const *name, TovCam::FeatureKind kind, std::int32_t &status);
    // A node of the tree. GetTree gives one whenever this does.
    ArvGcFeatureNode *Find(Call const &call, std::uint32_t index, std::int32_t &status);
    // Null where there is none and none can be made any more. Takes no lock once it is made.
    FeatureTree *GetTree();

private:
    std::atomic<bool> m_refused{false};
    std::atomic<FeatureTree *> m_publishedTree{nullptr}; // `m_tree`, once it is made
    std::int32_t m_status = TOV_CAM_ERR_OK;              // set by the constructor
    std::recursive_mutex &m_access;                      // guards everything below
    AccessGate *m_gate = nullptr;
    int m_depth = 0;                         // of calls that hold the lock
    std::int32_t m_refusal = TOV_CAM_ERR_OK; // what the gate said to the outermost call
    ArvGc *m_genicam = nullptr;
    std::unique_ptr<FeatureTree> m_tree;
};
