// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Puts finished frames into picture files, with their metadata.
#pragma once

#include <functional>
#include <string>

#include "host/picture.h"
#include "host/session.h"

namespace nimbra::host {

struct PictureOutputOptions {
    /// The files of a frame: .exr or .png by their ends.
    std::function<std::vector<std::string>(FrameNumber frame)> paths;
    std::string version;         // of the program
    bool deterministic = false;  // leaves out what differs between two runs
    bool filmic = false;         // PNG: PngOptions::filmic
    float exposure = 0;          // PNG, in stops
};

class PictureOutput final : public FrameOutput {
public:
    explicit PictureOutput(PictureOutputOptions options) : options_(std::move(options)) {}

    /// Finds out whether the files of all frames can be written; call before the first frame.
    bool prepare(const std::vector<FrameNumber>& frames, std::string& error) const;
    PictureNeeds needs(FrameNumber frame) const override;
    bool write(const FinishedFrame& frame, std::string& error) override;

private:
    PictureMetadata metadata(const FinishedFrame& frame) const;

    PictureOutputOptions options_;
};

/// True if the scene shows something behind everything: pictures to look at are opaque then.
bool hasBackground(const FinishedFrame& frame);

}  // namespace nimbra::host
