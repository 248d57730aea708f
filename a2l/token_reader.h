#pragma once
// The tokens of a file and, where the caller wants them, of those that it includes.

#include "tokenizer.h"

#include <vector>

namespace a2l {

class TokenReader {
  public:
    explicit TokenReader(const Tokenizer& file) : current_(file) {}

    // The end of an included text is the caller's to see.
    Token next() { return current_.next(); }

    // The next one, which stays; not into an included text.
    Token peek() const {
        Tokenizer ahead = current_;
        return ahead.next();
    }

    // Where it is looked for.
    const char* place() const { return current_.place(); }
    std::uint32_t line() const { return current_.line(); }

    void enter(std::string_view text) {
        waiting_.push_back(current_);
        current_ = Tokenizer(text.data(), text.data() + text.size(), 1);
    }

    // Back to where the text is included; false in the first one.
    bool leave() {
        if (waiting_.empty())
            return false;
        current_ = waiting_.back();
        waiting_.pop_back();
        return true;
    }

    // How many texts are being read.
    std::size_t depth() const { return waiting_.size() + 1; }

  private:
    Tokenizer current_;
    std::vector<Tokenizer> waiting_;
};

} // namespace a2l
