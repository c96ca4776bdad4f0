#include "tests/faults/BusDecoder.h"
#include "tests/faults/FaultyPins.h"
#include "tests/faults/PanelLife.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <tuple>

using panelsim::ChipVariant;
using panelsim::PinOperation;
using Kind = PanelStep::Kind;
using FaultKind = FaultPlan::Kind;

namespace {

constexpr unsigned idGpioBase = 4;
constexpr unsigned keyGpioBase = 10;
constexpr unsigned ledGpioBase = 20;
constexpr unsigned backlightGpio = 28;
constexpr unsigned lcdGpioBase = 40;

const std::string errorMark = "! ERROR: ";
const std::string statusText = "unable to read lcd controller status ";
const std::string refusedPin = "failed to initialize one or more gpio(s)";
const std::string failedReset = "error while resetting lcd controller";

bool isLed(const PinCall& call)
{
    return call.gpio >= ledGpioBase && call.gpio < backlightGpio;
}

bool isLcd(const PinCall& call)
{
    return call.gpio >= lcdGpioBase || call.gpio == backlightGpio;
}

bool isAccess(const PinCall& call)
{
    return call.operation >= PinOperation::SetDirection;
}

std::vector<std::string> split(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/** A life that is swept. */
struct Sweep {
    const char* name;
    bool withLcd;
    ChipVariant chip;
    std::vector<PanelStep> steps;
    std::optional<Kind> only = {}; ///< the one step whose operations fail; any when empty

    friend std::ostream& operator<<(std::ostream& stream, const Sweep& life) { return stream << life.name; }
};

/** What a life does when nothing fails. */
struct CleanRun {
    explicit CleanRun(const Sweep& sweep)
    {
        PanelLife life(lifeBoard(sweep.withLcd, sweep.chip), {}, true);
        for (const PanelStep& step : sweep.steps) {
            steps.push_back(runStep(step, life));
        }
        calls = life.pins.trace;
        accesses = decodeBus(calls, sweep.chip, lcdGpioBase, backlightGpio);
    }

    /** @return the access that the operation is part of, if any */
    const BusAccess* accessOf(std::uint64_t number) const
    {
        const auto found = std::find_if(accesses.begin(), accesses.end(), [number](const BusAccess& access) {
            return access.first <= number && number <= access.last;
        });
        return found == accesses.end() ? nullptr : &*found;
    }

    /** @return how many accesses construction makes from that operation on if that and all after it throw */
    std::size_t failingAccessesOfConstruction(std::uint64_t first) const
    {
        static const std::string readMemory = "unable to read lcd controller register '240'; ";
        const std::string writeMemory = "' to register '240'; ";
        std::size_t count = 0;
        for (std::size_t i = 1; accesses[i].failureText != statusText; ++i) {
            const std::string& text = accesses[i].failureText;
            const bool isClear =
                accesses[i - 1].failureText == readMemory && text.find(writeMemory) != std::string::npos;
            // Memory is not cleared when its register could not be read before.
            count += accesses[i].last >= first && (!isClear || accesses[i].first <= first) ? 1 : 0;
        }
        return count + 1;
    }

    /** @return how many pins construction configures from that operation on */
    std::size_t initsOfConstruction(std::uint64_t first) const
    {
        return static_cast<std::size_t>(std::count_if(calls.begin(), calls.end(), [first](const PinCall& call) {
            return call.operation == PinOperation::Init && call.number >= first;
        }));
    }

    /** @return what the accesses of a step say when they fail */
    std::set<std::string> textsOf(std::size_t step) const
    {
        const std::uint64_t end = step + 1 < steps.size() ? steps[step + 1].callsBefore : calls.size();
        std::set<std::string> texts;
        for (const BusAccess& access : accesses) {
            if (access.first > steps[step].callsBefore && access.last <= end) {
                texts.insert(access.failureText);
            }
        }
        return texts;
    }

    std::vector<StepRecord> steps;
    std::vector<PinCall> calls;
    std::vector<BusAccess> accesses; ///< the LCD's; the first is the reset, the second reads the identification
};

/** Says for each step what it may have done, given the operations that failed in it. */
class Judge {
public:
    Judge(PanelLife& itsLife, const CleanRun& itsClean, const std::map<Kind, std::set<std::string>>& itsTexts)
        : life(itsLife), clean(itsClean), plan(itsLife.pins.plan), texts(itsTexts)
    {
    }

    /** @return what is wrong, empty when nothing is */
    std::string check(std::size_t index, Kind kind, const StepRecord& record)
    {
        const std::vector<PinCall> failed = ownFailuresSince(record.failuresBefore);
        const std::string result = expectedResult(kind, failed, record);
        if (record.result != result) {
            return "answers " + record.result + " instead of " + result;
        }
        const bool mayWarn = kind == Kind::Construct && !failed.empty();
        const std::string log = comparable(split(record.log), mayWarn);
        const std::string wanted = comparable(expectedLog(kind, failed, record), mayWarn);
        if (log != wanted) {
            return "writes\n" + record.log + "instead of\n" + wanted;
        }
        if (kind == Kind::Construct && givesUp(failed, record)) {
            return "gives up what is to be done whatever becomes of the rest";
        }
        if (kind == Kind::Keys && polling &&
            life.pins.reads.size() - record.readsBefore !=
                clean.steps[index + 1].readsBefore - clean.steps[index].readsBefore) {
            return "does not read every key in every scan";
        }
        polling = kind == Kind::Start ? record.result == "true" : polling && kind != Kind::Stop;
        if (kind == Kind::Keys && life.keyEvents != expectedKeyEvents()) {
            return "tells " + life.keyEvents + " instead of " + expectedKeyEvents();
        }
        const bool setsAllLeds = kind == Kind::AllLeds || kind == Kind::Stop;
        return setsAllLeds && std::none_of(failed.begin(), failed.end(), isLed) && record.leds != expectedLeds(index)
                   ? "leaves LEDs as they should not be"
                   : "";
    }

private:
    /**
     * What was read back is compared when nothing failed, or what failed said so; an answer false puts other bytes on
     * the bus. A status byte that was read in vain is not.
     */
    std::string comparable(const std::vector<std::string>& lines, bool mayWarn) const
    {
        const bool bytesDiffer = mayWarn && plan.kind == FaultKind::Refuses;
        const std::pair<std::string, bool> unknownBytes[] = {{"INFO: LcdControl ", bytesDiffer},
                                                             {"INFO: status register: 1 0x", bytesDiffer},
                                                             {"INFO: status register: 0 0x", true}};
        std::string text;
        for (std::string line : lines) {
            if (mayWarn && line.rfind("WARNING: value '", 0) == 0) {
                continue;
            }
            for (const auto& [beginning, isUnknown] : unknownBytes) {
                line = isUnknown && line.rfind(beginning, 0) == 0 ? beginning : line;
            }
            text += line + "\n";
        }
        return text;
    }

    std::vector<PinCall> ownFailuresSince(std::size_t before) const
    {
        std::vector<PinCall> own;
        const auto& all = life.pins.failures;
        std::copy_if(all.begin() + static_cast<std::ptrdiff_t>(before), all.end(), std::back_inserter(own),
                     [](const PinCall& call) { return call.ownThread; });
        return own;
    }

    /** Of exceptions, those of LED operations and of what makes pins ready reach the application. */
    static bool reachesApplication(const PinCall& call)
    {
        return call.foreign || (call.threw() && (!isAccess(call) || isLed(call)));
    }

    std::string expectedResult(Kind kind, const std::vector<PinCall>& failed, const StepRecord& record)
    {
        const auto any = [&failed](auto condition) { return std::any_of(failed.begin(), failed.end(), condition); };
        const auto escaped = std::find_if(failed.begin(), failed.end(), reachesApplication);
        if (escaped != failed.end()) {
            return escaped->foreign ? "foreign" : "throws " + escaped->what;
        }
        bool ok = true;
        switch (kind) {
        case Kind::Detect:
            ok = panelId(record) == life.board.getConfig().panelId;
            break;
        case Kind::Construct:
            lcdReady = !life.board.getConfig().hasLcd || !any([&](const PinCall& call) {
                return isLcd(call) && (!isAccess(call) || (call.threw() && plan.first <= clean.accesses.front().last));
            });
            break;
        case Kind::Led:
            ok = failed.empty();
            break;
        case Kind::IsRunning:
            ok = polling && lcdReady;
            break;
        case Kind::Display:
        case Kind::Reset:
            ok = lcdReady && !any([](const PinCall& call) { return call.threw(); }) &&
                 !any([](const PinCall& call) { return call.gpio == backlightGpio; });
            break;
        default:
            break;
        }
        return ok ? "true" : "false";
    }

    unsigned panelId(const StepRecord& record) const
    {
        unsigned id = 0;
        unsigned bit = 0;
        for (std::size_t i = record.readsBefore; i < life.pins.reads.size(); ++i) {
            const auto& level = life.pins.reads[i].level;
            id |= level ? static_cast<unsigned>(*level) << bit++ : 0;
        }
        return id;
    }

    /** @param written the line that was written, of which only the right form is known */
    std::string errorLine(Kind kind, const PinCall& call, const std::string& written) const
    {
        if (call.gpio < ledGpioBase) {
            return errorMark +
                   (call.gpio < keyGpioBase ? "unable to read led gpio for HW ID check: "
                                            : "unable to get key gpio value: ") +
                   std::to_string(call.gpio);
        }
        // The first operation that fails is one of the clean run; what fails later is the same text as something there.
        const BusAccess* const access = call.number == plan.first ? clean.accessOf(call.number) : nullptr;
        if (access != nullptr) {
            return errorMark + access->failureText + call.what;
        }
        for (const std::string& text : texts.at(kind)) {
            const std::string line = errorMark + text + call.what;
            if (line == written) {
                return line;
            }
        }
        return errorMark + "one that ends with " + call.what;
    }

    static bool isOfNoAccess(const std::string& line)
    {
        return line.rfind(errorMark, 0) != 0 || line == errorMark + refusedPin || line == errorMark + failedReset;
    }

    std::vector<std::string> expectedLog(Kind kind, const std::vector<PinCall>& failed, const StepRecord& record) const
    {
        std::vector<std::string> written = split(record.log);
        written.erase(std::remove_if(written.begin(), written.end(), isOfNoAccess), written.end());
        written.resize(failed.size());
        std::vector<std::string> lines;
        for (const PinCall& call : failed) {
            if (call.threw() && !reachesApplication(call)) {
                lines.push_back(errorLine(kind, call, written[lines.size()]));
            }
        }
        const bool threw = record.result != "true" && record.result != "false";
        switch (kind) {
        case Kind::Detect:
            if (!threw) {
                lines.push_back(typeLine(panelId(record)));
            }
            break;
        case Kind::Construct:
            return constructionLog(std::move(lines), failed, record);
        case Kind::Keys:
            for (std::size_t i = 0; i < life.keyEvents.size(); i += 2) {
                lines.push_back("INFO: key event from: " + life.keyEvents.substr(i, 1));
            }
            break;
        case Kind::Stop:
            if (polling) {
                lines.push_back("INFO: KeyHandler stop called");
            }
            break;
        default:
            break;
        }
        return lines;
    }

    static std::string typeLine(unsigned id)
    {
        switch (id) {
        case 5:
            return "INFO: detected outdoor front panel type";
        case 15:
            return "INFO: detected indoor front panel type";
        default:
            return "WARNING: detected unknown front panel type: " + std::to_string(id);
        }
    }

    /** Where the log lines of construction stand among its error lines depends on which part of it failed. */
    std::vector<std::string> constructionLog(std::vector<std::string> lines, const std::vector<PinCall>& failed,
                                             const StepRecord& record) const
    {
        if (!life.board.getConfig().hasLcd) {
            return lines;
        }
        const BusAccess& identification = clean.accesses.at(1);
        const std::string idLine = split(clean.steps[constructIndex()].log).front();
        if (record.result == "foreign" && plan.first > identification.last) {
            lines.push_back(idLine);
        }
        if (record.result != "true") {
            return lines;
        }
        const bool keyFailed = !failed.empty() && failed.front().gpio < ledGpioBase && failed.front().threw();
        auto lcdLines = lines.begin() + (keyFailed ? 1 : 0);
        if (!lcdReady) {
            const bool refused = std::any_of(failed.begin(), failed.end(), [](const PinCall& call) {
                return isLcd(call) && call.operation == PinOperation::Init;
            });
            lines.insert(lcdLines + (refused ? 0 : 1), errorMark + (refused ? "failed to initialize one or more gpio(s)"
                                                                            : "error while resetting lcd controller"));
            lines.push_back("INFO: status register: 0 0x0");
            return lines;
        }
        const bool statusFailed = !lines.empty() && lines.back().rfind(errorMark + statusText, 0) == 0;
        const bool idFailed = clean.accessOf(plan.first) == &identification && lcdLines != lines.end();
        lines.insert(lcdLines + (idFailed ? 1 : 0), idFailed ? "INFO: LcdControl 0" : idLine);
        lines.push_back(statusFailed ? "INFO: status register: 0 0x0" : "INFO: status register: 1 0x40");
        return lines;
    }

    bool givesUp(const std::vector<PinCall>& failed, const StepRecord& record) const
    {
        if (!plan.lasting || failed.empty() || record.result != "true" || !life.board.getConfig().hasLcd) {
            return false;
        }
        if (failed.front().operation == PinOperation::Init) {
            return failed.size() != clean.initsOfConstruction(std::max(plan.first, record.callsBefore));
        }
        return failed.front().threw() && plan.first > clean.accesses.at(1).last && lcdReady &&
               failed.size() != clean.failingAccessesOfConstruction(plan.first);
    }

    std::size_t constructIndex() const { return clean.steps.size() > 4 ? 1 : 0; }

    std::string expectedKeyEvents() const
    {
        std::map<unsigned, bool> pressed;
        bool readable = true;
        unsigned heldPolls = 0;
        std::string events;
        for (const FaultyPins::Read& read : life.pins.reads) {
            const unsigned key = read.gpio - keyGpioBase;
            if (read.gpio < keyGpioBase) {
                continue;
            }
            if (read.ownThread) {
                readable = readable && read.level;
                if (readable) {
                    pressed[key] = *read.level;
                }
            } else if (read.level && pressed.count(key) != 0) {
                const bool repeated = *read.level && pressed[key] && ++heldPolls == 9;
                if (repeated || *read.level != pressed[key]) {
                    events += std::to_string(key) + (*read.level ? "+" : "-");
                    heldPolls = 0;
                }
                pressed[key] = *read.level;
            }
        }
        return events;
    }

    /** LEDs show what the application wanted, also of an LED that failed meanwhile; LED 6 is the key callback's. */
    std::vector<bool> expectedLeds(std::size_t index) const
    {
        std::vector<bool> leds = clean.steps[index].leds;
        const bool keyIsDown = polling && !life.keyEvents.empty() && life.keyEvents.back() == '+';
        leds[6] = leds[6] || keyIsDown;
        return leds;
    }

    PanelLife& life;
    const CleanRun& clean;
    const FaultPlan& plan;
    const std::map<Kind, std::set<std::string>>& texts;
    bool lcdReady = true;
    bool polling = false;
};

/** A way to fail. */
struct Failing {
    FaultKind kind;
    const char* name;
    const char* words;

    friend std::ostream& operator<<(std::ostream& stream, const Failing& failing) { return stream << failing.name; }
};

class PanelFaults : public testing::TestWithParam<std::tuple<Sweep, Failing>> {
protected:
    static const Sweep& sweep() { return std::get<Sweep>(GetParam()); }

    /** @return what is wrong in a life with that failure, empty when nothing is */
    std::string liveWith(const FaultPlan& plan) const
    {
        PanelLife life(lifeBoard(sweep().withLcd, sweep().chip), plan);
        Judge judge(life, clean, texts);
        for (std::size_t i = 0; i < sweep().steps.size(); ++i) {
            const Kind kind = sweep().steps[i].kind;
            const StepRecord record = runStep(sweep().steps[i], life);
            const std::string complaint = judge.check(i, kind, record);
            if (!complaint.empty()) {
                return "step " + std::to_string(i) + " " + complaint;
            }
            if (life.panel == nullptr && kind == Kind::Construct) {
                break;
            }
        }
        if (life.pins.livePins + life.board.claimedLines() != 0) {
            return "leaves pins behind";
        }
        if (!threadsEnd()) {
            return "leaves a thread behind";
        }
        return life.pins.hasUnexplainedBusFaults() ? "has bus faults: " + describe(life.board.busFaults().back()) : "";
    }

    /** The kernel lists a thread for a moment after it was joined. */
    static bool threadsEnd()
    {
        for (unsigned patience = 100000; patience != 0; --patience) {
            if (std::filesystem::hard_link_count("/proc/self/task") == 3) {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    bool canFail(const PinCall& call, FaultKind kind) const
    {
        const bool refusable = call.operation == PinOperation::Init || call.operation == PinOperation::SetValue;
        const std::size_t step = std::find_if(clean.steps.begin(), clean.steps.end(),
                                              [&](const StepRecord& s) { return s.callsBefore >= call.number; }) -
                                 clean.steps.begin() - 1;
        const BusAccess* const access = clean.accessOf(call.number);
        return (kind != FaultKind::Refuses || refusable) && (kind != FaultKind::Foreign || call.ownThread) &&
               (!sweep().only || sweep().only == sweep().steps[step].kind) &&
               (FAULTS_EXHAUSTIVE || access == nullptr || !access->isLikeOthers);
    }

    const CleanRun clean{sweep()};
    const std::map<Kind, std::set<std::string>> texts = textsOfBothChips();

private:
    static std::map<Kind, std::set<std::string>> textsOfBothChips()
    {
        std::map<Kind, std::set<std::string>> texts;
        for (const ChipVariant chip : {ChipVariant::Ra8803, ChipVariant::Ra8806}) {
            Sweep other = sweep();
            other.chip = chip;
            const CleanRun run(other);
            for (std::size_t i = 0; i < other.steps.size(); ++i) {
                texts[other.steps[i].kind].merge(run.textsOf(i));
            }
        }
        return texts;
    }
};

Sweep outdoor()
{
    return {"Outdoor", false, ChipVariant::Ra8806, wholeLife(false)};
}

const Failing foreign{FaultKind::Foreign, "ThrowsForeign", "throws no std::exception"};

std::string nameOf(const testing::TestParamInfo<std::tuple<Sweep, Failing>>& life)
{
    return std::string(std::get<Sweep>(life.param).name) + std::get<Failing>(life.param).name;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Lives, PanelFaults,
    testing::Combine(testing::Values(Sweep{"IndoorRa8803", true, ChipVariant::Ra8803, wholeLife(true)},
                                     Sweep{"IndoorRa8806", true, ChipVariant::Ra8806, wholeLife(true)},
                                     Sweep{"LampTestRa8803", true, ChipVariant::Ra8803, lampTestLife(), Kind::Start},
                                     Sweep{"LampTestRa8806", true, ChipVariant::Ra8806, lampTestLife(), Kind::Start},
                                     outdoor()),
                     testing::Values(Failing{FaultKind::Throws, "Throws", "throws"},
                                     Failing{FaultKind::ThrowsAfter, "ThrowsAfter", "takes effect and throws"},
                                     Failing{FaultKind::Refuses, "Refuses", "answers false"}, foreign)),
    nameOf);

TEST_P(PanelFaults, EndAsTheHeadersSay)
{
    const Failing& failing = std::get<Failing>(GetParam());
    ASSERT_EQ(liveWith({}), "");
    unsigned complaints = 0;
    for (const bool lasting : {false, true}) {
        unsigned cases = 0;
        for (const PinCall& call : clean.calls) {
            if (!canFail(call, failing.kind)) {
                continue;
            }
            ++cases;
            const std::string complaint = liveWith({call.number, failing.kind, lasting, false});
            if (!complaint.empty()) {
                ADD_FAILURE() << "operation " << call.number << " on GPIO " << call.gpio << " " << failing.words
                              << (lasting ? " and all after it: " : ": ") << complaint;
                ASSERT_LT(++complaints, 5U);
            }
        }
        std::printf("faults: %s, an operation %s%s: %u cases\n", sweep().name, failing.words,
                    lasting ? ", and all after it" : "", cases);
    }
}

using PanelFaultsDeathTest = PanelFaults;

INSTANTIATE_TEST_SUITE_P(Lives, PanelFaultsDeathTest,
                         testing::Combine(testing::Values(outdoor()), testing::Values(foreign)), nameOf);

TEST_P(PanelFaultsDeathTest, OnThePollingThreadTheyEndTheProcess)
{
    for (const PinOperation operation : {PinOperation::GetValue, PinOperation::SetValue}) {
        const auto call = std::find_if(clean.calls.begin(), clean.calls.end(), [operation](const PinCall& c) {
            return !c.ownThread && c.operation == operation;
        });
        ASSERT_NE(call, clean.calls.end());
        EXPECT_DEATH(liveWith({call->number, FaultKind::Foreign, false, true}), "ForeignFault");
    }
}
