#include "tests/panelsim/web/EventReader.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

constexpr auto patience = 30s;

} // namespace

EventReader::EventReader(int port) : connection("127.0.0.1", port)
{
    connection.set_read_timeout(patience);
    thread = std::thread([this] {
        const auto head = [this](const httplib::Response& response) {
            const std::lock_guard<std::mutex> lock(mutex);
            status = response.status;
            return true;
        };
        connection.Get("/events", head, [this](const char* bytes, size_t count) { return take({bytes, count}); });
        const std::lock_guard<std::mutex> lock(mutex);
        ended = true;
        changed.notify_all();
    });
}

EventReader::~EventReader()
{
    connection.stop();
    thread.join();
}

bool EventReader::take(const std::string& bytes)
{
    static const std::string dataMark = "\ndata: ";
    const std::lock_guard<std::mutex> lock(mutex);
    unread += bytes;
    for (auto end = unread.find("\n\n"); end != std::string::npos; end = unread.find("\n\n")) {
        const std::string block = unread.substr(0, end);
        unread.erase(0, end + 2);
        const auto name = block.find("event: ");
        const auto data = block.find(dataMark);
        if (name != std::string::npos) {
            events.emplace_back(block.substr(name + 7, data - name - 7),
                                json::parse(block.substr(data + dataMark.size())));
        }
    }
    changed.notify_all();
    return true;
}

json EventReader::next(const std::string& name, const Condition& condition)
{
    json found;
    const auto fits = [&](const auto& event) { return event.first == name && condition(event.second); };
    std::unique_lock<std::mutex> lock(mutex);
    const bool came = changed.wait_for(lock, patience, [&] {
        const auto event = std::find_if(events.begin(), events.end(), fits);
        if (event == events.end()) {
            return ended;
        }
        found = event->second;
        events.erase(events.begin(), event + 1);
        return true;
    });
    EXPECT_TRUE(came && !found.is_null()) << "no such event: " << name;
    return found;
}

json EventReader::next(const std::string& name)
{
    return next(name, [](const json&) { return true; });
}

std::string EventReader::client()
{
    return next("hello").value("client", "");
}

int EventReader::waitForEnd()
{
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, patience, [&] { return ended; }));
    return status;
}
