// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/frame_range.h"

#include <algorithm>
#include <cstdlib>
#include <unordered_set>

namespace nimbra::cli {
namespace {

using host::FrameNumber;

constexpr std::int64_t kMaxNumber = 1'000'000'000;
/// Names with a point have so many decimals at least.
constexpr int kLeastDecimals = 3;
constexpr std::int64_t kUnits = FrameNumber::kUnits;

// All numbers are counted in units of the last decimal.
class Parser {
public:
    Parser(const std::string& text, bool whole) : text_(text), whole_(whole) {}

    FrameList parse() {
        do
            item();
        while (accept(','));
        if (pos_ != text_.size())
            fail("unexpected '" + text_.substr(pos_, 1) + "'");
        return std::move(list_);
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw FrameRangeError(
            "frames '" + text_ + "', character " + std::to_string(pos_ + 1) + ": " + what +
            "; allowed are N, A-B, A-BxS, A-ByS, A-B:S, joined by commas" +
            (whole_ ? ""
                    : ", with up to " + std::to_string(FrameNumber::kMostDecimals) + " decimals"));
    }

    bool accept(char c) {
        if (pos_ < text_.size() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }

    bool atDigit() const { return pos_ < text_.size() && text_[pos_] >= '0' && text_[pos_] <= '9'; }

    std::int64_t number() {
        const bool negative = accept('-');
        const bool hasWhole = atDigit();
        if (!hasWhole && !(pos_ < text_.size() && text_[pos_] == '.'))
            fail("a number is missing");
        std::int64_t value = 0;
        for (; atDigit(); ++pos_) {
            value = value * 10 + (text_[pos_] - '0');
            if (value > kMaxNumber)
                fail("the number is too large");
        }
        value *= kUnits;
        if (accept('.'))
            value += decimals();
        if (value > kMaxNumber * kUnits)
            fail("the number is too large");
        return negative ? -value : value;
    }

    std::int64_t decimals() {
        if (whole_)
            fail("files have whole numbers");
        if (!atDigit())
            fail("a digit is missing behind the point");
        std::int64_t value = 0;
        for (std::int64_t unit = kUnits / 10; atDigit(); ++pos_, unit /= 10) {
            value += unit * (text_[pos_] - '0');
            if (unit == 0 && text_[pos_] != '0')
                fail("more than " + std::to_string(FrameNumber::kMostDecimals) + " decimals");
        }
        list_.decimals =
            std::max({list_.decimals, kLeastDecimals, FrameNumber::ofUnits(value).decimals()});
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
            allBut(a, b, wholeStep());
        else if (accept(':'))
            interleaved(a, b, wholeStep());
        else
            every(a, b, kUnits);
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
    std::int64_t wholeStep() {
        const std::size_t at = pos_;
        const std::int64_t s = step();
        if (s % kUnits != 0) {
            pos_ = at;
            fail("this step must be a whole number");
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
        walk(a, b, kUnits, [s](std::int64_t i) { return i % s != 0; });
    }
    // Coarse to fine, so that a shot is seen early; `add` drops what an earlier pass had.
    void interleaved(std::int64_t a, std::int64_t b, std::int64_t s) {
        checkSpan(a, b);
        for (std::int64_t frames = s / kUnits; frames > 0; frames /= 2)
            every(a, b, frames * kUnits);
    }

    void checkSpan(std::int64_t a, std::int64_t b) const {
        if (std::abs(b - a) / kUnits >= kMaxFrames)
            fail("more than 10 million frames");
    }

    void add(std::int64_t frame) {
        if (!seen_.insert(frame).second)
            return;
        if (static_cast<std::int64_t>(list_.frames.size()) == kMaxFrames)
            fail("more than 10 million frames");
        list_.frames.push_back(FrameNumber::ofUnits(frame));
    }

    const std::string& text_;
    const bool whole_;
    std::size_t pos_ = 0;
    FrameList list_;
    std::unordered_set<std::int64_t> seen_;
};

}  // namespace

FrameList parseFrameList(const std::string& text) {
    return Parser(text, false).parse();
}

std::vector<std::int64_t> parseFrameRange(const std::string& text) {
    std::vector<std::int64_t> frames;
    for (const FrameNumber frame : Parser(text, true).parse().frames)
        frames.push_back(frame.whole());
    return frames;
}

std::string describeFrames(std::vector<FrameNumber> frames) {
    std::sort(frames.begin(), frames.end());
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
    std::string out;
    for (std::size_t i = 0; i < frames.size();) {
        std::size_t last = i;
        while (last + 1 < frames.size() &&
               frames[last + 1].units() == frames[last].units() + kUnits)
            ++last;
        out += (out.empty() ? "" : ",") + frames[i].text();
        if (last != i)
            out += "-" + frames[last].text();
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
