#pragma once

#include <chrono>
#include <string>

/* Progress of long work on standard error: on a terminal one line that is overwritten,
 * with the share done and the time left; elsewhere a plain line per step. */
class TProgress {
public:
    TProgress(std::string name, size_t steps);
    ~TProgress();
    TProgress(const TProgress &) = delete;
    TProgress &operator=(const TProgress &) = delete;

    /* To be called before each step, with its name. */
    void next(const std::string &step);

private:
    const std::string m_name;
    const size_t m_steps;
    size_t m_begun = 0;
    const bool m_terminal;
    const std::chrono::steady_clock::time_point m_start;
};

/* "report: 40 %, 3 s left, CPU of the cores" after `done` of `steps` steps took that time. */
std::string progress_text(const std::string &name, const std::string &step, size_t done, size_t steps,
                          double elapsed_s);
