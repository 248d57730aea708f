#pragma once
// The tokens of one block, with those of the files that it includes.

#include "block_table.h"
#include "source_files.h"
#include "token_reader.h"

namespace a2l {

class BlockReader {
  public:
    BlockReader(const SourceFiles& files, const Block& block)
        : files_(files), tokens_(Tokenizer(block.name.data(), block.end, block.line)) {}

    // Begins with the block's first word.
    Token next();

    // The next one, which stays.
    Token peek() const { return tokens_.peek(); }

    // The next token when it is a word or a string; otherwise one without text, and it stays.
    Token value();

    // To the end of the block that has begun last.
    void skip_block();

  private:
    const SourceFiles& files_;
    TokenReader tokens_;
};

} // namespace a2l
