// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace nimbra::cli {

/// Width of the terminal behind a file descriptor in characters; 80 where there is none.
int terminalColumns(int descriptor);

}  // namespace nimbra::cli
