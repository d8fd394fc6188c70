// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Smoothing of the channels that a holder's settings name.
#pragma once

#include "tessra/progress.h"

namespace nimbra {

class NimbraFrame;

/// Smooths the channels of `data` whose bits are set in the holder's mask, ids 0 to 22; the frame
/// must not be shared. Once after a fresh load, and once on the result of a blend. `stop` may be
/// null: asked for an abort; what is smoothed then stays, the rest stays as it was loaded.
void smoothFrame(NimbraFrame& holder, TessUtils::ProgressCallback* stop = nullptr);

}  // namespace nimbra
