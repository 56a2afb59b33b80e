// A door between the broker and a camera that a test can slam: the camera is well, the way to it is not.
#pragma once

#include <winsock2.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <thread>

namespace vextra::test {

// Passes connections to a port of this machine on to another one.
class TcpRelay {
public:
    explicit TcpRelay(std::uint16_t cameraPort);
    ~TcpRelay();
    TcpRelay(const TcpRelay&) = delete;
    TcpRelay& operator=(const TcpRelay&) = delete;

    std::uint16_t port() const { return port_; }

    enum class NewConnections { kPassedOn = 1, kToldNotFound, kRefused };
    // Each returns once the relay does as told.
    void treatNew(NewConnections how);
    void dropExisting();    // as a camera that ends
    void freezeExisting();  // open, and silent until thawed; later ones are treated as new
    void thawExisting();    // what the camera said meanwhile comes at once

private:
    struct Connection {
        SOCKET client = INVALID_SOCKET;
        SOCKET camera = INVALID_SOCKET;  // none when it is told "not found"
        bool frozen = false;
        bool ended = false;
    };
    enum class Order : std::uint32_t { kNone = 0, kDrop, kFreeze, kThaw, kEnd };

    void run();
    void obey();
    void serve();
    void listenAgain();
    void acceptOne();
    static void pass(Connection& connection, SOCKET from, SOCKET to);
    static void tellNotFound(Connection& connection);
    void command(Order order);
    void close(Connection& connection);

    const std::uint16_t cameraPort_;
    std::uint16_t port_ = 0;
    std::atomic<Order> order_{Order::kNone};
    std::atomic<NewConnections> wanted_{NewConnections::kPassedOn};
    std::atomic<NewConnections> actual_{NewConnections::kPassedOn};
    // The relay's own thread from here on.
    SOCKET listener_ = INVALID_SOCKET;
    std::list<Connection> connections_;
    std::thread thread_;
};

// Host, port and path of a camera's address.
struct CameraAddress {
    std::wstring scheme;  // with "://"
    std::uint16_t port = 0;
    std::wstring path;
};
CameraAddress parseCameraAddress(const std::wstring& url);

}  // namespace vextra::test
