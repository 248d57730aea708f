#pragma once
// What the harnesses share: each input finds the library as it was loaded, with nobody listening.

#include "api_xcp_daq.h"

#include <iostream>
#include <set>
#include <streambuf>

namespace fuzz {

// Empties the record. The library never frees entries and descriptors, so this does; an entry that
// was replaced under its place and its name is lost.
inline void refresh_record() {
    std::set<odt_table_entry*> entries;
    for (xcpDAQList& list : appData.daqList) {
        for (const auto& [place, entry] : list.odtEntryMap)
            entries.insert(entry);
        for (const auto& [name, entry] : list.odtEntryByName)
            entries.insert(entry);
        list = {};
    }
    for (odt_table_entry* entry : entries) {
        delete entry->hostVar;
        delete entry;
    }
}

// Standard output goes nowhere, at the cost of the formatting.
class QuietOutput : public std::streambuf {
  public:
    QuietOutput() { std::cout.rdbuf(this); }

  private:
    int_type overflow(int_type character) override { return character; }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

} // namespace fuzz
