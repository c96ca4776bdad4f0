#pragma once

#include "panelsim/web/HttpAddress.h"
#include "panelsim/web/Socket.h"

#include <atomic>
#include <functional>
#include <optional>
#include <string>

namespace panelsim {

/** Takes connections on an address. No process that is started inherits a socket of it. */
class ListeningSocket {
public:
    /**
     * @throws std::system_error, std::runtime_error with a text that names the address and says what to do when it is
     * taken
     */
    explicit ListeningSocket(const HttpAddress& address);

    /** @return the address, with the port that the system chose when any was to be taken */
    const HttpAddress& address() const { return bound; }

    int descriptor() const { return socket.descriptor(); }

    /**
     * @param complain is told in one line why there is no connection to be had just now, once until there is one
     * @return the next connection, nothing once it was stopped
     */
    std::optional<Socket> accept(const std::function<void(const std::string&)>& complain);

    /** Ends accept. From any thread. */
    void stop();

private:
    HttpAddress bound;
    Socket socket;
    std::atomic<bool> stopped{false};
};

} // namespace panelsim
