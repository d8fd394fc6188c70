// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Wavefront OBJ. One statement a line, '\' at the end of a line joins it with the next:
//   v  x y z [w] [r g b]     position
//   vt u [v [w]]             texture coordinate
//   vn x y z                 normal
//   f  p[/[t][/n]] ...       polygon; indices count from 1, negative ones from the last
#include <charconv>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "host/mesh_file.h"

namespace nimbra::host {

using TessUtils::TriangleMesh;
using TessUtils::Vector;

namespace {

/// Indices of a face's corner, counted from 0; -1: left out.
struct Corner {
    long long position = -1, uvw = -1, normal = -1;
    bool operator==(const Corner&) const = default;
};

struct CornerHash {
    std::size_t operator()(const Corner& c) const {
        std::uint64_t h = static_cast<std::uint64_t>(c.position) * 0x9e3779b97f4a7c15ULL;
        h = (h ^ (h >> 29)) + static_cast<std::uint64_t>(c.uvw) * 0xbf58476d1ce4e5b9ULL;
        h = (h ^ (h >> 32)) + static_cast<std::uint64_t>(c.normal) * 0x94d049bb133111ebULL;
        return static_cast<std::size_t>(h ^ (h >> 31));
    }
};

class ObjReader {
public:
    ObjReader(std::string_view bytes, const std::string& name) : bytes_(bytes), name_(name) {}

    bool read(TriangleMesh& mesh, std::string& error) {
        while (error_.empty() && nextLine())
            statement();
        if (error_.empty() && out_.indices.empty())
            error_ = name_ + ": no faces";
        if (!error_.empty()) {
            error = error_;
            return false;
        }
        if (!allNormals_)
            out_.normals.clear();
        if (!anyUVW_)
            out_.uvw.clear();
        mesh = std::move(out_);
        return true;
    }

private:
    bool nextLine() {
        if (place_ >= bytes_.size())
            return false;
        joined_.clear();
        ++line_;
        for (;;) {
            const std::size_t end = std::min(bytes_.find('\n', place_), bytes_.size());
            std::string_view part = bytes_.substr(place_, end - place_);
            place_ = end + 1;
            if (!part.empty() && part.back() == '\r')
                part.remove_suffix(1);
            const bool goesOn = !part.empty() && part.back() == '\\' && place_ < bytes_.size();
            if (!goesOn && joined_.empty()) {
                rest_ = part;
                return true;
            }
            if (goesOn)
                part.remove_suffix(1);
            joined_.append(part).append(" ");
            rest_ = joined_;
            if (!goesOn)
                return true;
            ++line_;
        }
    }

    std::string_view nextWord() {
        const std::size_t from = std::min(rest_.find_first_not_of(" \t"), rest_.size());
        rest_.remove_prefix(from);
        const std::size_t end = std::min(rest_.find_first_of(" \t"), rest_.size());
        const std::string_view word = rest_.substr(0, end);
        rest_.remove_prefix(end);
        return word;
    }

    void fail(const std::string& what) {
        if (error_.empty())
            error_ = name_ + ":" + std::to_string(line_) + ": " + what;
    }

    /// Between `least` and three numbers.
    Vector numbers(int least) {
        Vector v{0, 0, 0};
        for (int i = 0; i < 3; ++i) {
            std::string_view word = nextWord();
            if (word.empty() && i >= least)
                break;
            if (!word.empty() && word.front() == '+')
                word.remove_prefix(1);
            float value = 0;
            const auto [end, status] =
                std::from_chars(word.data(), word.data() + word.size(), value);
            // An underflow is as good as zero.
            const bool tiny = status == std::errc::result_out_of_range && std::fabs(value) < 1;
            if ((status != std::errc() && !tiny) || end != word.data() + word.size() ||
                !std::isfinite(value)) {
                fail("'" + std::string(word.substr(0, 40)) + "' is not a finite number");
                return v;
            }
            v[i] = value;
        }
        return v;
    }

    void statement() {
        const std::string_view keyword = nextWord();
        if (keyword == "v")
            positions_.push_back(numbers(3));
        else if (keyword == "vt")
            uvws_.push_back(numbers(1));
        else if (keyword == "vn")
            normals_.push_back(numbers(3));
        else if (keyword == "f")
            face();
    }

    /// One index of a corner; `count` elements exist so far.
    bool index(std::string_view text, std::size_t count, const char* kind, long long& out) {
        long long value = 0;
        const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (status != std::errc() || end != text.data() + text.size()) {
            fail("'" + std::string(text.substr(0, 40)) + "' is not an index");
            return false;
        }
        const long long total = static_cast<long long>(count);
        out = value > 0 ? value - 1 : total + value;
        if (value != 0 && out >= 0 && out < total)
            return true;
        fail("the face refers to " + std::string(kind) + " " + std::to_string(value) +
             ", there are " + std::to_string(total) + " so far");
        return false;
    }

    bool corner(std::string_view word, Corner& out) {
        const std::size_t first = std::min(word.find('/'), word.size());
        if (!index(word.substr(0, first), positions_.size(), "position", out.position))
            return false;
        if (first == word.size())
            return true;
        word.remove_prefix(first + 1);
        const std::size_t second = std::min(word.find('/'), word.size());
        const std::string_view uvw = word.substr(0, second);
        if (!uvw.empty() && !index(uvw, uvws_.size(), "texture coordinate", out.uvw))
            return false;
        if (second == word.size())
            return true;
        return index(word.substr(second + 1), normals_.size(), "normal", out.normal);
    }

    std::uint32_t vertex(const Corner& c) {
        const auto number = static_cast<std::uint32_t>(out_.positions.size());
        const auto [entry, isNew] = vertices_.emplace(c, number);
        if (!isNew)
            return entry->second;
        out_.positions.push_back(positions_[static_cast<std::size_t>(c.position)]);
        out_.uvw.push_back(c.uvw < 0 ? Vector{0, 0, 0} : uvws_[static_cast<std::size_t>(c.uvw)]);
        out_.normals.push_back(c.normal < 0 ? Vector{0, 0, 0}
                                            : normals_[static_cast<std::size_t>(c.normal)]);
        anyUVW_ = anyUVW_ || c.uvw >= 0;
        allNormals_ = allNormals_ && c.normal >= 0;
        return number;
    }

    void face() {
        std::uint32_t fan[2] = {0, 0};
        int count = 0;
        for (std::string_view word = nextWord(); !word.empty(); word = nextWord()) {
            Corner c;
            if (!corner(word, c))
                return;
            if (out_.positions.size() >= 0xffffffffU) {
                fail("more vertices than 32-bit indices can count");
                return;
            }
            const std::uint32_t v = vertex(c);
            if (count >= 2)
                out_.indices.insert(out_.indices.end(), {fan[0], fan[1], v});
            fan[count == 0 ? 0 : 1] = v;
            ++count;
        }
        if (count < 3)
            fail("a face needs three corners, it has " + std::to_string(count));
    }

    std::string_view bytes_, rest_;
    const std::string& name_;
    std::string joined_, error_;
    std::size_t place_ = 0;
    int line_ = 0;
    std::vector<Vector> positions_, uvws_, normals_;
    std::unordered_map<Corner, std::uint32_t, CornerHash> vertices_;
    TriangleMesh out_;
    bool anyUVW_ = false, allNormals_ = true;
};

}  // namespace

bool readObj(std::string_view bytes, const std::string& name, TriangleMesh& mesh,
             std::string& error) {
    return ObjReader(bytes, name).read(mesh, error);
}

}  // namespace nimbra::host
