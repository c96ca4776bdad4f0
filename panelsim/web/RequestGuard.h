#pragma once

#include "panelsim/web/HttpAddress.h"

#include <optional>
#include <string>
#include <vector>

namespace panelsim {

/**
 * Tells requests of the served page from those that another site makes a browser send, be it by a foreign origin or by
 * a name of its own that it lets point to this machine.
 */
class RequestGuard {
public:
    /** Values of all headers of one name each. */
    struct Headers {
        std::vector<std::string> hosts = {};
        std::vector<std::string> origins = {};
        std::vector<std::string> fetchSites = {}; ///< Sec-Fetch-Site
        std::vector<std::string> fetchModes = {}; ///< Sec-Fetch-Mode
    };

    /** @param served where the page is served, with the port that it is */
    explicit RequestGuard(HttpAddress served);

    /** @return one line of text that says why a request is refused, empty when it is not */
    std::optional<std::string> refusal(const Headers& headers) const;

private:
    bool isOurs(const std::string& hostAndPort) const;

    HttpAddress served;
};

} // namespace panelsim
