#include "tests/lab/PanelLab.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Script = std::pair<std::string, std::string>; ///< its name and what it says

class Sweep : public testing::TestWithParam<std::tuple<Script, PinFailure::Kind>> {};

std::vector<Script> corpus()
{
    std::vector<Script> scripts;
    for (const auto& entry : std::filesystem::directory_iterator(PANEL_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        scripts.emplace_back(entry.path().filename(), std::string{std::istreambuf_iterator<char>(file), {}});
    }
    return scripts;
}

std::string nameOf(const testing::TestParamInfo<Sweep::ParamType>& sweep)
{
    static const char* const kinds[] = {"Before", "After", "False", "Foreign"};
    return std::get<0>(sweep.param).first + kinds[std::get<1>(sweep.param)];
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Corpus, Sweep,
                         testing::Combine(testing::ValuesIn(corpus()),
                                          testing::Values(PinFailure::Before, PinFailure::After, PinFailure::False,
                                                          PinFailure::Foreign)),
                         nameOf);

/** Of SWEEP_OF operations in a row, SWEEP_TAKEN fail; which ones differs with the kind. */
TEST_P(Sweep, EveryFailingOperationEndsAsTheHeadersSay)
{
    const auto& [script, kind] = GetParam();
    const LivedPanel lived = livePanel(script.second);
    // Panels of one kind are constructed alike: the whole lives fail in it.
    const std::uint64_t first = script.first.rfind("Whole", 0) == 0 ? 1 : lived.constructed + 1;
    unsigned cases = 0;
    for (std::uint64_t operation = first; operation <= lived.operations; ++operation) {
        for (const bool lasting : {false, true}) {
            if ((operation + kind) % SWEEP_OF < SWEEP_TAKEN) {
                SCOPED_TRACE("operation " + std::to_string(operation) + (lasting ? " and all after it" : ""));
                ASSERT_NO_THROW(cases += livePanel(script.second, {operation, kind, lasting}).failed ? 1 : 0);
            }
        }
    }
    std::printf("faults: %s: %u cases\n", nameOf({GetParam(), 0}).c_str(), cases);
}
