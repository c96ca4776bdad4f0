/*
 * What the GPIO layer costs beyond its system calls: setting and reading a line and turning the eight data lines of an
 * LCD around, against bare pwrite and pread calls on held descriptors, and against opening the file for each access.
 * The lines are ordinary files in a temporary directory, in memory where the machine has such a file system. All are
 * measured in turns in one run, since machines change their speed; the ratio counts.
 * Prints a line for each row, with tabs between the row's name, the time measured and what it is compared with, both in
 * nanoseconds: medians of the processor's time, since none of the operations sleeps.
 */
#include "bench/BareFile.h"
#include "bench/Check.h"
#include "frontpanelhw/lcd/LcdRa8822.h"
#include "frontpanelhw/lcd/LcdRa8822Gpios.h"
#include "sysfs/ISysfsGpio.h"
#include "sysfs/KernelGpio.h"
#include "sysfs/LinuxGpio.h"
#include "sysfs/PinDirectionEn.h"
#include "sysfs/SystemCalls.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using bench::BareFile;
using sysfs::PinDirectionEn;

/** A directory with the files of the kernel's GPIO interface, for as long as the object lives. */
class TemporaryInterface {
public:
    TemporaryInterface()
    {
        const bool inMemory = access("/dev/shm", W_OK) == 0;
        const std::string parent = inMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string();
        directory = parent + "/gpio-layer-XXXXXX";
        bench::check(mkdtemp(directory.data()) != nullptr, "mkdtemp");
        write("export", "");
        write("unexport", "");
    }
    ~TemporaryInterface()
    {
        std::error_code ignored; // a destructor cannot report it
        std::filesystem::remove_all(directory, ignored);
    }
    TemporaryInterface(const TemporaryInterface&) = delete;
    TemporaryInterface& operator=(const TemporaryInterface&) = delete;

    const std::string& root() const { return directory; }

    /** @return the directory of a line that nobody holds yet, an input at low level */
    std::string addLine(unsigned gpioNumber)
    {
        const std::string line = "gpio" + std::to_string(gpioNumber);
        std::filesystem::create_directory(directory + "/" + line);
        write(line + "/direction", "in");
        write(line + "/value", "0");
        write(line + "/active_low", "0");
        return directory + "/" + line;
    }

private:
    void write(const std::string& file, const char* text)
    {
        if (!(std::ofstream(directory + "/" + file) << text).flush()) {
            throw std::runtime_error("cannot write " + directory + "/" + file);
        }
    }

    std::string directory;
};

constexpr std::size_t dataLines = 8;
constexpr unsigned pinNumber = 100;
constexpr unsigned bareNumber = 101;
constexpr unsigned dataBase = 40;
constexpr unsigned bareDataBase = 60;

/** Lines of the layer, and as many of the same kind that are used without it. */
class Lines {
public:
    Lines() : pin(makePin(pinNumber)), barePath(interface.addLine(bareNumber) + "/value"), bare(barePath, O_RDWR)
    {
        for (unsigned i = 0; i < dataLines; ++i) {
            lcdPins.dataGpios[i] = makePin(dataBase + i);
            bareDirections[i] =
                std::make_unique<BareFile>(interface.addLine(bareDataBase + i) + "/direction", O_WRONLY);
        }
    }

    void set(bool level) { pin->setValue(level); }
    void setBare(bool level) { bare.write(level ? "1" : "0"); }
    void setOpening(bool level) { BareFile(barePath, O_WRONLY).write(level ? "1" : "0"); }

    void get(bool /*level*/) { benchmark::DoNotOptimize(pin->getValue()); }
    void getBare(bool /*level*/) { benchmark::DoNotOptimize(bare.readLevel()); }
    void getOpening(bool /*level*/) { benchmark::DoNotOptimize(BareFile(barePath, O_RDONLY).readLevel()); }

    void turn(bool output) { lcd.setDataDirection(output ? PinDirectionEn::Output : PinDirectionEn::Input); }
    void turnBare(bool output)
    {
        for (const auto& direction : bareDirections) {
            direction->write(output ? "low" : "in");
        }
    }

private:
    std::unique_ptr<sysfs::ISysfsGpio> makePin(unsigned gpioNumber)
    {
        interface.addLine(gpioNumber);
        auto made = std::make_unique<sysfs::KernelGpio>([this](unsigned number) {
            return sysfs::exportLinuxGpio(sysfs::SystemCalls::instance(), interface.root(), number, number);
        });
        made->exportGpio(gpioNumber);
        made->init(false, PinDirectionEn::Output, false);
        return made;
    }

    TemporaryInterface interface;
    std::unique_ptr<sysfs::ISysfsGpio> pin;
    std::string barePath;
    BareFile bare;
    frontpanelhw::lcd::LcdRa8822Gpios lcdPins;
    std::array<std::unique_ptr<BareFile>, dataLines> bareDirections;
    frontpanelhw::lcd::LcdRa8822 lcd{lcdPins, false};
};

template <void (Lines::*perform)(bool turn)>
void repeat(benchmark::State& state, Lines& lines)
{
    bool turn = false;
    for (auto _ : state) {
        turn = !turn;
        (lines.*perform)(turn);
    }
}

constexpr struct {
    const char* name;
    void (*repeat)(benchmark::State& state, Lines& lines);
} operations[] = {
    {"set", repeat<&Lines::set>},
    {"set bare", repeat<&Lines::setBare>},
    {"set opening", repeat<&Lines::setOpening>},
    {"get", repeat<&Lines::get>},
    {"get bare", repeat<&Lines::getBare>},
    {"get opening", repeat<&Lines::getOpening>},
    {"turn", repeat<&Lines::turn>},
    {"turn bare", repeat<&Lines::turnBare>},
};

constexpr struct {
    const char* name;
    const char* measured;
    const char* floor;
} rows[] = {
    {"setValue of the GPIO layer, against a bare pwrite", "set", "set bare"},
    {"getValue of the GPIO layer, against a bare pread", "get", "get bare"},
    {"a write that opens the file, against setValue of the GPIO layer", "set opening", "set"},
    {"a read that opens the file, against getValue of the GPIO layer", "get opening", "get"},
    {"direction of eight data lines, against eight bare pwrites", "turn", "turn bare"},
};

/** Keeps the median of each benchmark. */
class Medians : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                nanoseconds[run.run_name.function_name] = run.GetAdjustedCPUTime();
            }
        }
    }

    double of(const std::string& name) const { return nanoseconds.at(name); }

private:
    std::map<std::string, double> nanoseconds;
};

void measure()
{
    std::string arguments[] = {"gpio-layer", "--benchmark_repetitions=201", "--benchmark_min_time=0.005",
                               "--benchmark_enable_random_interleaving=true"};
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());

    Lines lines;
    for (const auto& operation : operations) {
        benchmark::RegisterBenchmark(operation.name, operation.repeat, std::ref(lines));
    }
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    for (const auto& row : rows) {
        std::printf("%s\t%.1f\t%.1f\n", row.name, medians.of(row.measured), medians.of(row.floor));
    }
}

} // namespace

int main()
{
    try {
        measure();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "gpio-layer: %s\n", error.what());
        return 1;
    }
    return 0;
}
