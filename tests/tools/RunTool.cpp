#include "tests/tools/RunTool.h"

#include "tools/Frontpanel.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>
#include <vector>

std::string runTool(std::string words)
{
    std::replace(words.begin(), words.end(), ' ', '\0');
    std::vector<const char*> arguments{"frontpanel"};
    for (std::size_t start = 0; start < words.size(); start += std::strlen(arguments.back()) + 1) {
        arguments.push_back(&words[start]);
    }
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::string text = std::to_string(tools::runFrontpanel(static_cast<int>(arguments.size()), arguments.data()));
    std::istringstream written(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr());
    std::string last;
    for (std::string line; std::getline(written, line);) {
        if (line != last && !std::isupper(static_cast<unsigned char>(line[0]))) {
            text += "|" + line;
            last = line;
        }
    }
    return text;
}
