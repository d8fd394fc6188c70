// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/progress.h"

#include <cstdio>
#include <string>

namespace TessUtils {

void ProgressCallback::format(Level level, const char* format, va_list args) {
    if (!format)
        return;
    char line[1024];
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(line, sizeof line, format, args);
    if (length >= static_cast<int>(sizeof line)) {
        std::string text(static_cast<std::size_t>(length), '\0');
        std::vsnprintf(text.data(), text.size() + 1, format, again);
        message(level, text.c_str());
    } else if (length >= 0) {
        message(level, line);
    }
    va_end(again);
}

void ProgressCallback::printStatistic(const char* format, ...) {
    va_list args;
    va_start(args, format);
    this->format(Level::Statistic, format, args);
    va_end(args);
}

void ProgressCallback::printWarning(const char* format, ...) {
    va_list args;
    va_start(args, format);
    this->format(Level::Warning, format, args);
    va_end(args);
}

void ProgressCallback::printInfo(const char* format, ...) {
    va_list args;
    va_start(args, format);
    this->format(Level::Info, format, args);
    va_end(args);
}

}  // namespace TessUtils
