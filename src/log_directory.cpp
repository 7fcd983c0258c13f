// Retention in a directory given over to logs: one budget for every file in it.
#include "log_directory.hpp"

#include "process_lifetime.hpp"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <map>
#include <tuple>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VT::Logging::v2::impl {
namespace {

namespace fs = boost::filesystem;

// The directories of the process's sinks by real path. Never destroyed: a sink may be made or
// dropped while the process exits.
struct directory_registry {
    std::mutex mutex;
    std::map<std::string, std::weak_ptr<log_directory>> directories;
};

directory_registry& directories()
{
    static process_lifetime<directory_registry> registry;
    return *registry;
}

} // namespace

log_directory::log_directory(fs::path path, std::uintmax_t budget)
    : path_(std::move(path))
    , budget_(budget)
{
}

std::shared_ptr<log_directory> log_directory::get(fs::path const& directory,
                                                  std::uintmax_t max_total_size)
{
    fs::create_directories(directory);
    auto const real = fs::canonical(directory);
    auto& registry = directories();
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto& entry = registry.directories[real.string()];
    auto shared = entry.lock();
    if (!shared) {
        shared = std::make_shared<log_directory>(real, max_total_size);
        entry = shared;
    }
    std::lock_guard<std::mutex> budget_lock(shared->mutex_);
    shared->budget_ = std::min(shared->budget_, max_total_size);
    return shared;
}

void log_directory::begin_file(std::string const& name)
{
    std::lock_guard<std::mutex> lock(mutex_);
    open_files_.insert(name);
}

void log_directory::end_file(std::string const& name, bool retain)
{
    std::lock_guard<std::mutex> lock(mutex_);
    open_files_.erase(name);
    if (retain) {
        retain_locked();
    }
}

void log_directory::store_file(fs::path const& file)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (fs::canonical(fs::absolute(file).parent_path()) != path_) {
        auto const target = path_ / file.filename();
        boost::system::error_code error;
        fs::rename(file, target, error);
        if (error) { // another file system, say: copied, then removed
            fs::copy_file(file, target);
            fs::remove(file);
        }
    }
    retain_locked();
}

void log_directory::retain_locked()
{
    struct stored_file {
        std::tuple<std::time_t, long, std::string> age; // modified at (s, ns), then by name
        std::uintmax_t size;
    };
    std::vector<stored_file> stored;
    std::uintmax_t total = 0;
    // Read with the directory's descriptor: no path is built for the files that stay.
    std::unique_ptr<DIR, int (*)(DIR*)> const listing(::opendir(path_.c_str()), &::closedir);
    if (!listing) {
        return; // removed meanwhile: nothing left to delete
    }
    int const directory = ::dirfd(listing.get());
    while (dirent const* entry = ::readdir(listing.get())) {
        struct stat status;
        if (::fstatat(directory, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
            S_ISDIR(status.st_mode) || open_files_.count(entry->d_name)) {
            continue;
        }
#if defined(__APPLE__)
        auto const modified = status.st_mtimespec;
#else
        auto const modified = status.st_mtim;
#endif
        auto const size = static_cast<std::uintmax_t>(status.st_size);
        stored.push_back({{modified.tv_sec, modified.tv_nsec, entry->d_name}, size});
        total += size;
    }
    std::sort(stored.begin(), stored.end(),
              [](stored_file const& a, stored_file const& b) { return a.age < b.age; });
    for (auto const& file : stored) {
        if (total <= budget_) {
            break;
        }
        // Another process may have deleted it first: it is gone either way.
        ::unlinkat(directory, std::get<2>(file.age).c_str(), 0);
        total -= file.size;
    }
}

} // namespace VT::Logging::v2::impl
