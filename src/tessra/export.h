// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Marks what the shared library `tessra` offers to the host and to its plug-ins.
#define TESSRA_API __attribute__((visibility("default")))
