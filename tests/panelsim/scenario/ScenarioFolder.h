#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

/** A new folder for a scenario and its pictures, removed with all that is in it. */
class ScenarioFolder {
public:
    ScenarioFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "scenarioXXXXXX").string();
        folder = mkdtemp(name.data());
    }
    ~ScenarioFolder() { std::filesystem::remove_all(folder); }

    ScenarioFolder(const ScenarioFolder&) = delete;
    ScenarioFolder& operator=(const ScenarioFolder&) = delete;

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

    /** Writes a scenario whose steps begin in line 4. */
    std::filesystem::path writeSteps(const std::string& steps) const
    {
        return write("a.yaml", "name: Try\nversion: 1\nsteps:\n" + steps + "\n");
    }

private:
    std::filesystem::path folder;
};
