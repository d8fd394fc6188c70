// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// JSON for files that people compare line by line: members stand one on a line, lists of plain
// values in one line, numbers as short as they can be read back.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace nimbra::cli {

/// The text, without a line end behind it. Letters outside ASCII are escaped; what isn't UTF-8 is
/// replaced.
std::string jsonText(const nlohmann::ordered_json& value);

/// A float with 9 digits, from which it can be read back exactly; "nan", "inf" and "-inf" as texts.
nlohmann::ordered_json floatJson(float value);
nlohmann::ordered_json doubleJson(double value);

}  // namespace nimbra::cli
