#pragma once
// Numbers with a point and without grouping, whatever locale the host or the task has chosen.

#include <ios>
#include <locale>

namespace xcp_daq {

// Sets the stream's locale for as long as the object lives; the one before comes back after it.
class ClassicLocale {
  public:
    explicit ClassicLocale(std::ios& stream)
        : stream_(stream), before_(stream.imbue(std::locale::classic())) {}
    ~ClassicLocale() { stream_.imbue(before_); }
    ClassicLocale(const ClassicLocale&) = delete;
    ClassicLocale& operator=(const ClassicLocale&) = delete;

  private:
    std::ios& stream_;
    const std::locale before_;
};

} // namespace xcp_daq
