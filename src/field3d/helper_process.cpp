// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/helper_process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "field3d/tree_message.h"

namespace nimbra {

namespace {

constexpr const char* kHelperName = "field3dio_hdf5";
// Without a byte for so long the helper counts as lost. Its own limit of processor time ends it
// before, unless the machine is overloaded or the disk hangs.
constexpr int kSilenceMilliseconds = 30000;

/// A copy of a descriptor above those that the child's places take.
int highCopy(int descriptor) {
    constexpr int kFirst = 10;
    return fcntl(descriptor, F_DUPFD_CLOEXEC, kFirst);
}

void closeIfOpen(int& descriptor) {
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

/// What the child starts with: the socket as 0, nothing as 1 and 2, the file as 3, no signal
/// blocked or ignored.
class SpawnPlan {
public:
    SpawnPlan() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
    }
    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    bool describe(int socket, int file) {
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        return posix_spawn_file_actions_adddup2(&actions_, socket, 0) == 0 &&
               posix_spawn_file_actions_addopen(&actions_, 1, "/dev/null", O_WRONLY, 0) == 0 &&
               posix_spawn_file_actions_addopen(&actions_, 2, "/dev/null", O_WRONLY, 0) == 0 &&
               posix_spawn_file_actions_adddup2(&actions_, file, kHelperFile) == 0 &&
               posix_spawn_file_actions_addclosefrom_np(&actions_, kHelperFile + 1) == 0 &&
               posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
               posix_spawnattr_setsigdefault(&attributes_, &all) == 0 &&
               posix_spawnattr_setflags(&attributes_,
                                        POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
    }
    int spawn(pid_t& process, const std::string& program, std::uint64_t fileBytes) {
        std::string name = program, size = std::to_string(fileBytes);
        char* const arguments[] = {name.data(), size.data(), nullptr};
        // Of the environment only what the loader needs to find the same libraries.
        std::string libraries = "LD_LIBRARY_PATH=";
        std::string locale = "LC_ALL=C", locking = "HDF5_USE_FILE_LOCKING=FALSE";
        const char* const path = std::getenv("LD_LIBRARY_PATH");
        libraries += path ? path : "";
        char* const environment[] = {locale.data(), locking.data(),
                                     path ? libraries.data() : nullptr, nullptr};
        return posix_spawn(&process, program.c_str(), &actions_, &attributes_, arguments,
                           environment);
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

}  // namespace

std::string helperPath() {
    Dl_info self = {};
    std::string path;
    if (dladdr(reinterpret_cast<const void*>(&helperPath), &self) && self.dli_fname)
        path = self.dli_fname;
    // A program's name may be that of its call, without a folder.
    if (path.find('/') == std::string::npos) {
        char program[PATH_MAX];
        const ssize_t length = readlink("/proc/self/exe", program, sizeof program);
        path.assign(program, length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    return path.substr(0, path.rfind('/') + 1) + kHelperName;
}

HelperProcess::~HelperProcess() {
    stop();
}

void HelperProcess::stop() {
    closeIfOpen(socket_);
    const pid_t process = std::exchange(process_, -1);
    if (process <= 0)
        return;
    kill(process, SIGKILL);
    // Where the program ignores its children's ends there is nothing to wait for.
    while (waitpid(process, &status_, 0) < 0 && errno == EINTR) {
    }
}

bool HelperProcess::start(int fileDescriptor, std::uint64_t fileBytes, std::string& problem) {
    stop();
    int ends[2] = {-1, -1};
    const std::string program = helperPath();
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        problem = std::strerror(errno);
        return false;
    }
    socket_ = ends[0];
    int socket = highCopy(ends[1]), file = highCopy(fileDescriptor);
    closeIfOpen(ends[1]);
    SpawnPlan plan;
    const bool ready = socket >= 0 && file >= 0 && plan.describe(socket, file);
    const int error = ready ? plan.spawn(process_, program, fileBytes) : EMFILE;
    closeIfOpen(socket);
    closeIfOpen(file);
    if (error == 0)
        return true;
    process_ = -1;
    problem = fmt::format("'{}' can't be started: {}", program, std::strerror(error));
    return false;
}

bool HelperProcess::waitFor(short events) {
    pollfd wait = {socket_, events, 0};
    for (;;) {
        const int n = poll(&wait, 1, kSilenceMilliseconds);
        if (n > 0)
            return true;
        if (n < 0 && errno == EINTR)
            continue;
        silent_ = n == 0;
        return false;
    }
}

bool HelperProcess::receive(std::span<std::byte> out) {
    while (!out.empty()) {
        if (socket_ < 0 || !waitFor(POLLIN))
            return false;
        const ssize_t n = recv(socket_, out.data(), out.size(), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        out = out.subspan(static_cast<std::size_t>(n));
    }
    return true;
}

bool HelperProcess::send(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        if (socket_ < 0 || !waitFor(POLLOUT))
            return false;
        const ssize_t n = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(n));
    }
    return true;
}

std::string HelperProcess::failure() {
    closeIfOpen(socket_);
    if (silent_) {
        stop();
        return "does not answer";
    }
    // It has closed its end, so it is ending by itself, and how is worth telling.
    constexpr int kPatience = 1000;
    for (int i = 0; process_ > 0 && i < kPatience; ++i) {
        if (waitpid(process_, &status_, WNOHANG) != 0)
            process_ = -1;
        else
            usleep(1000);
    }
    stop();
    if (WIFSIGNALED(status_))
        return fmt::format("was stopped by signal {}", WTERMSIG(status_));
    return fmt::format("ended with code {}", WEXITSTATUS(status_));
}

}  // namespace nimbra
