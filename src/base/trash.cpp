#include "trash.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files.h"
#include "paths.h"

namespace quillo {

namespace fs = std::filesystem;

namespace {

// Percent-encodes a path for the "Path=" key, keeping the characters URIs allow unescaped.
std::string encodePath(const std::string& path) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
        if (keep) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

std::string localDeletionDate() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return text;
}

dev_t deviceOf(const fs::path& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 ? info.st_dev : static_cast<dev_t>(-1);
}

// The top folder of the mount that holds `path`: the highest ancestor on the same device.
fs::path mountTop(const fs::path& path) {
    dev_t device = deviceOf(path);
    fs::path top = path;
    for (fs::path parent = path.parent_path(); !parent.empty() && parent != top;
         parent = parent.parent_path()) {
        if (deviceOf(parent) != device) {
            break;
        }
        top = parent;
    }
    return top;
}

struct TrashPlace {
    fs::path folder;    // holds files/ and info/
    fs::path pathBase;  // Path= is relative to this folder, or absolute when empty
};

Result<TrashPlace> trashFor(const fs::path& item) {
    fs::path home = dataHome() / "Trash";
    std::error_code ec;
    fs::create_directories(dataHome(), ec);
    if (deviceOf(item.parent_path()) == deviceOf(dataHome())) {
        return TrashPlace{home, {}};
    }
    fs::path top = mountTop(item.parent_path());
    std::string uid = std::to_string(::getuid());
    // An administrator-made $top/.Trash must be a real folder with the sticky bit.
    struct stat info {};
    fs::path shared = top / ".Trash";
    if (::lstat(shared.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX)) {
        fs::path mine = shared / uid;
        if (::mkdir(mine.c_str(), 0700) == 0 || errno == EEXIST) {
            if (::lstat(mine.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
                return TrashPlace{mine, top};
            }
        }
    }
    fs::path own = top / (".Trash-" + uid);
    if (::mkdir(own.c_str(), 0700) != 0 && errno != EEXIST) {
        return AppError::fromErrno(
            errno, "Could not move “" + item.filename().string() + "” to the Trash");
    }
    return TrashPlace{own, top};
}

}  // namespace

Result<fs::path> moveToTrash(const fs::path& given) {
    std::error_code ec;
    fs::path item = fs::absolute(given, ec).lexically_normal();
    if (!item.has_filename()) {
        item = item.parent_path();
    }
    const std::string failure = "Could not move “" + item.filename().string() + "” to the Trash";
    struct stat info {};
    if (::lstat(item.c_str(), &info) != 0) {
        return AppError::fromErrno(errno, failure);
    }
    auto place = trashFor(item);
    if (!place) {
        return place.error();
    }
    fs::path files = place->folder / "files";
    fs::path infos = place->folder / "info";
    fs::create_directories(files, ec);
    fs::create_directories(infos, ec);
    if (ec) {
        return AppError::fromErrno(ec.value(), failure);
    }
    std::string original =
        place->pathBase.empty() ? item.string() : item.lexically_relative(place->pathBase).string();
    std::string contents = "[Trash Info]\nPath=" + encodePath(original) +
                           "\nDeletionDate=" + localDeletionDate() + "\n";

    // The info file is created with O_EXCL first: that reserves the name against other programs
    // trashing an item of the same name at the same moment.
    const std::string base = item.filename().string();
    for (int n = 1; n < 10000; ++n) {
        std::string name = n == 1 ? base : base + "." + std::to_string(n);
        fs::path infoPath = infos / (name + ".trashinfo");
        int fd = ::open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) {
                continue;
            }
            return AppError::fromErrno(errno, failure);
        }
        fs::path target = files / name;
        bool written =
            ::write(fd, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size());
        bool synced = ::fsync(fd) == 0;
        ::close(fd);
        if (!written || !synced) {
            ::unlink(infoPath.c_str());
            return AppError(failure + ".");
        }
        if (::lstat(target.c_str(), &info) == 0) {
            ::unlink(infoPath.c_str());  // a stray item without a record; pick the next name
            continue;
        }
        if (::rename(item.c_str(), target.c_str()) != 0) {
            int code = errno;
            ::unlink(infoPath.c_str());
            return AppError::fromErrno(code, failure);
        }
        return target;
    }
    return AppError(failure + ": the Trash holds too many items of that name.");
}

}  // namespace quillo
