#pragma once

#include <unistd.h>
#include <utility>

/* Owns a file descriptor and closes it; -1 is no descriptor. */
class TFd {
public:
    TFd() = default;
    explicit TFd(int fd) : m_fd(fd) {}
    ~TFd() { reset(); }
    TFd(TFd &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    TFd &operator=(TFd &&other) noexcept
    {
        if (this != &other) {
            reset();
            m_fd = std::exchange(other.m_fd, -1);
        }
        return *this;
    }
    TFd(const TFd &) = delete;
    TFd &operator=(const TFd &) = delete;

    int get() const { return m_fd; }
    bool is_open() const { return m_fd >= 0; }
    void reset()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd = -1;
};
