// Reading a large A2L file, against its tokens thrown away, and against a plain read of the file.

#include "a2l/a2l_file.h"
#include "a2l/source_files.h"
#include "ratios.h"

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace bench {

namespace {

constexpr std::size_t file_size = 100'000'000; // bytes

void append_measurement(std::string& text, int number) {
    text += fmt::format("    /begin MEASUREMENT Control.Unit{}.signal_{}[{}] \"Signal {} of it\"\n"
                        "      UWORD CM_{} 0 0 -40.5 6513.5\n"
                        "      ECU_ADDRESS 0x{:08X} /* in RAM */\n"
                        "      FORMAT \"%8.3\"\n"
                        "      SYMBOL_LINK \"control.signal[{}]\" 0\n",
                        number / 1000, number, number % 10, number, number % 500,
                        0x20000000 + number * 2, number);
    if (number % 8 == 0)
        text += "      /begin ANNOTATION\n"
                "        ANNOTATION_LABEL \"Origin\"\n"
                "        /begin ANNOTATION_TEXT \"Made from the model,\\r\\n\" \"version 3\"\n"
                "        /end ANNOTATION_TEXT\n"
                "      /end ANNOTATION\n";
    if (number % 2 == 0)
        text += "      /begin IF_DATA XCP\n"
                "        /begin DAQ_EVENT FIXED_EVENT_LIST EVENT 0x1 /end DAQ_EVENT\n"
                "      /end IF_DATA\n";
    text += "    /end MEASUREMENT\n\n";
}

std::string large_text() {
    std::string text = "ASAP2_VERSION 1 71\n/begin PROJECT P \"\"\n  /begin MODULE M \"\"\n";
    for (int method = 0; method < 500; ++method)
        text += fmt::format("    /begin COMPU_METHOD CM_{} \"\" LINEAR \"%8.3\" \"V\"\n"
                            "      COEFFS_LINEAR 0.1 {}\n    /end COMPU_METHOD\n",
                            method, method);
    text.reserve(file_size + 1000);
    for (int number = 0; text.size() < file_size; ++number)
        append_measurement(text, number);
    return text + "  /end MODULE\n/end PROJECT\n";
}

class LargeFile {
  public:
    LargeFile() {
        const std::string text = large_text();
        std::FILE* file = std::fopen(path_.c_str(), "w");
        if (file == nullptr || std::fwrite(text.data(), 1, text.size(), file) != text.size())
            throw std::runtime_error("cannot write " + path_);
        std::fclose(file);
    }
    ~LargeFile() { std::filesystem::remove(path_); }
    LargeFile(const LargeFile&) = delete;
    LargeFile& operator=(const LargeFile&) = delete;

    const std::string& path() const { return path_; }

  private:
    const std::string path_ = std::filesystem::temp_directory_path() /
                              ("xcp_daq_bench_" + std::to_string(getpid()) + ".a2l");
};

// One for all batches.
std::shared_ptr<const LargeFile> large_file() {
    static const auto file = std::make_shared<const LargeFile>();
    return file;
}

void read_all(const std::string& path) {
    const a2l::File file(path);
    if (!file.warnings().empty() || !file.find("Control.Unit0.signal_7[7]"))
        throw std::runtime_error("the file has not been read");
}

void read_plainly(const std::string& path) {
    a2l::SourceFiles().read(path);
}

void throw_tokens_away(const std::string& path) {
    a2l::SourceFiles files;
    const std::string_view text = files.read(path).text;
    a2l::Tokenizer tokenizer(text.data(), text.data() + text.size(), 1);
    while (tokenizer.next().kind != a2l::TokenKind::end_of_text) {
    }
}

Prepare timed(void (*work)(const std::string& path)) {
    return [work] {
        return [work, file = large_file()] { return seconds_of([&] { work(file->path()); }); };
    };
}

} // namespace

void add_a2l() {
    const Row row{"a2l", "100 MB, a byte", "at least 0.5", false, true};
    add(row, "library", file_size, timed(read_all));
    add(row, "floor", file_size, timed(throw_tokens_away));
    add(row, "read", file_size, timed(read_plainly));
}

} // namespace bench
