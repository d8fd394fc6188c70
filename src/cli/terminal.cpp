// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal.h"

#include <sys/ioctl.h>

namespace nimbra::cli {

int terminalColumns(int descriptor) {
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace nimbra::cli
