#pragma once

#include <fstream>
#include <sstream>
#include <string>

/// The bytes of a file; none when it cannot be read.
inline std::string contents(const std::string& path)
{
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}
