// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/scene_parser.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unordered_set>

namespace nimbra::host {

namespace {

/// Reads bytes for the JSON library and tells how many it took. The JSON library copies its
/// iterators, so the count lies outside.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* at, std::size_t* taken) : at_(at), taken_(taken) {}
    reference operator*() const { return *at_; }
    CountingIterator& operator++() {
        ++at_;
        ++*taken_;
        return *this;
    }
    CountingIterator operator++(int) {
        CountingIterator before = *this;
        ++*this;
        return before;
    }
    bool operator==(const CountingIterator& other) const { return at_ == other.at_; }

private:
    const char* at_;
    std::size_t* taken_;
};

/// Turns byte offsets into lines and columns, fastest when they rise.
class LineCounter {
public:
    explicit LineCounter(std::string_view text) : text_(text) {}
    SceneLocation locate(const std::shared_ptr<const std::string>& file, std::size_t offset) {
        if (offset < seen_) {
            line_ = 1;
            lineStart_ = seen_ = 0;
        }
        for (; seen_ < offset; ++seen_)
            if (text_[seen_] == '\n') {
                ++line_;
                lineStart_ = seen_ + 1;
            }
        return {file, line_, static_cast<int>(offset - lineStart_ + 1)};
    }

private:
    std::string_view text_;
    std::size_t seen_ = 0, lineStart_ = 0;
    int line_ = 1;
};

/// Receives the parser's events and builds the tree. An event comes when its token has been read;
/// the token's first byte is the first one behind the token before that is no blank, comment or
/// separator.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
public:
    TreeBuilder(std::string_view text, std::shared_ptr<const std::string> file, SceneNode& root,
                SceneDiagnostics& diagnostics)
        : text_(text),
          file_(std::move(file)),
          lines_(text),
          root_(root),
          diagnostics_(diagnostics) {}

    std::size_t* taken() { return &taken_; }

    bool null() override { return addValue(SceneNode::Kind::Null, tokenStart(), taken_); }
    bool boolean(bool value) override {
        const bool added = addValue(SceneNode::Kind::Bool, tokenStart(), taken_);
        if (added)
            last_->boolean = value;
        return added;
    }
    bool number_integer(number_integer_t value) override {
        return addNumber(SceneNode::Kind::Integer, static_cast<double>(value));
    }
    bool number_unsigned(number_unsigned_t value) override {
        return addNumber(SceneNode::Kind::Integer, static_cast<double>(value));
    }
    bool number_float(number_float_t value, const string_t&) override {
        return addNumber(SceneNode::Kind::Float, value);
    }
    bool string(string_t& value) override {
        const bool added = addValue(SceneNode::Kind::String, tokenStart(), taken_);
        if (added)
            last_->text = std::move(value);
        return added;
    }
    bool binary(binary_t&) override { return false; }

    bool start_object(std::size_t) override {
        return addValue(SceneNode::Kind::Object, tokenStart(), taken_) && open();
    }
    bool start_array(std::size_t) override {
        return addValue(SceneNode::Kind::Array, tokenStart(), taken_) && open();
    }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }

    bool key(string_t& value) override {
        const SceneLocation location = lines_.locate(file_, tokenStart());
        end_ = taken_;
        if (!keys_.back().insert(value).second)
            return fail(location, "found the key '" + printable(value) +
                                      "' twice, every key may be given once");
        stack_.back()->members.push_back({std::move(value), location, {}});
        return true;
    }

    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception& error) override {
        const std::size_t start = failedToken(position);
        if (const std::string word = nonFiniteAt(start); !word.empty())
            return fail(lines_.locate(file_, start), "found " + word + ", numbers must be finite");
        // The library's text begins with its own position, which is the end of the token.
        std::string text = error.what();
        if (const std::size_t at = text.find("syntax error"); at != std::string::npos)
            text.erase(0, at);
        return fail(lines_.locate(file_, start), "this is no JSON: " + printable(text));
    }

private:
    /// "plug-in.parameter" of the value being read.
    std::string subject() const {
        std::string result;
        for (std::size_t depth = 0; depth < std::min<std::size_t>(stack_.size(), 2); ++depth)
            if (!stack_[depth]->members.empty())
                result += (depth ? "." : "") + printable(stack_[depth]->members.back().key);
        return result;
    }

    bool fail(const SceneLocation& location, std::string text) {
        diagnostics_.add(location, subject(), std::move(text));
        return false;
    }

    bool isBlank(std::size_t at) const {
        return std::string_view(" \t\r\n").find(text_[at]) != std::string_view::npos;
    }

    /// The first offset from `at` on that is neither blank nor in a comment.
    std::size_t skipBlanks(std::size_t at) const {
        if (at == 0 && text_.substr(0, 3) == "\xEF\xBB\xBF")
            at = 3;
        while (at < text_.size()) {
            if (isBlank(at)) {
                ++at;
            } else if (text_.substr(at, 2) == "//") {
                at = std::min(text_.find('\n', at), text_.size());
            } else if (text_.substr(at, 2) == "/*" && text_.find("*/", at + 2) != text_.npos) {
                at = text_.find("*/", at + 2) + 2;
            } else {
                break;
            }
        }
        return at;
    }

    std::size_t tokenStart() const {
        std::size_t at = skipBlanks(end_);
        if (at < text_.size() && (text_[at] == ',' || text_[at] == ':'))
            at = skipBlanks(at + 1);
        return at;
    }

    /// The first byte of a token that the parser refused after it had read up to `position`: either
    /// the separator before the next value or that value.
    std::size_t failedToken(std::size_t position) const {
        const std::size_t separator = skipBlanks(end_);
        const std::size_t start = position <= separator + 1 ? separator : tokenStart();
        return std::min(start, text_.size());
    }

    /// The word at an offset if it stands for a number that isn't finite, else "".
    std::string nonFiniteAt(std::size_t at) const {
        constexpr std::size_t kLongest = 40;
        std::size_t end = at;
        while (end < text_.size() && end - at < kLongest &&
               (std::isalnum(static_cast<unsigned char>(text_[end])) ||
                std::string_view("+-.").find(text_[end]) != std::string_view::npos))
            ++end;
        std::string word(text_.substr(at, end - at));
        const std::string name = word.substr(!word.empty() && (word[0] == '-' || word[0] == '+'));
        for (const char* known : {"NaN", "nan", "Infinity", "infinity", "inf", "Inf"})
            if (name == known)
                return word;
        // A number that the JSON library found too large.
        double value = 0;
        const auto read = std::from_chars(name.data(), name.data() + name.size(), value);
        return read.ec == std::errc::result_out_of_range ? word : "";
    }

    bool addNumber(SceneNode::Kind kind, double value) {
        const std::size_t start = tokenStart();
        // The number's token ended only where another character was seen: find its end again.
        std::size_t end = start;
        while (end < text_.size() &&
               std::string_view("+-.0123456789eE").find(text_[end]) != std::string_view::npos)
            ++end;
        if (!addValue(kind, start, end))
            return false;
        last_->number = value;
        return true;
    }

    bool addValue(SceneNode::Kind kind, std::size_t start, std::size_t end) {
        const SceneLocation location = lines_.locate(file_, start);
        end_ = end;
        if (++count_ > kMostSceneValues)
            return fail(location, "found more than " + std::to_string(kMostSceneValues) +
                                      " values, a file may hold that many");
        if (stack_.empty()) {
            last_ = &root_;
        } else if (stack_.back()->kind == SceneNode::Kind::Object) {
            last_ = &stack_.back()->members.back().value;
        } else {
            last_ = &stack_.back()->items.emplace_back();
        }
        last_->kind = kind;
        last_->location = location;
        return true;
    }

    bool open() {
        stack_.push_back(last_);
        keys_.emplace_back();
        if (stack_.size() > static_cast<std::size_t>(SceneDocument::kMostDepth))
            return fail(last_->location, "found values nested deeper than " +
                                             std::to_string(SceneDocument::kMostDepth) +
                                             " levels, that many are allowed");
        return true;
    }

    bool close() {
        stack_.pop_back();
        keys_.pop_back();
        end_ = taken_;
        return true;
    }

    std::string_view text_;
    std::shared_ptr<const std::string> file_;
    LineCounter lines_;
    SceneNode& root_;
    SceneDiagnostics& diagnostics_;
    std::vector<SceneNode*> stack_;  // open objects and lists: they don't move while they are open
    std::vector<std::unordered_set<std::string>> keys_;
    SceneNode* last_ = nullptr;
    std::size_t taken_ = 0;
    std::size_t end_ = 0;  // one behind the last token
    std::size_t count_ = 0;
};

}  // namespace

bool parseSceneText(std::string_view text, std::shared_ptr<const std::string> file, SceneNode& root,
                    SceneDiagnostics& diagnostics) {
    TreeBuilder builder(text, std::move(file), root, diagnostics);
    const CountingIterator begin(text.data(), builder.taken());
    const CountingIterator end(text.data() + text.size(), builder.taken());
    return nlohmann::json::sax_parse(begin, end, &builder, nlohmann::json::input_format_t::json,
                                     true, true);
}

std::string printable(std::string_view text) {
    constexpr std::size_t kLongest = 256;
    std::string result(text.substr(0, kLongest));
    for (char& c : result)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = '?';
    if (text.size() > kLongest)
        result += "...";
    return result;
}

}  // namespace nimbra::host
