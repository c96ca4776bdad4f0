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
    /** @param served where the page is served, with the port that it is */
    explicit RequestGuard(HttpAddress served);

    /**
     * @param hosts values of all Host headers
     * @param origins values of all Origin headers
     * @return one line of text that says why the request is refused, empty when it is not
     */
    std::optional<std::string> refusal(const std::vector<std::string>& hosts,
                                       const std::vector<std::string>& origins) const;

private:
    bool isOurs(const std::string& hostAndPort) const;

    HttpAddress served;
};

} // namespace panelsim
