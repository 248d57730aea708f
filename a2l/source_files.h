#pragma once
// The file and those that it includes, in memory, and which place of them a token stands in.

#include "io/file_error.h"
#include "tokenizer.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace a2l {

struct SourceFile {
    std::string path;
    std::unique_ptr<char[]> bytes;
    std::string_view text; // without the mark of UTF-8
};

class SourceFiles {
  public:
    // Reads a file, once. Throws io::FileError.
    const SourceFile& read(const std::string& path);

    // Null for a file that has not been read.
    const SourceFile* find(const std::string& path) const;

    // The path that an /include means: relative to the file that it stands in.
    std::string included_path(const Token& include) const;

    // What is wrong at a token of one of the files.
    io::FileError fault(const Token& where, const std::string& cause) const;

  private:
    const SourceFile& file_of(const Token& token) const;

    std::map<std::string, SourceFile> files_;
};

} // namespace a2l
