#include "block_reader.h"

namespace a2l {

Token BlockReader::next() {
    for (;;) {
        const Token token = tokens_.next();
        if (token.kind == TokenKind::include) {
            // One that could not be read has been told of.
            if (const SourceFile* file = files_.find(files_.included_path(token)))
                tokens_.enter(file->text);
        } else if (token.kind != TokenKind::end_of_text || !tokens_.leave()) {
            return token;
        }
    }
}

Token BlockReader::value() {
    return tokens_.peek().is_value() ? next() : Token{};
}

void BlockReader::skip_block() {
    for (std::size_t depth = 1; depth > 0;) {
        const Token token = next();
        if (token.kind == TokenKind::end_of_text)
            return;
        if (token.kind == TokenKind::begin)
            ++depth;
        else if (token.kind == TokenKind::end)
            --depth;
    }
}

} // namespace a2l
