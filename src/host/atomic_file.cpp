// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/atomic_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <utility>

namespace nimbra::host {

namespace fs = std::filesystem;

namespace {

std::string folderOf(const std::string& path) {
    const std::string parent = fs::path(path).parent_path().string();
    return parent.empty() ? "." : parent;
}

std::string temporaryName(const std::string& path) {
    const std::string name = fs::path(path).filename().string();
    return folderOf(path) + "/." + name + "." + std::to_string(::getpid()) + ".tmp";
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

/// The rename itself has to reach the disk too; file systems that can't do this don't matter.
void syncFolder(const std::string& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace

/// A file on its way to its place, locked until the end against those who sweep.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string name) : name_(std::move(name)) {}
    ~TemporaryFile() {
        if (made_)
            ::unlink(name_.c_str());
        for (const int fd : {fd_, lock_})
            if (fd >= 0)
                ::close(fd);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // Each answers zero or the error number.
    int create() {
        ::unlink(name_.c_str());
        fd_ = ::open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (fd_ < 0)
            return errno;
        made_ = true;
        ::flock(fd_, LOCK_EX | LOCK_NB);
        // The lock outlives the closing, which may be what tells of a full disk.
        lock_ = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
        return 0;
    }
    int append(std::string_view bytes) { return writeAll(fd_, bytes) ? 0 : errno; }
    int seek(std::uint64_t place) {
        return ::lseek(fd_, static_cast<off_t>(place), SEEK_SET) >= 0 ? 0 : errno;
    }
    int close() {
        const int fault = ::fsync(fd_) == 0 ? 0 : errno;
        const int closed = ::close(std::exchange(fd_, -1)) == 0 ? 0 : errno;
        return fault != 0 ? fault : closed;
    }
    int renameTo(const std::string& path) {
        if (::rename(name_.c_str(), path.c_str()) != 0)
            return errno;
        made_ = false;
        return 0;
    }

private:
    std::string name_;
    bool made_ = false;
    int fd_ = -1, lock_ = -1;
};

namespace {

/// Whether there is no fault; else `error` tells it.
bool told(const std::string& path, int fault, std::string& error) {
    if (fault != 0)
        error = path + ": " + std::strerror(fault);
    return fault == 0;
}

bool isLocked(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return false;
    const bool locked = ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return locked;
}

/// The process number in ".NAME.<pid>.tmp", NAME being of a kind that is written here; 0 for other
/// names.
pid_t ownerOf(std::string_view name) {
    constexpr std::string_view kEnd = ".tmp";
    if (!name.starts_with('.') || !name.ends_with(kEnd))
        return 0;
    name.remove_suffix(kEnd.size());
    const std::size_t dot = name.rfind('.');
    const std::string_view number = name.substr(dot + 1), file = name.substr(0, dot);
    const auto endsFile = [&](std::string_view extension) { return file.ends_with(extension); };
    constexpr std::string_view kOurs[] = {".exr", ".png", ".kol", ".vdb", ".npy", ".ply", ".json"};
    if (std::none_of(std::begin(kOurs), std::end(kOurs), endsFile))
        return 0;
    pid_t pid = 0;
    const auto [end, status] = std::from_chars(number.data(), number.data() + number.size(), pid);
    return status == std::errc() && end == number.data() + number.size() && pid > 0 ? pid : 0;
}

}  // namespace

bool canBeWritten(const std::string& path, std::string& error) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode))
        return true;
    error = path + ": not a regular file";
    return false;
}

AtomicFile::AtomicFile(const std::string& path)
    : path_(path), file_(std::make_unique<TemporaryFile>(temporaryName(path))) {}

AtomicFile::~AtomicFile() = default;

bool AtomicFile::open(std::string& error) {
    return canBeWritten(path_, error) && told(path_, file_->create(), error);
}

bool AtomicFile::write(std::string_view bytes, std::string& error) {
    return told(path_, file_->append(bytes), error);
}

bool AtomicFile::seek(std::uint64_t place, std::string& error) {
    return told(path_, file_->seek(place), error);
}

bool AtomicFile::commit(std::string& error) {
    int fault = file_->close();
    if (fault == 0)
        fault = file_->renameTo(path_);
    if (fault == 0)
        syncFolder(folderOf(path_));
    return told(path_, fault, error);
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, std::string& error) {
    AtomicFile file(path);
    return file.open(error) && file.write(bytes, error) && file.commit(error);
}

bool prepareOutputFolder(const std::string& path, std::string& error) {
    const std::string folder = folderOf(path);
    std::error_code status;
    fs::create_directories(folder, status);
    if (!status && !fs::is_directory(folder, status) && !status)
        status = std::make_error_code(std::errc::not_a_directory);
    if (status) {
        error = folder + ": the folder can't be made: " + status.message();
        return false;
    }
    sweepTemporaryFiles(folder);
    return told(folder + ": no file can be made there", TemporaryFile(temporaryName(path)).create(),
                error);
}

int sweepTemporaryFiles(const std::string& folder) {
    int removed = 0;
    std::error_code status;
    fs::directory_iterator entries(folder, status);
    for (; !status && entries != fs::directory_iterator(); entries.increment(status)) {
        const pid_t owner = ownerOf(entries->path().filename().string());
        std::error_code ignored;
        if (owner > 0 && ::kill(owner, 0) != 0 && errno == ESRCH &&
            entries->is_regular_file(ignored) && !isLocked(entries->path().string()) &&
            fs::remove(entries->path(), ignored))
            ++removed;
    }
    return removed;
}

}  // namespace nimbra::host
