// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/frame_range.h"

#include <algorithm>
#include <charconv>
#include <unordered_set>

namespace nimbra::cli {
namespace {

constexpr std::int64_t kMaxNumber = 1'000'000'000;

class Parser {
public:
    explicit Parser(const std::string& text) : text_(text) {}

    std::vector<std::int64_t> parse() {
        do
            item();
        while (accept(','));
        if (pos_ != text_.size())
            fail("unexpected '" + text_.substr(pos_, 1) + "'");
        return std::move(frames_);
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw FrameRangeError("frames '" + text_ + "', character " + std::to_string(pos_ + 1) +
                              ": " + what +
                              "; allowed are N, A-B, A-BxS, A-ByS, A-B:S, joined by commas");
    }

    bool accept(char c) {
        if (pos_ < text_.size() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }

    std::int64_t number() {
        std::int64_t value = 0;
        const char* const first = text_.data() + pos_;
        const auto [end, error] = std::from_chars(first, text_.data() + text_.size(), value);
        if (error != std::errc() || value > kMaxNumber || value < -kMaxNumber)
            fail(error == std::errc::invalid_argument ? "a number is missing"
                                                      : "the number is too large");
        pos_ += static_cast<std::size_t>(end - first);
        return value;
    }

    void item() {
        const std::int64_t a = number();
        if (!accept('-')) {
            add(a);
            return;
        }
        const std::int64_t b = number();
        if (accept('x'))
            every(a, b, step());
        else if (accept('y'))
            allBut(a, b, step());
        else if (accept(':'))
            interleaved(a, b, step());
        else
            every(a, b, 1);
    }

    std::int64_t step() {
        const std::size_t at = pos_;
        const std::int64_t s = number();
        if (s <= 0) {
            pos_ = at;
            fail("a step must be above 0");
        }
        return s;
    }

    // Calls f(distance from a) for 0 ... |b - a|.
    template <typename F>
    void walk(std::int64_t a, std::int64_t b, std::int64_t s, F keep) {
        const std::int64_t span = std::abs(b - a), sign = b < a ? -1 : 1;
        for (std::int64_t i = 0; i <= span; i += s)
            if (keep(i))
                add(a + sign * i);
    }
    void every(std::int64_t a, std::int64_t b, std::int64_t s) {
        if (std::abs(b - a) / s >= kMaxFrames)
            fail("more than 10 million frames");
        walk(a, b, s, [](std::int64_t) { return true; });
    }
    void allBut(std::int64_t a, std::int64_t b, std::int64_t s) {
        checkSpan(a, b);
        walk(a, b, 1, [s](std::int64_t i) { return i % s != 0; });
    }
    // Coarse to fine, so that a shot is seen early; `add` drops what an earlier pass had.
    void interleaved(std::int64_t a, std::int64_t b, std::int64_t s) {
        checkSpan(a, b);
        for (; s > 0; s /= 2)
            every(a, b, s);
    }

    void checkSpan(std::int64_t a, std::int64_t b) const {
        if (std::abs(b - a) >= kMaxFrames)
            fail("more than 10 million frames");
    }

    void add(std::int64_t frame) {
        if (!seen_.insert(frame).second)
            return;
        if (static_cast<std::int64_t>(frames_.size()) == kMaxFrames)
            fail("more than 10 million frames");
        frames_.push_back(frame);
    }

    const std::string& text_;
    std::size_t pos_ = 0;
    std::vector<std::int64_t> frames_;
    std::unordered_set<std::int64_t> seen_;
};

}  // namespace

std::vector<std::int64_t> parseFrameRange(const std::string& text) {
    return Parser(text).parse();
}

std::string describeFrames(std::vector<std::int64_t> frames) {
    std::sort(frames.begin(), frames.end());
    std::string out;
    for (std::size_t i = 0; i < frames.size();) {
        std::size_t last = i;
        while (last + 1 < frames.size() && frames[last + 1] <= frames[last] + 1)
            ++last;
        out += (out.empty() ? "" : ",") + std::to_string(frames[i]);
        if (frames[last] != frames[i])
            out += "-" + std::to_string(frames[last]);
        i = last + 1;
    }
    return out;
}

std::vector<std::int64_t> frameShare(const std::vector<std::int64_t>& frames, std::int64_t index,
                                     std::int64_t count) {
    if (count < 1 || index < 0 || index >= count)
        throw std::invalid_argument("task " + std::to_string(index) + " of " +
                                    std::to_string(count) + " array tasks does not exist");
    const auto n = static_cast<std::int64_t>(frames.size());
    return {frames.begin() + n * index / count, frames.begin() + n * (index + 1) / count};
}

}  // namespace nimbra::cli
