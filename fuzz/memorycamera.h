// A camera that is a description and some memory.
#pragma once

#include "genicam/nodemap.h"

#include <string>
#include <vector>

class MemoryCamera
{
public:
    // The registers hold a pattern.
    explicit MemoryCamera(std::string description);
    ~MemoryCamera();
    MemoryCamera(MemoryCamera const &) = delete;
    MemoryCamera &operator=(MemoryCamera const &) = delete;

    NodeMap &GetNodes();
    ArvDevice *GetDevice();
    std::vector<std::uint8_t> memory;
    bool isUnsteady = false;    // registers change each time that they are read
    std::uint64_t accesses = 0; // so far

private:
    std::string const m_description;
    std::recursive_mutex m_mutex;
    ArvDevice *m_device;
    std::unique_ptr<NodeMap> m_nodes;
};
