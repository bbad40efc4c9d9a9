// What the program and its helper tovscope-capture say to each other: one request, one answer, over a pair of Unix
// sockets that keep message boundaries. Both ends run on one computer and are installed together, so numbers are in its
// byte order and every other version is refused.
#pragma once

#include <cstdint>

constexpr std::uint32_t CaptureVersion = 1;
constexpr int CaptureSocketFd = 3; // where the helper finds its end

enum CaptureKind : std::uint32_t {
    CaptureTraffic = 1, // UDP between camera and host, both ways; stream packets are cut behind what the log shows
    CaptureStream = 2,  // UDP from the camera to one port of the host, whole
};

struct CaptureRequest
{
    std::uint32_t version = CaptureVersion;
    std::uint32_t kind = 0;
    std::uint32_t adapter = 0; // its index
    std::uint32_t camera = 0;  // IPv4, as a number
    std::uint32_t host = 0;    // this computer's address on the way to the camera
    std::uint32_t port = 0;    // of the host, for CaptureStream; otherwise 0
};
static_assert(sizeof(CaptureRequest) == 24);

enum class CaptureStatus : std::uint32_t {
    Done, // and the socket comes along
    BadRequest,
    NoAdapter,
    AdapterDown,
    NotUnicast, // the camera's address
    NotThisHost,
    NoRight,
    SystemError,
};

struct CaptureAnswer
{
    std::uint32_t version = CaptureVersion;
    CaptureStatus status = CaptureStatus::BadRequest;
    std::int32_t error = 0; // an errno that says the same, 0 for Done
};
static_assert(sizeof(CaptureAnswer) == 12);

// The helper's exit codes.
enum CaptureExit {
    CaptureServed = 0,
    CaptureNotStartedByUs = 2, // nobody is at the other end of the socket, or there is no socket
    CaptureNoRequest = 3,      // within the time, or not one message of the right size
    CaptureRefused = 4,
    CaptureNobodyListens = 5, // to the answer
    CaptureUsage = 64,
};
