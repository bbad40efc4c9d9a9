// Accesses for which nobody is to wait long: those that stop a camera.
#pragma once

// A camera, or the way to one, whose accesses may take long.
class Hurried
{
public:
    // Somebody is in a hurry from now on, or no longer; in pairs. Any thread, and without a wait.
    virtual void Hurry(bool)
    {
    }

protected:
    ~Hurried() = default;
};

// While an object lives, its thread is in a hurry: what it asks a camera that does not answer fails in under a second,
// and what others ask that camera gives way. Any thread.
class Haste
{
public:
    // `camera` is null where its accesses never wait.
    explicit Haste(Hurried *camera) : m_camera(camera)
    {
        ++s_depth;
        if (m_camera)
            m_camera->Hurry(true);
    }
    ~Haste()
    {
        if (m_camera)
            m_camera->Hurry(false);
        --s_depth;
    }
    Haste(Haste const &) = delete;
    Haste &operator=(Haste const &) = delete;

    // Whether this thread is in a hurry.
    static bool IsMine()
    {
        return s_depth > 0;
    }

private:
    Hurried *const m_camera;
    static inline thread_local int s_depth = 0;
};
