#include "output/file_use.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <tuple>

#include "failure.h"

namespace vrc
{
namespace
{

// Which file a path leads to: an inode, or a name in a directory where nothing is yet.
struct file_identity {
    dev_t device = 0;
    ino_t inode = 0;  // of the directory when there is a name
    std::string name; // empty: the file is there
    bool is_device = false;
};

std::optional<file_identity> identity_of(int result, const struct stat &status)
{
    if (result != 0) {
        return std::nullopt;
    }
    return file_identity{status.st_dev, status.st_ino, "", S_ISCHR(status.st_mode)};
}

// Where a file would be created: symbolic links that lead to nothing are followed.
std::filesystem::path created_path(std::filesystem::path path)
{
    constexpr int links_max = 40; // as Linux follows
    std::error_code error;
    for (int i = 0; i < links_max && std::filesystem::is_symlink(path, error); ++i) {
        path = path.parent_path() / std::filesystem::read_symlink(path, error);
    }
    return path;
}

// None when the file is not there and cannot be created.
std::optional<file_identity> identity_find(const file_use &use)
{
    struct stat status {
    };
    if (use.path == "-") {
        return identity_of(fstat(use.is_written ? STDOUT_FILENO : STDIN_FILENO, &status), status);
    }
    if (std::optional<file_identity> found = identity_of(stat(use.path.c_str(), &status), status)) {
        return found;
    }
    const std::filesystem::path path = created_path(use.path);
    const std::string directory = path.has_parent_path() ? path.parent_path().string() : ".";
    std::optional<file_identity> found = identity_of(stat(directory.c_str(), &status), status);
    if (found) {
        found->name = path.filename().string();
    }
    return found;
}

// Whether two names that only differ in case, of files that are not there yet, would be one file. Only the file system
// knows, so one of them is there for a moment.
bool is_case_ignored(const std::string &one, const std::string &other)
{
    const int descriptor = open(one.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
        return false;
    }
    struct stat created {
    };
    struct stat found {
    };
    const bool is_same = fstat(descriptor, &created) == 0 && stat(other.c_str(), &found) == 0 &&
                         created.st_dev == found.st_dev && created.st_ino == found.st_ino;
    close(descriptor);
    unlink(one.c_str());
    return is_same;
}

bool is_same_file(const file_use &one, const file_use &other)
{
    if (one.path == "-" && other.path == "-" && one.is_written == other.is_written) {
        return true;
    }
    const std::optional<file_identity> first = identity_find(one);
    const std::optional<file_identity> second = identity_find(other);
    if (!first || !second || first->is_device ||
        std::tie(first->device, first->inode) != std::tie(second->device, second->inode)) {
        return false;
    }
    if (first->name == second->name) {
        return true;
    }
    return !first->name.empty() && !second->name.empty() &&
           strcasecmp(first->name.c_str(), second->name.c_str()) == 0 && is_case_ignored(one.path, other.path);
}

std::string name_of(const file_use &use)
{
    const std::string path = use.path != "-"  ? fmt::format("'{}'", use.path)
                             : use.is_written ? "standard output"
                                              : "standard input";
    return fmt::format("{} ({})", path, use.what);
}

} // namespace

void file_uses_check(const std::vector<file_use> &uses)
{
    for (size_t i = 0; i < uses.size(); ++i) {
        for (size_t k = 0; k < i; ++k) {
            const file_use &one = uses[k];
            const file_use &other = uses[i];
            if ((one.is_written || other.is_written) && !one.path.empty() && !other.path.empty() &&
                is_same_file(one, other)) {
                throw failure(exit_code::wrong_usage,
                              fmt::format("{} and {} are the same file, which would be overwritten: name another one",
                                          name_of(one), name_of(other)));
            }
        }
    }
}

} // namespace vrc
