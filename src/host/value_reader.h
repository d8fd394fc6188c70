// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Turns a node of a scene file into a parameter's value, by the type of its row.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/plugin_registry.h"
#include "host/row_hints.h"
#include "host/scene_file.h"
#include "tessra/parameter_values.h"

namespace nimbra::host {

/// One row of one plug-in, as the reader needs it.
struct RowContext {
    std::string subject;  // "plug-in.parameter" for messages
    const TessUtils::ParameterDef* def = nullptr;
    bool limitsHold = false;  // values outside of the row's limits are faults
    std::string fileFolder;   // what relative file names are made absolute with; "" leaves them
    RowHints hints;
};

/// Finds what "@name" or "@name.output" in `node` stands for, or makes what stands for a constant
/// in a texture slot. Null after a fault, which it has reported.
using ObjectResolver = std::function<PluginBase*(const SceneNode& node, const RowContext& row)>;

class ValueReader {
public:
    ValueReader(SceneDiagnostics& diagnostics, ObjectResolver resolve)
        : diagnostics_(diagnostics), resolve_(std::move(resolve)) {}

    /// The value as a parameter named like the row; null after a fault, or where `node` is null and
    /// the row takes plug-ins.
    std::unique_ptr<TessUtils::DefParam> read(const SceneNode& node, const RowContext& row);

private:
    std::unique_ptr<TessUtils::DefParam> readAnimated(const SceneNode& keys, const RowContext& row);
    bool readKeyTime(const SceneNode& key, const RowContext& row, double& time);
    bool readList(const SceneNode& node, const RowContext& row, TessUtils::ParamList& list);
    bool readScalar(const SceneNode& node, const RowContext& row, TessUtils::ParamScalar& value);
    bool readMixed(const SceneNode& node, const RowContext& row, TessUtils::ParamScalar& value);
    bool readInt(const SceneNode& node, const RowContext& row, TessUtils::ParamScalar& value);
    bool readFloat(const SceneNode& node, const RowContext& row, TessUtils::ParamScalar& value);
    bool readText(const SceneNode& node, const RowContext& row, TessUtils::ParamScalar& value);
    bool readObject(const SceneNode& node, const RowContext& row, TessUtils::ParamScalar& value);
    /// Between `least` and `most` numbers of single precision.
    bool readNumbers(const SceneNode& node, const RowContext& row, std::size_t least,
                     std::size_t most, const std::string& allowed, float* numbers);
    bool readTransform(const SceneNode& node, const RowContext& row, TessUtils::ParamScalar& value);
    bool readPlacement(const SceneNode& node, const RowContext& row, TessUtils::Transform& result);
    bool checkLimits(const SceneNode& node, const RowContext& row, double number);
    bool fail(const SceneNode& node, const RowContext& row, const std::string& allowed);

    SceneDiagnostics& diagnostics_;
    ObjectResolver resolve_;
};

}  // namespace nimbra::host
