#include "conversion.h"

#include "block_reader.h"
#include "token_values.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

namespace a2l {

namespace {

// With its coefficients as they stand in the file; false when it is not linear.
using Convert = bool (*)(const std::vector<double>& coefficients, Conversion& conversion);

bool convert_nothing(const std::vector<double>&, Conversion&) {
    return true;
}

bool convert_linear(const std::vector<double>& coefficients, Conversion& conversion) {
    if (coefficients.size() != 2)
        return false;
    conversion.factor = coefficients[0];
    conversion.offset = coefficients[1];
    return true;
}

// The file has the way back: raw = (a x^2 + b x + c) / (d x^2 + e x + f) for the physical x.
bool convert_rational(const std::vector<double>& coefficients, Conversion& conversion) {
    if (coefficients.size() != 6)
        return false;
    const auto [a, b, c, d, e, f] = std::array{coefficients[0], coefficients[1], coefficients[2],
                                               coefficients[3], coefficients[4], coefficients[5]};
    if (a != 0 || d != 0 || e != 0 || b == 0 || f == 0)
        return false;
    conversion.factor = f / b;
    conversion.offset = -c / b;
    return true;
}

struct Kind {
    std::string_view word;
    std::string_view coefficients; // their keyword
    Convert convert;
};
constexpr Kind kinds[] = {
    {"IDENTICAL", "", convert_nothing},       {"LINEAR", "COEFFS_LINEAR", convert_linear},
    {"RAT_FUNC", "COEFFS", convert_rational}, {"TAB_INTP", "", convert_nothing},
    {"TAB_NOINTP", "", convert_nothing},      {"TAB_VERB", "", convert_nothing}};

// The numbers after the keyword, up to the first that is none.
std::vector<double> coefficients_after(BlockReader& reader, std::string_view keyword) {
    std::vector<double> values;
    for (Token token = reader.next(); token.kind != TokenKind::end_of_text; token = reader.next()) {
        if (token.kind == TokenKind::begin)
            reader.skip_block();
        if (token.kind != TokenKind::word || token.text != keyword)
            continue;
        for (auto value = to_real(reader.value().text); value && values.size() < 6;
             value = to_real(reader.value().text))
            values.push_back(*value);
        break;
    }
    return values;
}

} // namespace

Conversion read_conversion(const SourceFiles& files, const Block& block, const std::string& user) {
    BlockReader reader(files, block);
    reader.next();  // name
    reader.value(); // description
    const Token type = reader.value();
    reader.value(); // format
    Conversion conversion;
    conversion.unit = to_text(reader.value().text);
    const auto kind = std::find_if(std::begin(kinds), std::end(kinds),
                                   [&](const Kind& k) { return k.word == type.text; });
    if (kind == std::end(kinds) ||
        !kind->convert(coefficients_after(reader, kind->coefficients), conversion) ||
        !std::isfinite(conversion.factor) || !std::isfinite(conversion.offset))
        throw files.fault(block.token(), user + ": COMPU_METHOD " + to_shown(block.name) +
                                             " is not linear: " + to_shown(type.text));
    return conversion;
}

} // namespace a2l
