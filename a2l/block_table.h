#pragma once
// The blocks of one kind by their names, in the order of the file.

#include "tokenizer.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace a2l {

// What stands between /begin with its keyword and /end.
struct Block {
    std::string_view name; // its first word; empty when it begins with something else
    const char* end = nullptr;
    std::uint32_t line = 0; // of the name

    Token token() const { return {name, line, TokenKind::word}; }
};

// Half a million blocks are usual: a slot takes 8 bytes and looks at a name only when 32 bits of
// its hash agree.
class BlockTable {
  public:
    // Gives the block that has the name already, and leaves the new one out, or null.
    const Block* add(const Block& block);

    const Block* find(std::string_view name) const;

    const std::vector<Block>& blocks() const { return blocks_; }

  private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t number = 0; // of the block, from 1; 0: free
    };
    std::size_t place_of(std::string_view name, std::uint32_t hash) const;
    void grow();

    std::vector<Block> blocks_;
    std::vector<Slot> slots_ = std::vector<Slot>(64); // a power of two, half of them free
};

} // namespace a2l
