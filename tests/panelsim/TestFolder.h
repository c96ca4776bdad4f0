#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/** A new folder, removed with all that is in it. */
class TestFolder {
public:
    ~TestFolder() { std::filesystem::remove_all(folder); }

    std::filesystem::path path(const std::string& name) const { return folder / name; }

    void write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
    }
    std::string read(const std::string& name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string pattern = (std::filesystem::temp_directory_path() / "panelsimXXXXXX").string();
    const std::filesystem::path folder = mkdtemp(pattern.data());
};
