#pragma once

#include <cstddef>
#include <string>

namespace Portico::Support {

/// A reply as it came over the wire.
struct RawReply {
    int code = 0;     ///< 0 where no whole reply came
    std::string head; ///< status line and header, up to the empty line
    std::string body; ///< as many bytes as Content-Length says

    /// The value of a header by its exact name; "(absent)" where there is none.
    std::string header(const std::string& name) const;
};

/// A client that sends what a test wants it to, be it nonsense. Gives up after a minute without a
/// byte, so that a test fails and does not hang.
class RawClient {
public:
    /// Connects to this machine, over IPv6 if asked; or makes a socket to connect later.
    explicit RawClient(unsigned short port, bool version6 = false);
    RawClient();
    virtual ~RawClient();
    RawClient(RawClient&& other) noexcept;
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool connect(unsigned short port, bool version6 = false);

    /// Sends all of `text`; false where the connection broke.
    virtual bool send(const std::string& text);

    /// Ends the sending side.
    void endSending();

    /// Reads one reply; the reply to HEAD has no body whatever it says.
    RawReply reply(bool toHead = false);

    /// Sends a GET for `path` and reads the reply.
    RawReply get(const std::string& path);

    /// Reads what comes up to the end of the connection.
    std::string rest();

    /// Waits for the end of the connection; false where a byte or nothing comes.
    bool isClosed();

    /// Limits what the system takes in for a client that doesn't read.
    void takeLittle();

    int handle() const { return socket; }

protected:
    enum class Outcome { Data, End, Timeout };
    virtual long receive(char* data, std::size_t size);

private:
    Outcome fill();

    int socket;
    std::string received;
};

} // namespace Portico::Support
