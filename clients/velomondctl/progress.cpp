#include "velomondctl/progress.h"

#include <cmath>
#include <cstdio>
#include <utility>

#include <unistd.h>

TProgress::TProgress(std::string name, size_t steps)
    : m_name(std::move(name)), m_steps(steps), m_terminal(isatty(STDERR_FILENO) == 1),
      m_start(std::chrono::steady_clock::now())
{
}

TProgress::~TProgress()
{
    if (m_terminal && m_begun > 0)
        (void)fputs("\r\033[K", stderr);
}

void TProgress::next(const std::string &step)
{
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    if (m_terminal)
        (void)fprintf(stderr, "\r\033[K%s", progress_text(m_name, step, m_begun, m_steps, elapsed).c_str());
    else
        (void)fprintf(stderr, "%s: %zu of %zu, %s\n", m_name.c_str(), m_begun + 1, m_steps, step.c_str());
    ++m_begun;
}

std::string progress_text(const std::string &name, const std::string &step, size_t done, size_t steps, double elapsed_s)
{
    std::string text = name + ": " + std::to_string(steps > 0 ? 100 * done / steps : 100) + " %";
    if (done > 0 && done < steps) {
        const double left = elapsed_s / static_cast<double>(done) * static_cast<double>(steps - done);
        text += ", " + std::to_string(static_cast<long>(std::ceil(left))) + " s left";
    }
    return text + ", " + step;
}
