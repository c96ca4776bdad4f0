#include "panelsim/web/KeyRequest.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

namespace panelsim {

namespace {

using nlohmann::json;

const json& member(const json& object, const char* name)
{
    const auto found = object.find(name);
    if (found == object.end()) {
        throw std::invalid_argument("the member '" + std::string(name) + "' is missing");
    }
    return *found;
}

HeldKeys::Hand parseClient(const json& value)
{
    const std::string text = value.is_string() ? value.get<std::string>() : std::string();
    const char* const end = text.data() + text.size();
    HeldKeys::Hand client = 0;
    const auto [parsed, error] = std::from_chars(text.data(), end, client);
    if (error != std::errc() || parsed != end) {
        throw std::invalid_argument("'client' has to be a number in a string");
    }
    return client;
}

unsigned parseKey(const json& value)
{
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > std::numeric_limits<unsigned>::max()) {
        throw std::invalid_argument("'key' has to be a whole number from 0 on");
    }
    return value.get<unsigned>();
}

bool parsePressed(const json& value)
{
    if (!value.is_boolean()) {
        throw std::invalid_argument("'pressed' has to be true or false");
    }
    return value.get<bool>();
}

} // namespace

KeyRequest parseKeyRequest(const std::string& text)
{
    const json request = json::parse(text, nullptr, false);
    if (!request.is_object()) {
        throw std::invalid_argument("the body has to be a JSON object");
    }
    const KeyRequest parsed{parseClient(member(request, "client")), parseKey(member(request, "key")),
                            parsePressed(member(request, "pressed"))};
    if (request.size() != 3) {
        throw std::invalid_argument("there are other members than 'client', 'key' and 'pressed'");
    }
    return parsed;
}

} // namespace panelsim
