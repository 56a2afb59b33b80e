#include "tcp_relay_win.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <string>
#include <vector>

#include "broker_fixture_win.h"

namespace vextra::test {
namespace {

constexpr int kPollMs = 5;
constexpr std::size_t kChunkBytes = 64 * 1024;

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

bool readable(SOCKET which, int waitMs) {
    WSAPOLLFD poll{which, POLLRDNORM, 0};
    return WSAPoll(&poll, 1, waitMs) == 1;
}

void closeSocket(SOCKET& which) {
    if (which != INVALID_SOCKET)
        closesocket(which);
    which = INVALID_SOCKET;
}

// An RTSP client wants the number of its request back.
std::string notFoundAnswer(const std::string& request) {
    if (request.starts_with("GET"))
        return "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    const std::size_t number = request.find("CSeq:");
    const std::string sequence =
        number == std::string::npos ? "" : request.substr(number, request.find("\r\n", number) - number);
    return "RTSP/1.0 404 Not Found\r\n" + sequence + "\r\n\r\n";
}

}  // namespace

TcpRelay::TcpRelay(std::uint16_t cameraPort) : cameraPort_(cameraPort) {
    WSADATA data{};
    WSAStartup(MAKEWORD(2, 2), &data);
    listenAgain();
    if (listener_ == INVALID_SOCKET)
        failSetUp("relay", static_cast<DWORD>(WSAGetLastError()));
    thread_ = std::thread([this] { run(); });
}

TcpRelay::~TcpRelay() {
    order_ = Order::kEnd;
    thread_.join();
    WSACleanup();
}

void TcpRelay::command(Order order) {
    order_ = order;
    while (order_ != Order::kNone)
        Sleep(1);
}

void TcpRelay::dropExisting() {
    command(Order::kDrop);
}

void TcpRelay::freezeExisting() {
    command(Order::kFreeze);
}

void TcpRelay::thawExisting() {
    command(Order::kThaw);
}

void TcpRelay::treatNew(NewConnections how) {
    wanted_ = how;
    while (actual_ != how)
        Sleep(1);
}

void TcpRelay::listenAgain() {
    listener_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    const BOOL reuse = TRUE;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse), sizeof reuse);
    sockaddr_in address = loopback(port_);
    int bytes = sizeof address;
    if (bind(listener_, generic(address), bytes) != 0 || listen(listener_, 8) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &bytes) != 0)
        closeSocket(listener_);
    port_ = ntohs(address.sin_port);
}

void TcpRelay::run() {
    while (order_ != Order::kEnd) {
        obey();
        serve();
    }
    for (Connection& connection : connections_)
        close(connection);
    closeSocket(listener_);
}

void TcpRelay::obey() {
    const NewConnections wanted = wanted_;
    if (wanted == NewConnections::kRefused)
        closeSocket(listener_);
    else if (listener_ == INVALID_SOCKET)
        listenAgain();
    actual_ = wanted;
    for (Connection& connection : connections_) {
        connection.frozen = (connection.frozen && order_ != Order::kThaw) || order_ == Order::kFreeze;
        connection.ended = connection.ended || order_ == Order::kDrop;
    }
    if (order_ != Order::kEnd)
        order_ = Order::kNone;
}

void TcpRelay::serve() {
    if (listener_ != INVALID_SOCKET && readable(listener_, 0))
        acceptOne();
    std::vector<WSAPOLLFD> polls;
    for (const Connection& connection : connections_) {
        for (const SOCKET which : {connection.client, connection.camera}) {
            if (which != INVALID_SOCKET && !connection.frozen)
                polls.push_back({which, POLLRDNORM, 0});
        }
    }
    if (polls.empty() || WSAPoll(polls.data(), static_cast<ULONG>(polls.size()), kPollMs) <= 0)
        Sleep(1);
    for (Connection& connection : connections_) {
        if (connection.frozen || connection.ended)
            continue;
        if (connection.camera == INVALID_SOCKET) {
            tellNotFound(connection);
            continue;
        }
        pass(connection, connection.client, connection.camera);
        pass(connection, connection.camera, connection.client);
    }
    connections_.remove_if([this](Connection& connection) {
        if (connection.ended)
            close(connection);
        return connection.ended;
    });
}

void TcpRelay::acceptOne() {
    Connection connection;
    connection.client = accept(listener_, nullptr, nullptr);
    if (actual_ == NewConnections::kPassedOn) {
        connection.camera = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        const sockaddr_in address = loopback(cameraPort_);
        connection.ended = connect(connection.camera, generic(address), sizeof address) != 0;
    }
    connections_.push_back(connection);
}

void TcpRelay::pass(Connection& connection, SOCKET from, SOCKET to) {
    if (connection.ended || !readable(from, 0))
        return;
    std::vector<char> chunk(kChunkBytes);
    const int taken = recv(from, chunk.data(), static_cast<int>(chunk.size()), 0);
    connection.ended = taken <= 0 || send(to, chunk.data(), taken, 0) != taken;
}

void TcpRelay::tellNotFound(Connection& connection) {
    if (!readable(connection.client, 0))
        return;
    char request[4096];
    const int taken = recv(connection.client, request, sizeof request, 0);
    if (taken > 0) {
        const std::string answer = notFoundAnswer({request, static_cast<std::size_t>(taken)});
        send(connection.client, answer.data(), static_cast<int>(answer.size()), 0);
        shutdown(connection.client, SD_SEND);
        return;  // until the client closes, which makes sure that it has read the answer
    }
    connection.ended = true;
}

void TcpRelay::close(Connection& connection) {
    closeSocket(connection.client);
    closeSocket(connection.camera);
}

CameraAddress parseCameraAddress(const std::wstring& url) {
    const std::size_t host = url.find(L"://") + 3;
    const std::size_t port = url.find(L':', host) + 1;
    const std::size_t path = url.find(L'/', port);
    return {url.substr(0, host), static_cast<std::uint16_t>(std::stoul(url.substr(port, path - port))),
            url.substr(path)};
}

}  // namespace vextra::test
