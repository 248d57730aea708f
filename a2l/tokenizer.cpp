#include "tokenizer.h"

#include <algorithm>
#include <array>

namespace a2l {

namespace {

// Blanks and all control characters: nothing else could be meant by them.
constexpr bool is_space(char character) {
    return static_cast<unsigned char>(character) <= ' ';
}

constexpr std::array<bool, 256> make_word_ends() {
    std::array<bool, 256> ends{};
    for (std::size_t i = 0; i <= ' '; ++i)
        ends[i] = true;
    ends['"'] = true;
    ends['/'] = true; // of a comment, or of the next word
    return ends;
}
constexpr std::array<bool, 256> word_ends = make_word_ends();

} // namespace

Token Tokenizer::next() {
    for (;;) {
        const Token token = value();
        if (token.kind != TokenKind::word || token.text[0] != '/')
            return token;
        if (token.text == "/end")
            return limit(TokenKind::end, token.line);
        if (token.text == "/include")
            return file_name(token.line);
        if (token.text != "/begin")
            return token;
        const Token begin = limit(TokenKind::begin, token.line);
        if (begin.text != "A2ML")
            return begin;
        skip_a2ml();
    }
}

// A word or a string, and a slash word as any other.
Token Tokenizer::value() {
    if (!skip_space())
        return {std::string_view(at_, at_), line_, TokenKind::end_of_text};
    return *at_ == '"' ? string() : word();
}

// And comments; false at the end.
bool Tokenizer::skip_space() {
    do {
        for (; at_ != end_ && is_space(*at_); ++at_)
            line_ += *at_ == '\n';
        if (at_ == end_)
            return false;
    } while (*at_ == '/' && skip_comment());
    return true;
}

bool Tokenizer::skip_comment() {
    if (end_ - at_ < 2 || (at_[1] != '*' && at_[1] != '/'))
        return false;
    const std::string_view mark = at_[1] == '*' ? "*/" : "\n";
    const std::string_view rest(at_ + 2, end_);
    const std::size_t found = rest.find(mark);
    const char* last = found == rest.npos ? end_ : rest.data() + found + mark.size();
    line_ += static_cast<std::uint32_t>(std::count(at_, last, '\n'));
    at_ = last;
    return true;
}

Token Tokenizer::word() {
    const char* first = at_++;
    while (at_ != end_ && !word_ends[static_cast<unsigned char>(*at_)])
        ++at_;
    return {std::string_view(first, at_), line_, TokenKind::word};
}

Token Tokenizer::string() {
    const std::uint32_t line = line_;
    const char* first = ++at_;
    for (; at_ != end_; ++at_) {
        if (*at_ == '"') {
            if (end_ - at_ < 2 || at_[1] != '"')
                break;
            ++at_;
        } else if (*at_ == '\\' && end_ - at_ >= 2 && (at_[1] == '"' || at_[1] == '\\')) {
            ++at_;
        }
        line_ += *at_ == '\n';
    }
    const Token token{std::string_view(first, at_), line, TokenKind::string};
    if (at_ != end_)
        ++at_;
    return token;
}

// The keyword that belongs to /begin or /end; empty when something else follows.
Token Tokenizer::limit(TokenKind kind, std::uint32_t line) {
    const Tokenizer before = *this;
    const Token keyword = value();
    if (keyword.kind == TokenKind::word && keyword.text[0] != '/')
        return {keyword.text, line, kind};
    *this = before;
    return {std::string_view(at_, at_), line, kind};
}

// A path without quotes has slashes.
Token Tokenizer::file_name(std::uint32_t line) {
    if (!skip_space() || *at_ == '"')
        return {at_ == end_ ? std::string_view(at_, at_) : string().text, line, TokenKind::include};
    const char* first = at_;
    while (at_ != end_ && !is_space(*at_))
        ++at_;
    return {std::string_view(first, at_), line, TokenKind::include};
}

void Tokenizer::skip_a2ml() {
    Token last = value();
    for (Token token = value(); token.kind != TokenKind::end_of_text; last = token, token = value())
        if (last.text == "/end" && token.text == "A2ML")
            return;
}

} // namespace a2l
