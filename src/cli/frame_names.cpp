// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/frame_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "cache/file_patterns.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

constexpr int kMaxWidth = 12;

struct Pattern {
    std::size_t begin, end;  // in the text
    int width;
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::size_t nameStart(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? 0 : slash + 1;
}

// Digits from `pos` on as a width, and the place behind them.
int readWidth(const std::string& s, std::size_t& pos) {
    int width = 0;
    for (; pos < s.size() && isDigit(s[pos]); ++pos)
        width = std::min(width * 10 + (s[pos] - '0'), kMaxWidth);
    return width;
}

std::optional<Pattern> runOf(const std::string& s, std::size_t i, char c) {
    std::size_t end = i;
    while (end < s.size() && s[end] == c)
        ++end;
    const auto n = static_cast<int>(end - i);
    return Pattern{i, end, std::min(n == 1 && c == '#' ? 4 : n, kMaxWidth)};
}

std::optional<Pattern> percentForm(const std::string& s, std::size_t i) {
    std::size_t end = i + 1;
    const int width = readWidth(s, end);
    if (end < s.size() && (s[end] == 'd' || s[end] == 'i' || s[end] == 'u'))
        return Pattern{i, end + 1, width};
    return std::nullopt;
}

std::optional<Pattern> dollarForm(const std::string& s, std::size_t i) {
    if (i + 1 >= s.size() || s[i + 1] != 'F')
        return std::nullopt;
    std::size_t end = i + 2;
    const int width = readWidth(s, end);
    return Pattern{i, end, width};
}

std::optional<Pattern> frameForm(const std::string& s, std::size_t i) {
    if (s.compare(i, 6, "<frame") != 0)
        return std::nullopt;
    std::size_t end = i + 6;
    const int width = readWidth(s, end);
    if (end < s.size() && s[end] == '>')
        return Pattern{i, end + 1, width};
    return std::nullopt;
}

std::optional<Pattern> patternAt(const std::string& s, std::size_t i) {
    switch (s[i]) {
        case '#':
            return runOf(s, i, '#');
        case '@':
            return runOf(s, i, '@');
        case '%':
            return percentForm(s, i);
        case '$':
            return dollarForm(s, i);
        case '<':
            return frameForm(s, i);
        default:
            return std::nullopt;
    }
}

std::string replacePatterns(const std::string& path,
                            const std::function<std::string(int width)>& text) {
    std::string out = path.substr(0, nameStart(path));
    for (std::size_t i = out.size(); i < path.size();) {
        if (const auto p = patternAt(path, i)) {
            out += text(p->width);
            i = p->end;
        } else {
            out += path[i++];
        }
    }
    return out;
}

// A file name taken apart at the last run of digits in front of its extension.
struct NumberedName {
    std::string before, after;
    std::int64_t frame;
    int width;
};

std::optional<NumberedName> splitNumber(const std::string& name) {
    const std::size_t dot = name.find_last_of('.');
    if (dot == std::string::npos)
        return std::nullopt;
    std::size_t end = dot;
    while (end > 0 && !isDigit(name[end - 1]))
        --end;
    std::size_t begin = end;
    while (begin > 0 && isDigit(name[begin - 1]))
        --begin;
    if (begin == end || end - begin > kMaxWidth)
        return std::nullopt;
    std::int64_t frame = 0;
    std::from_chars(name.data() + begin, name.data() + end, frame);
    // A "-" is a sign only where it doesn't join two words, as in "smoke-0010".
    if (begin > 0 && name[begin - 1] == '-' && (begin == 1 || !std::isalnum(name[begin - 2]))) {
        frame = -frame;
        return NumberedName{name.substr(0, begin - 1), name.substr(end), frame,
                            static_cast<int>(end - begin)};
    }
    return NumberedName{name.substr(0, begin), name.substr(end), frame,
                        static_cast<int>(end - begin)};
}

std::vector<std::string> regularFiles(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->is_regular_file(error))
            names.push_back(it->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

/// Which frame a file is of, by a pattern that goes to a cache.
class NameOfCache {
public:
    explicit NameOfCache(const std::string& hashes)
        : pattern_(hashes), signInFront_(widened(hashes)) {}

    /// The frame; nothing where the pattern gives no such name. Caches count a minus sign into the
    /// width, while some programs write it in front of it; such a file is told of all the same.
    std::optional<std::int64_t> frameOf(const std::string& name) const {
        const PatternPiece& first = pattern_.pieces().front();
        const std::size_t begin = first.isNumber ? 0 : first.text.size();
        if (!pattern_.matches(name))
            return std::nullopt;
        std::size_t end = begin;
        while (end < name.size() && (isDigit(name[end]) || (end == begin && name[end] == '-')))
            ++end;
        // Digits may follow the number.
        for (; end > begin; --end) {
            std::int64_t frame = 0;
            std::from_chars(name.data() + begin, name.data() + end, frame);
            if (pattern_.fillName(frame) == name ||
                (frame < 0 && signInFront_.fillName(frame) == name))
                return frame;
        }
        return std::nullopt;
    }

private:
    static std::string widened(const std::string& hashes) {
        std::string out;
        for (const char c : hashes)
            out += c == '#' && !out.ends_with('#') ? "##" : std::string(1, c);
        return out;
    }

    FilePattern pattern_, signInFront_;
};

FileSequence sequenceIn(const fs::path& folder, const std::vector<std::string>& names,
                        const std::string& hashes) {
    const NameOfCache pattern(hashes);
    std::map<std::int64_t, std::string> files;
    for (const std::string& name : names)
        if (const auto frame = pattern.frameOf(name))
            files[*frame] = (folder / name).string();
    FileSequence sequence{(folder / hashes).string(), {}, {}};
    for (auto& [frame, file] : files) {
        sequence.frames.push_back(frame);
        sequence.files.push_back(std::move(file));
    }
    return sequence;
}

// The files of a folder that differ from `likeName` in their number only. How wide the number is
// shows at those that fill it up: "10" alone might stand for "#" or for "##".
FileSequence neighbours(const fs::path& folder, const std::string& likeName,
                        const NumberedName& like) {
    std::vector<std::string> names;
    std::set<int, std::greater<>> widths;
    for (std::string& name : regularFiles(folder)) {
        const auto n = splitNumber(name);
        if (!n || n->before != like.before || n->after != like.after)
            continue;
        names.push_back(std::move(name));
        widths.insert(n->width);
        if (n->frame < 0)
            widths.insert(n->width + 1);
    }
    FileSequence best;
    for (const int width : widths) {
        const std::string hashes =
            like.before + std::string(static_cast<std::size_t>(width), '#') + like.after;
        if (!NameOfCache(hashes).frameOf(likeName))
            continue;
        FileSequence found = sequenceIn(folder, names, hashes);
        if (found.frames.size() > best.frames.size())
            best = std::move(found);
    }
    return best.frames.empty() ? FileSequence{(folder / likeName).string(), {}, {}} : best;
}

std::optional<FileSequence> sequenceOfPattern(const std::string& path) {
    const std::string hashes = toHashPattern(path);
    const fs::path folder = fs::path(hashes).parent_path();
    FileSequence found = sequenceIn(folder, regularFiles(folder.empty() ? fs::path(".") : folder),
                                    fs::path(hashes).filename().string());
    if (found.frames.empty())
        return std::nullopt;
    return found;
}

std::optional<FileSequence> sequenceOfFolder(const std::string& folder,
                                             const std::vector<std::string>& extensions) {
    std::optional<FileSequence> best;
    std::set<std::string> tried;
    for (const std::string& name : regularFiles(folder)) {
        const std::string extension = fs::path(name).extension().string();
        if (std::find(extensions.begin(), extensions.end(), extension) == extensions.end())
            continue;
        const auto n = splitNumber(name);
        if (n && !tried.insert(n->before + '\n' + n->after).second)
            continue;
        FileSequence found = n ? neighbours(folder, name, *n)
                               : FileSequence{(fs::path(folder) / name).string(), {}, {}};
        if (!best) {
            best = std::move(found);
            continue;
        }
        std::vector<std::string> others = std::move(best->others);
        if (found.frames.size() > best->frames.size())
            std::swap(found, *best);
        others.push_back(fs::path(found.pattern).filename().string());
        best->others = std::move(others);
    }
    return best;
}

}  // namespace

bool hasFramePattern(const std::string& path) {
    for (std::size_t i = nameStart(path); i < path.size(); ++i)
        if (patternAt(path, i))
            return true;
    return false;
}

std::string plainName(std::string name) {
    if (hasFramePattern(name))
        std::replace_if(
            name.begin(), name.end(),
            [](char c) { return std::string_view("#@%$<").find(c) != std::string_view::npos; },
            '_');
    return name;
}

std::string fillFramePattern(const std::string& path, host::FrameNumber frame, int decimals) {
    return replacePatterns(path, [&](int width) { return frame.text(width, decimals); });
}

std::string toHashPattern(const std::string& path) {
    return replacePatterns(path, [](int width) {
        return std::string(static_cast<std::size_t>(std::max(width, 1)), '#');
    });
}

std::optional<FileSequence> findSequence(const std::string& path,
                                         const std::vector<std::string>& extensions) {
    std::error_code error;
    if (fs::is_directory(path, error))
        return sequenceOfFolder(path, extensions);
    if (fs::exists(path, error)) {
        const std::string name = fs::path(path).filename().string();
        const auto n = splitNumber(name);
        const fs::path folder = fs::path(path).parent_path();
        return n ? neighbours(folder.empty() ? fs::path(".") : folder, name, *n)
                 : FileSequence{path, {}, {}};
    }
    return hasFramePattern(path) ? sequenceOfPattern(path) : std::nullopt;
}

std::string wrongExtension(const std::string& path, const std::vector<std::string>& extensions) {
    const auto isKnown = [&](const std::string& extension) {
        return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
    };
    const std::string lower = "." + fileExtension(path);
    if (isKnown(fs::path(path).extension().string()))
        return "";
    if (isKnown(lower))
        return "caches are known by extensions in lower case: " + lower;
    return fmt::format("can't be taken; {} files can", fmt::join(extensions, ", "));
}

std::string whyNoSequence(const std::string& path, const std::vector<std::string>& extensions) {
    std::error_code error;
    if (!fs::is_directory(path, error))
        return fmt::format("'{}': no such cache", path);
    fs::directory_iterator(path, error);
    if (error)
        return fmt::format("'{}': the folder can't be read: {}", path, error.message());
    return fmt::format("'{}': the folder holds no {} files", path, fmt::join(extensions, ", "));
}

std::string othersText(const std::string& folder, const FileSequence& sequence, const char* done) {
    if (sequence.others.empty())
        return "";
    constexpr std::size_t kMost = 5;
    const std::size_t count = sequence.others.size(), named = std::min(count, kMost);
    std::string list = fmt::format(
        "{}", fmt::join(sequence.others.begin(),
                        sequence.others.begin() + static_cast<std::ptrdiff_t>(named), ", "));
    if (count > named)
        list += fmt::format(" and {} more", count - named);
    return fmt::format("{}: {} {}; beside it are {}", folder,
                       fs::path(sequence.pattern).filename().string(), done, list);
}

namespace {

/// `output` with a text and a dot before its extension.
std::string withNumber(const std::string& output, const std::string& number) {
    fs::path numbered(output);
    const std::string extension = numbered.extension().string();
    numbered.replace_filename(numbered.stem().string() + "." + number + extension);
    return numbered.string();
}

}  // namespace

std::string outputName(const std::string& output, host::FrameNumber frame, bool severalFrames,
                       int decimals) {
    if (hasFramePattern(output))
        return fillFramePattern(output, frame, decimals);
    return severalFrames ? withNumber(output, frame.text(4, decimals)) : output;
}

std::string cacheOutputName(const std::string& output, std::int64_t frame, bool severalFrames) {
    const bool hasPattern = hasFramePattern(output);
    if (!hasPattern && !severalFrames)
        return output;
    return FilePattern(hasPattern ? toHashPattern(output) : withNumber(output, "####")).fill(frame);
}

std::optional<std::string> clashingOutput(const std::string& output,
                                          const std::vector<host::FrameNumber>& frames,
                                          int decimals) {
    std::set<std::string> names;
    for (const host::FrameNumber frame : frames) {
        std::string name = outputName(output, frame, frames.size() > 1, decimals);
        if (!names.insert(name).second)
            return name;
    }
    return std::nullopt;
}

}  // namespace nimbra::cli
