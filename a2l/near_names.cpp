#include "near_names.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace a2l {

namespace {

constexpr std::size_t most_names = 3;
constexpr std::size_t longest_word = 64; // bits

unsigned char lower(char character) {
    const auto code = static_cast<unsigned char>(character);
    return code >= 'A' && code <= 'Z' ? static_cast<unsigned char>(code + 'a' - 'A') : code;
}

// The edit distance from one word to any other, a column of the usual table at a time: its
// differences are bits, so that a column costs a few instructions (Myers, 1999). Of a longer word
// the last 64 characters count, in which long names differ.
class EditDistance {
  public:
    explicit EditDistance(std::string_view word)
        : size_(tail(word).size()),
          last_(std::uint64_t{1} << (std::max<std::size_t>(size_, 1) - 1)) {
        for (std::size_t i = 0; i < size_; ++i)
            places_[lower(tail(word)[i])] |= std::uint64_t{1} << i;
    }

    std::size_t to(std::string_view other) const {
        std::uint64_t plus = ~std::uint64_t{0}, minus = 0; // differences down the column
        std::size_t distance = size_;
        for (const char character : tail(other)) {
            const std::uint64_t equal = places_[lower(character)];
            const std::uint64_t diagonal = (((equal & plus) + plus) ^ plus) | equal | minus;
            std::uint64_t right = minus | ~(diagonal | plus); // differences along the row
            std::uint64_t left = plus & diagonal;
            distance += (right & last_) != 0;
            distance -= (left & last_) != 0;
            right = right << 1 | 1;
            left <<= 1;
            plus = left | ~(diagonal | right);
            minus = right & diagonal;
        }
        return distance;
    }

  private:
    static std::string_view tail(std::string_view word) {
        return word.substr(word.size() - std::min(word.size(), longest_word));
    }

    std::array<std::uint64_t, 256> places_{}; // of each character in the word
    std::size_t size_;
    std::uint64_t last_;
};

} // namespace

std::vector<std::string> near_names(const std::vector<Block>& blocks, std::string_view name) {
    const EditDistance distance(name);
    std::vector<std::pair<std::size_t, std::string_view>> best;
    std::size_t limit = std::max<std::size_t>(name.size() / 3, 1);
    for (const Block& block : blocks) {
        const std::size_t longer = std::max(block.name.size(), name.size());
        if (longer - std::min(block.name.size(), name.size()) > limit)
            continue;
        const std::size_t edits = distance.to(block.name);
        if (edits > limit)
            continue;
        const auto place =
            std::upper_bound(best.begin(), best.end(), edits,
                             [](std::size_t e, const auto& b) { return e < b.first; });
        best.insert(place, {edits, block.name});
        if (best.size() > most_names)
            best.pop_back();
        if (best.size() == most_names)
            limit = best.back().first;
    }
    std::vector<std::string> names(best.size());
    std::transform(best.begin(), best.end(), names.begin(),
                   [](const auto& found) { return std::string(found.second); });
    return names;
}

} // namespace a2l
