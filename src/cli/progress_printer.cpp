// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/progress_printer.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ctime>

namespace nimbra::cli {
namespace {

constexpr double kPlainFraction = 0.05;  // between two plain lines
constexpr double kPlainSeconds = 30;
constexpr double kBarSeconds = 0.1;

int percent(const ProgressState& s) {
    return static_cast<int>(std::floor(std::clamp(s.fraction, 0.0, 1.0) * 100 + 1e-9));
}

// Texts from plug-ins go into a JSON string.
std::string jsonEscaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        if (static_cast<unsigned char>(c) < 0x20)
            out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        else
            out += c;
    }
    return out;
}

std::string frameText(const ProgressState& s) {
    return s.frameCount > 1 ? fmt::format("frame {} ({}/{})", s.frame.text(),
                                          std::min(s.framesDone + 1, s.frameCount), s.frameCount)
                            : fmt::format("frame {}", s.frame.text());
}

std::string timesText(const ProgressState& s) {
    const double left = remainingSeconds(s);
    return left < 0 ? clockText(s.elapsed)
                    : fmt::format("{}, {} left", clockText(s.elapsed), clockText(left));
}

}  // namespace

std::optional<ProgressMode> progressModeNamed(const std::string& name) {
    static const std::pair<const char*, ProgressMode> kModes[] = {
        {"auto", ProgressMode::Auto}, {"bar", ProgressMode::Bar}, {"plain", ProgressMode::Plain},
        {"json", ProgressMode::Json}, {"alf", ProgressMode::Alf}, {"none", ProgressMode::None}};
    for (const auto& [text, mode] : kModes)
        if (name == text)
            return mode;
    return std::nullopt;
}

double remainingSeconds(const ProgressState& s) {
    // Early fractions say little: set-up isn't over yet.
    return s.fraction < 0.005 || s.elapsed < 0.5 ? -1 : s.elapsed * (1 - s.fraction) / s.fraction;
}

std::string clockText(double seconds) {
    const auto total = std::llround(std::max(seconds, 0.0));
    const long long h = total / 3600, m = total / 60 % 60, s = total % 60;
    return h ? fmt::format("{}:{:02}:{:02}", h, m, s) : fmt::format("{}:{:02}", m, s);
}

ProgressPrinter::ProgressPrinter(std::ostream& out, ProgressMode mode, bool terminal, int columns)
    : out_(out), mode_(mode), columns_(std::clamp(columns, 40, 160)) {
    if (mode_ == ProgressMode::Auto)
        mode_ = terminal ? ProgressMode::Bar : ProgressMode::Plain;
}

bool ProgressPrinter::due(const ProgressState& s) const {
    if (mode_ == ProgressMode::Bar)
        return !printed_ || s.elapsed - lastElapsed_ >= kBarSeconds;
    if (mode_ == ProgressMode::Alf)
        return !printed_ || percent(s) > static_cast<int>(lastFraction_ * 100 + 1e-9);
    return s.fraction - lastFraction_ >= kPlainFraction - 1e-9 ||
           s.elapsed - lastElapsed_ >= kPlainSeconds;
}

void ProgressPrinter::update(const ProgressState& s) {
    last_ = s;
    if (mode_ == ProgressMode::None || !due(s))
        return;
    print(s);
    printed_ = true;
    lastFraction_ = s.fraction;
    lastElapsed_ = s.elapsed;
}

void ProgressPrinter::print(const ProgressState& s) {
    switch (mode_) {
        case ProgressMode::Bar:
            printBar(s);
            break;
        case ProgressMode::Plain:
            out_ << fmt::format("{}: {}%, {}\n", frameText(s), percent(s), timesText(s));
            break;
        case ProgressMode::Json:
            out_ << fmt::format(
                "{{\"progress\": {:.4f}, \"frame\": {}, \"framesDone\": {}, \"frames\": {}, "
                "\"elapsed\": {:.1f}, \"remaining\": {:.1f}, \"phase\": \"{}\"}}\n",
                s.fraction, s.frame.text(), s.framesDone, s.frameCount, s.elapsed,
                remainingSeconds(s), jsonEscaped(s.phase));
            break;
        case ProgressMode::Alf: {
            const std::time_t now = std::time(nullptr);
            out_ << fmt::format("{:%H:%M:%S} | alf_progress  {}%\n", fmt::localtime(now),
                                percent(s));
            break;
        }
        default:
            break;
    }
    out_.flush();
}

void ProgressPrinter::printBar(const ProgressState& s) {
    const std::string tail = fmt::format(" {:3}%  {}  {}{}{}", percent(s), frameText(s),
                                         timesText(s), s.phase.empty() ? "" : "  ", s.phase);
    const int width = std::clamp(columns_ - 2 - static_cast<int>(tail.size()), 10, 40);
    const int full = percent(s) * width / 100;
    std::string line = "[" + std::string(static_cast<std::size_t>(full), '=') +
                       std::string(static_cast<std::size_t>(width - full), ' ') + "]" + tail;
    if (static_cast<int>(line.size()) >= columns_)
        line.resize(static_cast<std::size_t>(columns_ - 1));
    out_ << "\r\x1b[K" << line;
    barShown_ = true;
}

void ProgressPrinter::interrupt() {
    if (barShown_)
        out_ << "\r\x1b[K";
    barShown_ = false;
    printed_ = mode_ == ProgressMode::Bar ? false : printed_;
}

void ProgressPrinter::finish() {
    if (mode_ == ProgressMode::Bar && barShown_) {
        printBar(last_);
        out_ << "\n";
    } else if (mode_ != ProgressMode::None && last_.fraction > lastFraction_) {
        print(last_);
    }
    out_.flush();
    barShown_ = false;
    lastFraction_ = last_.fraction;
}

}  // namespace nimbra::cli
