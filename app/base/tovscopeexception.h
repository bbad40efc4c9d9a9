// Thrown while a session is being built.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

class TovScopeException : public std::runtime_error
{
public:
    TovScopeException(std::string const &what, std::uint32_t code) : std::runtime_error(what), m_code(code)
    {
    }
    std::uint32_t GetCode() const
    {
        return m_code;
    }

private:
    std::uint32_t m_code;
};
