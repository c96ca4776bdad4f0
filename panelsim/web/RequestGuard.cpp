#include "panelsim/web/RequestGuard.h"

#include <algorithm>
#include <utility>

namespace panelsim {

namespace {

constexpr unsigned defaultPort = 80; // which browsers leave out

std::optional<std::string> withoutEnd(const std::string& text, const std::string& end)
{
    if (text.size() < end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0) {
        return std::nullopt;
    }
    return text.substr(0, text.size() - end.size());
}

/** Whether a browser says that a page of another site fetches this. A link to the served page may be anywhere. */
bool isFetchedByOthers(const RequestGuard::Headers& headers)
{
    const auto isOther = [](const std::string& site) { return site == "cross-site" || site == "same-site"; };
    return std::any_of(headers.fetchSites.begin(), headers.fetchSites.end(), isOther) &&
           headers.fetchModes != std::vector<std::string>{"navigate"};
}

} // namespace

RequestGuard::RequestGuard(HttpAddress address) : served(std::move(address))
{
}

std::optional<std::string> RequestGuard::refusal(const Headers& headers) const
{
    const auto& hosts = headers.hosts;
    const auto& origins = headers.origins;
    static const std::string scheme = "http://";
    if (hosts.size() != 1) {
        return "refused: there has to be one Host header";
    }
    if (!isOurs(hosts.front())) {
        return "refused: the Host header does not name this server";
    }
    if (origins.size() > 1) {
        return "refused: there may be one Origin header only";
    }
    const bool foreign =
        !origins.empty() && (origins.front().rfind(scheme, 0) != 0 || !isOurs(origins.front().substr(scheme.size())));
    if (foreign || isFetchedByOthers(headers)) {
        return "refused: the request comes from another site";
    }
    return std::nullopt;
}

bool RequestGuard::isOurs(const std::string& hostAndPort) const
{
    auto withoutPort = withoutEnd(hostAndPort, ":" + std::to_string(served.port));
    if (!withoutPort && served.port == defaultPort) {
        withoutPort = hostAndPort;
    }
    const auto host = withoutPort ? canonicalHost(*withoutPort) : std::nullopt;
    if (!host) {
        return false;
    }
    if (served.isWildcard()) {
        return isIpAddress(*host) || *host == "localhost";
    }
    const bool spellsLoopback = *host == "127.0.0.1" || *host == "localhost" || *host == "::1";
    return *host == served.host || (served.isLoopback() && spellsLoopback);
}

} // namespace panelsim
