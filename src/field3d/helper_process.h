// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A child process that works on one open file and talks over a socket. It is started with nothing
// but the file and the socket, limits itself, and is ended with the object. Safe in programs with
// threads: nothing runs between fork and exec. One thread uses the object at a time.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace nimbra {

/// The helper's file, which stands in the folder of the library or program that this code is in.
std::string helperPath();

class HelperProcess {
public:
    HelperProcess() = default;
    ~HelperProcess();
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    /// False (and `problem`) when there is no helper or no process for it.
    bool start(int fileDescriptor, std::uint64_t fileBytes, std::string& problem);
    /// Fills the span; false when the helper has ended or stays silent for too long.
    bool receive(std::span<std::byte> out);
    bool send(std::span<const std::byte> bytes);
    /// Ends the process and says how it came to an end: "ended with code 3".
    std::string failure();

private:
    void stop();
    bool waitFor(short events);

    pid_t process_ = -1;
    int socket_ = -1;
    bool silent_ = false;
    int status_ = -1;
};

}  // namespace nimbra
