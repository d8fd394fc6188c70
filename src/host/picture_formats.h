// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Readers of single picture formats, behind readPicture.
#pragma once

#include "host/picture.h"

namespace nimbra::host {

bool readExr(const std::string& path, Picture& picture, std::string& error);
bool readPng(const std::string& path, Picture& picture, std::string& error);

}  // namespace nimbra::host
