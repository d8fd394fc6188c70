// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/tree_message.h"

#include <cstring>

#include "cache/bounded_reader.h"

namespace nimbra {

namespace {

template <class T>
void put(std::string& out, const T& value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void putText(std::string& out, const std::string& text) {
    put(out, static_cast<std::uint32_t>(text.size()));
    out += text;
}

void putAttribute(std::string& out, const F3dAttribute& a) {
    putText(out, a.name);
    put(out, a.kind);
    if (a.kind == F3dAttribute::Kind::Text) {
        putText(out, a.text);
        return;
    }
    put(out, static_cast<std::uint32_t>(a.numbers.size()));
    for (const double v : a.numbers)
        put(out, v);
}

void putDataset(std::string& out, const F3dDataset& d) {
    putText(out, d.name);
    putText(out, d.problem);
    put(out, d.element);
    put(out, d.rows);
    put(out, d.rowBytes);
    put(out, d.number);
}

void putGroup(std::string& out, const F3dGroup& group) {
    putText(out, group.name);
    put(out, static_cast<std::uint32_t>(group.attributes.size()));
    for (const F3dAttribute& a : group.attributes)
        putAttribute(out, a);
    put(out, static_cast<std::uint32_t>(group.datasets.size()));
    for (const F3dDataset& d : group.datasets)
        putDataset(out, d);
    put(out, static_cast<std::uint32_t>(group.groups.size()));
    for (const F3dGroup& g : group.groups)
        putGroup(out, g);
}

class Unpacker {
public:
    explicit Unpacker(std::span<const std::byte> bytes) : reader_(bytes) {}

    bool group(F3dGroup& out, int depth) {
        if (depth > kDeepestGroup || !text(out.name))
            return false;
        std::uint32_t count = 0;
        if (!things(count))
            return false;
        for (out.attributes.resize(count); F3dAttribute & a : out.attributes)
            if (!attribute(a))
                return false;
        if (!things(count))
            return false;
        for (out.datasets.resize(count); F3dDataset & d : out.datasets)
            if (!dataset(d))
                return false;
        if (!things(count))
            return false;
        for (out.groups.resize(count); F3dGroup & g : out.groups)
            if (!group(g, depth + 1))
                return false;
        return reader_.ok();
    }
    bool atEnd() const { return reader_.remaining() == 0; }

private:
    /// A count of things, each of which takes some bytes of what remains.
    bool things(std::uint32_t& count) {
        constexpr std::uint64_t kLeastBytes = 9;
        count = reader_.get<std::uint32_t>();
        things_ += count;
        return things_ <= kMostThings && reader_.require(count, kLeastBytes);
    }
    bool text(std::string& out) {
        const auto length = reader_.get<std::uint32_t>();
        if (length > kLongestName)
            return false;
        out = reader_.text(length);
        return reader_.ok();
    }
    bool attribute(F3dAttribute& a) {
        if (!text(a.name))
            return false;
        a.kind = static_cast<F3dAttribute::Kind>(reader_.get<std::uint8_t>());
        if (a.kind == F3dAttribute::Kind::Text)
            return text(a.text);
        const auto count = reader_.get<std::uint32_t>();
        if ((a.kind != F3dAttribute::Kind::Integers && a.kind != F3dAttribute::Kind::Reals) ||
            count > kMostNumbers || !reader_.require(count, sizeof(double)))
            return false;
        for (a.numbers.resize(count); double& v : a.numbers)
            v = reader_.get<double>();
        return true;
    }
    bool dataset(F3dDataset& d) {
        if (!text(d.name) || !text(d.problem))
            return false;
        d.element = static_cast<F3dElement>(reader_.get<std::int32_t>());
        d.rows = reader_.get<std::uint64_t>();
        d.rowBytes = reader_.get<std::uint64_t>();
        d.number = reader_.get<std::uint32_t>();
        return reader_.ok();
    }

    BoundedReader reader_;
    std::uint64_t things_ = 0;
};

}  // namespace

std::string packTree(const F3dGroup& root) {
    std::string out;
    putGroup(out, root);
    return out;
}

bool unpackTree(std::span<const std::byte> bytes, F3dGroup& root) {
    Unpacker unpacker(bytes);
    root = {};
    return unpacker.group(root, 0) && unpacker.atEnd();
}

}  // namespace nimbra
