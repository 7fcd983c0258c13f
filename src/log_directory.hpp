// A directory given over to logs, whose total size every sink and process writing there keeps
// within one budget.
#pragma once

#include <boost/filesystem/path.hpp>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>

namespace VT::Logging::v2::impl {

// One directory given over to logs. Retention keeps the total size of the files in it, whatever
// their names and whichever process wrote them, within the budget, deleting the oldest first;
// the files this process is writing are never deleted by it. Symbolic links are deleted as
// entries, never followed, and subdirectories are left alone.
class log_directory {
public:
    // The object of `directory` (made if missing; an unusable one throws a Boost.Filesystem
    // error naming it) shared by the process's sinks there; the budget is the smallest asked
    // for while it lives.
    static std::shared_ptr<log_directory> get(boost::filesystem::path const& directory,
                                              std::uintmax_t max_total_size);

    boost::filesystem::path const& path() const { return path_; }

    void begin_file(std::string const& name);
    // The file `name` is finished: it counts toward the budget from now on. With `retain`, the
    // directory is then brought within its budget.
    void end_file(std::string const& name, bool retain);
    // Moves `file` into the directory when it is elsewhere (copies it, then removes it, across
    // file systems), then brings the directory within its budget. Errors of the move propagate
    // as Boost.Filesystem errors.
    void store_file(boost::filesystem::path const& file);

    log_directory(boost::filesystem::path path, std::uintmax_t budget);

private:
    // Takes stock of the directory afresh, so that every process's files count. Needs `mutex_`.
    void retain_locked();

    std::mutex mutex_;
    boost::filesystem::path const path_;
    std::uintmax_t budget_;
    std::unordered_set<std::string> open_files_;
};

} // namespace VT::Logging::v2::impl
