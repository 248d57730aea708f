// A2L files: what is read of them, what is refused, and what is said of it.

#include "a2l/a2l_file.h"
#include "io/file_error.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>

using a2l::ByteOrder;
using a2l::DataType;
using a2l::Signal;

namespace {

std::string module_of(const std::string& content) {
    return "/begin PROJECT P \"\" /begin MODULE M \"\"\n" + content +
           "\n/end MODULE /end PROJECT\n";
}

std::string xcp_block(const std::string& content) {
    return "/begin IF_DATA XCP " + content + " /end IF_DATA\n";
}

std::string udp(const std::string& content) {
    return "/begin XCP_ON_UDP_IP 0x0104 " + content + " /end XCP_ON_UDP_IP ";
}

// A MEASUREMENT m of 2 bytes at 0x1000, on line 2.
std::string measurement(const std::string& options, const std::string& conversion = "C") {
    return module_of("/begin MEASUREMENT m \"\" UWORD " + conversion +
                     " 0 0 -10 10 ECU_ADDRESS 0x1000 " + options + " /end MEASUREMENT\n" +
                     "/begin COMPU_METHOD C \"\" LINEAR \"%1\" \"V\" COEFFS_LINEAR 2 1 "
                     "/end COMPU_METHOD");
}

std::optional<Signal> signal_in(const std::string& text, const std::string& name = "m") {
    const TemporaryFile file(text);
    return a2l::File(file.path()).find(name);
}

// What is said, after the path: of the file, or of a name in it. Empty when nothing is.
std::string fault_in(const std::string& text, const std::string& name = "m") {
    const TemporaryFile file(text);
    try {
        a2l::File(file.path()).find(name);
    } catch (const io::FileError& error) {
        return std::string(error.what()).substr(file.path().size());
    }
    return "";
}

std::string names_at(const std::string& text, const a2l::MemoryPlace& place) {
    const TemporaryFile file(text);
    std::string all;
    for (const auto& [found, names] : a2l::File(file.path()).names_at({place}))
        for (const std::string& name : names)
            all += (all.empty() ? "" : " ") + name;
    return all;
}

std::string warnings_in(const std::string& text) {
    const TemporaryFile file(text);
    const a2l::File a2l(file.path());
    std::string all;
    for (const std::string& warning : a2l.warnings())
        all += warning.substr(file.path().size()) + "\n";
    return all;
}

a2l::Xcp xcp_in(const std::string& content) {
    const TemporaryFile file(module_of(content));
    return a2l::File(file.path()).xcp();
}

std::string nested(int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "/begin X ";
    return text;
}

TEST(A2l, ReadsTheExample) {
    const a2l::File file(XCP_DAQ_EXAMPLES "/engine.a2l");
    EXPECT_EQ(file.warnings(), std::vector<std::string>{});
    struct Row {
        const char* name;
        DataType type;
        ByteOrder order;
        std::uint32_t address;
        double factor, offset, lower, upper;
        const char* unit;
    };
    const Row rows[] = {
        {"engSpeed", DataType::uword, ByteOrder::big, 0x20001000, 0.125, 0, 0, 8192, "rpm"},
        {"torque", DataType::uword, ByteOrder::little, 0x20001004, 0.0125, -400, -420, 420, "Nm"},
        {"crankCount", DataType::a_uint64, ByteOrder::little, 0x20001008, 1, 0, 0, 1.9e19,
         "counts"},
        {"oilTemp", DataType::sword, ByteOrder::little, 0x20001020, 0.1, -40, -40, 180, "degC"},
        {"lambda", DataType::float32_ieee, ByteOrder::little, 0x20001024, 1, 0, 0.5, 2, ""},
        {"cylinderPressure[3]", DataType::uword, ByteOrder::little, 0x2000102E, 0.01, 0, 0, 200,
         "bar"},
        {"engineState", DataType::ubyte, ByteOrder::little, 0x20001030, 1, 0, 0, 3, ""}};
    for (const Row& row : rows) {
        const Signal s = file.find(row.name).value();
        EXPECT_EQ(std::tie(s.name, s.type, s.byteOrder, s.address, s.unit),
                  std::tuple(row.name, row.type, row.order, row.address, row.unit));
        EXPECT_EQ(std::tie(s.factor, s.offset, s.lower, s.upper),
                  std::tie(row.factor, row.offset, row.lower, row.upper))
            << row.name;
    }
    EXPECT_EQ(file.find("engSpeed")->event, 0);
    EXPECT_EQ(file.find("torque")->event, std::nullopt);
    EXPECT_EQ(file.names().size(), 14U);
    const a2l::Xcp& xcp = file.xcp();
    EXPECT_EQ(std::tuple(xcp.timeouts[6].count(), *xcp.maxCto, *xcp.maxDto, *xcp.byteOrder,
                         *xcp.addressGranularity),
              std::tuple(1000, 248, 1024, ByteOrder::little, 1));
    EXPECT_EQ(
        std::tuple(xcp.hasDaq, xcp.dynamic, xcp.maxDaq, xcp.maxEventChannel, xcp.minDaq,
                   xcp.identificationField, xcp.entryGranularity, xcp.maxEntrySize,
                   xcp.overloadInPid || xcp.overloadAsEvent),
        std::tuple(true, true, 0, 3, 0, a2l::IdentificationField::relative_byte, 1, 248, false));
    EXPECT_EQ(std::tuple(xcp.timestamp->ticks, xcp.timestamp->size, xcp.timestamp->unit_ps,
                         xcp.timestamp->fixed),
              std::tuple(1, 4U, 1000U, true));
    ASSERT_EQ(xcp.events.size(), 3U);
    EXPECT_EQ(std::tuple(xcp.events[1].number, xcp.events[1].name, xcp.events[1].shortName,
                         xcp.events[1].cycle_ns),
              std::tuple(1, "event5ms", "5ms", 5'000'000U));
    EXPECT_EQ(std::tuple(*xcp.port, xcp.address, xcp.hostName), std::tuple(5555, "127.0.0.1", ""));
}

TEST(A2l, TellsCommentsStringsAndBlocksApart) {
    const std::pair<const char*, const char*> units[] = {
        {R"(PHYS_UNIT "a\"b""c\\")", "a\"b\"c\\"},
        {"PHYS_UNIT \"a\r\nb\"", "a\r\nb"},
        {"PHYS_UNIT/*\"x\"*/\"y\"// \"z\"\n", "y"},
        {"PHYS_UNIT \"\xB0\x43\"", "\xC2\xB0\x43"},                 // ISO 8859-1
        {"PHYS_UNIT \"\xC2\xB0\x43\"", "\xC2\xB0\x43"},             // UTF-8
        {"PHYS_UNIT \"\xED\xA0\x80\"", "\xC3\xAD\xC2\xA0\xC2\x80"}, // no UTF-8: half a pair
        {"/begin X PHYS_UNIT \"x\" /begin X /end X /end X", "V"},
        {"/begin /**/ A2ML block \"PHYS_UNIT\" /begin /* /end A2ML */ /end A2ML", "V"},
        {"REF_MEMORY_SEGMENT PHYS_UNIT \"x\" DISPLAY_IDENTIFIER BIT_MASK", "V"},
        {"PHYS_UNIT", "V"}};
    for (const auto& [options, unit] : units)
        EXPECT_EQ(signal_in("\xEF\xBB\xBF" + measurement(options))->unit, unit) << options;
}

TEST(A2l, ReadsTheOptionsOfAMeasurement) {
    const Signal s = signal_in(measurement("BYTE_ORDER BIG_ENDIAN BIT_MASK 0xFF00 FORMAT \"%1\" "
                                           "ECU_ADDRESS_EXTENSION 1E1 DISPLAY_IDENTIFIER d.e[1]"))
                         .value();
    EXPECT_EQ(std::tuple(s.byteOrder, *s.bitMask, s.addressExtension, s.displayIdentifier),
              std::tuple(ByteOrder::big, 0xFF00U, 10, "d.e[1]"));
    const std::pair<const char*, std::optional<int>> events[] = {
        {"FIXED_EVENT_LIST EVENT 0x7 EVENT 8", 7},
        {"VARIABLE /begin AVAILABLE_EVENT_LIST EVENT 3 /end AVAILABLE_EVENT_LIST", std::nullopt},
        {"VARIABLE DEFAULT_EVENT_LIST EVENT 4", 4},
        {"FIXED_EVENT_LIST EVENT 70000", std::nullopt}};
    for (const auto& [list, number] : events) {
        const std::string block = std::string("/begin DAQ_EVENT ") + list + " /end DAQ_EVENT";
        EXPECT_EQ(signal_in(measurement(xcp_block(block)))->event, number) << list;
        EXPECT_EQ(signal_in(measurement("/begin IF_DATA V " + block + "/end IF_DATA"))->event,
                  std::nullopt);
    }
    const std::string common = "/begin MOD_COMMON \"\" BYTE_ORDER MSB_FIRST /end MOD_COMMON";
    const std::string limits = "/begin MEASUREMENT m \"\" UWORD NO_COMPU_METHOD 0 0 "
                               "-1.79769313486232E+308 1e-400 ECU_ADDRESS 1 /end MEASUREMENT";
    const Signal big = signal_in(module_of(limits + common)).value();
    EXPECT_EQ(std::tuple(big.byteOrder, big.lower, big.upper),
              std::tuple(ByteOrder::big, std::numeric_limits<double>::lowest(), 0));
}

TEST(A2l, FindsTheElementsOfArrays) {
    struct Row {
        const char* options;
        const char* name;
        std::uint32_t address; // 0: a fault
    };
    const Row rows[] = {{"ARRAY_SIZE 4", "m[3]", 0x1006},
                        {"ARRAY_SIZE 4", "m[4]", 0},
                        {"ARRAY_SIZE 4", "m", 0},
                        {"ARRAY_SIZE 4", "m[1][0]", 0},
                        {"MATRIX_DIM 4 1 1 ADDRESS_TYPE DIRECT", "m[3]", 0x1006},
                        {"ARRAY_SIZE 8 MATRIX_DIM 2 4", "m[1][3]", 0x100E},
                        {"MATRIX_DIM 2 3 4 BIT_MASK 1", "m[1][2][3]", 0x1000 + 2 * 23},
                        {"MATRIX_DIM 2 3 LAYOUT ROW_DIR", "m[1][0]", 0x1006},
                        {"MATRIX_DIM 2 3 LAYOUT COLUMN_DIR", "m[1][0]", 0x1002},
                        {"MATRIX_DIM 2 3 LAYOUT COLUMN_DIR", "m[0][2]", 0x1008},
                        {"MATRIX_DIM 1 1 1", "m", 0x1000},
                        {"", "m[0]", 0},
                        {"ARRAY_SIZE 0xFFFFFFFF", "m[0x1]", 0},
                        {"ARRAY_SIZE 0xFFFFFFFF", "m[4294967294]", 0}};
    for (const auto& [options, name, address] : rows)
        try {
            const auto signal = signal_in(measurement(options), name);
            EXPECT_EQ(signal ? signal->address : 0, address) << options << name;
            if (signal) {
                EXPECT_EQ(names_at(measurement(options), {0, address, 2}), name) << options;
            }
        } catch (const io::FileError&) {
            EXPECT_EQ(0U, address) << options << name;
        }
    const std::string words = module_of(
        xcp_block("/begin PROTOCOL_LAYER ADDRESS_GRANULARITY_WORD /end PROTOCOL_LAYER") +
        "/begin MEASUREMENT a.b[1] \"\" ULONG NO_COMPU_METHOD 0 0 0 1 ECU_ADDRESS 16 ARRAY_SIZE 3 "
        "/end MEASUREMENT\n/begin MEASUREMENT c \"\" UBYTE NO_COMPU_METHOD 0 0 0 1 ECU_ADDRESS 16 "
        "ARRAY_SIZE 3 /end MEASUREMENT");
    EXPECT_EQ(signal_in(words, "a.b[1][2]")->address, 20U);
    EXPECT_EQ(signal_in(words, "c[2]")->address, 17U);
    EXPECT_EQ(names_at(words, {0, 20, 4}) + names_at(words, {0, 17, 1}), "a.b[1][2]c[2]");
    const std::string twice = measurement("MATRIX_DIM 2 ECU_ADDRESS_EXTENSION 3") +
                              measurement("/begin VIRTUAL x /end VIRTUAL");
    EXPECT_EQ(names_at(twice, {3, 0x1002, 2}), "m[1]");
    for (const a2l::MemoryPlace& other : {a2l::MemoryPlace{0, 0x1002, 2},
                                          {3, 0x1001, 2},
                                          {3, 0x1002, 1},
                                          {3, 0x1004, 2},
                                          {3, 0xFFE, 2}})
        EXPECT_EQ(names_at(twice, other), "") << other.address;
    EXPECT_EQ(fault_in(words, "c[1]"), ":4: c: [1] begins between two addresses");
    std::string many;
    for (int i = 0; i < 1000; ++i)
        many += "/begin MEASUREMENT m" + std::to_string(i) +
                " \"\" UBYTE NO_COMPU_METHOD 0 0 0 1 ECU_ADDRESS " + std::to_string(i) +
                " /end MEASUREMENT\n";
    const TemporaryFile file(module_of(many) + measurement(""));
    const a2l::File thousand(file.path());
    for (std::uint32_t i = 0; i < 1000; ++i)
        EXPECT_EQ(thousand.find("m" + std::to_string(i))->address, i);
    EXPECT_EQ(thousand.find("m"), std::nullopt); // of another module
}

TEST(A2l, ConvertsWhatIsLinear) {
    struct Row {
        const char* method;
        double factor, offset;
    };
    const Row rows[] = {{"IDENTICAL \"%1\" \"\"", 1, 0},
                        {"LINEAR \"%1\" \"\" COEFFS_LINEAR -0.5 1e1", -0.5, 10},
                        {"RAT_FUNC \"%1\" \"\" COEFFS 0 4 8 0 0 2", 0.5, -2},
                        {"TAB_INTP \"%1\" \"\" COMPU_TAB_REF T", 1, 0},
                        {"RAT_FUNC \"%1\" \"\" COEFFS 0 0 8 0 0 2", 0, 0},
                        {"RAT_FUNC \"%1\" \"\" COEFFS 1 4 8 0 0 2", 0, 0},
                        {"RAT_FUNC \"%1\" \"\" COEFFS 0 4 8 0 1 2", 0, 0},
                        {"RAT_FUNC \"%1\" \"\" COEFFS 0 1e-300 8 0 0 1e300", 0, 0},
                        {"LINEAR \"%1\" \"\" COEFFS_LINEAR 1", 0, 0},
                        {"FORM \"%1\" \"\" /begin FORMULA \"X1\" /end FORMULA", 0, 0}};
    for (const auto& [method, factor, offset] : rows) {
        std::string text = measurement("", "D");
        text.insert(text.find("\n/end MODULE"),
                    std::string("\n/begin COMPU_METHOD D \"\" ") + method + " /end COMPU_METHOD");
        if (factor == 0) {
            const std::string kind(method, std::string_view(method).find(' '));
            EXPECT_EQ(fault_in(text), ":4: m: COMPU_METHOD D is not linear: " + kind) << method;
        } else {
            const Signal s = signal_in(text).value();
            EXPECT_EQ(std::tie(s.factor, s.offset), std::tie(factor, offset)) << method;
        }
    }
}

TEST(A2l, RefusesWhatCannotBeMeasuredWhenItIsAskedFor) {
    const std::string start = "/begin MEASUREMENT m \"\"\n";
    const std::pair<std::string, const char*> rows[] = {
        {measurement("", "X"), ":2: m: there is no COMPU_METHOD X"},
        {measurement("/begin VIRTUAL a /end VIRTUAL"),
         ":2: m: it is virtual: computed from others, not in the slave's memory"},
        {measurement("ADDRESS_TYPE DIRECT/*\n*/\nADDRESS_TYPE PLONG"),
         ":4: m: it lies behind a pointer, ADDRESS_TYPE PLONG"},
        {measurement("\nBYTE_ORDER MSB_FIRST_MSW_LAST"),
         ":3: m: unknown byte order MSB_FIRST_MSW_LAST"},
        {measurement("\nECU_ADDRESS_EXTENSION 256"),
         ":3: m: expected a number from 0 to 255, found 256"},
        {measurement("\n\nMATRIX_DIM 2 2"), ":2: m: an array of [2][2]: one element can be "
                                            "measured, with an index for each dimension"},
        {module_of(start + "UWORD NO_COMPU_METHOD 0 0 0 1 /end MEASUREMENT"),
         ":2: m: no ECU_ADDRESS"},
        {module_of(start + "STRUCT NO_COMPU_METHOD 0 0 0 1 /end MEASUREMENT"),
         ":3: m: unknown data type STRUCT"},
        {module_of(start + "UWORD NO_COMPU_METHOD 0 0 low 1 /end MEASUREMENT"),
         ":3: m: expected a number, found low"},
        {"ASAP2_VERSION 1 60", ": no A2L file: it has no /begin MODULE"},
        {std::string("\xFF\xFE/\0b\0", 6), ": UTF-16 is not read; save it as UTF-8"},
        {std::string("/\0b\0", 4), ": UTF-16 is not read; save it as UTF-8"},
        {nested(100000), ":1: blocks are nested too deep"}};
    for (const auto& [text, fault] : rows) {
        EXPECT_EQ(fault_in(text), fault);
        const bool ofTheFile = std::string_view(fault).find(": m: ") == std::string_view::npos;
        EXPECT_EQ(fault_in(text, "other"), ofTheFile ? fault : "");
    }
    EXPECT_THROW(a2l::File("/no/such.a2l"), io::FileError);
    EXPECT_THROW(a2l::File("/"), io::FileError);
}

TEST(A2l, WarnsOfWhatIsNotClear) {
    const std::string twice = "/begin MEASUREMENT a \"\" /end MEASUREMENT\n"
                              "/begin MEASUREMENT a \"\" BYTE_ORDER LITTLE_ENDIAN /end MEASUREMENT";
    const std::pair<std::string, const char*> rows[] = {
        {module_of(twice + "/begin CHARACTERISTIC BIG_ENDIAN /end CHARACTERISTIC"),
         ":3: BYTE_ORDER LITTLE_ENDIAN is taken for MSB_LAST and BIG_ENDIAN for MSB_FIRST; older "
         "files mean it the other way round\n"
         ":3: MEASUREMENT a is there already, in line 2\n"},
        {module_of("/begin GROUP\n/begin ROOT\n/end GROUP /end FUNCTION /begin MEASUREMENT\n"
                   "/end MEASUREMENT"),
         ":3: /begin ROOT without its /end\n:4: /end FUNCTION without its /begin\n"
         ":4: MEASUREMENT without a name\n"},
        {module_of("") + module_of(""), ":4: a second MODULE is left out\n"},
        {module_of(xcp_block("") + xcp_block(udp("1")) + xcp_block(udp("2"))),
         ":3: of 3 IF_DATA for XCP this one is taken\n"},
        {"/begin MODULE \"\n", ":1: /begin MODULE without its /end\n"}};
    for (const auto& [text, warnings] : rows)
        EXPECT_EQ(warnings_in(text), warnings);
    std::string many;
    for (int i = 0; i < 103; ++i)
        many += "/end X\n";
    EXPECT_TRUE(warnings_in(module_of(many))
                    .ends_with(":101: /end X without its /begin\n"
                               ": and 3 warnings more\n"));
}

TEST(A2l, FollowsIncludes) {
    const TemporaryFile inner(
        "\n/begin MEASUREMENT i \"\" X\n/end MEASUREMENT /end MODULE /begin GROUP");
    const std::string name = std::filesystem::path(inner.path()).filename();
    const TemporaryFile outer(module_of("/include \".\\" + name + "\" /include none.a2l\n" +
                                        "/begin MEASUREMENT o \"\" UWORD NO_COMPU_METHOD 0 0 0 1 "
                                        "ECU_ADDRESS 1 /end MEASUREMENT"));
    const a2l::File file(outer.path());
    EXPECT_EQ(file.names(), (std::vector<std::string>{"i", "o"}));
    EXPECT_TRUE(file.find("o"));
    const std::string missing = std::filesystem::path(outer.path()).replace_filename("none.a2l");
    EXPECT_EQ(file.warnings(),
              (std::vector<std::string>{inner.path() + ":3: /end MODULE without its /begin",
                                        inner.path() + ":3: /begin GROUP without its /end",
                                        outer.path() + ":2: /include is left out: " + missing +
                                            ": No such file or directory"}));
    try {
        file.find("i");
        ADD_FAILURE();
    } catch (const io::FileError& error) {
        EXPECT_EQ(error.what(), inner.path() + ":2: i: unknown data type X");
    }
    const TemporaryFile circle;
    std::ofstream(circle.path()) << "\n/include " << circle.path();
    EXPECT_THROW(a2l::File{circle.path()}, io::FileError);
}

TEST(A2l, ReadsXcpWithTheTransportsOwnBlocksFirst) {
    const auto layer = [](const std::string& more) {
        return "/begin PROTOCOL_LAYER 0x0104 1 2 3 4 5 6 7 " + more + " /end PROTOCOL_LAYER ";
    };
    const std::string event = "/begin EVENT \"n\" \"s\" 3 STIM 1 255 12 0 CONSISTENCY DAQ /begin "
                              "DAQ_PACKED_MODE STIM 1 2 /end DAQ_PACKED_MODE /end EVENT ";
    const std::string daq = "/begin DAQ STATIC 2 1 1 OPTIMISATION_TYPE_DEFAULT NEW_WORD "
                            "IDENTIFICATION_FIELD_TYPE_RELATIVE_WORD_ALIGNED "
                            "GRANULARITY_ODT_ENTRY_SIZE_DAQ_DLONG 8 OVERLOAD_INDICATION_PID "
                            "MAX_ODT_TOTAL 9 /begin STIM DYNAMIC /end STIM "
                            "/begin TIMESTAMP_SUPPORTED 5 SIZE_WORD UNIT_100PS "
                            "/end TIMESTAMP_SUPPORTED " +
                            event + "/end DAQ ";
    const std::string own = layer("300 70000 BYTE_ORDER_MSB_FIRST OPTIONAL_CMD GET_ID") +
                            "/begin DAQ DYNAMIC 0 1 0 /end DAQ";
    const a2l::Xcp xcp = xcp_in(
        "/begin IF_DATA VENDOR DAQ \"\" /begin DAQ DYNAMIC 9 /end DAQ /end IF_DATA" +
        xcp_block(udp("5555 HOST_NAME \"h\" \"10.0.0.1\" IPV6 \"::1\" " + own) +
                  udp("1 ADDRESS \"10.0.0.2\"") + layer("8 8 ADDRESS_GRANULARITY_DWORD") + daq));
    EXPECT_EQ(std::tuple(xcp.timeouts[0].count(), *xcp.maxCto, *xcp.maxDto, *xcp.byteOrder,
                         *xcp.addressGranularity, *xcp.port, xcp.address, xcp.hostName),
              std::tuple(1, 255, 65535, ByteOrder::big, 4, 5555, "10.0.0.1", "h"));
    EXPECT_EQ(std::tuple(xcp.dynamic, xcp.maxDaq, xcp.minDaq, xcp.identificationField,
                         xcp.entryGranularity, xcp.maxEntrySize, xcp.overloadInPid),
              std::tuple(true, 0, 0, a2l::IdentificationField::relative_word_aligned, 8, 8, true));
    EXPECT_EQ(std::tuple(xcp.timestamp->ticks, xcp.timestamp->size, xcp.timestamp->unit_ps,
                         xcp.timestamp->fixed),
              std::tuple(5, 2U, 100U, false));
    ASSERT_EQ(xcp.events.size(), 1U);
    EXPECT_EQ(std::tuple(xcp.events[0].number, xcp.events[0].daq, xcp.events[0].cycle_ns),
              std::tuple(3, false, 25U)); // 25.5 ns
    const a2l::Xcp first = xcp_in(xcp_block(layer("8 8")) + xcp_block(layer("9 9")));
    EXPECT_EQ(std::tuple(*first.maxCto, first.port), std::tuple(8, std::nullopt));
}

TEST(A2l, SuggestsNamesThatLookAlike) {
    std::string text;
    for (const char* name : {"engSpeed", "engSpeed2", "ENGSPED", "throttle", "engineSpeedLimit"})
        text += std::string("/begin MEASUREMENT ") + name + " \"\" /end MEASUREMENT\n";
    const TemporaryFile file(module_of(text));
    const a2l::File a2l(file.path());
    EXPECT_EQ(a2l.near_names("engspeed"),
              (std::vector<std::string>{"engSpeed", "engSpeed2", "ENGSPED"}));
    EXPECT_EQ(a2l.near_names("trottel"), std::vector<std::string>{});
    EXPECT_EQ(a2l.near_names("trottle"), std::vector<std::string>{"throttle"});
    const std::string path(70, 'p');
    const TemporaryFile longNames(module_of("/begin MEASUREMENT " + path +
                                            ".a /end MEASUREMENT /begin MEASUREMENT " + path +
                                            ".speed /end MEASUREMENT"));
    EXPECT_EQ(a2l::File(longNames.path()).near_names(path + ".sped").at(0), path + ".speed");
    EXPECT_EQ(a2l.near_names(""), std::vector<std::string>{});
}

} // namespace
