#pragma once

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>

#include "base/fd.h"
#include "platform/time_stamp.h"

/* Plain sockets, for messages that no proper library would send. */

inline sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
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

private:
    TFd m_fd;
    int m_port = 0;
};

/* A port without a listener. */
inline int free_port()
{
    return TListener().port();
}

class TRawClient {
public:
    explicit TRawClient(int port) : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_in address = loopback(port);
        (void)connect(m_fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address));
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
    std::string hear(const std::function<bool(const std::string &)> &enough) const
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
    std::string hear_all() const
    {
        return hear([](const std::string &) { return false; });
    }
    /* Whether the peer has closed, with nothing left to hear. */
    bool is_over() const
    {
        char byte = 0;
        const ssize_t got = recv(m_fd.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        return got == 0 || (got < 0 && errno == ECONNRESET);
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

private:
    TFd m_fd;
};

/* A peer that accepts one request and sends the given answer and that many KiB of filler. Then it closes the
 * connection, or keeps it open to its own end. */
class TScriptedPeer {
public:
    TScriptedPeer(const std::string &answer, size_t filler_kib, bool holds)
        : m_thread([=, this] { serve(answer, filler_kib, holds); })
    {
    }
    ~TScriptedPeer()
    {
        m_end = true;
        (void)shutdown(m_listener.fd(), SHUT_RDWR); // wakes accept
        m_thread.join();
    }
    int port() const { return m_listener.port(); }

private:
    void serve(const std::string &answer, size_t filler_kib, bool holds) const
    {
        const TFd client(accept4(m_listener.fd(), nullptr, nullptr, SOCK_CLOEXEC));
        char request[4096];
        if (!client.is_open() || recv(client.get(), request, sizeof(request), 0) <= 0)
            return;
        bool heard = send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL) >= 0;
        const std::string filler(1024, 'x');
        for (size_t i = 0; i < filler_kib && heard && !m_end; ++i)
            heard = send(client.get(), filler.data(), filler.size(), MSG_NOSIGNAL) >= 0;
        while (holds && !m_end && recv(client.get(), request, sizeof(request), 0) > 0) {
        }
    }

    TListener m_listener;
    std::atomic<bool> m_end{false};
    std::thread m_thread; // last: it uses the members above
};

/* Fails the test when its scope lasts longer. */
class TAtMost {
public:
    explicit TAtMost(uint64_t limit_ms) : m_end_ms(current_time_stamp_mono_r() + limit_ms) {}
    ~TAtMost() { EXPECT_LT(current_time_stamp_mono_r(), m_end_ms); }
    TAtMost(const TAtMost &) = delete;
    TAtMost &operator=(const TAtMost &) = delete;

private:
    const uint64_t m_end_ms;
};
