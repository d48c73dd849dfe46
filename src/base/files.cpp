#include "files.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo {

namespace fs = std::filesystem;

namespace {

std::function<void(const fs::path&)> g_beforeRename;

// Closes the descriptor on every path out of writeFileAtomically.
struct FdGuard {
    int fd;
    ~FdGuard() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

// Returns 0, or the errno of the failed write.
int writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return 0;
}

}  // namespace

void setBeforeRenameHookForTesting(std::function<void(const fs::path&)> hook) {
    g_beforeRename = std::move(hook);
}

Result<void> writeFileAtomically(const fs::path& path, std::string_view bytes, unsigned mode) {
    fs::path folder = path.parent_path();
    if (folder.empty()) {
        folder = ".";
    }
    // Hidden, unique, in the same folder so the rename stays on one file system.
    std::string pattern = (folder / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
    int fd = ::mkstemp(pattern.data());
    if (fd < 0) {
        return AppError::fromErrno(errno, "Could not write “" + path.filename().string() + "”");
    }
    FdGuard guard{fd};
    fs::path temporary = pattern;
    auto fail = [&](int code) {
        ::unlink(temporary.c_str());
        return AppError::fromErrno(code, "Could not write “" + path.filename().string() + "”");
    };
    if (::fchmod(fd, mode) != 0) {
        return fail(errno);
    }
    if (int code = writeAll(fd, bytes); code != 0) {
        return fail(code);
    }
    if (::fsync(fd) != 0) {
        return fail(errno);
    }
    if (::close(fd) != 0) {
        guard.fd = -1;
        return fail(errno);
    }
    guard.fd = -1;
    if (g_beforeRename) {
        g_beforeRename(temporary);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        return fail(errno);
    }
    // The rename itself is durable only once the folder's entry is on disk.
    int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return {};
}

Result<std::string> readFile(const fs::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return AppError::fromErrno(errno, "Could not read “" + path.filename().string() + "”");
    }
    FdGuard guard{fd};
    std::string data;
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return AppError::fromErrno(errno, "Could not read “" + path.filename().string() + "”");
        }
        if (n == 0) {
            return data;
        }
        data.append(buffer, static_cast<size_t>(n));
    }
}

}  // namespace quillo
