#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

/** A new folder, removed with all that is in it. */
class TestFolder {
public:
    ~TestFolder() { std::filesystem::remove_all(folder); }

    std::filesystem::path path(const std::string& name) const { return folder / name; }

    std::filesystem::path write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }
    std::string read(const std::string& name) const
    {
        std::ostringstream content;
        content << std::ifstream(path(name), std::ios::binary).rdbuf();
        return content.str();
    }

private:
    std::string pattern = (std::filesystem::temp_directory_path() / "panelsimXXXXXX").string();
    const std::filesystem::path folder = mkdtemp(pattern.data());
};
