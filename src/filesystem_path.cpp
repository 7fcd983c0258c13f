// Joining of platform paths, with std::filesystem's (Boost.Filesystem version 4) rules.
#include "VTLog/VTLog.hpp"

#include <filesystem>

namespace VT::filesystem {

path operator/(path const& directory, std::string const& name)
{
    return path((std::filesystem::path(directory.string()) / name).string());
}

} // namespace VT::filesystem
