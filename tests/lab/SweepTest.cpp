#include "tests/lab/PanelLab.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <tuple>

using Kind = PinFailure::Kind;

namespace {

class Sweep : public testing::TestWithParam<std::tuple<PanelScript, Kind>> {};

std::string nameOf(const testing::TestParamInfo<Sweep::ParamType>& sweep)
{
    static const char* const kinds[] = {"Before", "After", "False", "Foreign"};
    return std::get<PanelScript>(sweep.param).name + kinds[static_cast<int>(std::get<Kind>(sweep.param))];
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Corpus, Sweep,
                         testing::Combine(testing::ValuesIn(panelScripts()),
                                          testing::Values(Kind::Before, Kind::After, Kind::False, Kind::Foreign)),
                         nameOf);

TEST_P(Sweep, EveryFailingOperationEndsAsTheHeadersSay)
{
    const auto& [script, kind] = GetParam();
    const LivedPanel lived = livePanel(script.text);
    // Panels of one kind are constructed alike: the whole lives fail in it.
    const std::uint64_t first = script.name.rfind("Whole", 0) == 0 ? 1 : lived.constructed + 1;
    unsigned cases = 0;
    for (std::uint64_t operation = first; operation <= lived.operations; operation += SWEEP_STRIDE) {
        for (const bool lasting : {false, true}) {
            try {
                cases += livePanel(script.text, {operation, kind, lasting}).failed ? 1 : 0;
            } catch (const std::exception& e) {
                FAIL() << "operation " << operation << (lasting ? " and all after it: " : ": ") << e.what();
            }
        }
    }
    std::printf("faults: %s: %u cases\n", nameOf({GetParam(), 0}).c_str(), cases);
}
