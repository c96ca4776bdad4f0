#include "tests/lab/PanelLab.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class Sweep : public testing::TestWithParam<std::filesystem::directory_entry> {};

INSTANTIATE_TEST_SUITE_P(Corpus, Sweep, testing::ValuesIn(std::filesystem::directory_iterator(PANEL_CORPUS), {}),
                         [](const auto& sweep) { return sweep.param.path().filename().string(); });

/** Of SWEEP_OF operations in a row, SWEEP_TAKEN fail; which ones differs with the kind. */
TEST_P(Sweep, EveryFailingOperationEndsAsTheHeadersSay)
{
    std::ifstream file(GetParam().path(), std::ios::binary);
    const std::string script{std::istreambuf_iterator<char>(file), {}};
    const std::uint64_t operations = livePanel(script).operations;
    unsigned cases = 0;
    for (const auto kind : {PinFailure::Before, PinFailure::After, PinFailure::False, PinFailure::Foreign}) {
        for (std::uint64_t i = 2; i <= 2 * operations + 1; ++i) {
            const PinFailure failure{i / 2, kind, i % 2 == 1};
            if ((failure.operation + kind) % SWEEP_OF < SWEEP_TAKEN) {
                ASSERT_NO_THROW(cases += livePanel(script, failure).failed ? 1 : 0)
                    << "operation " << failure.operation << ", kind " << kind << ", lasting " << failure.lasting;
            }
        }
    }
    std::printf("faults: %s: %u cases\n", GetParam().path().filename().c_str(), cases);
}
