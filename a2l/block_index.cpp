#include "block_index.h"

#include "token_reader.h"
#include "token_values.h"

#include <algorithm>

namespace a2l {

namespace {

// Far beyond what any tool writes; a damaged file costs no more than a large one.
constexpr std::size_t deepest_block = 100;
constexpr std::size_t deepest_include = 32;
constexpr std::size_t most_includes = 10000;

class Indexer {
  public:
    Indexer(const SourceFile& file, SourceFiles& files, Warnings& warnings)
        : files_(files), warnings_(warnings), chain_{&file},
          reader_(Tokenizer(file.text.data(), file.text.data() + file.text.size(), 1)) {}

    BlockIndex read() {
        for (bool more = true; more;) {
            const Token token = reader_.next();
            switch (token.kind) {
            case TokenKind::word:
                if (!endianSeen_ && token.text.ends_with("_ENDIAN"))
                    note_endian(token);
                break;
            case TokenKind::string:
                break;
            case TokenKind::begin:
                open(token);
                break;
            case TokenKind::end:
                close(token);
                break;
            case TokenKind::include:
                include(token);
                break;
            case TokenKind::end_of_text:
                more = end_file(token);
                break;
            }
        }
        if (modules_ == 0)
            throw io::FileError(chain_.front()->path, "no A2L file: it has no /begin MODULE");
        return std::move(index_);
    }

  private:
    struct Open {
        Token begin;
        std::size_t file; // depth of the file that it stands in
    };

    void warn(const Token& where, const std::string& what) {
        warnings_.add(files_.fault(where, what));
    }

    // Older files swap the two words.
    void note_endian(const Token& token) {
        if (child_ == 0)
            return;
        const std::string_view block = open_[child_ - 1].begin.text;
        if (block != "MEASUREMENT" && block != "MOD_COMMON")
            return;
        endianSeen_ = true;
        warn(token, "BYTE_ORDER LITTLE_ENDIAN is taken for MSB_LAST and BIG_ENDIAN for MSB_FIRST; "
                    "older files mean it the other way round");
    }

    void open(const Token& begin) {
        if (open_.size() == deepest_block)
            throw files_.fault(begin, "blocks are nested too deep");
        const bool ofModule = !open_.empty() && open_.back().begin.text == "MODULE";
        open_.push_back({begin, reader_.depth()});
        if (begin.text == "MODULE" && ++modules_ == 2)
            warn(begin, "a second MODULE is left out");
        if (ofModule && modules_ == 1 && child_ == 0)
            open_child();
    }

    void open_child() {
        child_ = open_.size();
        const Token first = reader_.peek();
        const char* place = reader_.place();
        if (first.kind == TokenKind::word)
            block_ = {first.text, nullptr, first.line};
        else
            block_ = {std::string_view(place, place), nullptr, reader_.line()};
    }

    // Closes what has been forgotten inside of the block as well.
    void close(const Token& end) {
        std::size_t place = open_.size();
        while (place > 0 && open_[place - 1].begin.text != end.text)
            --place;
        if (place == 0 || open_[place - 1].file != reader_.depth())
            return warn(end, "/end " + to_shown(end.text) + " without its /begin");
        close_down_to(place, end.text.data());
        pop(end.text.data());
    }

    void close_down_to(std::size_t size, const char* end) {
        while (open_.size() > size) {
            const Token& begin = open_.back().begin;
            warn(begin, "/begin " + to_shown(begin.text) + " without its /end");
            pop(end);
        }
    }

    void pop(const char* end) {
        const std::string_view keyword = open_.back().begin.text;
        if (open_.size() == child_) {
            block_.end = end;
            keep(keyword);
            child_ = 0;
        }
        open_.pop_back();
    }

    void keep(std::string_view keyword) {
        if (keyword == "MEASUREMENT")
            keep_named(index_.measurements, keyword);
        else if (keyword == "COMPU_METHOD")
            keep_named(index_.conversions, keyword);
        else if (keyword == "IF_DATA")
            index_.ifData.push_back(block_);
        else if (keyword == "MOD_COMMON" && !index_.modCommon)
            index_.modCommon = block_;
    }

    void keep_named(BlockTable& table, std::string_view keyword) {
        if (block_.name.empty())
            return warn(block_.token(), std::string(keyword) + " without a name");
        if (const Block* first = table.add(block_))
            warn(block_.token(), std::string(keyword) + " " + to_shown(block_.name) +
                                     " is there already, in line " + std::to_string(first->line));
    }

    void include(const Token& token) {
        if (++includes_ > most_includes || reader_.depth() > deepest_include)
            throw files_.fault(token, "too many /include");
        const SourceFile* file = included(token);
        if (file == nullptr)
            return;
        if (std::find(chain_.begin(), chain_.end(), file) != chain_.end())
            throw files_.fault(token, "/include of a file that includes this one");
        chain_.push_back(file);
        reader_.enter(file->text);
    }

    const SourceFile* included(const Token& token) {
        try {
            return &files_.read(files_.included_path(token));
        } catch (const io::FileError& error) {
            warn(token, std::string("/include is left out: ") + error.what());
            return nullptr;
        }
    }

    // A block ends with its file at the latest.
    bool end_file(const Token& end) {
        std::size_t size = open_.size();
        while (size > 0 && open_[size - 1].file == reader_.depth())
            --size;
        close_down_to(size, end.text.data());
        if (!reader_.leave())
            return false;
        chain_.pop_back();
        return true;
    }

    SourceFiles& files_;
    Warnings& warnings_;
    std::vector<const SourceFile*> chain_; // of includes
    TokenReader reader_;
    BlockIndex index_;
    std::vector<Open> open_;
    std::size_t child_ = 0; // how many are open with the block of the module; 0: in none
    Block block_;
    std::size_t modules_ = 0;
    std::size_t includes_ = 0;
    bool endianSeen_ = false;
};

} // namespace

BlockIndex read_index(const std::string& path, SourceFiles& files, Warnings& warnings) {
    return Indexer(files.read(path), files, warnings).read();
}

} // namespace a2l
