#pragma once

#include "panelsim/web/Socket.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <httplib.h>
#include <string>

namespace panelsim {

/**
 * A connection that carries one request and its answer. Neither a client that sends slowly or without end nor one that
 * does not read keeps a thread for long.
 */
class HttpStream final : public httplib::Stream {
public:
    explicit HttpStream(Socket socket);

    bool is_readable() const override { return true; }
    /** @return whether the client is still there */
    bool is_writable() const override;
    ssize_t read(char* bytes, size_t size) override;
    ssize_t write(const char* bytes, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return connection.descriptor(); }

    /** @return whether something was received but nothing was sent */
    bool isUnanswered() const;
    /** @return whether the request was cut off since it is too long */
    bool isTooLong() const;

    /** Sends the end of an answer, or one to a client that was turned away. */
    void writeLast(const std::string& bytes) { send(bytes.data(), bytes.size()); }

    /** Ends the answer, and waits a little until the client has it. */
    void finish();

    /** @name From any thread while the object exists */
    ///@{
    /** Ends the request where it is. */
    void stopReading();
    /**
     * Gives the request up if the client is being waited for: write then does nothing.
     * @return whether it was
     */
    bool turnAway();
    bool wasTurnedAway() const { return phase == Phase::TurnedAway; }
    /** Ends the request and the answer where they are. */
    void abort();
    ///@}

private:
    using Clock = std::chrono::steady_clock;

    enum class Phase { Busy, Waiting, TurnedAway };

    bool fill();
    bool waitForClient();
    ssize_t send(const char* bytes, size_t size);

    Socket connection;
    Clock::time_point readDeadline;
    std::atomic<bool> readingStopped{false};
    std::atomic<Phase> phase{Phase::Busy};
    std::array<char, 4096> buffer{};
    std::size_t begin = 0; ///< of what was received and not read
    std::size_t end = 0;
    std::size_t received = 0; ///< in all
    bool answered = false;
};

} // namespace panelsim
