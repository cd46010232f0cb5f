#pragma once

#include <arpa/inet.h>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>

#include "base/fd.h"
#include "platform/stock/process/call_wait.h"
#include "platform/time_stamp.h"

/* Plain sockets, for messages that no proper library would send. */

inline sockaddr_in loopback(int port, in_addr_t host = INADDR_LOOPBACK)
{
    return {AF_INET, htons(static_cast<uint16_t>(port)), {htonl(host)}, {}};
}

/* A listening socket on a free port. */
class TListener {
public:
    TListener() : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof(address);
        (void)bind(m_fd.get(), reinterpret_cast<sockaddr *>(&address), size);
        (void)listen(m_fd.get(), 16);
        (void)getsockname(m_fd.get(), reinterpret_cast<sockaddr *>(&address), &size);
        m_port = ntohs(address.sin_port);
    }
    int port() const { return m_port; }
    int fd() const { return m_fd.get(); }
    TFd accept_one() const { return TFd(accept4(m_fd.get(), nullptr, nullptr, SOCK_CLOEXEC)); }
    static int free_port() { return TListener().port(); } // without a listener

private:
    TFd m_fd;
    int m_port = 0;
};

/* One end of a connection. */
class TRawSocket {
public:
    explicit TRawSocket(TFd fd) : m_fd(std::move(fd)) {}
    /* A client that says something at once. */
    explicit TRawSocket(int port, std::string_view text = "", in_addr_t host = INADDR_LOOPBACK)
        : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_in address = loopback(port, host);
        (void)connect(m_fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address));
        (void)say(text);
    }

    /* False when the peer has gone away. */
    bool say(std::string_view text) const
    {
        while (!text.empty()) {
            const ssize_t sent = send(m_fd.get(), text.data(), text.size(), MSG_NOSIGNAL);
            if (sent <= 0)
                return false;
            text.remove_prefix(static_cast<size_t>(sent));
        }
        return true;
    }

    /* What arrives until `enough`, the end of the connection or 5 s of silence. */
    std::string hear(const std::function<bool(const std::string &)> &enough = [](const auto &) { return false; }) const
    {
        std::string text;
        while (!enough(text)) {
            pollfd ready = {m_fd.get(), POLLIN, 0};
            char chunk[16384];
            const ssize_t got = poll(&ready, 1, 5000) == 1 ? recv(m_fd.get(), chunk, sizeof(chunk), 0) : 0;
            if (got <= 0)
                break;
            text.append(chunk, static_cast<size_t>(got));
        }
        return text;
    }
    std::string hear_answer() const
    {
        return hear([](const std::string &text) {
            const size_t head = text.find("\r\n\r\n");
            const size_t length = text.find("Content-Length: ");
            return head != std::string::npos && length < head &&
                   text.size() >= head + 4 + strtoul(text.c_str() + length + 16, nullptr, 10);
        });
    }
    /* Whether the peer has closed, with nothing left to hear. */
    bool is_over() const
    {
        char byte = 0;
        const ssize_t got = recv(m_fd.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        return got == 0 || (got < 0 && errno == ECONNRESET);
    }

private:
    TFd m_fd;
};

/* A peer that accepts one request and sends the given answer and that many KiB of filler. Then it closes the
 * connection, or keeps it open to its client's end. */
class TScriptedPeer {
public:
    TScriptedPeer(const std::string &answer, size_t filler_kib, bool holds)
    {
        m_thread = std::thread([=, this] {
            const TRawSocket client(m_listener.accept_one());
            (void)client.hear([](const std::string &request) { return !request.empty(); });
            call_waits_wake(); // as other threads do at any time
            bool heard = client.say(answer);
            for (size_t i = 0; i < filler_kib && heard; ++i)
                heard = client.say(std::string(1024, 'x'));
            if (holds)
                (void)client.hear();
        });
    }
    ~TScriptedPeer()
    {
        (void)shutdown(m_listener.fd(), SHUT_RDWR); // wakes accept
        m_thread.join();
    }
    int port() const { return m_listener.port(); }

private:
    TListener m_listener;
    std::thread m_thread;
};

/* Fails the test when its scope lasts longer. */
class TAtMost {
public:
    explicit TAtMost(uint64_t limit_ms) : m_end_ms(current_time_stamp_mono_r() + limit_ms) {}
    ~TAtMost() { EXPECT_LT(current_time_stamp_mono_r(), m_end_ms); }

private:
    const uint64_t m_end_ms;
};
