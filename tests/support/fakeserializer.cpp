#include "fakeserializer.h"

#include "tovcomponentimp.h"

#include <cstdio>
#include <utility>

namespace {

class Parameters final : public TovComponentImp
{
public:
    Parameters() : TovComponentImp(1)
    {
        AddIntParam("jpeg.quality", &m_quality, m_quality, 1, 100);
    }
    std::int64_t m_quality = 50;
};

} // namespace

class FakeSerializer final : public TovImageSerializer
{
public:
    TovComponent *GetComponent() override
    {
        return &m_parameters;
    }
    std::int32_t StartImageSeries(_TovImage const *image, char const *extension) override
    {
        char text[64];
        std::snprintf(text, sizeof text, "Series %s %X q%d", extension, image->pixelType,
                      static_cast<int>(TovLoadBound(m_parameters.m_quality)));
        return Begin(text);
    }
    std::int32_t StartMovie(_TovImage const *image, char const *fileName, double fps) override
    {
        char text[512];
        std::snprintf(text, sizeof text, "Movie %s %X %g", fileName, image->pixelType, fps);
        return Begin(text);
    }
    std::int32_t Stop() override
    {
        auto const action = Log("Stop", m_script.m_state.onStop);
        m_started = false;
        return action ? action() : 0;
    }
    std::int32_t WriteFrame(_TovImage const *image, char const *fileName) override
    {
        std::unique_lock lock(m_script.m_mutex);
        auto const action = m_script.m_state.onWrite;
        std::size_t const number = m_script.m_state.calls++;
        lock.unlock();
        std::int32_t const status = !m_started ? TOV_SERIALIZER_ERR_STATE : action ? action(number) : 0;
        lock.lock();
        if (status == 0)
            m_script.m_state.writes.push_back(
                {fileName ? fileName : "", image->frameID, image->pixelType, *image->imageData});
        return status;
    }
    char const *GetLastFailure() const override
    {
        std::lock_guard const lock(m_script.m_mutex);
        m_words = m_script.m_state.failure;
        return m_words.c_str();
    }
    std::int64_t GetReadableFrames() const override
    {
        std::lock_guard const lock(m_script.m_mutex);
        auto const &readable = m_script.m_state.readable;
        return readable ? readable(m_script.m_state.writes.size(), !m_started) : -1;
    }
    bool HoldsConfiguration() const override
    {
        std::lock_guard const lock(m_script.m_mutex);
        return m_script.m_state.holdsConfiguration;
    }
    void SetConfiguration(char const *text) override
    {
        Log(text, {});
    }
    void SetCompanionHome(char const *folder) override
    {
        std::lock_guard const lock(m_script.m_mutex);
        m_script.m_state.home = folder;
    }

private:
    std::int32_t Begin(std::string const &entry)
    {
        auto const action = Log(entry, m_script.m_state.onStart);
        std::int32_t const status = action ? action() : 0;
        m_started = status == 0;
        return status;
    }
    std::function<std::int32_t()> Log(std::string const &entry, std::function<std::int32_t()> const &action)
    {
        std::lock_guard const lock(m_script.m_mutex);
        m_script.m_state.log += (m_script.m_state.log.empty() ? "" : "; ") + entry;
        return action;
    }

    FakeSerializerScript &m_script = FakeSerializerScript::Get();
    Parameters m_parameters;
    bool m_started = false;
    mutable std::string m_words;
};

TovImageSerializer *TovImageSerializer::CreateComponent(bool)
{
    return new FakeSerializer;
}

void TovImageSerializer::DeleteComponent(TovImageSerializer *serializer)
{
    delete static_cast<FakeSerializer *>(serializer);
}

FakeSerializerScript &FakeSerializerScript::Get()
{
    static FakeSerializerScript script;
    return script;
}

void FakeSerializerScript::Reset()
{
    std::lock_guard const lock(m_mutex);
    m_state = {};
}

std::string FakeSerializerScript::TakeLog()
{
    std::lock_guard const lock(m_mutex);
    return std::exchange(m_state.log, {});
}

std::string FakeSerializerScript::Home() const
{
    std::lock_guard const lock(m_mutex);
    return m_state.home;
}

std::vector<FakeWrite> FakeSerializerScript::Writes() const
{
    std::lock_guard const lock(m_mutex);
    return m_state.writes;
}
