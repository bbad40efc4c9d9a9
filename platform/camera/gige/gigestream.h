// The frames of a GigE Vision camera. None yet: every call is refused.
#pragma once

#include "streamcontrol.h"

#include "aravis/reachability.h"
#include "storestatus.h"

#include <arv.h>
#include <mutex>

class GigeStream final : public TovCam::Stream
{
public:
    GigeStream(ArvDevice *, std::recursive_mutex &, StreamControl &, Reachability &)
    {
    }
    std::int32_t QueueBuffer(TovCam::Buffer *) override
    {
        return TOV_CAM_ERR_INVALID_STATE;
    }
    TovCam::Buffer *GetBuffer(std::uint32_t, std::int32_t *error) override
    {
        StoreStatus(error, TOV_CAM_ERR_INVALID_STATE);
        return nullptr;
    }
    void CancelGetBuffer() override
    {
    }
    std::int32_t StartAcquisition(std::int64_t, std::uint32_t) override
    {
        return TOV_CAM_ERR_INVALID_STATE;
    }
    std::int32_t StopAcquisition(std::uint32_t) override
    {
        return TOV_CAM_ERR_OK;
    }
    std::int32_t AllocBufferQueue(void *, std::uint32_t) override
    {
        return TOV_CAM_ERR_INVALID_STATE;
    }
    std::int32_t ReleaseBufferQueue() override
    {
        return TOV_CAM_ERR_OK;
    }
    void Close()
    {
    }
};
