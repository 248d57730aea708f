#pragma once
// The words, strings and block limits of an A2L text, without understanding any of them. A token
// refers to the text, which has to outlive it.

#include <cstdint>
#include <string_view>

namespace a2l {

enum class TokenKind : std::uint8_t {
    word,       // an identifier, a keyword or a number
    string,     // as it stands between its quotes
    begin,      // /begin: the text is the block's keyword
    end,        // /end, likewise
    include,    // /include: the text is the file's name
    end_of_text // from here on
};

struct Token {
    std::string_view text;
    std::uint32_t line = 0; // where it begins
    TokenKind kind = TokenKind::end_of_text;

    bool is_value() const { return kind == TokenKind::word || kind == TokenKind::string; }
};

class Tokenizer {
  public:
    // `line` is the number of the line that `begin` stands in.
    Tokenizer(const char* begin, const char* end, std::uint32_t line)
        : at_(begin), end_(end), line_(line) {}

    // Comments and A2ML blocks, which are in another language, are passed over. What is cut off by
    // the text's end ends there.
    Token next();

    // Where the next token is looked for.
    const char* place() const { return at_; }
    std::uint32_t line() const { return line_; }

  private:
    Token value();
    bool skip_space();
    bool skip_comment();
    Token word();
    Token string();
    Token limit(TokenKind kind, std::uint32_t line);
    Token file_name(std::uint32_t line);
    void skip_a2ml();

    const char* at_;
    const char* end_;
    std::uint32_t line_;
};

} // namespace a2l
