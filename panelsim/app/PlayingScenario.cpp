#include "panelsim/app/PlayingScenario.h"

#include <chrono>
#include <exception>
#include <utility>

namespace panelsim {

PlayingScenario::PlayingScenario(const Scenario& scenario, Simulation& simulation, std::function<void()> onEnd)
    : runner(scenario, simulation), result(promisedResult.get_future()),
      playing(std::async(std::launch::async, [this, ended = std::move(onEnd)] {
          try {
              promisedResult.set_value(runner.run());
          } catch (...) {
              promisedResult.set_exception(std::current_exception());
          }
          ended();
      }))
{
}

PlayingScenario::~PlayingScenario()
{
    stop();
    playing.wait();
}

std::optional<ScenarioResult> PlayingScenario::takeResult()
{
    if (!result.valid() || result.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        return std::nullopt;
    }
    return result.get();
}

} // namespace panelsim
