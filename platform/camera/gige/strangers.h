// The datagrams that others than the camera send to a stream's port. They have a socket of their own, so that they take
// no room from the camera's, however many they are, and are only counted.
//
// One thread at a time.
#pragma once

#include "streamstatistics.h"

#include <cstdint>

class Strangers
{
public:
    Strangers() = default;
    ~Strangers();
    Strangers(Strangers const &) = delete;
    Strangers &operator=(Strangers const &) = delete;

    // Beside a socket that is bound to a port, and hears the camera alone from then on. Where the system cannot part
    // them, that socket goes on hearing everybody.
    void Open(int socket, std::uint32_t camera);
    void Close();
    // To wait for; -1 where there is nothing to wait for.
    int GetSocket() const
    {
        return m_socket;
    }
    // What came so far is not counted.
    void Forget();
    // Reads a limited number. Whether there was one.
    bool Count(StreamStatistics &statistics);

private:
    std::uint32_t Read();

    int m_socket = -1;
    std::uint32_t m_drops = 0; // as last told
};

// Datagrams that the system has not put into this socket's queue, those that its filter refused among them. Counted up
// to the limit of 32 bits, from where it begins anew.
std::uint32_t GetSocketDrops(int socket);
