#pragma once

#include <condition_variable>
#include <functional>
#include <httplib.h>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/** A page: reads the events of a server in a thread of its own. */
class EventReader {
public:
    using Condition = std::function<bool(const nlohmann::json&)>;

    explicit EventReader(int port);
    /** Disconnects. */
    ~EventReader();

    EventReader(const EventReader&) = delete;
    EventReader& operator=(const EventReader&) = delete;

    /** @return the next event of that name that fulfils the condition; fails the test when none comes for long */
    nlohmann::json next(const std::string& name, const Condition& condition);
    nlohmann::json next(const std::string& name);
    /** @return the number of this client */
    std::string client();
    /** @return the status of the answer, once it is over */
    int waitForEnd();

private:
    bool take(const std::string& bytes);

    std::mutex mutex;
    std::condition_variable changed;
    std::string unread;
    std::vector<std::pair<std::string, nlohmann::json>> events; ///< not asked for so far
    int status = 0;
    bool ended = false;
    httplib::Client connection;
    std::thread thread;
};
